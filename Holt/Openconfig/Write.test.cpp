#include "Holt/Openconfig/Write.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Holt/Failure.h"
#include "Holt/Failure.test.h"
#include "Holt/Openconfig/Roots.test.h"

namespace Holt {
namespace {

using namespace OpenconfigTesting;

TEST(OpenconfigWrite, AnInstanceIsWrittenAsTheModelHasIt) {
   auto const instance = usualInstance();
   EXPECT_EQ(openconfigText(openconfigJson({instance.get()})), R"({
   "openconfig-ptp:ptp": {
      "instances": {
         "instance": [
            {
               "id": 0,
               "config": {
                  "id": 0
               },
               "state": {
                  "id": 0
               },
               "current-ds": {
                  "state": {
                     "steps-removed": 1,
                     "offset-from-master": "-196608",
                     "mean-path-delay": "81920000"
                  }
               },
               "time-properties-ds": {
                  "state": {
                     "current-utc-offset": 37,
                     "current-utc-offset-valid": true,
                     "ptp-timescale": true
                  }
               },
               "default-ds": {
                  "clock-quality": {
                     "state": {
                        "clock-class": "ptplib-openconfig-ptp:CC_DEFAULT",
                        "clock-accuracy": "ptplib-openconfig-ptp:CA_UNKNOWN",
                        "offset-scaled-log-variance": 65535
                     }
                  },
                  "state": {
                     "priority1": 128,
                     "priority2": 127,
                     "domain-number": 24,
                     "instance-type": "BC",
                     "domain-profile": "G8275.1",
                     "clock-identity": "00-1B-19-FF-FE-01-02-03",
                     "number-ports": 4
                  }
               }
            }
         ]
      }
   }
}
)");
}

TEST(OpenconfigWrite, WhatTheModelCannotExpressGoesToOurOwnLeaves) {
   auto const instance = Openconfig::Ptp::instanceFactory("a");
   instance->idIs(4294967295U);
   auto const set = instance->defaultDsIs();
   set->clockQualityIs(
         Openconfig::Ptp::ClockQuality(Openconfig::Ptp::ClockQualityState(135, 0x80, 1)));
   set->stateIs()->domainProfileIs(Ptp::PtpProfile::gptp);
   set->state()->clockIdentityIs("grandmaster \xff");
   auto const current = instance->currentDsIs()->stateIs();
   current->offsetFromMasterIs((S64{1} << 47) + 1);
   current->meanPathDelayIs(-(S64{1} << 47));
   auto const time = instance->timePropertiesDsIs()->stateIs();
   time->currentUtcOffsetIs(-1);
   Json const json = openconfigJson({instance.get()});
   Json const& only = json["openconfig-ptp:ptp"]["instances"]["instance"][0];
   EXPECT_EQ(only["id"].dump(), "4294967295");
   EXPECT_EQ(only["current-ds"]["state"].dump(),
             R"({"steps-removed":0,"offset-from-master":"9223372036854775807",)"
             R"("ptplib-openconfig-ptp:offset-from-master-nanoseconds":"140737488355329",)"
             R"("mean-path-delay":"-9223372036854775808"})");
   EXPECT_EQ(only["time-properties-ds"]["state"].dump(),
             R"({"current-utc-offset-valid":false,"ptp-timescale":false,)"
             R"("ptplib-openconfig-ptp:current-utc-offset-unverified":-1})");
   EXPECT_EQ(only["default-ds"]["clock-quality"]["state"].dump(),
             R"({"ptplib-openconfig-ptp:clock-class-number":135,)"
             R"("ptplib-openconfig-ptp:clock-accuracy-number":128,)"
             R"("offset-scaled-log-variance":1})");
   EXPECT_EQ(only["default-ds"]["state"].dump(),
             R"({"priority1":0,"priority2":0,"domain-number":0,"instance-type":"OC",)"
             R"("ptplib-openconfig-ptp:domain-profile-name":"gptp",)"
             R"("ptplib-openconfig-ptp:clock-identity-text":"\"grandmaster \\xff\"",)"
             R"("number-ports":0})");
}

TEST(OpenconfigWrite, AbsentContainersAreAbsentAndEmptyOnesEmpty) {
   auto const instance = Openconfig::Ptp::instanceFactory("a");
   instance->currentDsIs();
   EXPECT_EQ(openconfigJson({instance.get()}).dump(),
             R"({"openconfig-ptp:ptp":{"instances":{"instance":[{"id":0,"config":{"id":0},)"
             R"("state":{"id":0},"current-ds":{}}]}}})");
   EXPECT_EQ(openconfigJson({}).dump(), R"({"openconfig-ptp:ptp":{}})");
}

TEST(OpenconfigWrite, InstancesAreInTheOrderOfTheirIdsBesideTheTransparentClock) {
   auto const first = usualInstance("b", 1);
   auto const second = usualInstance("a", 2);
   auto const clock = Openconfig::Ptp::transparentClockDefaultDSFactory("clock");
   clock->stateIs()->clockIdentityIs("00:1b:19:ff:fe:01:02:03");
   Json const json = openconfigJson({second.get(), clock.get(), first.get()});
   Json const& ptp = json["openconfig-ptp:ptp"];
   EXPECT_EQ(ptp["instances"]["instance"][0]["id"], 1);
   EXPECT_EQ(ptp["instances"]["instance"][1]["id"], 2);
   EXPECT_EQ(ptp["transparent-clock-default-ds"].dump(),
             R"({"state":{"primary-domain":0,"two-step-flag":false,)"
             R"("clock-identity":"00-1B-19-FF-FE-01-02-03","number-ports":0}})");
}

TEST(OpenconfigWrite, RootsThatTheModelCannotHoldTogetherAreRefused) {
   auto const a = usualInstance("a", 7);
   auto const b = usualInstance("b", 7);
   EXPECT_EQ(failureOf([&] {
                openconfigJson({a.get(), b.get()});
             }),
             "two instances have the id 7, 'a' and 'b'; set another, or name one");
   auto const c = Openconfig::Ptp::transparentClockDefaultDSFactory("c");
   auto const d = Openconfig::Ptp::transparentClockDefaultDSFactory("d");
   EXPECT_EQ(failureOf([&] {
                openconfigJson({c.get(), d.get()});
             }),
             "the model has one transparent clock, and there are several, such as 'c' and 'd'; "
             "name one");
}

}  // namespace
}  // namespace Holt

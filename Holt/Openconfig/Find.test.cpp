#include "Holt/Openconfig/Find.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Holt/Failure.h"
#include "Holt/Failure.test.h"
#include "Holt/Openconfig/Roots.test.h"
#include "Holt/Openconfig/Write.h"

namespace Holt {
namespace {

using namespace OpenconfigTesting;

class OpenconfigFind : public testing::Test {
protected:
   std::string at(std::string_view path) const { return openconfigAt(document_, path).dump(); }
   std::string failure(std::string_view path) const {
      return failureOf([&] { openconfigAt(document_, path); });
   }

   Sarn::Ptr<Instance> const first_ = usualInstance("a", 0);
   Sarn::Ptr<Instance> const second_ = [] {
      auto instance = Openconfig::Ptp::instanceFactory("b");
      instance->idIs(12);
      instance->defaultDsIs();
      return instance;
   }();
   Json const document_ = openconfigJson({first_.get(), second_.get()});
};

TEST_F(OpenconfigFind, AContainerHasTheNameOfItsModule) {
   EXPECT_EQ(at("openconfig-ptp:ptp/instances/instance=0/current-ds"),
             R"({"openconfig-ptp:current-ds":{"state":{"steps-removed":1,)"
             R"("offset-from-master":"-196608","mean-path-delay":"81920000"}}})");
   EXPECT_EQ(at("openconfig-ptp:ptp/openconfig-ptp:instances/instance=12/default-ds/"
                "clock-quality"),
             R"({"openconfig-ptp:clock-quality":{"state":)"
             R"({"ptplib-openconfig-ptp:clock-class-number":0,)"
             R"("ptplib-openconfig-ptp:clock-accuracy-number":0,)"
             R"("offset-scaled-log-variance":0}}})");
}

TEST_F(OpenconfigFind, ALeafIsAValue) {
   EXPECT_EQ(at("/openconfig-ptp:ptp/instances/instance=0/default-ds/state/priority2/"),
             R"({"openconfig-ptp:priority2":127})");
   EXPECT_EQ(at("openconfig-ptp:ptp/instances/instance=12/default-ds/clock-quality/state/"
                "ptplib-openconfig-ptp:clock-class-number"),
             R"({"ptplib-openconfig-ptp:clock-class-number":0})");
}

TEST_F(OpenconfigFind, AnEntryOfAListIsInAnArray) {
   EXPECT_EQ(at("openconfig-ptp:ptp/instances/instance=%312"),
             R"({"openconfig-ptp:instance":[{"id":12,"config":{"id":12},"state":{"id":12},)"
             R"("default-ds":{"clock-quality":{"state":)"
             R"({"ptplib-openconfig-ptp:clock-class-number":0,)"
             R"("ptplib-openconfig-ptp:clock-accuracy-number":0,)"
             R"("offset-scaled-log-variance":0}}}}]})");
   EXPECT_EQ(
         openconfigAt(document_, "openconfig-ptp:ptp/instances/instance")["openconfig-ptp:instance"]
               .size(),
         2U);
}

TEST_F(OpenconfigFind, TheTopIsTheDocument) {
   EXPECT_EQ(openconfigAt(document_, ""), document_);
   EXPECT_EQ(openconfigAt(document_, "/"), document_);
   EXPECT_EQ(openconfigAt(document_, "openconfig-ptp:ptp"), document_);
}

TEST_F(OpenconfigFind, WhatTheModelHasButIsNotThereNowIsNull) {
   EXPECT_EQ(at("openconfig-ptp:ptp/instances/instance=1"), "null");
   EXPECT_EQ(at("openconfig-ptp:ptp/instances/instance=00"), "null");
   EXPECT_EQ(at("openconfig-ptp:ptp/instances/instance=12/current-ds/state"), "null");
   EXPECT_EQ(at("openconfig-ptp:ptp/instances/instance=0/parent-ds/state/parent-stats"), "null");
   EXPECT_EQ(at("openconfig-ptp:ptp/instances/instance=0/ports/port=1/port-ds/state"), "null");
   EXPECT_EQ(at("openconfig-ptp:ptp/transparent-clock-default-ds"), "null");
}

TEST_F(OpenconfigFind, WhatTheModelDoesNotHaveIsRefused) {
   EXPECT_EQ(failure("ptp"), "'ptp': a path begins with 'openconfig-ptp:ptp'");
   EXPECT_EQ(failure("openconfig-ptp:ptp/instance=0"),
             "'instance': 'ptp' has no such member; did you mean 'instances'?");
   EXPECT_EQ(failure("openconfig-ptp:ptp/instances/instance=0/curent-ds"),
             "'curent-ds': 'instance' has no such member; did you mean 'current-ds'?");
   EXPECT_EQ(failure("openconfig-ptp:ptp/instances/instance/current-ds"),
             "'current-ds': 'instance' is a list: name an entry, 'instance=id'");
   EXPECT_EQ(failure("openconfig-ptp:ptp/instances=0"),
             "'instances': is not a list, and has no key");
   EXPECT_EQ(failure("openconfig-ptp:ptp/instances/instance=0/id/more"), "'more': 'id' is a leaf");
   EXPECT_EQ(failure("openconfig-ptp:ptp/acme:instances"),
             "'acme:instances': 'ptp' has no such member; did you mean 'instances'?");
   EXPECT_EQ(failure("openconfig-ptp:ptp//instances"), "'': 'ptp' has no such member");
   EXPECT_EQ(failure("openconfig-ptp:ptp/instances/instance=%1"),
             "%1: after a % must be two hexadecimal digits");
}

}  // namespace
}  // namespace Holt

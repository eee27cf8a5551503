// Documents of the OpenConfig model that cannot be loaded, or not all of them.
#include <gtest/gtest.h>

#include <fstream>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

class LoadOpenconfig : public WithServer {
protected:
   void SetUp() override { serve({"--root", "Openconfig::Ptp::Instance=instance"}); }

   Outcome load(std::string const& members, std::vector<std::string> const& more = {}) {
      std::ofstream(scratch.file("ptp.json"))
            << R"({"openconfig-ptp:ptp":{"instances":{"instance":[{"id":0,)" << members << "}]}}}";
      std::vector<std::string> args{"load", "--openconfig", scratch.file("ptp.json")};
      args.insert(args.end(), more.begin(), more.end());
      Outcome outcome = client(args);
      outcome.err = replaced(outcome.err, scratch.path() + "/", "");
      outcome.out = replaced(outcome.out, scratch.path() + "/", "");
      return outcome;
   }

   std::string state() const { return client({"dump", "--json"}).out; }
};

TEST_F(LoadOpenconfig, AnyErrorChangesNothingAndAllAreListed) {
   std::string const before = state();
   Outcome const outcome =
         load(R"("current-ds":{"state":{"steps-removed":1}},)"
              R"("default-ds":{"state":{"priority1":7,"priority2":256,"domain-numbr":1}})");
   EXPECT_EQ(outcome.status, 1);
   EXPECT_EQ(outcome.out, "");
   EXPECT_EQ(outcome.err,
             "ptpstate: /openconfig-ptp:ptp/instances/instance=0/default-ds/state/priority2: 256: "
             "is not allowed; the range is 0 to 255\n"
             "ptpstate: /openconfig-ptp:ptp/instances/instance=0/default-ds/state/domain-numbr: "
             "openconfig-ptp has no such member; did you mean 'domain-number'?\n"
             "ptpstate: ptp.json: not loaded, nothing was changed; correct the errors above\n");
   EXPECT_EQ(state(), before);
}

TEST_F(LoadOpenconfig, WhatHasNoAttributeIsCountedOrListed) {
   std::string const members =
         R"("default-ds":{"config":{"priority1":1},"state":{"priority1":7,"sdo-id":1}})";
   Outcome const counted = load(members);
   EXPECT_EQ(counted.status, 0);
   EXPECT_EQ(counted.err,
             "ptpstate: note: ptp.json: 2 members are not loaded; --notes lists them\n");
   EXPECT_EQ(counted.out, "ptp.json: 3 changes\n");
   Outcome const listed = load(members, {"--notes"});
   EXPECT_EQ(listed.err,
             "ptpstate: note: ptp.json: /openconfig-ptp:ptp/instances/instance=0/default-ds/config/"
             "priority1: not loaded: the entities hold the operational state only\n"
             "ptpstate: note: ptp.json: /openconfig-ptp:ptp/instances/instance=0/default-ds/state/"
             "sdo-id: not loaded: the entity has no such attribute\n");
   EXPECT_EQ(listed.out, "ptp.json: 0 changes\n");
   EXPECT_EQ(client({"get", "instance.defaultDs.state.priority1"}).out, "7\n");
}

TEST_F(LoadOpenconfig, InvalidJsonIsNamedWithItsPlace) {
   Outcome const outcome = load("oops");
   EXPECT_EQ(outcome.status, 1);
   EXPECT_EQ(outcome.err.substr(0, 11), "ptpstate: p");
   EXPECT_NE(outcome.err.find("ptp.json:1:"), std::string::npos) << outcome.err;
}

}  // namespace
}  // namespace Ptpstate

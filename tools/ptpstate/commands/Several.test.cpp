// Several paths, patterns, batches, and waiting for a value.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

class SeveralTest : public WithServer {
protected:
   void SetUp() override {
      serve({"--root", "Ptp::Config=ptp/config", "--root", "Ptp::Status=ptp/status"});
      for (char const* intf : {"Ethernet2", "Ethernet10", "Management1"}) {
         std::string const path = "ptp/config.intfConfig[" + std::string(intf) + "]";
         ASSERT_EQ(said({"add", path, "true", "false"}), "");
      }
   }
   /// The output, or the error.
   std::string said(std::vector<std::string> const& args, int status = 0) {
      Outcome const outcome = client(args);
      EXPECT_EQ(outcome.status, status) << outcome.err;
      return outcome.out + outcome.err;
   }
   Outcome batch(std::string const& lines) {
      std::ofstream(scratch.file("batch")) << lines;
      Surroundings in;
      in.input = scratch.file("batch");
      return run({"set", "--socket", socket, "-"}, in);
   }
   std::unique_ptr<Program> wait(std::vector<std::string> const& more) {
      std::vector<std::string> args{"wait", "--socket", socket};
      args.insert(args.end(), more.begin(), more.end());
      return std::make_unique<Program>(args);
   }
};

TEST_F(SeveralTest, GetPrintsThePathsWithTheirValues) {
   EXPECT_EQ(said({"get", "ptp/config.priority1", "ptp/config.domainNumber"}),
             "ptp/config.priority1 = 128\n"
             "ptp/config.domainNumber = 0\n");
   EXPECT_EQ(said({"get", "ptp/config.priority1"}), "128\n");
   EXPECT_EQ(said({"get", "ptp/config.priority1", "ptp/config.nothing"}, 1),
             "ptpstate: ptp/config: Ptp::Config has no attribute 'nothing'\n");
}

TEST_F(SeveralTest, APatternStandsForAllElementsThatFitInTheOrderOfDumps) {
   EXPECT_EQ(said({"get", "ptp/config.intfConfig[*].enabled"}),
             "ptp/config.intfConfig[Ethernet2].enabled = true\n"
             "ptp/config.intfConfig[Ethernet10].enabled = true\n"
             "ptp/config.intfConfig[Management1].enabled = true\n");
   EXPECT_EQ(said({"get", "ptp/config.intfConfig[Eth*0].enabled"}),
             "ptp/config.intfConfig[Ethernet10].enabled = true\n");
   EXPECT_EQ(said({"get", "ptp/config.intfConfig[x*].enabled"}, 1),
             "ptpstate: ptp/config.intfConfig[x*].enabled: nothing fits\n");
   EXPECT_EQ(said({"get", "ptp/config.intfConfig[*].nothing"}, 1),
             "ptpstate: ptp/config.intfConfig[*]: Ptp::IntfConfig has no attribute 'nothing'\n");
   EXPECT_EQ(said({"del", "ptp/config.intfConfig[*]"}, 1),
             "ptpstate: ptp/config.intfConfig: '*' fits several keys, but one is needed; a '*' "
             "that belongs to a key stands in double quotes\n");
}

TEST_F(SeveralTest, TheJsonOfAPatternIsADumpThatLoads) {
   Outcome const got = client({"get", "--json", "ptp/config.intfConfig[*].enabled"});
   ASSERT_EQ(got.status, 0) << got.err;
   said({"set", "ptp/config.intfConfig[*].enabled", "false"});
   std::ofstream(scratch.file("got.json")) << got.out;
   EXPECT_EQ(said({"load", scratch.file("got.json")}), scratch.file("got.json") + ": 3 changes\n");
   EXPECT_EQ(said({"get", "ptp/config.intfConfig[Ethernet10].enabled"}), "true\n");
}

TEST_F(SeveralTest, SetTakesPatternsAndPairs) {
   EXPECT_EQ(said({"set", "ptp/config.intfConfig[Eth*].logSyncInterval", "-3"}), "");
   EXPECT_EQ(said({"get", "ptp/config.intfConfig[*].logSyncInterval"}),
             "ptp/config.intfConfig[Ethernet2].logSyncInterval = -3\n"
             "ptp/config.intfConfig[Ethernet10].logSyncInterval = -3\n"
             "ptp/config.intfConfig[Management1].logSyncInterval = 0\n");
   EXPECT_EQ(said({"set", "ptp/config.priority1", "7", "ptp/config.priority2", "0x8"}), "");
   EXPECT_EQ(said({"get", "ptp/config.priority1", "ptp/config.priority2"}),
             "ptp/config.priority1 = 7\nptp/config.priority2 = 8\n");
   EXPECT_EQ(said({"set", "ptp/config.priority1", "9", "ptp/config.driftLimit", "7"}, 1),
             "ptpstate: ptp/config.driftLimit: 7 is not allowed; the range is 50 to 500000000\n");
   EXPECT_EQ(said({"get", "ptp/config.priority1"}), "7\n");
   EXPECT_EQ(said({"set", "ptp/config.priority1", "9", "ptp/config.driftLimit"}, 2),
             "ptpstate: value is required; see 'ptpstate set --help'\n");
}

TEST_F(SeveralTest, ABatchIsAppliedAsOne) {
   Outcome const done =
         batch("# comments and empty lines are left alone\n"
               "\n"
               "ptp/config.priority1 7\n"
               "  ptp/config.priority2\t=  8 \n"
               "ptp/config.intfConfig[Ethernet2].logSyncInterval -3\n"
               "ptp/config.missingSequenceThresholds[sync] 5\n"
               "ptp/config.intfConfig[Eth*].enabled FALSE\r\n");
   EXPECT_EQ(done.status, 0) << done.err;
   EXPECT_EQ(done.out + done.err, "");
   EXPECT_EQ(
         said({"get", "ptp/config.priority1", "ptp/config.priority2",
               "ptp/config.intfConfig[*].enabled", "ptp/config.missingSequenceThresholds[sync]"}),
         "ptp/config.priority1 = 7\n"
         "ptp/config.priority2 = 8\n"
         "ptp/config.intfConfig[Ethernet2].enabled = false\n"
         "ptp/config.intfConfig[Ethernet10].enabled = false\n"
         "ptp/config.intfConfig[Management1].enabled = true\n"
         "ptp/config.missingSequenceThresholds[sync] = 5\n");
}

TEST_F(SeveralTest, ABatchWithMistakesChangesNothingAndNamesTheirLines) {
   Outcome const refused =
         batch("ptp/config.priority1 7\n"
               "ptp/config.priority2 300\n"
               "\n"
               "ptp/config.driftLimit 7\n");
   EXPECT_EQ(refused.status, 1);
   EXPECT_EQ(refused.err,
             "ptpstate: line 2: ptp/config.priority2: 300 does not fit U8 (0 to 255)\n"
             "ptpstate: line 4: ptp/config.driftLimit: 7 is not allowed; the range is 50 to "
             "500000000\n"
             "ptpstate: nothing was changed; correct the errors above\n");
   EXPECT_EQ(said({"get", "ptp/config.priority1"}), "128\n");
   EXPECT_EQ(batch("ptp/config.priority1 700\nptp/nothing.x 1\n").err,
             "ptpstate: line 1: ptp/config.priority1: 700 does not fit U8 (0 to 255)\n"
             "ptpstate: line 2: 'ptp/nothing.x' does not begin with the name of a root; the server "
             "has ptp/config, ptp/status\n"
             "ptpstate: nothing was changed; correct the errors above\n");
   EXPECT_EQ(batch("ptp/config.priority1\n").err,
             "ptpstate: line 1: expected PATH VALUE; an empty string is \"\"\n");
   EXPECT_EQ(batch("").err, "");
   EXPECT_EQ(said({"get", "ptp/config.priority1"}), "128\n");
}

TEST_F(SeveralTest, WatchTakesPathsAndPatterns) {
   Program watcher({"watch", "--socket", socket, "--count", "2", "ptp/config.intfConfig[Eth*].ttl",
                    "ptp/config.priority2"});
   ASSERT_TRUE(watcher.says("-- ptp/config is complete: ")) << watcher.finish().err;
   said({"set", "ptp/config.priority1", "7"});
   said({"set", "ptp/config.intfConfig[*].ttl", "9"});
   Outcome const& outcome = watcher.finish();
   EXPECT_EQ(outcome.status, 0) << outcome.err;
   std::string const text = withoutTimes(outcome.out);
   EXPECT_EQ(text.substr(text.find('\n') + 1),
             "TIME ptp/config.intfConfig[Ethernet2].ttl: 1 -> 9\n"
             "TIME ptp/config.intfConfig[Ethernet10].ttl: 1 -> 9\n");
}

TEST_F(SeveralTest, WaitEndsWhenTheValueIsThere) {
   EXPECT_EQ(said({"wait", "ptp/config.priority1", "0x80"}), "");
   auto const waiting = wait({"ptp/config.intfConfig[Ethernet3].ttl", "9"});
   said({"add", "ptp/config.intfConfig[Ethernet3]", "true", "false"});
   said({"set", "ptp/config.intfConfig[Ethernet3].ttl", "9"});
   EXPECT_EQ(waiting->finish().status, 0) << waiting->finish().err;
   auto const any = wait({"ptp/config.intfConfig[*].ttl", "11"});
   said({"set", "ptp/config.intfConfig[Management1].ttl", "11"});
   EXPECT_EQ(any->finish().status, 0) << any->finish().err;
}

TEST_F(SeveralTest, WaitGivesUpWhenTheTimeIsOver) {
   EXPECT_EQ(said({"wait", "--timeout", "0.2", "ptp/config.priority1", "7"}, 1),
             "ptpstate: the time is over; ptp/config.priority1 is 128, not 7\n");
   EXPECT_EQ(said({"wait", "--timeout", "0.2", "ptp/config.intfConfig[Ethernet9].ttl", "7"}, 1),
             "ptpstate: the time is over; ptp/config.intfConfig[Ethernet9].ttl does not exist\n");
   EXPECT_EQ(said({"wait", "--timeout", "0.2", "ptp/config.intfConfig[*].ttl", "7"}, 1),
             "ptpstate: the time is over; ptp/config.intfConfig[*].ttl is 7 nowhere\n");
   EXPECT_EQ(said({"wait", "ptp/config.enabled", "perhaps"}, 1),
             "ptpstate: ptp/config.enabled: 'perhaps' is not a valid bool: at position 0: expected "
             "true or false\n");
   EXPECT_EQ(said({"wait", "ptp/config.intfConfig", "7"}, 1),
             "ptpstate: ptp/config.intfConfig: is not a value; wait needs an attribute, a field or "
             "an element\n");
}

TEST_F(SeveralTest, WaitSaysThatTheConnectionIsLost) {
   auto const waiting = wait({"ptp/config.priority1", "7"});
   for (int i = 0; i != 500 && client({"status"}).out.find("complete") == std::string::npos; ++i) {
      ::usleep(10000);
   }
   server->signal(SIGKILL);
   Outcome const& outcome = waiting->finish();
   EXPECT_EQ(outcome.status, 3);
   EXPECT_EQ(outcome.err, "ptpstate: " + socket +
                                ": the connection is lost: the peer has closed the connection; "
                                "ptp/config.priority1 is 128, not 7\n");
}

TEST_F(SeveralTest, DumpOfChangesHasWhatDiffersFromTheDefaults) {
   said({"del", "ptp/config.intfConfig"});
   said({"add", "ptp/config.intfConfig[Ethernet1]", "true", "false"});
   said({"set", "ptp/config.intfConfig[Ethernet1].ttl", "9"});
   said({"set", "ptp/config.priority1", "7"});
   said({"set", "ptp/config.missingSequenceThresholds[sync]", "5"});
   std::string const text = said({"dump", "--changed", "ptp/config"});
   EXPECT_NE(text.find("ptp/config.priority1                       = 7\n"
                       "ptp/config.missingSequenceThresholds[sync] = 5\n"),
             std::string::npos)
         << text;
   EXPECT_NE(text.find("ptp/config.intfConfig[Ethernet1] : Ptp::IntfConfig\n"
                       "ptp/config.intfConfig[Ethernet1].intf         = Ethernet1\n"
                       "ptp/config.intfConfig[Ethernet1].enabled      = true\n"
                       "ptp/config.intfConfig[Ethernet1].mpassEnabled = false\n"
                       "ptp/config.intfConfig[Ethernet1].ttl          = 9\n"),
             std::string::npos)
         << text;
   EXPECT_EQ(text.find("priority2"), std::string::npos);
   EXPECT_EQ(text.find("CounterClearList"), std::string::npos) << "every new one has it";
}

TEST_F(SeveralTest, DumpOfChangesRestoresTheWholeInANewServer) {
   said({"set", "ptp/config.priority1", "7", "ptp/config.intfConfig[*].ttl", "9"});
   said({"set", "ptp/config.missingSequenceThresholds[sync]", "5"});
   std::string const whole = said({"dump"});
   std::ofstream(scratch.file("changed.json")) << said({"dump", "--changed", "--json"});
   server.reset();
   serve({"--root", "Ptp::Config=ptp/config", "--root", "Ptp::Status=ptp/status"});
   said({"load", scratch.file("changed.json")});
   EXPECT_EQ(said({"dump"}), whole);
}

}  // namespace
}  // namespace Ptpstate

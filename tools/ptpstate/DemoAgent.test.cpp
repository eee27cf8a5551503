// The simulated agent of the demo, and its readers.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <regex>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

class DemoAgentTest : public testing::Test {
protected:
   std::unique_ptr<Program> play(std::vector<std::string> const& more) {
      std::vector<std::string> args{"--socket", socket};
      args.insert(args.end(), more.begin(), more.end());
      Surroundings in;
      in.program = "demoAgent";
      auto agent = std::make_unique<Program>(args, in);
      EXPECT_TRUE(agent->says("serving ptp/status")) << agent->finish().err;
      return agent;
   }

   Scratch scratch;
   std::string socket = scratch.file("socket");
};

TEST_F(DemoAgentTest, CountsWhatWentToAReaderThatIsGone) {
   auto const agent = play({"--ports", "8", "--seconds", "10000", "--instant"});
   Program reader({"watch", "--socket", socket});
   ASSERT_TRUE(reader.says("complete"));
   ASSERT_TRUE(reader.says("lastSyncSeqId", 3));  // it plays
   reader.signal(SIGKILL);
   ASSERT_TRUE(agent->says("played seconds")) << agent->out();
   std::smatch found;
   std::string const said = agent->out();
   ASSERT_TRUE(std::regex_search(
         said, found,
         std::regex("made (\\d+) changes in .* sent (\\d+) messages and (\\d+) bytes")))
         << said;
   EXPECT_GT(std::stoull(found[2]), 0U);
   EXPECT_LT(std::stoull(found[2]), std::stoull(found[1]) * 2) << said;
   EXPECT_LT(std::stoull(found[3]), std::stoull(found[1]) * 100) << said;
   agent->signal(SIGINT);
   EXPECT_EQ(agent->finish().status, 0);
}

TEST_F(DemoAgentTest, PlaysInRealTimeWithOrWithoutReaders) {
   auto const agent = play({"--ports", "3", "--seconds", "2"});
   auto const begin = std::chrono::steady_clock::now();
   Outcome const watched =
         run({"watch", "--socket", socket, "--count", "1", "ptp/status.currentDS.lastSyncSeqId"});
   EXPECT_EQ(watched.status, 0) << watched.err;
   ASSERT_TRUE(agent->says("made ")) << agent->out();
   EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
   EXPECT_NE(agent->out().find(" in 2 played seconds; sent "), std::string::npos) << agent->out();
   agent->signal(SIGINT);
   EXPECT_EQ(agent->finish().status, 0);
}

TEST_F(DemoAgentTest, CountsNothingSentWithoutAReader) {
   auto const agent = play({"--ports", "3", "--seconds", "1"});
   ASSERT_TRUE(agent->says("; sent 0 messages and 0 bytes to its readers\n")) << agent->out();
   agent->signal(SIGINT);
   EXPECT_EQ(agent->finish().status, 0);
}

TEST_F(DemoAgentTest, TakesNoChangesFromOthers) {
   auto const agent = play({"--ports", "3"});
   Outcome const outcome = run({"set", "--socket", socket, "ptp/status.holdoverExpiry", "5"});
   EXPECT_EQ(outcome.status, 1);
   EXPECT_EQ(outcome.err,
             "ptpstate: ptp/status: the server accepts no changes from here: ptp/status is the "
             "agent's own; it is read-only\n");
   EXPECT_EQ(run({"get", "--socket", socket, "ptp/status.holdoverExpiry"}).out, "0\n");
   agent->signal(SIGINT);
   EXPECT_EQ(agent->finish().status, 0);
}

}  // namespace
}  // namespace Ptpstate

// What a watcher prints while others change a state, and what it has at the end.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <regex>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

class WatchTest : public WithServer {
protected:
   void SetUp() override { serve({"--dump", scratch.file("server.dump")}); }
   std::unique_ptr<Program> watch(std::vector<std::string> const& more = {}) {
      std::vector<std::string> args{"watch", "--socket", socket};
      args.insert(args.end(), more.begin(), more.end());
      auto watcher = std::make_unique<Program>(args);
      EXPECT_TRUE(watcher->says("-- ptp/config is complete: ")) << watcher->finish().err;
      return watcher;
   }
   void change(std::vector<std::string> args) {
      Outcome const outcome = client(std::move(args));
      ASSERT_EQ(outcome.status, 0) << outcome.err;
   }
   static std::string ended(Program& watcher) {
      watcher.signal(SIGINT);
      EXPECT_EQ(watcher.finish().status, 0) << watcher.finish().err;
      return withoutTimes(watcher.finish().out);
   }
   std::string serverDump() {
      server->signal(SIGINT);
      EXPECT_EQ(server->finish().status, 0);
      return readFile(scratch.file("server.dump"));
   }
};

TEST_F(WatchTest, PrintsALineAChange) {
   auto const watcher = watch();
   change({"set", "ptp/config.priority1", "7"});
   change({"add", "ptp/config.intfConfig[Ethernet1]", "true", "false"});
   change({"set", "ptp/config.intfConfig[Ethernet1].logSyncInterval", "-4"});
   change({"add", "ptp/config.intfConfig[Ethernet1].vlanConfig[100]"});
   change({"set", "ptp/config.missingSequenceThresholds[sync]", "5"});
   change({"set", "ptp/config.missingSequenceThresholds[sync]", "6"});
   change({"del", "ptp/config.missingSequenceThresholds[sync]"});
   change({"del", "ptp/config.intfConfig[Ethernet1]"});
   change({"set", "ptp/config.priority1", "7"});  // is that already
   EXPECT_EQ(ended(*watcher),
             "TIME -- ptp/config is complete: 3 entities, 40 attributes\n"
             "TIME ptp/config.priority1: 128 -> 7\n"
             "TIME ptp/config.intfConfig[Ethernet1] created: enabled=true, mpassEnabled=false\n"
             "TIME ptp/config.intfConfig[Ethernet1].logSyncInterval: 0 -> -4\n"
             "TIME ptp/config.intfConfig[Ethernet1].vlanConfig[100] created\n"
             "TIME ptp/config.missingSequenceThresholds[sync] created: 5\n"
             "TIME ptp/config.missingSequenceThresholds[sync]: 5 -> 6\n"
             "TIME ptp/config.missingSequenceThresholds[sync] deleted: was 6\n"
             "TIME ptp/config.intfConfig[Ethernet1] deleted\n");
}

TEST_F(WatchTest, OfAPathPrintsWhatIsThereAndBelow) {
   auto const watcher = watch({"ptp/config.intfConfig[Ethernet1]"});
   change({"set", "ptp/config.priority1", "7"});
   change({"add", "ptp/config.intfConfig[Ethernet10]", "true", "false"});
   change({"add", "ptp/config.intfConfig[Ethernet1]", "true", "true"});
   change({"set", "ptp/config.intfConfig[Ethernet1].ttl", "3"});
   EXPECT_EQ(ended(*watcher),
             "TIME -- ptp/config is complete: 3 entities, 40 attributes\n"
             "TIME ptp/config.intfConfig[Ethernet1] created: enabled=true, mpassEnabled=true\n"
             "TIME ptp/config.intfConfig[Ethernet1].ttl: 1 -> 3\n");
   Outcome const wrong = run({"watch", "--socket", socket, "ptp/config.nothing"});
   EXPECT_EQ(wrong.status, 1);
   EXPECT_EQ(wrong.err, "ptpstate: ptp/config: Ptp::Config has no attribute 'nothing'\n");
}

TEST_F(WatchTest, EndsAfterSoManyChanges) {
   auto const watcher = watch({"--count", "2"});
   change({"set", "ptp/config.priority1", "1"});
   change({"set", "ptp/config.priority1", "2"});
   EXPECT_EQ(watcher->finish().status, 0);
   EXPECT_EQ(withoutTimes(watcher->out()),
             "TIME -- ptp/config is complete: 3 entities, 40 attributes\n"
             "TIME ptp/config.priority1: 128 -> 1\n"
             "TIME ptp/config.priority1: 1 -> 2\n");
}

TEST_F(WatchTest, EndsAfterSoLong) {
   auto const begin = std::chrono::steady_clock::now();
   auto const watcher = watch({"--for", "0.3"});
   EXPECT_EQ(watcher->finish().status, 0);
   EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
}

TEST_F(WatchTest, SaysThatTheConnectionIsLostAndWritesWhatItHas) {
   std::string const dump = scratch.file("watch.dump");
   auto const watcher = watch({"--dump", dump, "--no-reconnect"});
   change({"set", "ptp/config.priority1", "7"});
   ASSERT_TRUE(watcher->says("128 -> 7"));
   server->signal(SIGKILL);
   Outcome const& outcome = watcher->finish();
   EXPECT_EQ(outcome.status, 3);
   EXPECT_NE(outcome.out.find("-- connection lost: "), std::string::npos) << outcome.out;
   EXPECT_EQ(outcome.err, "ptpstate: " + socket +
                                ": the connection is lost; watch again when the server is back\n");
   EXPECT_TRUE(std::regex_search(readFile(dump), std::regex("\"priority1\": 7,")))
         << readFile(dump);
}

TEST_F(WatchTest, ConnectsAgainAndTellsWhatHasChangedMeanwhile) {
   auto const watcher = watch();
   change({"set", "ptp/config.priority1", "7"});
   change({"set", "ptp/config.priority2", "9"});
   ASSERT_TRUE(watcher->says("128 -> 9"));
   server->signal(SIGKILL);
   server->finish();
   ASSERT_TRUE(watcher->says("-- connection lost: "));
   SetUp();
   ASSERT_TRUE(watcher->says(" is complete: ", 2));
   change({"set", "ptp/config.priority1", "8"});
   std::string const said = ended(*watcher);
   EXPECT_EQ(said.substr(said.find("TIME -- connected again")),
             "TIME -- connected again; changes made meanwhile follow\n"
             "TIME ptp/config.priority1: 7 -> 128\n"
             "TIME ptp/config.priority2: 9 -> 128\n"
             "TIME -- ptp/config is complete: 3 entities, 40 attributes\n"
             "TIME ptp/config.priority1: 128 -> 8\n");
}

TEST_F(WatchTest, IsInterruptedWhileThereIsNoServer) {
   auto const watcher = watch();
   server->signal(SIGKILL);
   server->finish();
   ASSERT_TRUE(watcher->says("-- connection lost: "));
   watcher->signal(SIGINT);
   EXPECT_EQ(watcher->finish().status, 3);
   EXPECT_EQ(
         watcher->finish().err,
         "ptpstate: " + socket + ": the connection is lost; watch again when the server is back\n");
}

TEST_F(WatchTest, PrintsAnObjectALineForPrograms) {
   auto const watcher =
         std::make_unique<Program>(std::vector<std::string>{"watch", "--json", "--socket", socket});
   ASSERT_TRUE(watcher->says("complete"));
   change({"set", "ptp/config.priority1", "7"});
   change({"set", "ptp/config.skewThreshold", "inf"});
   change({"add", "ptp/config.intfConfig[Ethernet1]", "true", "false"});
   change({"set", "ptp/config.missingSequenceThresholds[sync]", "5"});
   change({"set", "ptp/config.missingSequenceThresholds[sync]", "6"});
   change({"del", "ptp/config.missingSequenceThresholds[sync]"});
   change({"del", "ptp/config.intfConfig[Ethernet1]"});
   EXPECT_EQ(std::regex_replace(ended(*watcher),
                                std::regex(R"("time":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z")"),
                                "TIME"),
             R"({TIME,"event":"complete","root":"ptp/config","entities":3,"attributes":40}
{TIME,"path":"ptp/config.priority1","change":"set","old":128,"new":7}
{TIME,"path":"ptp/config.skewThreshold","change":"set","old":-1.0,"new":"inf"}
{TIME,"path":"ptp/config.intfConfig[Ethernet1]","change":"created","new":{"enabled":true,"mpassEnabled":false}}
{TIME,"path":"ptp/config.missingSequenceThresholds[sync]","change":"created","new":5}
{TIME,"path":"ptp/config.missingSequenceThresholds[sync]","change":"set","old":5,"new":6}
{TIME,"path":"ptp/config.missingSequenceThresholds[sync]","change":"deleted","old":6}
{TIME,"path":"ptp/config.intfConfig[Ethernet1]","change":"deleted"}
)");
}

TEST_F(WatchTest, SaysThatAGapWasCoalesced) {
   auto const watcher = watch();
   change({"add", "ptp/config.intfConfig[Ethernet1]", "true", "false"});
   ASSERT_TRUE(watcher->says("created"));
   watcher->signal(SIGSTOP);
   std::string const element =
         "ptp/config.intfConfig[Ethernet1].ucastNegGrantorIpToProfileMap[192.0.2.1]";
   for (int i = 0; i != 16; ++i) {  // more than the server keeps for one reader
      change({"set", element, std::string(100000, static_cast<char>('a' + i))});
   }
   for (char const* const priority : {"1", "2", "3"}) {
      change({"set", "ptp/config.priority1", priority});
   }
   watcher->signal(SIGCONT);
   ASSERT_TRUE(watcher->says("changes were coalesced: "));
   std::string const said = ended(*watcher);
   EXPECT_NE(said.find("TIME ptp/config.priority1: 128 -> 3\n"), std::string::npos);
   EXPECT_EQ(said.find("-> 2\n"), std::string::npos);
   std::smatch match;
   ASSERT_TRUE(std::regex_search(said, match, std::regex("-- (\\d+) changes were coalesced")));
   EXPECT_GE(std::stoi(match[1]), 2);
   EXPECT_LE(std::stoi(match[1]), 17);
}

TEST_F(WatchTest, CanBeInterruptedWhileTheServerDoesNotAnswer) {
   auto const watcher = watch();
   server->signal(SIGSTOP);
   Program beginning({"watch", "--socket", socket, "--timeout", "60"});
   ::usleep(100000);
   beginning.signal(SIGINT);
   Outcome const& outcome = beginning.finish();
   // On a slow machine the signal comes before the program waits for it, and ends the program.
   EXPECT_TRUE(outcome.status == 3 || outcome.status == 128 + SIGINT) << outcome.status;
   watcher->signal(SIGINT);
   ::usleep(50000);
   watcher->signal(SIGINT);
   EXPECT_EQ(watcher->finish().status, 3);
   EXPECT_NE(watcher->finish().err.find("interrupted before the server answered"),
             std::string::npos)
         << watcher->finish().err;
   server->signal(SIGCONT);
}

TEST_F(WatchTest, HasAtTheEndWhatTheServerHas) {
   std::string const dump = scratch.file("watch.dump");
   auto const watcher = watch({"--dump", dump});
   for (int i = 1; i != 6; ++i) {
      std::string const port = "ptp/config.intfConfig[Ethernet" + std::to_string(i) + "]";
      change({"add", port, "true", "false"});
      change({"set", port + ".logAnnounceInterval", "-2"});
      change({"set", port + ".ucastNegGrantorIpToProfileMap[192.0.2." + std::to_string(i) + "]",
              "gold"});
   }
   change({"del", "ptp/config.intfConfig[Ethernet3]"});
   ended(*watcher);
   std::string const mirror = readFile(dump);
   EXPECT_NE(mirror.find("\"Ethernet5\""), std::string::npos) << mirror;
   EXPECT_EQ(mirror, serverDump());
}

TEST_F(WatchTest, AReaderThatStopsAndGoesOnCatchesUp) {
   std::string const dump = scratch.file("watch.dump");
   auto const watcher = watch({"--dump", dump});
   watcher->signal(SIGSTOP);
   for (int i = 0; i != 20; ++i) {
      change({"set", "ptp/config.priority1", std::to_string(i)});
   }
   change({"add", "ptp/config.intfConfig[Ethernet1]", "true", "false"});
   watcher->signal(SIGCONT);
   ASSERT_TRUE(watcher->says("intfConfig[Ethernet1] created"));
   EXPECT_NE(watcher->out().find("-> 19\n"), std::string::npos);
   ended(*watcher);
   EXPECT_EQ(readFile(dump), serverDump());
}

TEST_F(WatchTest, AHundredReadersAtOnceAllSeeAChange) {
   std::vector<std::unique_ptr<Program>> watchers;
   for (int i = 0; i != 100; ++i) {
      watchers.push_back(watch({"--count", "1"}));
   }
   change({"set", "ptp/config.domainNumber", "44"});
   for (auto const& watcher : watchers) {
      EXPECT_EQ(watcher->finish().status, 0);
      EXPECT_NE(watcher->out().find("ptp/config.domainNumber: 0 -> 44\n"), std::string::npos);
   }
}

}  // namespace
}  // namespace Ptpstate

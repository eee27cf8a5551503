// What a watcher prints while others change a state, and what it has at the end.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <regex>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

class WatchTest : public testing::Test {
protected:
   void SetUp() override {
      server = std::make_unique<Program>(std::vector<std::string>{
            "serve", "--socket", socket, "--dump", scratch.file("server.dump")});
      ASSERT_TRUE(server->says("serving "));
   }
   std::unique_ptr<Program> watch(std::vector<std::string> const& more = {}) {
      std::vector<std::string> args{"watch", "--socket", socket};
      args.insert(args.end(), more.begin(), more.end());
      auto watcher = std::make_unique<Program>(args);
      EXPECT_TRUE(watcher->says("-- ptp/config is complete: ")) << watcher->finish().err;
      return watcher;
   }
   void change(std::vector<std::string> args) {
      args.insert(args.begin() + 1, {"--socket", socket});
      Outcome const outcome = run(args);
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

   Scratch scratch;
   std::string socket = scratch.file("socket");
   std::unique_ptr<Program> server;
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
   auto const watcher = watch({"--dump", dump});
   change({"set", "ptp/config.priority1", "7"});
   ASSERT_TRUE(watcher->says("128 -> 7"));
   server->signal(SIGKILL);
   Outcome const& outcome = watcher->finish();
   EXPECT_EQ(outcome.status, 3);
   EXPECT_NE(outcome.out.find("-- connection lost: "), std::string::npos) << outcome.out;
   EXPECT_EQ(outcome.err, "ptpstate: " + socket +
                                ": the connection is lost; watch again when the server is back\n");
   EXPECT_TRUE(std::regex_search(readFile(dump), std::regex("\nptp/config.priority1 += 7\n")))
         << readFile(dump);
}

TEST_F(WatchTest, CanBeInterruptedWhileTheServerDoesNotAnswer) {
   auto const watcher = watch();
   server->signal(SIGSTOP);
   Program beginning({"watch", "--socket", socket, "--timeout", "60"});
   ::usleep(100000);
   beginning.signal(SIGINT);
   Outcome const& outcome = beginning.finish();
   // On a slow machine the signal comes before it is waited for, and ends the program itself.
   EXPECT_TRUE(outcome.status == 3 || outcome.status == 128 + SIGINT) << outcome.status;
   watcher->signal(SIGINT);
   ::usleep(50000);
   watcher->signal(SIGINT);
   EXPECT_EQ(watcher->finish().status, 3);
   EXPECT_NE(watcher->finish().err.find("interrupted before the server has answered"),
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
   EXPECT_NE(mirror.find("# 7 entities, "), std::string::npos) << mirror;
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

TEST_F(WatchTest, ManyReadersAtOnceAllSeeAChange) {
   std::vector<std::unique_ptr<Program>> watchers;
   for (int i = 0; i != 20; ++i) {
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

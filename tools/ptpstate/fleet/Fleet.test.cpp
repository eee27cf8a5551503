// The commands that read a fleet, with a real server between an agent's state and them.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "Fleet/NatsServer.test.h"
#include "Holt/State/Json.h"
#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr char const* port = "ptp/config.intfConfig[Ethernet1]";

/// A server with the switches edge-2 and edge-10, whose publishers are programs. Each has
/// "ptp/config" with one interface, and edge-10 another priority1.
class FleetCommands : public testing::Test {
protected:
   void SetUp() override {
      if (!Fleet::Test::NatsServer::isInstalled()) {
         GTEST_SKIP() << "nats-server is not installed; `./dev test --all` installs it";
      }
      if (::access(PTPLIB_BIN_DIR "/ptpfleet", X_OK) != 0) {
         GTEST_SKIP() << "this build has no library of NATS";
      }
      nats.emplace();
      for (Switch* const each : {&two, &ten}) {
         each->server = std::make_unique<Program>(std::vector<std::string>{
               "serve", "--socket", socketOf(*each), "--root", "Ptp::Config=ptp/config", "--root",
               "Ptp::Status=ptp/status"});
         ASSERT_TRUE(each->server->says("serving ", 2));
         local(*each, {"add", port, "true", "false"});
      }
      local(ten, {"set", "ptp/config.priority1", "7"});
      publish(two);
      publish(ten);
      ASSERT_TRUE(two.publisher->says("fleet: publishing")) << two.publisher->out();
      ASSERT_TRUE(ten.publisher->says("fleet: publishing")) << ten.publisher->out();
   }

   struct Switch {
      std::string name;
      std::unique_ptr<Program> server;
      std::unique_ptr<Program> publisher;
   };

   std::string socketOf(Switch const& its) const { return scratch.file(its.name); }
   void publish(Switch& its) {
      Surroundings in;
      in.program = "ptpfleet";
      its.publisher = std::make_unique<Program>(
            std::vector<std::string>{"publish", "--nats", nats->url(), "--switch", its.name,
                                     "--socket", socketOf(its), "--heartbeat", "0.2", "--storage",
                                     "memory"},
            in);
   }
   Outcome local(Switch const& its, std::vector<std::string> args) const {
      args.insert(args.begin() + 1, {"--socket", socketOf(its)});
      Outcome const outcome = run(args);
      EXPECT_EQ(outcome.status, 0) << outcome.err;
      return outcome;
   }
   std::vector<std::string> ofFleet(std::string const& switches,
                                    std::vector<std::string> args) const {
      std::vector<std::string> all{"--fleet", nats->url()};
      if (!switches.empty()) {
         all.insert(all.end(), {"--switch", switches});
      }
      all.insert(all.end(), args.begin(), args.end());
      return all;
   }
   /// Runs a command with the options of the fleet before it.
   Outcome fleet(std::string const& switches, std::vector<std::string> const& args) const {
      return run(ofFleet(switches, args));
   }
   /// The same until its output is this; the publisher may be a moment behind.
   Outcome fleetUntil(std::string const& switches, std::vector<std::string> const& args,
                      std::string const& out) const {
      Outcome outcome;
      for (int i = 0; i != 50; ++i) {
         outcome = fleet(switches, args);
         if (outcome.out == out) {
            break;
         }
         std::this_thread::sleep_for(std::chrono::milliseconds(100));
      }
      return outcome;
   }

   Scratch scratch;
   std::optional<Fleet::Test::NatsServer> nats;
   Switch two{"edge-2", nullptr, nullptr};
   Switch ten{"edge-10", nullptr, nullptr};
};

TEST_F(FleetCommands, ASwitchIsReadLikeAServer) {
   Outcome const one = fleet("edge-10", {"get", "ptp/config.priority1"});
   EXPECT_EQ(one.out, "7\n");
   EXPECT_EQ(one.err, "");
   EXPECT_EQ(one.status, 0);
   std::string const dump = local(ten, {"dump"}).out;
   EXPECT_EQ(fleet("edge-10", {"dump"}).out, dump);
   EXPECT_EQ(fleet("edge-10", {"dump", "--json"}).out, local(ten, {"dump", "--json"}).out);
   EXPECT_EQ(fleet("edge-10", {"dump", "--summary"}).out, local(ten, {"dump", "--summary"}).out);
   EXPECT_EQ(fleet("edge-10", {"dump", "--changed"}).out, local(ten, {"dump", "--changed"}).out);
   std::vector<std::string> const top{"top", "ptp/config.intfConfig", "--batch", "--count", "1"};
   EXPECT_EQ(fleet("edge-10", top).out, local(ten, top).out);
}

TEST_F(FleetCommands, LinesOfAPatternBeginWithTheSwitch) {
   Outcome const got = fleet("edge-*", {"get", "ptp/config.priority1"});
   EXPECT_EQ(got.out,
             "edge-2:ptp/config.priority1 = 128\n"
             "edge-10:ptp/config.priority1 = 7\n");
   Outcome const dumped = fleet("edge-*", {"dump", "--changed"});
   EXPECT_THAT(dumped.out,
               HasSubstr("edge-2:ptp/config.intfConfig[Ethernet1] : Ptp::IntfConfig\n"));
   EXPECT_THAT(dumped.out, HasSubstr("edge-10:ptp/config.priority1 = 7\n"));
   Outcome const json = fleet("edge-*", {"get", "--json", "ptp/config.priority1"});
   Holt::Json const parsed = Holt::Json::parse(json.out);
   EXPECT_EQ(parsed["format"], "ptpstate fleet dump 1");
   EXPECT_EQ(parsed["switches"]["edge-10"]["places"][0]["state"], 7);
   EXPECT_EQ(parsed["switches"]["edge-2"]["places"][0]["path"], "ptp/config.priority1");
}

TEST_F(FleetCommands, ASwitchIsComparedWithADump) {
   std::ofstream(scratch.file("two.json")) << local(two, {"dump", "--json"}).out;
   EXPECT_EQ(fleet("edge-2", {"diff", scratch.file("two.json")}).status, 0);
   Outcome const different = fleet("edge-10", {"diff", scratch.file("two.json")});
   EXPECT_EQ(different.out, "~ ptp/config.priority1: 128 -> 7\n");
   EXPECT_EQ(different.status, 1);
}

TEST_F(FleetCommands, ChangesAreShownWithTheirSwitch) {
   Program watch(ofFleet("*", {"watch", "--count", "2", "--json", "--dump",
                               scratch.file("end.json"), "ptp/config.priority1"}));
   ASSERT_TRUE(watch.says("\"current\"", 2)) << watch.out();
   local(two, {"set", "ptp/config.priority2", "9"});
   local(two, {"set", "ptp/config.priority1", "1"});
   ASSERT_TRUE(watch.says("\"new\":1"));
   local(ten, {"set", "ptp/config.priority1", "2"});
   Outcome const seen = watch.finish();
   EXPECT_EQ(seen.status, 0) << seen.err;
   EXPECT_THAT(seen.out, HasSubstr("\"switch\":\"edge-2\",\"path\":\"ptp/config.priority1\","
                                   "\"change\":\"set\",\"old\":128,\"new\":1}"));
   EXPECT_THAT(seen.out, HasSubstr("\"switch\":\"edge-10\",\"path\":\"ptp/config.priority1\","
                                   "\"change\":\"set\",\"old\":7,\"new\":2}"));
   Holt::Json const end = Holt::Json::parse(readFile(scratch.file("end.json")));
   EXPECT_EQ(end["switches"]["edge-2"]["places"][0]["state"]["priority1"], 1);
}

TEST_F(FleetCommands, AnOldStateIsShownWithAWarning) {
   two.publisher->signal(SIGTERM);
   two.publisher->finish();
   Outcome const old = fleet("edge-2", {"get", "ptp/config.priority1"});
   EXPECT_EQ(old.out, "128\n");
   EXPECT_EQ(old.status, 0);
   EXPECT_TRUE(std::regex_match(
         old.err,
         std::regex("ptpstate: edge-2 is not current since [-0-9]+ [:.0-9]+: the publisher "
                    "has ended\n")))
         << old.err;
   EXPECT_EQ(fleet("edge-10", {"get", "ptp/config.priority1"}).err, "");

   Program watch(ofFleet("edge-10", {"watch", "--for", "30"}));
   ASSERT_TRUE(watch.says("edge-10 is current: "));
   ten.publisher->signal(SIGKILL);
   EXPECT_TRUE(watch.says("edge-10 is not current since "));
   watch.signal(SIGINT);
   EXPECT_EQ(watch.finish().status, 0);
}

TEST_F(FleetCommands, WhatCannotBeReadHasAStatusOfItsOwn) {
   Outcome const missing = fleet("core-1", {"get", "ptp/config.priority1"});
   EXPECT_EQ(missing.status, 5);
   EXPECT_EQ(missing.err,
             "ptpstate: the fleet has no switch 'core-1'; 'ptpstate fleet' lists those that it "
             "has\n");
   EXPECT_EQ(fleet("core-*", {"dump"}).status, 5);

   Outcome const noPath = fleet("edge-2", {"get", "ptp/config.nothing"});
   EXPECT_EQ(noPath.status, 1);
   EXPECT_THAT(noPath.err, StartsWith("ptpstate: "));

   std::string const closed = "nats://127.0.0.1:" + std::to_string(Fleet::Test::freePort());
   Outcome const silent = run({"get", "--fleet", closed, "--switch", "edge-2", "--timeout", "0.5",
                               "ptp/config.priority1"});
   EXPECT_EQ(silent.status, 3);
   EXPECT_THAT(silent.err, StartsWith("ptpstate: the fleet does not answer within 0.5 s: "));
}

TEST_F(FleetCommands, WhatAFleetCannotDoIsRefused) {
   for (std::vector<std::string> const& args :
        {std::vector<std::string>{"set", "ptp/config.priority1", "1"}, {"status"}, {"serve"}}) {
      Outcome const refused = fleet("edge-2", args);
      EXPECT_EQ(refused.status, 2) << args[0];
      EXPECT_EQ(refused.err,
                "ptpstate: a fleet can only be read, with get, dump, watch, top, diff and fleet; "
                "connect to the switch's own server with --socket; see 'ptpstate " +
                      args[0] + " --help'\n");
   }
   Outcome const several = fleet("*", {"top", "ptp/config.intfConfig", "--batch", "--count", "1"});
   EXPECT_EQ(several.status, 2);
   EXPECT_EQ(several.err, "ptpstate: --switch *: only one switch can be shown\n");
   Outcome const none = fleet("", {"dump"});
   EXPECT_EQ(none.status, 2);
   EXPECT_THAT(none.err, StartsWith("ptpstate: --fleet needs --switch NAME"));
}

TEST_F(FleetCommands, AllSwitchesAreATable) {
   local(two, {"add", "ptp/status.currentDS"});
   local(two, {"set", "ptp/status.currentDS.offsetFromMaster", "-40"});
   EXPECT_EQ(fleetUntil("edge-2", {"get", "ptp/status.currentDS.offsetFromMaster"}, "-40\n").out,
             "-40\n");
   two.publisher->signal(SIGTERM);
   two.publisher->finish();
   Outcome const table = fleet("", {"fleet"});
   EXPECT_EQ(table.status, 0) << table.err;
   EXPECT_THAT(table.out,
               StartsWith("2 switches, 1 current; worst offset -40 ns at edge-2; 0 ports not as "
                          "they should be\n\nswitch   grandmaster  class  steps  offset  ports  "
                          "not as they should be  state\nedge-2 "));
   EXPECT_TRUE(std::regex_search(table.out, std::regex("\nedge-10 +- +- +- +- +0 +current\n")))
         << table.out;
   EXPECT_THAT(table.out, HasSubstr(": the publisher has ended\n"));

   Holt::Json const json = Holt::Json::parse(fleet("", {"fleet", "--json", "--sort", "age"}).out);
   ASSERT_EQ(json.size(), 2);
   EXPECT_EQ(json[0]["switch"], "edge-2");
   EXPECT_EQ(json[0]["offsetFromMaster"], -40);
   EXPECT_EQ(json[0]["current"], false);
   EXPECT_EQ(json[0]["reason"], "the publisher has ended");
   EXPECT_EQ(json[1]["current"], true);
   EXPECT_EQ(fleet("", {"fleet", "--json", "*-10"}).out.find("edge-2"), std::string::npos);
   EXPECT_EQ(fleet("", {"fleet", "--sort", "size"}).status, 2);
}

}  // namespace
}  // namespace Ptpstate

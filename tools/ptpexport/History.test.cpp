#include "tools/ptpexport/History.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "Holt/Failure.test.h"
#include "Holt/Server.h"

namespace Ptpexport {

namespace {

using Holt::Json;

constexpr U64 nanosecondsOfOne = 1'000'000'000;
constexpr U64 noon = 1'795'348'800;

TEST(HourCurveTest, HasAValueOrNullForEachSecond) {
   HourCurve curve;
   curve.add(noon, 5);
   curve.add(noon + 2, -7);
   EXPECT_EQ(curve.values(noon - 1, noon + 3), Json::parse("[null,5,null,-7,null]"));
   EXPECT_EQ(curve.last(), noon + 2);
}

TEST(HourCurveTest, ForgetsWhatIsAnHourOld) {
   HourCurve curve;
   for (U64 i = 0; i != 4000; ++i) {
      curve.add(noon + i, S64(i));
   }
   Json const all = curve.values(noon + 400, noon + 3999);
   EXPECT_EQ(all.size(), 3600u);
   EXPECT_EQ(all.front(), 400);
   EXPECT_EQ(all.back(), 3999);
   EXPECT_EQ(curve.values(noon + 399, noon + 399), Json::parse("[null]"));
   curve.add(noon + 20'000, 1);
   EXPECT_EQ(curve.values(noon + 19'998, noon + 20'001), Json::parse("[null,null,1,null]"));
   curve.add(noon + 20'003, 2);
   EXPECT_EQ(curve.values(noon + 20'000, noon + 20'003), Json::parse("[1,null,null,2]"));
}

TEST(HourCurveTest, HoldsTheNearestOfWhatIsTooLarge) {
   HourCurve curve;
   curve.add(noon, INT64_MIN);
   curve.add(noon + 1, INT64_MAX);
   curve.add(noon + 2, -2'147'483'647);
   EXPECT_EQ(curve.values(noon, noon + 2), Json::parse("[-2147483647,2147483647,-2147483647]"));
}

U64 historySteady;
U64 historyWall;

/// A clock that is served to a feed in the same loop.
class HistoryTest : public ::testing::Test {
protected:
   HistoryTest() {
      historySteady = nanosecondsOfOne;
      historyWall = noon * nanosecondsOfOne + 250'000'000;
      server.rootIs(status);
      loop.add(server);
      loop.add(feed);
      options.clock = []() noexcept { return historySteady; };
      options.wallClock = []() noexcept { return historyWall; };
   }
   ~HistoryTest() { ::unlink(socket.c_str()); }

   static std::string socketName() {
      return "/tmp/history." + std::to_string(::getpid()) + ".sock";
   }
   static Holt::Server::Options serverOptions(std::string const& path) {
      Holt::Server::Options made;
      made.socket = path;
      return made;
   }
   Sarn::Ptr<Ptp::PortDS> port(char const* intf, Ptp::DelayMechanism mechanism) {
      Sarn::Ptr<Ptp::PortDS> made =
            status->portDSIs(Ptp::PortDSKey(Dorn::IntfId(intf), {}), Ptp::PortIdentity());
      made->delayMechanismIs(mechanism);
      return made;
   }
   void start() {
      for (int i = 0; i != 200 && !feed.status().current; ++i) {
         loop.turn(-1, std::chrono::milliseconds(10));
      }
      ASSERT_TRUE(feed.status().current) << feed.status().reason;
      history.emplace(feed, options);
   }
   /// What was set in the server's clock reaches the mirror.
   void arrive() {
      for (int i = 0; i != 5; ++i) {
         loop.turn(-1, std::chrono::milliseconds(2));
      }
   }
   void secondsPass(U64 count) {
      for (U64 i = 0; i != count; ++i) {
         historySteady += nanosecondsOfOne;
         historyWall += nanosecondsOfOne;
         history->onTurn({});
      }
   }

   std::string socket = socketName();
   Sarn::Ptr<Ptp::Status> status = Ptp::statusFactory("ptp/status");
   Holt::Server server{serverOptions(socket)};
   Feed feed{socket};
   Holt::Loop loop;
   History::Options options;
   std::optional<History> history;
};

TEST_F(HistoryTest, SamplesTheClockEverySecond) {
   Sarn::Ptr<Ptp::CurrentDS> const current = status->currentDSIs();
   current->offsetFromMasterIs(-3);
   current->meanPathDelayIs(200);
   start();
   secondsPass(1);
   current->offsetFromMasterIs(4);
   arrive();
   secondsPass(2);
   EXPECT_EQ(history->clock("ptp/status"), Json::parse(R"({
      "start": 1795348800, "step": 1,
      "offsetFromMaster": [null, -3, 4, 4],
      "meanPathDelay": [null, 200, 200, 200],
      "events": []})"));
   EXPECT_EQ(history->clock(""), history->clock("ptp/status"));
   secondsPass(4000);
   Json const hour = history->clock("");
   EXPECT_EQ(hour["start"], noon + 4003 - 3599);
   EXPECT_EQ(hour["offsetFromMaster"].size(), 3600u);
   EXPECT_EQ(hour["offsetFromMaster"].front(), 4);
}

TEST_F(HistoryTest, SamplesThePortsThatMeasureADelay) {
   port("Ethernet1", Ptp::DelayMechanism::p2p)->peerMeanPathDelayIs(480);
   port("Ethernet2", Ptp::DelayMechanism::e2e);
   port("Ethernet3", Ptp::DelayMechanism::p2p);
   options.ports = 1;
   start();
   secondsPass(1);
   std::size_t curves = 0;
   for (char const* const key : {"Ethernet1", "Ethernet2", "Ethernet3"}) {
      curves += history->port("", key)["peerMeanPathDelay"].size() == 2 ? 1 : 0;
   }
   EXPECT_EQ(curves, 1u) << "beyond the bound, a port has no curve";
   history.reset();
   options.ports = 2;
   start();
   secondsPass(1);
   EXPECT_EQ(history->port("", "Ethernet1")["peerMeanPathDelay"], Json::parse("[null,480]"));
   EXPECT_EQ(history->port("", "Ethernet2")["peerMeanPathDelay"], Json::array());
   EXPECT_EQ(history->port("", "Ethernet3")["peerMeanPathDelay"], Json::parse("[null,0]"));
   EXPECT_EQ(Holt::failureOf([&] { history->port("", "Ethernet9"); }),
             "ptp/status has no port 'Ethernet9'");
   EXPECT_EQ(Holt::failureOf([&] { history->clock("other"); }),
             "the source offers no Ptp::Status named other");
}

TEST_F(HistoryTest, KeepsWhatHappenedForAnHourAndNoMoreThanItsBound) {
   Sarn::Ptr<Ptp::PortDS> const port1 = port("Ethernet1", Ptp::DelayMechanism::e2e);
   Sarn::Ptr<Ptp::PortDS> const port10 = port("Ethernet10", Ptp::DelayMechanism::e2e);
   options.events = 3;
   start();
   port1->portStateIs(Ptp::PortState::slave);
   arrive();
   secondsPass(1);
   port10->portStateIs(Ptp::PortState::faulty);
   port1->syncMessageReceivedInc(1);  // nothing that happened
   arrive();
   EXPECT_EQ(history->clock("")["events"], Json::parse(R"([
      {"time": 1795348800.25, "path": "ptp/status.portDS[Ethernet1].portState", "value": "slave"},
      {"time": 1795348801.25, "path": "ptp/status.portDS[Ethernet10].portState", "value": "faulty"}
      ])"));
   EXPECT_EQ(history->port("", "Ethernet1")["events"].size(), 1u);
   secondsPass(3599);
   EXPECT_EQ(history->clock("")["events"].size(), 1u) << "the first is an hour old";
   for (int i = 0; i != 4; ++i) {
      port1->portStateIs(i % 2 == 0 ? Ptp::PortState::master : Ptp::PortState::passive);
      arrive();
   }
   EXPECT_EQ(history->clock("")["events"].size(), 3u);
}

TEST_F(HistoryTest, HasAGapWhileTheSourceIsAway) {
   status->currentDSIs()->offsetFromMasterIs(8);
   start();
   secondsPass(1);
   loop.remove(server);
   server.closeAll("over");
   for (int i = 0; i != 200 && feed.status().current; ++i) {
      loop.turn(-1, std::chrono::milliseconds(10));
   }
   ASSERT_FALSE(feed.status().current);
   secondsPass(1);
   EXPECT_EQ(history->clock("")["offsetFromMaster"], Json::parse("[null,8,null]"));
}

}  // namespace

}  // namespace Ptpexport

#include "tools/ptpstate/record/Curves.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "Holt/Failure.test.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"
#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {

namespace {

constexpr U64 second = 1'000'000'000;
constexpr U64 epoch = 1'795'377'600 * second;

/// A clock whose changes go to the curves as a replay would pass them.
class CurvesTest : public ::testing::Test {
protected:
   void SetUp() override {
      ::setenv("TZ", "UTC", 1);
      ::tzset();
      status->enabledIs(true);
   }
   void begin(std::vector<std::string> paths) {
      curves.emplace(std::move(paths));
      observer.emplace(Sarn::Ptr<Kiv::Entity>(status.get()), "s",
                       [this](Holt::ChangeText const& text) { curves->change(now, text); });
      curves->complete(now, *status, false);
   }
   Sarn::Ptr<Ptp::PortDS> port(char const* intf) {
      return status->portDSIs(Ptp::PortDSKey(Dorn::IntfId(intf), {}), Ptp::PortIdentity());
   }

   Sarn::Ptr<Ptp::Status> status = Ptp::statusFactory("s");
   U64 now = epoch;
   std::optional<Curves> curves;
   std::optional<Holt::ChangeObserver> observer;
};

TEST_F(CurvesTest, OfNumbersAreLinesWithAGapWhileTheServerIsLost) {
   Sarn::Ptr<Ptp::CurrentDS> const current = status->currentDSIs();
   current->offsetFromMasterIs(-7);
   begin({"s.currentDS.offsetFromMaster"});
   now += second;
   current->offsetFromMasterIs(12);
   now += second / 2;
   curves->lost(now);
   now += second / 2;
   curves->back(now);
   now += second;
   status->enabledIs(false);  // something else
   EXPECT_EQ(curves->program(),
             "set terminal svg noenhanced size 1200,420 dynamic background rgb 'white'\n"
             "set grid\n"
             "set key outside below\n"
             "set xtics time\n"
             "set format x '%H:%M:%S' timedate\n"
             "set xrange [1795377600:1795377603]\n"
             "$curve0 << EOD\n"
             "1795377600 -7\n"
             "1795377601 12\n"
             "\n"
             "1795377602 12\n"
             "1795377603 12\n"
             "1795377603 12\n"
             "EOD\n"
             "plot $curve0 using 1:2 with lines title 's.currentDS.offsetFromMaster'\n");
}

TEST_F(CurvesTest, OfStatesAreStepsForEachPlaceThatFitsWhileItExists) {
   port("Ethernet1")->portStateIs(Ptp::PortState::slave);
   begin({"s.portDS[*].portState"});
   now += second;
   port("Ethernet2");
   now += second;
   status->portDS(Ptp::PortDSKey(Dorn::IntfId("Ethernet2"), {}))
         ->portStateIs(Ptp::PortState::faulty);
   now += second;
   status->portDSDel(Ptp::PortDSKey(Dorn::IntfId("Ethernet2"), {}));
   std::string const text = curves->program();
   EXPECT_NE(text.find("set ytics ('slave' 0, 'initializing' 1, 'faulty' 2)\n"), std::string::npos)
         << text;
   EXPECT_NE(text.find("$curve1 << EOD\n"
                       "1795377601 1\n"
                       "1795377602 2\n"
                       "\n"
                       "EOD\n"),
             std::string::npos)
         << text;
   EXPECT_NE(text.find("plot $curve0 using 1:2 with steps title 's.portDS[Ethernet1].portState', "
                       "$curve1 using 1:2 with steps title 's.portDS[Ethernet2].portState'\n"),
             std::string::npos)
         << text;
}

TEST_F(CurvesTest, OfManyPlacesHaveNoListOfNames) {
   for (int i = 1; i <= 17; ++i) {
      port(("Ethernet" + std::to_string(i)).c_str());
   }
   begin({"s.portDS[*].syncMessageReceived"});
   EXPECT_NE(curves->program().find("set key off\n"), std::string::npos);
}

TEST_F(CurvesTest, RefuseWhatIsNoSingleValueAndNumbersBesideNames) {
   status->currentDSIs();
   port("Ethernet1");
   EXPECT_EQ(Holt::failureOf([&] { begin({"s.portDS"}); }), "'s.portDS' is not a single value");
   EXPECT_EQ(Holt::failureOf([&] { begin({"s.currentDS"}); }),
             "'s.currentDS' is not a single value");
   EXPECT_EQ(Holt::failureOf([&] { begin({"s.portDS[Ethernet1].portIdentity"}); }),
             "'s.portDS[Ethernet1].portIdentity' is not a single value; plot one of its fields");
   begin({"s.portDS[Nope].portState"});
   EXPECT_EQ(Holt::failureOf([&] { curves->program(); }),
             "the recording has nothing at 's.portDS[Nope].portState'");
   begin({"s.enabled", "s.currentDS.offsetFromMaster"});
   EXPECT_EQ(Holt::failureOf([&] { curves->program(); }),
             "'s.enabled' has names and 's.currentDS.offsetFromMaster' numbers, which share no "
             "axis; plot them one after the other");
}

using PlotTest = WithServer;

TEST_F(PlotTest, DrawsARecordingWithGnuplot) {
   serve();
   std::string const file = scratch.file("recording");
   Program recording({"record", "--socket", socket, file});
   ASSERT_TRUE(recording.says("recording "));
   for (char const* value : {"7", "99"}) {
      ASSERT_EQ(run({"set", "--socket", socket, "ptp/config.priority1", value}).err, "");
   }
   recording.signal(SIGINT);
   ASSERT_EQ(recording.finish().status, 0);
   std::vector<std::string> const args{"plot",  "--path", "ptp/config.priority1",
                                       "--out", "-",      file};
   if (std::system("command -v gnuplot >/dev/null 2>&1") != 0) {
      EXPECT_EQ(run(args).err,
                "ptpstate: plot needs gnuplot; install it with: apt-get install gnuplot-nox\n");
      GTEST_SKIP() << "gnuplot is not installed";
   }
   Outcome const drawn = run(args);
   EXPECT_EQ(drawn.err, "");
   EXPECT_TRUE(drawn.out.starts_with("<?xml")) << drawn.out.substr(0, 200);
   EXPECT_NE(drawn.out.find("ptp/config.priority1"), std::string::npos);
   EXPECT_TRUE(drawn.out.ends_with("</svg>\n\n") || drawn.out.ends_with("</svg>\n"));
   EXPECT_EQ(run({"plot", "--path", "ptp/config.nonsense", "--out", "-", file}).err,
             "ptpstate: ptp/config: Ptp::Config has no attribute 'nonsense'\n");
}

}  // namespace

}  // namespace Ptpstate

// What Prometheus's own tool says about scrapes and rules.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "tools/demoAgent/Agent.h"
#include "tools/ptp4lAgent/WithStandIn.test.h"
#include "tools/ptpexport/Metrics/ScrapeText.test.h"

namespace Ptpexport::MetricsTest {
namespace {

constexpr char const* here = PTPLIB_SOURCE_DIR "/tools/ptpexport/Metrics";

/// Runs promtool, and skips the test where there is none.
class Promtool : public Ptp4lAgent::WithStandIn {
protected:
   void SetUp() override {
      if (std::system("command -v promtool >/dev/null") != 0) {
         GTEST_SKIP() << "promtool is not installed (Debian's package prometheus has it)";
      }
   }

   struct Outcome {
      int status;
      std::string said;
   };
   Outcome promtool(std::string const& arguments, std::string const& input = "") const {
      std::string const in = directory + "/in";
      std::string const out = directory + "/out";
      std::ofstream(in) << input;
      int const status = std::system(
            ("timeout 60 promtool " + arguments + " <" + in + " >" + out + " 2>&1").c_str());
      std::stringstream said;
      said << std::ifstream(out).rdbuf();
      return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, said.str()};
   }
   void expectClean(Roots const& roots) const {
      Outcome const outcome = promtool("check metrics", scraped(roots));
      EXPECT_EQ(outcome.status, 0);
      EXPECT_EQ(outcome.said, "");
   }
   static Sarn::Ptr<Ptp::Status> simulated(U32 ports) {
      auto const all = Ptp::statusFactory("ptp/status");
      DemoAgent::Agent agent(all, ports, 1);
      agent.fill();
      for (int i = 0; i != 5; ++i) {
         agent.tick();
      }
      return all;
   }
};

TEST_F(Promtool, FindsAMetricThatBreaksTheConventions) {
   Outcome const outcome = promtool("check metrics", "# TYPE ptpDelayMs counter\nptpDelayMs 1\n");
   EXPECT_EQ(outcome.status, 3);
   EXPECT_NE(outcome.said.find("_total"), std::string::npos) << outcome.said;
}

TEST_F(Promtool, FindsNothingWrongWithASourceThatIsEmpty) {
   expectClean({});
   expectClean({Ptp::statusFactory("ptp/status")});
}

TEST_F(Promtool, FindsNothingWrongWith4Ports) {
   expectClean({simulated(4)});
}

TEST_F(Promtool, FindsNothingWrongWith512Ports) {
   expectClean({simulated(512)});
}

TEST_F(Promtool, FindsNothingWrongWithTwoClocks) {
   auto const other = Ptp::statusFactory("quote\" \\ \n\xff/status");
   other->portDSIs(key("eth0"), Ptp::PortIdentity());
   expectClean({simulated(4), other});
}

TEST_F(Promtool, FindsNothingWrongWithRealDaemons) {
   int recordings = 0;
   for (auto const& entry :
        std::filesystem::directory_iterator(PTPLIB_SOURCE_DIR "/tools/ptp4lAgent/testdata")) {
      SCOPED_TRACE(entry.path().filename().string());
      start(entry.path().filename().string());
      follow();
      pass(600);
      ASSERT_NE(status().portDSCount(), 0u);
      expectClean({Sarn::Ptr<Kiv::NamedEntity>(&status())});
      clock.reset();
      daemon.reset();
      ++recordings;
   }
   EXPECT_GE(recordings, 7);
}

TEST_F(Promtool, AcceptsTheRules) {
   Outcome const outcome = promtool(std::string("check rules ") + here + "/ptp.rules.yml");
   EXPECT_EQ(outcome.status, 0) << outcome.said;
   EXPECT_NE(outcome.said.find("SUCCESS: 9 rules found"), std::string::npos) << outcome.said;
}

TEST_F(Promtool, EachAlarmFiresWhereItShouldAndNowhereElse) {
   Outcome const outcome =
         promtool(std::string("test rules ") + here + "/testdata/ptp.rules.test.yml");
   EXPECT_EQ(outcome.status, 0) << outcome.said;
}

/// Names that begin with "ptp_" in a text.
std::set<std::string> metricsIn(std::string const& text) {
   std::set<std::string> names;
   for (std::size_t at = text.find("ptp_"); at != text.npos; at = text.find("ptp_", at + 1)) {
      std::size_t const end = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_", at);
      names.insert(text.substr(at, end - at));
   }
   return names;
}

TEST(Rules, UseMetricsThatExist) {
   std::set<std::string> known;
   for (MetricFamily const& family : metricFamilies()) {
      known.insert(sampleName(family));
   }
   for (MetricFamily const& family : healthFamilies()) {
      known.insert(sampleName(family));
   }
   std::stringstream rules;
   rules << std::ifstream(std::string(here) + "/ptp.rules.yml").rdbuf();
   std::set<std::string> const used = metricsIn(rules.str());
   EXPECT_GT(used.size(), 8u);
   for (std::string const& name : used) {
      EXPECT_TRUE(known.contains(name)) << name;
   }
}

}  // namespace
}  // namespace Ptpexport::MetricsTest

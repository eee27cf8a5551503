#include "tools/ptpexport/Metrics/Scrape.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>

#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "tools/demoAgent/Agent.h"
#include "tools/ptpexport/Metrics/ScrapeText.test.h"

namespace Ptpexport::MetricsTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

Ptp::PortDSKey key(char const* intf, U16 vlan = 0) {
   return {Dorn::IntfId(intf), Bridging::VlanIdOrNone(vlan)};
}

std::vector<std::string> linesOf(std::string const& text) {
   std::vector<std::string> lines;
   std::istringstream in(text);
   for (std::string line; std::getline(in, line);) {
      lines.push_back(line);
   }
   return lines;
}

/// The samples whose name begins like this.
std::vector<std::string> samples(std::string const& text, std::string const& name) {
   std::vector<std::string> found;
   for (std::string const& line : linesOf(text)) {
      if (line.starts_with(name)) {
         found.push_back(line);
      }
   }
   return found;
}

class ScrapeTest : public testing::Test {
protected:
   Sarn::Ptr<Ptp::Status> status = Ptp::statusFactory("ptp/status");
   Counters counters;

   Sarn::Ptr<Ptp::PortDS> port(Ptp::PortDSKey const& at) {
      return status->portDSIs(at, Ptp::PortIdentity());
   }
   std::string text(MetricFormat format = MetricFormat::prometheus) {
      return scraped(Roots{status}, format);
   }
   /// Everything that a status can have.
   void fill() {
      status->enabledIs(true);
      status->holdoverStateIs(Ptp::HoldoverState::holdoverInSpec);
      auto const clock = status->defaultDSIs();
      clock->clockIdentityIs(Ptp::ClockIdentity("00:11:22:ff:fe:33:44:55"));
      clock->ptpModeIs(Ptp::PtpMode::boundary);
      clock->srcIp4Is(Dorn::IpAddr("192.0.2.1"));
      auto const current = status->currentDSIs();
      current->offsetFromMasterIs(-3);
      current->meanPathDelayIs(212);
      current->lastUpdatePortKeyIs(key("Ethernet2", 100));
      current->skewIs(1.0000000001);
      current->genIdIs(Brim::Generation(7, false));
      current->pathTraceIs(0, Ptp::ClockIdentity("00:11:22:ff:fe:33:44:aa"));
      auto const parent = status->parentDSIs();
      parent->grandmasterIdentityIs(Ptp::ClockIdentity("00:11:22:ff:fe:33:44:aa"));
      parent->grandmasterClockQualityIs(Ptp::ClockQuality(6, 33, Dorn::NetU16(20061)));
      parent->gptpCumulativeRateOffsetIs(-1);
      status->timePropertiesDSIs()->currentUtcOffsetIs(Dorn::NetU16(37));
      status->domainStatusIs()->globalDomainIs(24);
      status->ptpMibDataIs()->totalPacketsSentIs(0xFFFFFFFFFFFFFFFF);
      status->ptpMibData()->ptpMibPortDataIs(key("Ethernet2", 100))->totalPacketsReceivedIs(9);
      status->aclStatusServiceIs("ptp")->errorIs("red", "not found");
      auto const first = port(key("Ethernet10"));
      first->portStateIs(Ptp::PortState::master);
      first->logSyncIntervalIs(-4);
      auto const second =
            status->portDSIs(key("Ethernet2", 100),
                             Ptp::PortIdentity(Ptp::ClockIdentity("00:11:22:ff:fe:33:44:55"), 2));
      second->portStateIs(Ptp::PortState::slave);
      second->syncMessageReceivedIs(8192);
      second->precisePeerMeanPathDelayIs(212.25);
      second->disabledReasonIs(Ptp::PortDisabledReason::noIpAddr, false);
      second->disabledReasonIs(Ptp::PortDisabledReason::linkDown, true);
      second->g8275_2Is()->signalFailIs(Dorn::IpGenAddr("192.0.2.9"), 17);
      status->intfStatusIs(key("Ethernet2", 100))
            ->foreignMasterDSIs(Ptp::PortIdentity(Ptp::ClockIdentity(U64{5}), 1));
      status->vlanStatusIs(key("Ethernet2", 100), true, false);
   }
};

/// Compares with a file of testdata/; PTPEXPORT_UPDATE=1 rewrites it.
void expectFile(std::string const& text, std::string const& name) {
   std::string const path =
         std::string(PTPLIB_SOURCE_DIR) + "/tools/ptpexport/Metrics/testdata/" + name;
   if (std::getenv("PTPEXPORT_UPDATE") != nullptr) {
      std::ofstream(path) << text;
   }
   std::stringstream expected;
   expected << std::ifstream(path).rdbuf();
   EXPECT_EQ(text, expected.str()) << name;
}

TEST_F(ScrapeTest, GivesTheseBytes) {
   fill();
   expectFile(text(), "status.prometheus");
   expectFile(text(MetricFormat::openMetrics), "status.openmetrics");
}

TEST_F(ScrapeTest, PiecesOfAnySizeGiveTheSameBytes) {
   fill();
   for (MetricFormat const format : {MetricFormat::prometheus, MetricFormat::openMetrics}) {
      std::string const whole = text(format);
      for (std::size_t const size : {1u, 2u, 7u, 100u, 4096u, 1u << 20}) {
         EXPECT_EQ(scraped(Roots{status}, format, size), whole) << size;
      }
      // Exactly as large: it has ended when the last byte has been read.
      EXPECT_EQ(scraped(Roots{status}, format, whole.size()), whole);
   }
}

TEST_F(ScrapeTest, EveryPieceIsFullExceptTheLast) {
   fill();
   Scrape scrape(Roots{status}, MetricFormat::openMetrics, connectedHealth(), counters);
   std::vector<char> piece(1000);
   while (!scrape.ended()) {
      std::size_t const size = scrape.read(piece);
      EXPECT_TRUE(size == piece.size() || scrape.ended());
   }
   EXPECT_EQ(scrape.read(piece), 0u);
}

TEST_F(ScrapeTest, SamplesOfAFleetBeginWithTheSwitch) {
   port(key("Ethernet1"));
   status->currentDSIs()->offsetFromMasterIs(-3);
   Sarn::Ptr<Ptp::Status> const other = Ptp::statusFactory("b/status");
   other->currentDSIs()->offsetFromMasterIs(9);
   Sarn::Ptr<Ptp::Status> const old = Ptp::statusFactory("ptp/status");
   old->currentDSIs()->offsetFromMasterIs(1000);
   std::vector<ScrapedSwitch> const switches{{"edge-1", true, 100, {status, other}},
                                             {"edge \"2\"", false, 200.5, {old}}};
   SourceHealth health = connectedHealth();
   Scrape scrape(switches, MetricFormat::prometheus, health, counters);
   std::string const text = readAll(scrape);
   EXPECT_THAT(samples(text, "ptp_source_connected"),
               testing::ElementsAre("ptp_source_connected{switch=\"edge-1\"} 1",
                                    "ptp_source_connected{switch=\"edge \\\"2\\\"\"} 0"));
   EXPECT_THAT(samples(text, "ptp_source_since"),
               testing::ElementsAre(
                     "ptp_source_since_timestamp_seconds{switch=\"edge-1\"} 100",
                     "ptp_source_since_timestamp_seconds{switch=\"edge \\\"2\\\"\"} 200.5"));
   EXPECT_EQ(samples(text, "ptp_source_start"), std::vector<std::string>());
   EXPECT_THAT(samples(text, "ptp_offset_from_master_seconds"),
               testing::UnorderedElementsAre(
                     "ptp_offset_from_master_seconds{switch=\"edge-1\"} -0.000000003",
                     "ptp_offset_from_master_seconds{switch=\"edge-1\",clock=\"b\"} 0.000000009"));
   EXPECT_THAT(text, HasSubstr("ptp_port_state{switch=\"edge-1\",interface=\"Ethernet1\",state="));
}

TEST_F(ScrapeTest, WithoutASourceThereIsOnlyTheProgram) {
   fill();
   SourceHealth health = connectedHealth();
   health.connected = false;
   Scrape scrape(Roots{status}, MetricFormat::openMetrics, health, counters);
   EXPECT_EQ(
         readAll(scrape),
         "# HELP ptp_build The program.\n"
         "# TYPE ptp_build info\n"
         "ptp_build_info{version=\"0.1.0\"} 1\n"
         "# HELP ptp_source_connected Whether the source of the state is connected; without it, "
         "there are no other metrics.\n"
         "# TYPE ptp_source_connected gauge\n"
         "ptp_source_connected 0\n"
         "# HELP ptp_source_since_timestamp_seconds When the connection to the source was made "
         "or lost, since 1970.\n"
         "# TYPE ptp_source_since_timestamp_seconds gauge\n"
         "# UNIT ptp_source_since_timestamp_seconds seconds\n"
         "ptp_source_since_timestamp_seconds 1700000100\n"
         "# HELP ptp_source_start_timestamp_seconds When the source has started, since 1970; 0 "
         "if that is not known.\n"
         "# TYPE ptp_source_start_timestamp_seconds gauge\n"
         "# UNIT ptp_source_start_timestamp_seconds seconds\n"
         "ptp_source_start_timestamp_seconds 1700000000\n"
         "# HELP ptp_source_changes_received Changes received from the source since this "
         "program was started.\n"
         "# TYPE ptp_source_changes_received counter\n"
         "ptp_source_changes_received_total 4711\n"
         "# EOF\n");
}

TEST_F(ScrapeTest, RootsThatAreNoStatusAreIgnored) {
   EXPECT_EQ(scraped(Roots{Ptp::configFactory("ptp/config"), status}), text());
}

TEST_F(ScrapeTest, PortsAreInTheOrderOfTheirNames) {
   port(key("Ethernet10"));
   port(key("Ethernet2", 100));
   port(key("Ethernet2"));
   EXPECT_THAT(samples(text(), "ptp_port_faulty"),
               ElementsAre("ptp_port_faulty{interface=\"Ethernet2\"} 0",
                           "ptp_port_faulty{interface=\"Ethernet2\",vlan=\"100\"} 0",
                           "ptp_port_faulty{interface=\"Ethernet10\"} 0"));
}

TEST_F(ScrapeTest, AStateHasASampleForEachName) {
   port(key("eth0"))->portStateIs(Ptp::PortState::slave);
   EXPECT_THAT(samples(text(), "ptp_port_state"),
               ElementsAre("ptp_port_state{interface=\"eth0\",state=\"initializing\"} 0",
                           "ptp_port_state{interface=\"eth0\",state=\"faulty\"} 0",
                           "ptp_port_state{interface=\"eth0\",state=\"disabled\"} 0",
                           "ptp_port_state{interface=\"eth0\",state=\"listening\"} 0",
                           "ptp_port_state{interface=\"eth0\",state=\"preMaster\"} 0",
                           "ptp_port_state{interface=\"eth0\",state=\"master\"} 0",
                           "ptp_port_state{interface=\"eth0\",state=\"passive\"} 0",
                           "ptp_port_state{interface=\"eth0\",state=\"uncalibrated\"} 0",
                           "ptp_port_state{interface=\"eth0\",state=\"slave\"} 1"));
}

TEST_F(ScrapeTest, AStateWithoutANameIsShownByItsNumber) {
   port(key("eth0"))->portStateIs(static_cast<Ptp::PortState>(77));
   std::vector<std::string> const all = samples(text(), "ptp_port_state");
   ASSERT_EQ(all.size(), 10u);
   EXPECT_EQ(all.back(), "ptp_port_state{interface=\"eth0\",state=\"77\"} 1");
   EXPECT_EQ(std::count_if(all.begin(), all.end(),
                           [](std::string const& line) { return line.ends_with(" 1"); }),
             1);
}

TEST_F(ScrapeTest, OffsetsAreExact) {
   auto const current = status->currentDSIs();
   current->offsetFromMasterIs(-1'234'567'890'123'456'789);
   current->meanPathDelayIs(std::numeric_limits<S64>::min());
   EXPECT_THAT(text(), HasSubstr("ptp_offset_from_master_seconds -1234567890.123456789\n"));
   EXPECT_THAT(text(), HasSubstr("ptp_mean_path_delay_seconds -9223372036.854775808\n"));
   auto const one = port(key("eth0"));
   one->logSyncIntervalIs(-7);
   one->logAnnounceIntervalIs(3);
   EXPECT_THAT(text(), HasSubstr("ptp_port_sync_interval_seconds{interface=\"eth0\"} 0.0078125\n"));
   EXPECT_THAT(text(), HasSubstr("ptp_port_announce_interval_seconds{interface=\"eth0\"} 8\n"));
   EXPECT_THAT(text(),
               HasSubstr("ptp_port_last_sync_receipt_timeout_timestamp_seconds{interface=\"eth0\"} "
                         "+Inf\n"));
}

TEST_F(ScrapeTest, AClockThatFollowsNobodyHasNoFollowedPort) {
   status->currentDSIs();
   EXPECT_THAT(text(), Not(HasSubstr("ptp_followed_port")));
   status->currentDS()->lastUpdatePortKeyIs(key("eth0"));
   EXPECT_THAT(text(), HasSubstr("ptp_followed_port_info{interface=\"eth0\"} 1\n"));
}

TEST_F(ScrapeTest, StatusesAreDistinguishedByTheirNames) {
   auto const other = Ptp::statusFactory("lab \"2\"/status");
   for (auto const& one : {status, other}) {
      one->portDSIs(key("eth0"), Ptp::PortIdentity());
   }
   std::string const both = scraped(Roots{status, other});
   EXPECT_THAT(samples(both, "ptp_enabled"),
               ElementsAre("ptp_enabled{clock=\"lab \\\"2\\\"\"} 0", "ptp_enabled 0"));
   EXPECT_THAT(samples(both, "ptp_port_faulty"),
               ElementsAre("ptp_port_faulty{clock=\"lab \\\"2\\\"\",interface=\"eth0\"} 0",
                           "ptp_port_faulty{interface=\"eth0\"} 0"));
   // Alone, it has the same label.
   EXPECT_THAT(samples(scraped(Roots{other}), "ptp_enabled"),
               ElementsAre("ptp_enabled{clock=\"lab \\\"2\\\"\"} 0"));
}

TEST_F(ScrapeTest, ALabelOfAClockIsNeverUsedTwice) {
   std::vector<std::string> const names{"",    "/status",    "a",         "a/status",
                                        "ptp", "ptp/status", "b/c/status"};
   EXPECT_THAT(clockLabels(names),
               ElementsAre("", "/status", "a", "a/status", "ptp", "ptp/status", "b/c"));
   std::vector<std::string> const usual{"ptp/status", "ptp4l.0/status"};
   EXPECT_THAT(clockLabels(usual), ElementsAre("", "ptp4l.0"));
}

TEST_F(ScrapeTest, APortThatDisappearsBetweenPiecesHasNoMoreSamples) {
   port(key("Ethernet1"));
   port(key("Ethernet2"));
   Scrape scrape(Roots{status}, MetricFormat::prometheus, connectedHealth(), counters);
   std::string all;
   std::vector<char> piece(64);
   bool removed = false;
   while (!scrape.ended()) {
      all.append(piece.data(), scrape.read(piece));
      if (!removed && all.find("ptp_port_enabled{interface=\"Ethernet1\"}") != all.npos) {
         status->portDSDel(key("Ethernet2"));
         removed = true;
      }
   }
   EXPECT_EQ(samples(all, "ptp_port_faulty").size(), 2u);
   EXPECT_EQ(samples(all, "ptp_port_initialized").size(), 1u);
}

TEST_F(ScrapeTest, APortThatIsReplacedBetweenPiecesGoesOn) {
   port(key("Ethernet1"));
   Scrape scrape(Roots{status}, MetricFormat::prometheus, connectedHealth(), counters);
   std::string all;
   std::vector<char> piece(64);
   bool replaced = false;
   while (!scrape.ended()) {
      all.append(piece.data(), scrape.read(piece));
      if (!replaced && all.find("ptp_port_faulty{") != all.npos) {
         status->portDSDel(key("Ethernet1"));
         port(key("Ethernet1"))->syncMessageReceivedIs(3);
         port(key("Ethernet2"));
         status->currentDSDel();
         replaced = true;
      }
   }
   EXPECT_THAT(samples(all, "ptp_port_sync_messages_received"),
               ElementsAre("ptp_port_sync_messages_received_total{interface=\"Ethernet1\"} 3"))
         << "a port that came later is in the next scrape";
}

TEST_F(ScrapeTest, SurvivesChangesBetweenAnyTwoPieces) {
   DemoAgent::Agent agent(status, 12, 7);
   agent.fill();
   for (U32 seed = 1; seed != 200; ++seed) {
      Scrape scrape(Roots{status},
                    seed % 2 == 0 ? MetricFormat::prometheus : MetricFormat::openMetrics,
                    connectedHealth(), counters);
      std::string all;
      std::vector<char> piece(1 + seed * 37 % 4000);
      for (U32 i = 0; !scrape.ended(); ++i) {
         all.append(piece.data(), scrape.read(piece));
         switch ((seed + i) % 7) {
            case 0:
               agent.tick();
               break;
            case 1:
               port(key("et9", static_cast<U16>(1 + seed % 100)));
               break;
            case 2:
               status->portDSDel(key("et9", static_cast<U16>(1 + seed % 100)));
               break;
            case 3:
               status->aclStatusServiceIs("x");
               break;
            case 4:
               status->aclStatusServiceDel();
               break;
         }
      }
      // No sample twice, no family twice.
      std::set<std::string> names;
      for (std::string const& line : linesOf(all)) {
         ASSERT_TRUE(names.insert(line.substr(0, line.rfind(' '))).second) << line;
      }
   }
}

TEST_F(ScrapeTest, CountersGoOnFromScrapeToScrape) {
   auto const one = port(key("eth0"));
   one->syncMessageReceivedIs(0xFFFFFFFF);
   auto const now = [&] {
      Scrape scrape(Roots{status}, MetricFormat::openMetrics, connectedHealth(), counters);
      return samples(readAll(scrape), "ptp_port_sync_messages_received");
   };
   EXPECT_THAT(now(),
               ElementsAre("ptp_port_sync_messages_received_total{interface=\"eth0\"} 4294967295",
                           "ptp_port_sync_messages_received_created{interface=\"eth0\"} "
                           "1700000000"));
   one->syncMessageReceivedIs(1);
   EXPECT_EQ(now()[0], "ptp_port_sync_messages_received_total{interface=\"eth0\"} 4294967297");
   EXPECT_THAT(text(), Not(HasSubstr("_created")));
}

TEST_F(ScrapeTest, ClearedCountersGoOn) {
   auto const one = port(key("eth0"));
   one->initializedIs(true);
   one->stpDiscardedRxMessagesCountIs(5);
   auto const now = [&] {
      Scrape scrape(Roots{status}, MetricFormat::prometheus, connectedHealth(), counters);
      return samples(readAll(scrape), "ptp_port_stp_discarded_messages_received").at(0);
   };
   EXPECT_TRUE(now().ends_with("} 5"));
   one->updateClearCountersRequestTime();
   one->maybeClearCounters();
   one->stpDiscardedRxMessagesCountIs(6);
   EXPECT_TRUE(now().ends_with("} 11")) << now();
}

}  // namespace
}  // namespace Ptpexport::MetricsTest

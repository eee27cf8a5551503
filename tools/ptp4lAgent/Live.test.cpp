// The program with real daemons, compared with what pmc(8) reads from them.
#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <cmath>
#include <csignal>
#include <functional>
#include <thread>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"
#include "tools/ptp4lAgent/Lab.test.h"

namespace {

using namespace Ptp4lAgent;
using Fields = Lab::Fields;
using Ptp::PortState;

std::string upper(std::string text) {
   for (char& c : text) {
      c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
   }
   return text;
}

/// An identity as pmc writes it: "0acd14.fffe.33e079".
std::string text(Ptp::ClockIdentity const& identity) {
   char digits[24];
   auto const v = static_cast<unsigned long long>(identity.value());
   std::snprintf(digits, sizeof digits, "%06llx.%04llx.%06llx", v >> 40, v >> 24 & 0xFFFF,
                 v & 0xFFFFFF);
   return digits;
}
std::string text(Ptp::PortIdentity const& identity) {
   return text(identity.clockIdentity()) + "-" + std::to_string(identity.portNumber());
}
std::string hexText(U32 number, int digits) {
   char all[16];
   std::snprintf(all, sizeof all, "0x%0*x", digits, number);
   return all;
}

class Live : public testing::Test {
protected:
   void SetUp() override {
      if (!Lab::whyNot().empty()) {
         GTEST_SKIP() << Lab::whyNot();
      }
      lab = std::make_unique<Lab>();
   }
   void TearDown() override {
      if (HasFailure() && lab) {
         for (char const* const log : {"agent.log", "gm.log", "bc.log", "slave.log"}) {
            std::fprintf(stderr, "--- %s\n%s", log, lab->read(log).c_str());
         }
      }
      client.reset();
      lab.reset();
   }

   /// A grandmaster "gm" in namespace a, and a second daemon in namespace b.
   void pair() {
      lab->space("a");
      lab->space("b");
      lab->connect("a", "pva", "10.77.0.1", "b", "pvb", "10.77.0.2");
   }
   /// Starts the agent in a namespace, and mirrors its status and configuration.
   void agentIn(std::string const& space, std::string const& daemon) {
      lab->start(space, "agent",
                 {std::string(PTPLIB_BIN_DIR) + "/ptp4lAgent", "--socket", lab->file("socket"),
                  "--ptp4l", lab->file(daemon)});
      for (int i = 0; client == nullptr; ++i) {
         try {
            client = std::make_unique<Holt::Client>(lab->file("socket"), std::chrono::seconds(60));
         } catch (Holt::Failure const&) {
            ASSERT_LT(i, 100) << "the agent does not listen";
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
         }
      }
      client->waitComplete(client->mountIs(status, Holt::MountMode::reader));
      client->waitComplete(client->mountIs(config, Holt::MountMode::writer));
   }
   /// Waits until something holds, for at most `seconds`.
   bool eventually(std::function<bool()> const& holds, int seconds = 20) {
      auto const end = Holt::Clock::now() + std::chrono::seconds(seconds);
      while (!holds()) {
         if (Holt::Clock::now() > end) {
            return false;
         }
         client->turn(-1, std::chrono::milliseconds(50));
      }
      return true;
   }
   Sarn::Ptr<Ptp::PortDS> port(char const* intf) const {
      return status->portDS({Dorn::IntfId(intf), Bridging::VlanIdOrNone()});
   }
   bool isIn(char const* intf, PortState state) const {
      return port(intf) && port(intf)->portState() == state;
   }
   /// Whether the clock follows another one.
   bool follows() const {
      return status->parentDS() && status->defaultDS() &&
             status->parentDS()->grandmasterIdentity() != status->defaultDS()->clockIdentity();
   }

   void compareClock(std::string const& daemon, int domain = 0, int transportSpecific = 0);
   void comparePorts(std::string const& daemon, int domain = 0, int transportSpecific = 0);
   void comparePtpports(std::string const& daemon, int domain = 0, int transportSpecific = 0);

   std::unique_ptr<Lab> lab;
   std::unique_ptr<Holt::Client> client;
   Sarn::Ptr<Ptp::Status> status = Ptp::statusFactory("ptp/status");
   Sarn::Ptr<Ptp::Config> config = Ptp::configFactory("ptp/config");
};

void Live::compareClock(std::string const& daemon, int domain, int transportSpecific) {
   auto const ask = [&](char const* id) {
      auto const answers = lab->pmc(daemon, id, domain, transportSpecific);
      return answers.size() == 1 ? answers[0] : Fields();
   };
   Fields const def = ask("DEFAULT_DATA_SET");
   auto const clock = status->defaultDS();
   EXPECT_EQ(def, (Fields{{"twoStepFlag", std::to_string(clock->twoStepFlag())},
                          {"slaveOnly", std::to_string(clock->slaveOnly())},
                          {"numberPorts", std::to_string(clock->numberPorts())},
                          {"priority1", std::to_string(clock->priority1())},
                          {"clockClass", std::to_string(clock->clockQuality().clockClass())},
                          {"clockAccuracy", hexText(clock->clockQuality().clockAccuracy(), 2)},
                          {"offsetScaledLogVariance",
                           hexText(clock->clockQuality().offsetScaledLogVariance().value(), 4)},
                          {"priority2", std::to_string(clock->priority2())},
                          {"clockIdentity", text(clock->clockIdentity())},
                          {"domainNumber", std::to_string(clock->domainNumber())}}));
   Fields const par = ask("PARENT_DATA_SET");
   auto const parent = status->parentDS();
   Ptp::ClockQuality const& quality = parent->grandmasterClockQuality();
   EXPECT_EQ(par,
             (Fields{{"parentPortIdentity", text(parent->parentSourceAddrs().parentPortIdentity())},
                     {"parentStats", std::to_string(parent->parentStats())},
                     {"observedParentOffsetScaledLogVariance",
                      hexText(parent->observedParentOffsetScaledLogVariance(), 4)},
                     {"observedParentClockPhaseChangeRate",
                      hexText(static_cast<U32>(parent->observedParentClockPhaseChangeRate()), 8)},
                     {"grandmasterPriority1", std::to_string(parent->grandmasterPriority1())},
                     {"gm.ClockClass", std::to_string(quality.clockClass())},
                     {"gm.ClockAccuracy", hexText(quality.clockAccuracy(), 2)},
                     {"gm.OffsetScaledLogVariance",
                      hexText(quality.offsetScaledLogVariance().value(), 4)},
                     {"grandmasterPriority2", std::to_string(parent->grandmasterPriority2())},
                     {"grandmasterIdentity", text(parent->grandmasterIdentity())}}));
   Fields const tim = ask("TIME_PROPERTIES_DATA_SET");
   auto const time = status->timePropertiesDS();
   EXPECT_EQ(tim, (Fields{{"currentUtcOffset", std::to_string(time->currentUtcOffset().value())},
                          {"leap61", std::to_string(time->leap61())},
                          {"leap59", std::to_string(time->leap59())},
                          {"currentUtcOffsetValid", std::to_string(time->currentUtcOffsetValid())},
                          {"ptpTimescale", std::to_string(time->ptpTimescale())},
                          {"timeTraceable", std::to_string(time->timeTraceable())},
                          {"frequencyTraceable", std::to_string(time->frequencyTraceable())},
                          {"timeSource", hexText(time->timeSource(), 2)}}));
   // These change all the time, each at its own: somewhen, both read the same.
   auto const current = [&](char const* field, auto const& ours) {
      EXPECT_TRUE(eventually([&] {
         Fields const set = ask("CURRENT_DATA_SET");
         client->turn(-1, std::chrono::milliseconds(10));
         return set.size() == 3 && std::floor(std::stod(set.at(field))) ==
                                         static_cast<double>(ours(*status->currentDS()));
      })) << field;
   };
   current("stepsRemoved", [](auto const& set) { return set.stepsRemoved().value(); });
   current("offsetFromMaster", [](auto const& set) { return set.offsetFromMaster(); });
   auto const followed = status->portDS(status->currentDS()->lastUpdatePortKey());
   if (followed && followed->delayMechanism() == Ptp::DelayMechanism::e2e) {
      current("meanPathDelay", [](auto const& set) { return set.meanPathDelay(); });
   }
   EXPECT_TRUE(eventually([&] {
      Fields const now = ask("TIME_STATUS_NP");
      client->turn(-1, std::chrono::milliseconds(10));
      auto const set = status->currentDS();
      return !now.empty() && std::stoll(now.at("master_offset")) == set->offsetFromMaster() &&
             std::stoull(now.at("ingress_time")) == set->lastSyncLocalTime() &&
             now.at("gmPresent") == (set->gmPresent() ? "true" : "false") &&
             now.at("gmIdentity") == text(parent->grandmasterIdentity());
   }));
}

void Live::comparePorts(std::string const& daemon, int domain, int transportSpecific) {
   auto const properties = lab->pmc(daemon, "PORT_PROPERTIES_NP", domain, transportSpecific);
   auto const before = lab->pmc(daemon, "PORT_STATS_NP", domain, transportSpecific);
   ASSERT_EQ(properties.size(), status->portDSCount());
   ASSERT_EQ(before.size(), properties.size());
   eventually([] { return false; }, 2);  // the counters are asked for once a second
   // A port may change its state meanwhile, so what is compared now is read now.
   auto const sets = lab->pmc(daemon, "PORT_DATA_SET", domain, transportSpecific);
   auto const more = lab->pmc(daemon, "PORT_DATA_SET_NP", domain, transportSpecific);
   ASSERT_EQ(sets.size(), properties.size());
   ASSERT_EQ(more.size(), properties.size());
   client->turn(-1, std::chrono::milliseconds(10));
   auto const after = lab->pmc(daemon, "PORT_STATS_NP", domain, transportSpecific);
   ASSERT_EQ(after.size(), properties.size());
   auto const sum = [](Fields const& counters, std::string const& direction) {
      U64 all = 0;
      for (auto const& [name, count] : counters) {
         all += name.starts_with(direction) ? std::stoull(count) : 0;
      }
      return all;
   };
   for (std::size_t i = 0; i != properties.size(); ++i) {
      auto const set = port(properties[i].at("interface").c_str());
      ASSERT_TRUE(set) << properties[i].at("interface");
      EXPECT_EQ(properties[i].at("portIdentity"), text(set->portIdentity()));
      Fields expected = sets[i];
      expected.erase("peerMeanPathDelay");
      EXPECT_EQ(expected,
                (Fields{{"portIdentity", text(set->portIdentity())},
                        {"portState", upper(Kiv::strRep(set->portState()))},
                        {"logMinDelayReqInterval", std::to_string(set->logMinDelayReqInterval())},
                        {"logAnnounceInterval", std::to_string(set->logAnnounceInterval())},
                        {"announceReceiptTimeout", std::to_string(set->announceReceiptTimeout())},
                        {"logSyncInterval", std::to_string(set->logSyncInterval())},
                        {"delayMechanism", std::to_string(static_cast<int>(set->delayMechanism()))},
                        {"logMinPdelayReqInterval", std::to_string(set->logMinPdelayReqInterval())},
                        {"versionNumber", std::to_string(set->versionNumber())}}));
      EXPECT_EQ(more[i],
                (Fields{{"neighborPropDelayThresh", std::to_string(set->linkDelayThreshold())},
                        {"asCapable", std::to_string(set->asCapable())}}));
      U32 const syncs = set->syncMessageReceived();
      EXPECT_GE(syncs, std::stoul(before[i].at("rx_Sync")));
      EXPECT_LE(syncs, std::stoul(after[i].at("rx_Sync")));
      auto const mib = status->ptpMibData()->ptpMibPortData(set->portDSKey());
      EXPECT_GE(mib->totalPacketsReceived(), sum(before[i], "rx_"));
      EXPECT_LE(mib->totalPacketsReceived(), sum(after[i], "rx_"));
      EXPECT_GE(mib->totalPacketsSent(), sum(before[i], "tx_"));
      EXPECT_LE(mib->totalPacketsSent(), sum(after[i], "tx_"));
      bool const follows = set->portState() == PortState::slave;
      EXPECT_EQ(syncs > 0, follows);
   }
   for (std::size_t i = 0; i != properties.size(); ++i) {
      auto const set = port(properties[i].at("interface").c_str());
      EXPECT_TRUE(eventually([&] {
         auto const now = lab->pmc(daemon, "PORT_DATA_SET", domain, transportSpecific);
         client->turn(-1, std::chrono::milliseconds(10));
         return now.size() == properties.size() &&
                std::floor(std::stod(now[i].at("peerMeanPathDelay"))) ==
                      static_cast<double>(set->peerMeanPathDelay());
      }));
   }
}

/// What `ptpports --json` prints, beside what pmc says.
void Live::comparePtpports(std::string const& daemon, int domain, int transportSpecific) {
   std::string json =
         outputOf(std::string(PTPLIB_BIN_DIR) + "/ptpports --json --socket " + lab->file("socket"));
   std::erase_if(json, [](unsigned char c) { return std::isspace(c) != 0; });
   auto const has = [&json](std::string const& part) {
      EXPECT_NE(json.find(part), std::string::npos) << part << '\n' << json;
   };
   // "0acd14.fffe.33e079" as "0a:cd:14:ff:fe:33:e0:79".
   auto const identity = [](std::string digits) {
      std::erase(digits, '.');
      for (std::size_t at = 2; at < digits.size(); at += 3) {
         digits.insert(at, ":");
      }
      return '"' + digits + '"';
   };
   Fields const clock = lab->pmc(daemon, "DEFAULT_DATA_SET", domain, transportSpecific).at(0);
   Fields const parent = lab->pmc(daemon, "PARENT_DATA_SET", domain, transportSpecific).at(0);
   Fields const current = lab->pmc(daemon, "CURRENT_DATA_SET", domain, transportSpecific).at(0);
   has("\"clockIdentity\":" + identity(clock.at("clockIdentity")) + ",\"domainNumber\":" +
       clock.at("domainNumber") + ",\"numberPorts\":" + clock.at("numberPorts"));
   has("\"grandmasterIdentity\":" + identity(parent.at("grandmasterIdentity")) +
       ",\"clockClass\":" + parent.at("gm.ClockClass") +
       ",\"stepsRemoved\":" + current.at("stepsRemoved"));
   for (Fields const& set : lab->pmc(daemon, "PORT_PROPERTIES_NP", domain, transportSpecific)) {
      std::string state = set.at("portState");
      for (char& c : state) {
         c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      }
      has("{\"port\":\"" + set.at("interface") + "\",\"vlan\":null,\"portState\":\"" + state +
          "\"");
   }
}

TEST_F(Live, APairEndToEndOverIpv4) {
   pair();
   lab->ptp4l("a", "gm", {"-E", "-4", "-i", "pva", "--priority1", "10", "--free_running", "1"});
   lab->ptp4l("b", "slave", {"-E", "-4", "-i", "pvb", "-s"});
   agentIn("b", "slave");
   ASSERT_TRUE(eventually([&] { return isIn("pvb", PortState::slave) && follows(); }, 40));
   ASSERT_TRUE(eventually([&] { return status->currentDS()->meanPathDelay() != 0; }));
   compareClock("slave");
   comparePorts("slave");
   comparePtpports("slave");
   EXPECT_EQ(port("pvb")->transportMode(), Ptp::TransportMode::ipv4);
   EXPECT_EQ(Kiv::strRep(status->defaultDS()->srcIp4()), "10.77.0.2");
   EXPECT_TRUE(eventually([&] { return status->parentTwoStepFlag(); }));

   // The link goes down and comes up.
   lab->link("b", "pvb", false);
   EXPECT_TRUE(eventually([&] { return isIn("pvb", PortState::faulty); }));
   EXPECT_TRUE(eventually(
         [&] { return port("pvb")->disabledReason(Ptp::PortDisabledReason::linkDown); }));
   EXPECT_TRUE(port("pvb")->faultyFlag());
   EXPECT_EQ(status->currentDS()->lastUpdatePortKey(), Ptp::PortDSKey());
   lab->link("b", "pvb", true);
   EXPECT_TRUE(eventually([&] { return isIn("pvb", PortState::slave); }, 60));
   EXPECT_EQ(port("pvb")->disabledReasonCount(), 0u);
}

TEST_F(Live, APairPeerToPeerOverEthernetInAnotherDomain) {
   pair();
   std::vector<std::string> const common{"-P", "-2", "--domainNumber", "24", "--transportSpecific",
                                         "1"};
   auto gm = common;
   gm.insert(gm.end(), {"-i", "pva", "--priority1", "10", "--free_running", "1"});
   auto slave = common;
   slave.insert(slave.end(), {"-i", "pvb", "-s"});
   lab->ptp4l("a", "gm", gm);
   lab->ptp4l("b", "slave", slave);
   agentIn("b", "slave");
   ASSERT_TRUE(eventually([&] { return isIn("pvb", PortState::slave) && follows(); }, 40));
   ASSERT_TRUE(eventually([&] { return port("pvb")->peerMeanPathDelay() != 0; }));
   compareClock("slave", 24, 1);
   comparePorts("slave", 24, 1);
   comparePtpports("slave", 24, 1);
   EXPECT_TRUE(eventually(
         [&] { return status->currentDS()->meanPathDelay() == port("pvb")->peerMeanPathDelay(); }));
   EXPECT_EQ(port("pvb")->transportMode(), Ptp::TransportMode::layer2);
   EXPECT_TRUE(eventually([&] { return port("pvb")->isMeasuringLinkDelay(); }));
   EXPECT_EQ(config->domainNumber(), 24);
}

TEST_F(Live, ABoundaryClock) {
   pair();
   lab->space("c");
   lab->connect("b", "pwb", "10.78.0.1", "c", "pwc", "10.78.0.2");
   lab->ptp4l("a", "gm", {"-E", "-4", "-i", "pva", "--priority1", "10", "--free_running", "1"});
   lab->ptp4l("b", "bc", {"-E", "-4", "-i", "pvb", "-i", "pwb"});
   lab->ptp4l("c", "slave", {"-E", "-4", "-i", "pwc", "-s"});
   agentIn("b", "bc");
   ASSERT_TRUE(eventually(
         [&] {
            return isIn("pvb", PortState::slave) && isIn("pwb", PortState::master) && follows();
         },
         40));
   compareClock("bc");
   comparePorts("bc");
   comparePtpports("bc");
   EXPECT_EQ(status->defaultDS()->ptpMode(), Ptp::PtpMode::boundary);
   EXPECT_EQ(status->ptpMibData()->ptpMibPortDataCount(), 2u);
}

TEST_F(Live, TheDaemonIsKilledAndStartedAgain) {
   pair();
   std::vector<std::string> const args{"-E", "-4", "-i", "pva", "--priority1", "77"};
   pid_t const first = lab->ptp4l("a", "gm", args);
   agentIn("a", "gm");
   ASSERT_TRUE(eventually([&] { return status->enabled() && status->portDSCount() == 1; }));
   lab->end(first, SIGKILL);
   EXPECT_TRUE(eventually([&] { return !status->enabled() && status->portDSCount() == 0; }));
   pid_t const second = lab->ptp4l("a", "gm", args);
   EXPECT_TRUE(eventually([&] { return status->enabled() && status->portDSCount() == 1; }));
   ::kill(second, SIGSTOP);
   EXPECT_TRUE(eventually([&] { return !status->enabled(); }));
   ::kill(second, SIGCONT);
   EXPECT_TRUE(eventually([&] { return status->enabled() && status->portDSCount() == 1; }));
   lab->end(second, SIGTERM);
   EXPECT_TRUE(eventually([&] { return !status->enabled(); }));
   EXPECT_FALSE(client->over());
}

TEST_F(Live, APrioritySetInTheConfigurationChangesTheGrandmaster) {
   pair();
   lab->ptp4l("a", "gm", {"-E", "-4", "-i", "pva", "--priority1", "10", "--free_running", "1"});
   lab->ptp4l("b", "slave", {"-E", "-4", "-i", "pvb", "--free_running", "1"});
   agentIn("b", "slave");
   ASSERT_TRUE(eventually([&] { return isIn("pvb", PortState::uncalibrated) && follows(); }, 40));
   EXPECT_EQ(config->priority1(), 128);
   config->priority1Is(5);
   client->beginAnew();
   client->sync();  // returns when ptp4l has taken it
   EXPECT_EQ(lab->pmc("slave", "PRIORITY1"), (std::vector<Fields>{{{"priority1", "5"}}}));
   EXPECT_TRUE(eventually([&] {
      return isIn("pvb", PortState::master) &&
             status->parentDS()->grandmasterIdentity() == status->defaultDS()->clockIdentity();
   }));
   EXPECT_EQ(status->defaultDS()->priority1(), 5);
   comparePtpports("slave");
   config->intfConfig(Dorn::IntfId("pvb"))->linkDelayThresholdIs(1234);
   config->clockQualityConfiguredIs(true);
   config->clockQualityIs(Ptp::ClockQuality(6, 0x20, Dorn::NetU16(0x4E5D)));
   client->beginAnew();
   client->sync();
   EXPECT_EQ(lab->pmc("slave", "PORT_DATA_SET_NP").at(0).at("neighborPropDelayThresh"), "1234");
   EXPECT_EQ(lab->pmc("slave", "DEFAULT_DATA_SET").at(0).at("clockClass"), "6");
   EXPECT_EQ(lab->pmc("slave", "GRANDMASTER_SETTINGS_NP").at(0).at("offsetScaledLogVariance"),
             "0x4e5d");
}

}  // namespace

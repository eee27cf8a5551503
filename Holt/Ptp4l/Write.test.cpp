#include "Holt/Ptp4l/Write.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

#include "Holt/Ptp4l/Load.h"
#include "Holt/Ptp4l/Shipped.test.h"
#include "Holt/State/Dump.h"

namespace Holt {
namespace {

using Dorn::IntfId;
using Dorn::IpGenAddr;
using Ptp::UcastNegMsgProfile;
using Ptp::UcastNegProfile;

Sarn::Ptr<Ptp::Config> loaded(std::string const& text) {
   auto const config = Ptp::configFactory("ptp");
   Ptp4lOutcome const outcome = loadPtp4lConf(parsePtp4lConf(text, "a.conf"), *config);
   for (Ptp4lRemark const& error : outcome.errors) {
      ADD_FAILURE() << remarkText("a.conf", error) << '\n' << text;
   }
   for (Ptp4lRemark const& note : outcome.notes) {
      ADD_FAILURE() << remarkText("a.conf", note) << '\n' << text;
   }
   return config;
}

/// The values of a configuration by their paths.
std::map<std::string, std::string> valuesOf(Ptp::Config const& config) {
   std::ostringstream text;
   Dump(text).entity(config, "");
   std::map<std::string, std::string> values;
   std::istringstream lines(text.str());
   for (std::string line; std::getline(lines, line);) {
      if (auto const equals = line.find(" = "); equals != line.npos) {
         std::string path = line.substr(1, equals - 1);
         path.erase(path.find_last_not_of(' ') + 1);
         values[path] = line.substr(equals + 3);
      }
   }
   return values;
}

/// The paths whose values differ, or that only one of the two has.
std::vector<std::string> differences(Ptp::Config const& one, Ptp::Config const& other) {
   auto const a = valuesOf(one);
   auto const b = valuesOf(other);
   std::vector<std::string> paths;
   for (auto const& [path, value] : a) {
      auto const at = b.find(path);
      if (at == b.end() || at->second != value) {
         paths.push_back(path);
      }
   }
   for (auto const& [path, value] : b) {
      if (!a.contains(path)) {
         paths.push_back(path);
      }
   }
   return paths;
}

/// A clock that a file can express in full.
Sarn::Ptr<Ptp::Config> boundaryClock() {
   auto const config = Ptp::configFactory("ptp/config");
   config->enabledIs(true);
   config->ptpModeIs(Ptp::PtpMode::boundary);
   config->ptpProfileIs(Ptp::PtpProfile::g8275_1);
   config->domainNumberIs(24);
   config->priority2Is(100);
   config->clockQualityIs(Ptp::ClockQuality(165, 0x21, Dorn::NetU16(0x4e5d)));
   config->clockQualityConfiguredIs(true);
   config->clockIdentityIs(Ptp::ClockIdentity("00:11:22:ff:fe:33:44:55"));
   config->clockIdentityConfiguredIs(true);
   auto const eth10 = config->intfConfigIs(IntfId("eth10"), true, false);
   eth10->transportModeIs(Ptp::TransportMode::layer2);
   eth10->roleIs(Ptp::Role::masterOnly);
   auto const eth2 = config->intfConfigIs(IntfId("eth2"), true, false);
   eth2->transportModeIs(Ptp::TransportMode::layer2);
   eth2->delayMechanismIs(Ptp::DelayMechanism::p2p);
   eth2->logSyncIntervalIs(-4);
   for (auto const& port : {eth2, eth10}) {
      port->domainNumberIs(24);
      port->priority2Is(100);
   }
   return config;
}

TEST(Ptp4lWriteTest, AClockIsWrittenWithItsPortsInNaturalOrder) {
   Ptp4lText const written = writePtp4lConf(*boundaryClock());
   EXPECT_TRUE(written.notes.empty());
   EXPECT_EQ(written.text,
             "# ptp/config, written for ptp4l\n"
             "\n"
             "[global]\n"
             "clock_type                      BC\n"
             "twoStepFlag                     1\n"
             "transportSpecific               0x0\n"
             "dataset_comparison              G.8275.x\n"
             "network_transport               L2\n"
             "slaveOnly                       0\n"
             "time_stamping                   hardware\n"
             "domainNumber                    24\n"
             "priority1                       128\n"
             "priority2                       100\n"
             "G.8275.defaultDS.localPriority  128\n"
             "dscp_event                      21\n"
             "dscp_general                    0\n"
             "udp_ttl                         1\n"
             "net_sync_monitor                0\n"
             "clockClass                      165\n"
             "clockAccuracy                   0x21\n"
             "offsetScaledLogVariance         0x4E5D\n"
             "clockIdentity                   001122.fffe.334455\n"
             "unicast_listen                  0\n"
             "\n"
             "[eth2]\n"
             "logAnnounceInterval             1\n"
             "logSyncInterval                 -4\n"
             "logMinDelayReqInterval          5\n"
             "logMinPdelayReqInterval         0\n"
             "announceReceiptTimeout          3\n"
             "syncReceiptTimeout              3\n"
             "G.8275.portDS.localPriority     128\n"
             "neighborPropDelayThresh         100000\n"
             "udp_ttl                         1\n"
             "network_transport               L2\n"
             "ptp_dst_mac                     01:80:c2:00:00:0e\n"
             "delay_mechanism                 P2P\n"
             "masterOnly                      0\n"
             "\n"
             "[eth10]\n"
             "logAnnounceInterval             1\n"
             "logSyncInterval                 0\n"
             "logMinDelayReqInterval          5\n"
             "logMinPdelayReqInterval         0\n"
             "announceReceiptTimeout          3\n"
             "syncReceiptTimeout              3\n"
             "G.8275.portDS.localPriority     128\n"
             "neighborPropDelayThresh         100000\n"
             "udp_ttl                         1\n"
             "network_transport               L2\n"
             "ptp_dst_mac                     01:80:c2:00:00:0e\n"
             "delay_mechanism                 E2E\n"
             "masterOnly                      1\n");
   EXPECT_EQ(differences(*boundaryClock(), *loaded(written.text)), std::vector<std::string>());
}

TEST(Ptp4lWriteTest, MastersBecomeTablesThatPortsWithTheSameMastersShare) {
   auto const config = boundaryClock();
   config->unicastNegotiationIs(true);
   auto const profileOf = [](Ptp::IntfConfig const& port) {
      auto const ask = [](S16 interval) {
         return UcastNegMsgProfile(static_cast<S8>(interval), 60);
      };
      return UcastNegProfile(ask(port.logAnnounceInterval()), ask(port.logSyncInterval()),
                             ask(port.logMinDelayReqInterval()));
   };
   for (auto const& port : config->intfConfigAll()) {
      Sarn::String const profile = Kiv::strRep(port->intf()) + "/table7";
      config->ucastNegProfileIs(profile, profileOf(*port));
      port->ucastNegGrantorIpToProfileMapIs(IpGenAddr("192.0.2.1"), profile);
      port->ucastNegGrantorIpToProfileMapIs(IpGenAddr("2001:db8::1"), profile);
   }
   Ptp4lText const written = writePtp4lConf(*config);
   EXPECT_TRUE(written.notes.empty()) << written.notes.front();
   std::string const table =
         "\n[unicast_master_table]\n"
         "table_id                        7\n"
         "UDPv4                           192.0.2.1\n"
         "UDPv6                           2001:db8::1\n";
   EXPECT_EQ(written.text.find(table) + table.size(), written.text.size()) << written.text;
   EXPECT_EQ(differences(*config, *loaded(written.text)), std::vector<std::string>());

   // Other masters need another table.
   config->intfConfig(IntfId("eth10"))
         ->ucastNegGrantorIpToProfileMapIs(IpGenAddr("192.0.2.9"), "eth10/table7");
   std::string const text = writePtp4lConf(*config).text;
   EXPECT_NE(text.find("[unicast_master_table]\n"
                       "table_id                        1\n"
                       "UDPv4                           192.0.2.1\n"
                       "UDPv4                           192.0.2.9\n"),
             text.npos)
         << text;
}

TEST(Ptp4lWriteTest, WhatPtp4lHasNoSettingForIsNotedInTheFile) {
   auto const config = boundaryClock();
   config->enabledIs(false);
   config->holdPtpTimeIntervalIs(30);
   config->missingSequenceThresholdsIs(Ptp::MessageTypeNumber::sync, 5);
   config->localPriorityIs(0);
   config->ptpModeIs(Ptp::PtpMode::ordinary);
   config->intfConfigIs(IntfId("eth3"), false, false);
   auto& port = *config->intfConfig(IntfId("eth2"));
   port.priority1Is(7);
   port.timeStampingModeIs(Ptp::TimeStampingMode::software);
   port.roleIs(Ptp::Role::slaveOnly);
   port.linkDelayThresholdIs(3'000'000'000);
   port.delayMechanismIs(Ptp::DelayMechanism::disabled);
   port.vlanConfigIs(Bridging::VlanIdOrNone("100"));
   port.ucastNegGrantorIpToProfileMapIs(IpGenAddr("192.0.2.1"), "gold");
   Ptp4lText const written = writePtp4lConf(*config);
   EXPECT_EQ(
         written.notes,
         (std::vector<std::string>{
               "intfConfig[eth3].enabled = false: the port is left out",
               "ptpMode = ordinary: with several ports, ptp4l is a boundary clock",
               "intfConfig[eth10].timeStampingMode = hardware: ptp4l has one for all ports, that "
               "of eth2",
               "localPriority = 0: ptp4l takes 1 to 255",
               "enabled = false: ptp4l is enabled as long as it runs",
               "intfConfig[eth2].linkDelayThreshold = 3000000000: ptp4l takes 0 to 2147483647",
               "intfConfig[eth2].delayMechanism = disabled: needs linuxptp 4.0",
               "intfConfig[eth2].role = slaveOnly: ptp4l can have only all ports slaves",
               "intfConfig[eth2].priority1 = 7: ptp4l has one for all ports, 128",
               "intfConfig[eth2].ucastNegGrantorIpToProfileMap = 192.0.2.1: not asked without "
               "unicastNegotiation",
               "intfConfig[eth2].vlanConfig[100].vlanId = 100: ptp4l has no setting for it",
               "holdPtpTimeInterval = 30: ptp4l has no setting for it",
               "missingSequenceThresholds[sync] = 5: ptp4l has no setting for it"}));
   EXPECT_TRUE(
         written.text.starts_with("# ptp/config, written for ptp4l\n"
                                  "#\n"
                                  "# Not in this file, or in another way:\n"
                                  "#    intfConfig[eth3].enabled = false: the port is left out\n"))
         << written.text;
}

TEST(Ptp4lWriteTest, AForeignNameCannotBreakOutOfItsComment) {
   auto const config = Ptp::configFactory("ptp\npriority1 1");
   config->enabledIs(true);
   config->ptpModeIs(Ptp::PtpMode::ordinary);
   EXPECT_TRUE(
         writePtp4lConf(*config).text.starts_with("# ptp\\npriority1 1, written for ptp4l\n"));
}

TEST(Ptp4lWriteTest, SettingsOfTheBaseThatTheModelHasNoPlaceForAreCopied) {
   auto const config = Ptp::configFactory("ptp");
   Ptp4lConf const base = parsePtp4lConf(
         "[global]\nuse_syslog 0\npriority1 7\nunicast_req_duration 60\nuse_syslog 1\n"
         "[eth0]\ndelayAsymmetry 5\nlogSyncInterval -3\n[eth1]\ndelayAsymmetry 6\n",
         "old\n.conf");
   loadPtp4lConf(base, *config);
   config->intfConfigDel(IntfId("eth1"));
   config->priority1Is(8);
   std::string const text = writePtp4lConf(*config, &base).text;
   EXPECT_NE(text.find("unicast_listen                  0\n"
                       "# As in old\\n.conf:\n"
                       "use_syslog                      1\n"
                       "\n"
                       "[eth0]\n"),
             text.npos)
         << text;
   EXPECT_TRUE(
         text.ends_with("masterOnly                      0\n"
                        "# As in old\\n.conf:\n"
                        "delayAsymmetry                  5\n"))
         << text;
   EXPECT_NE(text.find("priority1                       8\n"), text.npos);
   EXPECT_EQ(text.find("unicast_req_duration"), text.npos);
}

TEST(Ptp4lWriteTest, APortWithoutANameIsLeftOut) {
   auto const config = boundaryClock();
   config->intfConfigIs(IntfId(), true, false);
   Ptp4lText const written = writePtp4lConf(*config);
   EXPECT_EQ(written.notes,
             std::vector<std::string>{"intfConfig[\"\"].intf = \"\": the port is left "
                                      "out: it has no name"});
}

/// A configuration in which each setting has some value, possible for ptp4l or not.
class Random {
public:
   explicit Random(U32 seed) : engine_(seed) {}

   Sarn::Ptr<Ptp::Config> config() {
      auto config = Ptp::configFactory("ptp");
      config->enabledIs(!maybe(20));
      config->ptpModeIs(static_cast<Ptp::PtpMode>(upTo(7)));
      config->ptpProfileIs(static_cast<Ptp::PtpProfile>(upTo(4)));
      config->domainNumberIs(byte());
      config->priority1Is(byte());
      config->priority2Is(byte());
      config->localPriorityIs(byte());
      config->globalDscpEventIs(static_cast<U8>(upTo(63)));
      config->globalDscpGeneralIs(static_cast<U8>(upTo(63)));
      config->ttlIs(byte());
      config->netSyncMonitorIs(maybe(2));
      config->unicastNegotiationIs(maybe(2));
      config->clockQualityConfiguredIs(maybe(2));
      config->clockQualityIs(Ptp::ClockQuality(byte(), byte(), Dorn::NetU16(0x1234)));
      config->clockIdentityConfiguredIs(maybe(2));
      config->clockIdentityIs(Ptp::ClockIdentity("00:11:22:ff:fe:33:44:55"));
      config->holdPtpTimeInfiniteIs(maybe(9));
      config->ucastNegProfileIs("gold", UcastNegProfile());
      for (U32 i = upTo(3); i != 0; --i) {
         port(*config->intfConfigIs(IntfId("absent" + std::to_string(i)), !maybe(9), maybe(9)));
      }
      return config;
   }

private:
   void port(Ptp::IntfConfig& port) {
      port.logAnnounceIntervalIs(static_cast<S8>(upTo(5)));
      port.logSyncIntervalIs(static_cast<S16>(upTo(5)));
      port.announceReceiptTimeoutIs(static_cast<U8>(2 + upTo(5)));
      port.localPriorityIs(byte());
      port.transportModeIs(static_cast<Ptp::TransportMode>(upTo(2)));
      port.timeStampingModeIs(static_cast<Ptp::TimeStampingMode>(upTo(3)));
      port.delayMechanismIs(static_cast<Ptp::DelayMechanism>(1 + upTo(3)));
      port.roleIs(static_cast<Ptp::Role>(upTo(2)));
      port.linkDelayThresholdIs(maybe(2) ? 800 : 0x8000'0000);
      port.ttlIs(byte());
      port.priority1Is(byte());
      port.domainNumberIs(byte());
      port.dscpEventConfiguredIs(maybe(2));
      port.dscpEventIs(static_cast<U8>(upTo(63)));
      port.isolatedSlaveEnabledIs(maybe(9));
      if (maybe(3)) {
         port.ucastNegGrantorIpToProfileMapIs(IpGenAddr("192.0.2.1"), maybe(2) ? "gold" : "none");
      }
   }

   U32 upTo(U32 greatest) { return std::uniform_int_distribution<U32>(0, greatest)(engine_); }
   bool maybe(U32 odds) { return upTo(odds - 1) == 0; }
   U8 byte() { return static_cast<U8>(upTo(255)); }

   std::mt19937 engine_;
};

/// Whether a difference after reading back was to be expected: a note names the attribute, or the
/// attribute means nothing where its flag is not set, or it is what ptp4l has once for all ports.
bool explained(std::string const& path, Ptp::Config const& config,
               std::vector<std::string> const& notes) {
   auto const noted = [&](std::string const& attribute) {
      return std::any_of(notes.begin(), notes.end(), [&](std::string const& note) {
         return note.starts_with(attribute) &&
                std::string_view(" .[").find(note[attribute.size()]) != std::string_view::npos;
      });
   };
   std::string const attribute = path.substr(path.find_last_of('.') + 1);
   if (path.starts_with("intfConfig[")) {
      auto const& port = *config.intfConfig(IntfId(path.substr(11, path.find(']') - 11)));
      std::string const at = path.substr(0, path.find(']') + 2);
      return noted(path) || noted(at + "enabled") || noted(at + "ucastNegGrantorIpToProfileMap") ||
             // Dead values, and those that only follow the clock's.
             (attribute == "dscpEvent" &&
              (!port.dscpEventConfigured() || port.dscpEvent() == config.globalDscpEvent())) ||
             (attribute == "dscpEventConfigured" &&
              (port.dscpEvent() == config.globalDscpEvent() || noted(at + "dscpEvent"))) ||
             (attribute == "priority1" && port.priority1() == 128) ||
             (attribute == "priority2" && port.priority2() == 128) ||
             (attribute == "domainNumber" &&
              (port.domainNumber() == 0 ||
               (port.domainNumber() == config.domainNumber() && noted("domainNumber"))));
   }
   return noted(path) || (path == "clockQuality" && !config.clockQualityConfigured()) ||
          (path == "clockIdentity" && !config.clockIdentityConfigured()) ||
          // What slaveOnly makes of it.
          path.starts_with("clockQuality") || path.starts_with("ucastNegProfile[") ||
          // A profile or a mode for which ptp4l has one setting with another, or another meaning.
          (path.starts_with("ptp") && (noted("ptpMode") || noted("ptpProfile")));
}

TEST(Ptp4lWriteTest, WhatIsNotReadBackIsNoted) {
   for (U32 seed = 0; seed != 500; ++seed) {
      auto const config = Random(seed).config();
      Ptp4lText const written = writePtp4lConf(*config);
      auto const outcome = parsePtp4lConf(written.text, "a.conf");
      auto const back = Ptp::configFactory("ptp");
      ASSERT_TRUE(loadPtp4lConf(outcome, *back).errors.empty()) << seed << '\n' << written.text;
      for (std::string const& path : differences(*config, *back)) {
         ASSERT_TRUE(explained(path, *config, written.notes)) << seed << ": " << path << '\n'
                                                              << written.text;
      }
   }
}

// ---- With the daemon's own files, and the daemon ----

TEST(Ptp4lWriteTest, FilesThatLinuxptpShipsAreReadBackAsTheyWere) {
   auto const files = shippedFiles();
   if (files.empty()) {
      GTEST_SKIP() << "linuxptp is not installed";
   }
   for (std::string const& file : files) {
      auto const config = Ptp::configFactory("ptp");
      ASSERT_TRUE(loadPtp4lConf(readPtp4lConf(file), *config).errors.empty()) << file;
      Ptp4lText const written = writePtp4lConf(*config);
      if (file.ends_with("/UNICAST-SLAVE.cfg")) {
         // A table without IP addresses leaves a profile that nobody uses.
         config->ucastNegProfileDel("eth1/table2");
      }
      EXPECT_EQ(differences(*config, *loaded(written.text)), std::vector<std::string>())
            << file << written.text;
   }
}

TEST(Ptp4lWriteTest, Ptp4lItselfReadsWhatIsWritten) {
   if (std::system("command -v ptp4l >/dev/null 2>&1") != 0) {
      GTEST_SKIP() << "linuxptp is not installed";
   }
   std::string const file = testing::TempDir() + "ptp4lWrite.conf";
   U32 tried = 0;
   for (U32 seed = 0; seed != 12; ++seed) {
      auto const config = Random(seed).config();
      config->clockIdentityConfiguredIs(false);
      Ptp4lText const written = writePtp4lConf(*config);
      if (written.text.find("NONE") != written.text.npos) {
         continue;  // linuxptp 4.0
      }
      ++tried;
      std::ofstream(file) << written.text;
      // After reading, it stops: without ports, or because their devices do not exist, so that it
      // cannot make a clock identity. It never gets as far as the machine's clock.
      FILE* const pipe = ::popen(
            ("timeout 5 ptp4l -m -q -f " + file + " --uds_address /nowhere/s 2>&1").c_str(), "r");
      std::array<char, 4096> buffer;
      std::string output(buffer.data(), std::fread(buffer.data(), 1, buffer.size(), pipe));
      ::pclose(pipe);
      EXPECT_EQ(output.find("failed to parse"), output.npos) << output << written.text;
      EXPECT_NE(output, "");
   }
   std::filesystem::remove(file);
   EXPECT_GT(tried, 5u);
}

}  // namespace
}  // namespace Holt

#include "Holt/Ptp4l/Load.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "Holt/Ptp4l/Shipped.test.h"
#include "KivTest/Witness.h"

namespace Holt {
namespace {

using Dorn::IntfId;
using Dorn::IpGenAddr;

class Ptp4lLoadTest : public testing::Test {
protected:
   /// Loads the text; returns its errors, a line each.
   std::string load(std::string_view text) {
      return errorsOf(loadPtp4lConf(parsePtp4lConf(text, "a.conf"), *config), "a.conf");
   }

   std::string errorsOf(Ptp4lOutcome const& outcome, std::string const& file) {
      notes.clear();
      for (auto const& note : outcome.notes) {
         notes += remarkText(file, note) + "\n";
      }
      std::string errors;
      for (auto const& error : outcome.errors) {
         errors += remarkText(file, error) + "\n";
      }
      return errors;
   }

   Ptp::IntfConfig& port(char const* name) { return *config->intfConfig(IntfId(name)); }

   Sarn::Ptr<Ptp::Config> config = Ptp::configFactory("ptp");
   std::string notes;
};

// ---- The clock ----

TEST_F(Ptp4lLoadTest, ClockSettingsGoToTheConfig) {
   EXPECT_EQ(load("[global]\n"
                  "domainNumber 24\n"
                  "priority1 1\n"
                  "priority2 2\n"
                  "clockClass 6\n"
                  "clockAccuracy 0x21\n"
                  "offsetScaledLogVariance 0x4E5D\n"
                  "G.8275.defaultDS.localPriority 3\n"
                  "dscp_event 46\n"
                  "dscp_general 34\n"
                  "udp_ttl 5\n"
                  "net_sync_monitor 1\n"
                  "unicast_listen 1\n"
                  "clockIdentity 001122.fffe.334455\n"),
             "");
   EXPECT_EQ(notes, "");
   EXPECT_TRUE(config->enabled());
   EXPECT_EQ(config->domainNumber(), 24);
   EXPECT_EQ(config->priority1(), 1);
   EXPECT_EQ(config->priority2(), 2);
   EXPECT_EQ(config->clockQuality(), Ptp::ClockQuality(6, 0x21, Dorn::NetU16(0x4e5d)));
   EXPECT_TRUE(config->clockQualityConfigured());
   EXPECT_EQ(config->localPriority(), 3);
   EXPECT_EQ(config->globalDscpEvent(), 46);
   EXPECT_EQ(config->globalDscpGeneral(), 34);
   EXPECT_EQ(config->ttl(), 5);
   EXPECT_TRUE(config->netSyncMonitor());
   EXPECT_TRUE(config->unicastNegotiation());
   EXPECT_EQ(Kiv::strRep(config->clockIdentity()), "00:11:22:ff:fe:33:44:55");
   EXPECT_TRUE(config->clockIdentityConfigured());
}

TEST_F(Ptp4lLoadTest, QualityIsNotConfiguredByAFileThatDoesNotMentionIt) {
   EXPECT_EQ(load("[global]\ndomainNumber 1\n"), "");
   EXPECT_FALSE(config->clockQualityConfigured());
   EXPECT_FALSE(config->clockIdentityConfigured());
   EXPECT_FALSE(config->unicastNegotiation());
}

struct ModeRow {
   char const* settings;
   Ptp::PtpMode mode;
   Ptp::PtpProfile profile;
};

TEST_F(Ptp4lLoadTest, ModeAndProfileFollowFromSeveralKeys) {
   using Ptp::PtpMode;
   using Ptp::PtpProfile;
   ModeRow const rows[] = {
         {"", PtpMode::ordinary, PtpProfile::ptpDefault},
         {"clock_type OC\n", PtpMode::ordinary, PtpProfile::ptpDefault},
         {"clock_type BC\n", PtpMode::boundary, PtpProfile::ptpDefault},
         {"clock_type BC\ntwoStepFlag 0\n", PtpMode::oneStepBoundary, PtpProfile::ptpDefault},
         {"clock_type E2E_TC\n", PtpMode::e2eTransparent, PtpProfile::ptpDefault},
         {"clock_type E2E_TC\ntwoStepFlag 0\n", PtpMode::oneStepE2eTransparent,
          PtpProfile::ptpDefault},
         {"clock_type P2P_TC\n", PtpMode::p2pTransparent, PtpProfile::ptpDefault},
         {"clock_type BC\nclock_type OC\n", PtpMode::ordinary, PtpProfile::ptpDefault},
         {"transportSpecific 0x1\n", PtpMode::ptpGeneralized, PtpProfile::gptp},
         {"dataset_comparison G.8275.x\nnetwork_transport L2\n", PtpMode::ordinary,
          PtpProfile::g8275_1},
         {"dataset_comparison G.8275.x\nnetwork_transport UDPv4\n", PtpMode::ordinary,
          PtpProfile::g8275_2},
         {"[eth0]\n[eth1]\n", PtpMode::boundary, PtpProfile::ptpDefault},
   };
   for (auto const& row : rows) {
      config = Ptp::configFactory("ptp");
      EXPECT_EQ(load(std::string("[global]\n") + row.settings), "");
      EXPECT_EQ(config->ptpMode(), row.mode) << row.settings;
      EXPECT_EQ(config->ptpProfile(), row.profile) << row.settings;
   }
}

TEST_F(Ptp4lLoadTest, SlaveOnlyClockHasClass255AndSlavePorts) {
   EXPECT_EQ(load("[global]\nslaveOnly 1\n[eth0]\n"), "");
   EXPECT_EQ(config->clockQuality().clockClass(), 255);
   EXPECT_TRUE(config->clockQualityConfigured());
   EXPECT_EQ(port("eth0").role(), Ptp::Role::slaveOnly);
}

// ---- Ports ----

TEST_F(Ptp4lLoadTest, PortSettingsGoToTheInterface) {
   EXPECT_EQ(load("[eth0]\n"
                  "logAnnounceInterval -3\n"
                  "logSyncInterval -4\n"
                  "logMinDelayReqInterval -5\n"
                  "logMinPdelayReqInterval -2\n"
                  "announceReceiptTimeout 7\n"
                  "syncReceiptTimeout 8\n"
                  "network_transport UDPv6\n"
                  "delay_mechanism P2P\n"
                  "time_stamping p2p1step\n"
                  "neighborPropDelayThresh 20000000\n"
                  "ptp_dst_mac 01:1B:19:00:00:00\n"
                  "G.8275.portDS.localPriority 9\n"
                  "masterOnly 1\n"
                  "udp_ttl 64\n"
                  "dscp_event 46\n"),
             "");
   EXPECT_EQ(notes, "");
   auto const& eth0 = port("eth0");
   EXPECT_TRUE(eth0.enabled());
   EXPECT_EQ(eth0.logAnnounceInterval(), -3);
   EXPECT_EQ(eth0.logSyncInterval(), -4);
   EXPECT_EQ(eth0.logMinDelayReqInterval(), -5);
   EXPECT_EQ(eth0.logMinPdelayReqInterval(), -2);
   EXPECT_EQ(eth0.announceReceiptTimeout(), 7);
   EXPECT_EQ(eth0.syncReceiptTimeout(), 8);
   EXPECT_EQ(eth0.transportMode(), Ptp::TransportMode::ipv6);
   EXPECT_EQ(eth0.delayMechanism(), Ptp::DelayMechanism::p2p);
   EXPECT_EQ(eth0.timeStampingMode(), Ptp::TimeStampingMode::p2pOneStep);
   EXPECT_EQ(eth0.linkDelayThreshold(), 20000000u);
   EXPECT_EQ(eth0.pktTxMacAddress(), Dorn::EthAddr("01:1b:19:00:00:00"));
   EXPECT_EQ(eth0.localPriority(), 9);
   EXPECT_EQ(eth0.role(), Ptp::Role::masterOnly);
   EXPECT_EQ(eth0.ttl(), 64);
   EXPECT_EQ(eth0.dscpEvent(), 46);
   EXPECT_TRUE(eth0.dscpEventConfigured());
   EXPECT_FALSE(eth0.dscpGeneralConfigured());
}

TEST_F(Ptp4lLoadTest, PortsInheritTheGlobalSectionWhereverItStands) {
   EXPECT_EQ(load("[eth0]\nlogSyncInterval -1\n"
                  "[eth1]\n"
                  "[global]\nlogSyncInterval -4\nlogAnnounceInterval 2\n"),
             "");
   EXPECT_EQ(port("eth0").logSyncInterval(), -1);
   EXPECT_EQ(port("eth0").logAnnounceInterval(), 2);
   EXPECT_EQ(port("eth1").logSyncInterval(), -4);
}

TEST_F(Ptp4lLoadTest, PortInTwoSectionsIsOnePort) {
   EXPECT_EQ(load("[eth0]\nlogSyncInterval -1\n[eth0]\nlogAnnounceInterval 2\n"), "");
   EXPECT_EQ(port("eth0").logSyncInterval(), -1);
   EXPECT_EQ(port("eth0").logAnnounceInterval(), 2);
   EXPECT_EQ(config->ptpMode(), Ptp::PtpMode::ordinary);
}

// ---- Unicast ----

TEST_F(Ptp4lLoadTest, MasterTableBecomesAProfileAndGrantorsOfThePortThatNamesIt) {
   EXPECT_EQ(load("[global]\nunicast_req_duration 60\n"
                  "[unicast_master_table]\ntable_id 1\nUDPv4 192.0.2.1\nUDPv6 2001:db8::1\n"
                  "[eth0]\nunicast_master_table 1\nlogSyncInterval -4\n"
                  "[eth1]\nunicast_master_table 0\n"),
             "");
   EXPECT_TRUE(config->unicastNegotiation());
   EXPECT_EQ(config->ucastNegProfile("eth0/table1"),
             Ptp::UcastNegProfile(Ptp::UcastNegMsgProfile(1, 60), Ptp::UcastNegMsgProfile(-4, 60),
                                  Ptp::UcastNegMsgProfile(5, 60)));
   EXPECT_EQ(port("eth0").ucastNegGrantorIpToProfileMap(IpGenAddr("192.0.2.1")), "eth0/table1");
   EXPECT_EQ(port("eth0").ucastNegGrantorIpToProfileMap(IpGenAddr("2001:db8::1")), "eth0/table1");
   EXPECT_FALSE(port("eth1").ucastNegGrantorIpToProfileMapHas(IpGenAddr("192.0.2.1")));
}

TEST_F(Ptp4lLoadTest, WhatIsWrongWithMasterTablesIsReported) {
   EXPECT_EQ(load("[unicast_master_table]\nUDPv4 192.0.2.1\n"
                  "[unicast_master_table]\ntable_id 1\nUDPv4 192.0.2\n"
                  "[unicast_master_table]\ntable_id 1\n"
                  "[unicast_master_table]\ntable_id 0\n"
                  "[eth0]\nunicast_master_table 7\n"),
             "a.conf:1: table_id: the unicast_master_table has none\n"
             "a.conf:5: UDPv4: \"192.0.2\" is not an IPv4 address: it needs four numbers with dots "
             "between them\n"
             "a.conf:7: table_id: there are two tables with the number 1\n"
             "a.conf:9: table_id: 0 means no table\n"
             "a.conf:11: unicast_master_table: there is no table with the number 7\n");
}

// ---- What has no place ----

TEST_F(Ptp4lLoadTest, KeyWithoutAPlaceIsNotedOnce) {
   EXPECT_EQ(load("[global]\nstep_threshold 0.0\nsyncReceiptTimeout 0\n"
                  "[eth0]\nts2phc.channel 0\npath_trace_enabled 1\n"
                  "[eth1]\nts2phc.channel 0\npriority9 1\nclock_type BC\n"
                  "[unicast_master_table]\ntable_id 1\nlogQueryInterval 2\n"
                  "L2 00:11:22:33:44:55\npeer_address 192.0.2.1\n"),
             "");
   EXPECT_EQ(notes,
             "a.conf:2: step_threshold: the model has no place for it\n"
             "a.conf:3: syncReceiptTimeout: 0: the model cannot be without a timeout; its own "
             "stays\n"
             "a.conf:5: ts2phc.channel: the model has no place for it\n"
             "a.conf:6: path_trace_enabled: the model has no place for it\n"
             "a.conf:9: priority9: the model has no place for it\n"
             "a.conf:10: clock_type: belongs to the global section\n"
             "a.conf:13: logQueryInterval: the model has no place for it\n"
             "a.conf:14: L2: masters without an IP address have no place\n"
             "a.conf:15: peer_address: the model has no place for it\n");
   EXPECT_EQ(port("eth0").syncReceiptTimeout(), 3);
}

TEST_F(Ptp4lLoadTest, DefaultOfPortsIsNotedWhereThereIsNoPort) {
   EXPECT_EQ(load("[global]\nlogSyncInterval -4\npriority1 7\n"), "");
   EXPECT_EQ(notes, "a.conf:2: logSyncInterval: a default for ports, but the file has no port\n");
}

TEST_F(Ptp4lLoadTest, ValueWithoutAPlaceIsNoted) {
   EXPECT_EQ(load("[global]\ntransportSpecific 2\n"
                  "[eth0]\ndelay_mechanism Auto\ntime_stamping legacy\n"
                  "p2p_dst_mac 01:1b:19:00:00:00\n"),
             "");
   EXPECT_EQ(
         notes,
         "a.conf:2: transportSpecific: the model supports only 0 (IEEE 1588) and 1 (IEEE 802.1AS)\n"
         "a.conf:4: delay_mechanism: the model cannot choose the mechanism by listening; its "
         "own stays\n"
         "a.conf:5: time_stamping: the model has no legacy timestamping; its own mode stays\n"
         "a.conf:6: p2p_dst_mac: peer delay messages always go to 01:80:c2:00:00:0e\n");
}

// ---- What is wrong ----

TEST_F(Ptp4lLoadTest, EveryErrorIsReportedInTheOrderOfTheFile) {
   EXPECT_EQ(
         load("priority1 1\n"
              "[global]\n"
              "dscp_event 64\n"
              "priority1 256\n"
              "priority2 abc\n"
              "clock_type XC\n"
              "logSyncInterval 18\n"
              "clockIdentity 12\n"
              "[eth0]\n"
              "logAnnounceInterval -4\n"
              "logAnnounceInterval 200\n"
              "announceReceiptTimeout 1\n"
              "syncReceiptTimeout 1\n"
              "network_transport UDP\n"
              "neighborPropDelayThresh -1\n"
              "unicast_req_duration -1\n"
              "[averyveryverylonginterfacename0]\n"),
         "a.conf:1: priority1: comes before the first section\n"
         "a.conf:3: dscp_event: Ptp::Config::globalDscpEvent < Ptp::Constants::minDscp or > "
         "Ptp::Constants::maxDscp not allowed\n"
         "a.conf:4: priority1: \"256\" is not from 0 to 255\n"
         "a.conf:5: priority2: \"abc\" is not a whole number\n"
         "a.conf:6: clock_type: \"XC\" is invalid: must be OC, BC, P2P_TC or E2E_TC\n"
         "a.conf:7: logSyncInterval: Ptp::IntfConfig::logSyncInterval < "
         "Ptp::IntfConfig::minlogSyncInterval or > Ptp::IntfConfig::maxlogSyncInterval not "
         "allowed\n"
         "a.conf:8: clockIdentity: \"12\" is not a clock identity such as 001122.fffe.334455\n"
         "a.conf:10: logAnnounceInterval: Ptp::IntfConfig::logAnnounceInterval < "
         "Ptp::IntfConfig::minlogAnnounceInterval or > Ptp::IntfConfig::maxlogAnnounceInterval "
         "not allowed\n"
         "a.conf:11: logAnnounceInterval: \"200\" is not from -128 to 127\n"
         "a.conf:12: announceReceiptTimeout: Ptp::IntfConfig::announceReceiptTimeout < "
         "Ptp::Constants::minannounceReceiptTimeout or > "
         "Ptp::Constants::maxannounceReceiptTimeout not allowed\n"
         "a.conf:13: syncReceiptTimeout: Ptp::IntfConfig::syncReceiptTimeout < "
         "::Ptp::Constants::minsyncReceiptTimeout() not allowed\n"
         "a.conf:14: network_transport: \"UDP\" is invalid: must be L2, UDPv4 or UDPv6\n"
         "a.conf:15: neighborPropDelayThresh: \"-1\" is not from 0 to 9223372036854775807\n"
         "a.conf:16: unicast_req_duration: \"-1\" is not from 0 to 4294967295\n"
         "a.conf:17: averyveryverylonginterfacename0: \"averyveryverylonginterfacename0\" does not "
         "fit Dorn::IntfId: it needs 188 bits, more than 64\n");
}

TEST_F(Ptp4lLoadTest, NothingIsLoadedFromAFileWithAnError) {
   config->priority1Is(7);
   KivTest::Witness published(*config, Kiv::Scope::subtree);
   EXPECT_NE(load("[global]\npriority1 1\n[eth0]\nlogSyncInterval 99\n"), "");
   EXPECT_EQ(published.ids(), "");
   EXPECT_EQ(config->priority1(), 7);
   EXPECT_FALSE(config->intfConfigHas(IntfId("eth0")));
}

TEST_F(Ptp4lLoadTest, PortCannotBeSlaveOnlyAndMasterOnly) {
   EXPECT_EQ(load("[global]\nslaveOnly 1\n[eth0]\nmasterOnly 1\n"),
             "a.conf:4: masterOnly: \"1\" contradicts slaveOnly\n");
   EXPECT_EQ(load("[global]\nmasterOnly 1\n[eth0]\nmasterOnly 0\n"), "");
   EXPECT_EQ(port("eth0").role(), Ptp::Role::dynamic);
}

TEST_F(Ptp4lLoadTest, RoleLeftFromBeforeDoesNotContradictTheFile) {
   EXPECT_EQ(load("[global]\nslaveOnly 1\n[eth0]\n"), "");
   EXPECT_EQ(load("[global]\nmasterOnly 1\n[eth0]\n"), "");
   EXPECT_EQ(port("eth0").role(), Ptp::Role::masterOnly);
}

TEST_F(Ptp4lLoadTest, WhatTheFileDoesNotMentionStays) {
   config->priority1Is(7);
   config->intfConfigIs(IntfId("eth9"), true, false);
   EXPECT_EQ(load("[eth0]\n"), "");
   EXPECT_EQ(config->priority1(), 7);
   EXPECT_TRUE(config->intfConfigHas(IntfId("eth9")));
}

// ---- Whole files ----

TEST_F(Ptp4lLoadTest, SampleOfABoundaryClock) {
   auto const conf = readPtp4lConf(PTPLIB_SOURCE_DIR "/Holt/Ptp4l/testdata/boundary.conf");
   EXPECT_EQ(errorsOf(loadPtp4lConf(conf, *config), "boundary.conf"), "");
   EXPECT_EQ(notes,
             "boundary.conf:24: step_threshold: the model has no place for it\n"
             "boundary.conf:44: logQueryInterval: the model has no place for it\n");
   EXPECT_EQ(config->ptpMode(), Ptp::PtpMode::boundary);
   EXPECT_EQ(config->ptpProfile(), Ptp::PtpProfile::g8275_1);
   EXPECT_EQ(config->clockQuality().clockClass(), 135);
   EXPECT_EQ(port("eth0").role(), Ptp::Role::masterOnly);
   EXPECT_EQ(port("eth1").logSyncInterval(), -4);
   EXPECT_EQ(port("eth1").linkDelayThreshold(), 800u);
   EXPECT_EQ(port("eth2").transportMode(), Ptp::TransportMode::ipv4);
   EXPECT_EQ(port("eth2").dscpEvent(), 21);
   EXPECT_TRUE(port("eth2").dscpEventConfigured());
   EXPECT_EQ(config->ucastNegProfile("eth2/table1").announceProfile(),
             Ptp::UcastNegMsgProfile(1, 300));
}

TEST_F(Ptp4lLoadTest, AllFilesThatLinuxptpShipsAreLoaded) {
   auto const files = shippedFiles();
   if (files.empty()) {
      GTEST_SKIP() << "linuxptp is not installed";
   }
   for (auto const& file : files) {
      config = Ptp::configFactory("ptp");
      auto const conf = readPtp4lConf(file);
      EXPECT_EQ(errorsOf(loadPtp4lConf(conf, *config), file), "") << file;
      EXPECT_TRUE(config->enabled()) << file;
      for (auto const& section : conf.sections) {
         if (section.kind == Ptp4lSection::Kind::port) {
            EXPECT_TRUE(config->intfConfigHas(IntfId(section.name))) << file;
         }
      }
   }
}

TEST_F(Ptp4lLoadTest, ShippedGptpFileIsAGeneralizedClock) {
   std::string const file = "/usr/share/doc/linuxptp/configs/gPTP.cfg";
   if (!std::filesystem::exists(file)) {
      GTEST_SKIP() << "linuxptp is not installed";
   }
   EXPECT_EQ(errorsOf(loadPtp4lConf(readPtp4lConf(file), *config), file), "");
   EXPECT_EQ(config->ptpMode(), Ptp::PtpMode::ptpGeneralized);
   EXPECT_EQ(config->ptpProfile(), Ptp::PtpProfile::gptp);
   EXPECT_EQ(config->priority1(), 248);
}

TEST_F(Ptp4lLoadTest, ShippedUnicastSlaveFileHasGrantors) {
   std::string const file = "/usr/share/doc/linuxptp/configs/UNICAST-SLAVE.cfg";
   if (!std::filesystem::exists(file)) {
      GTEST_SKIP() << "linuxptp is not installed";
   }
   EXPECT_EQ(errorsOf(loadPtp4lConf(readPtp4lConf(file), *config), file), "");
   EXPECT_EQ(port("eth0").ucastNegGrantorIpToProfileMap(IpGenAddr("192.168.2.22")), "eth0/table1");
   EXPECT_EQ(config->ucastNegProfile("eth0/table1").syncProfile().duration(), 60u);
}

}  // namespace
}  // namespace Holt

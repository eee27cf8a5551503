// Where in the roots a daemon's values appear.
#include "tools/ptp4lAgent/Clock.h"

#include <limits>

#include "tools/ptp4lAgent/Hex.test.h"
#include "tools/ptp4lAgent/WithStandIn.test.h"

namespace {

using namespace Ptp4lAgent;
using Ptp::PortState;

class ClockTest : public WithStandIn {};

TEST_F(ClockTest, ShowsTheClock) {
   start("ptp4l-3.1.1-slave");
   follow();
   EXPECT_TRUE(status().enabled());
   EXPECT_TRUE(status().ptpSupported());
   EXPECT_TRUE(status().managementEnabled());
   auto const set = status().defaultDS();
   EXPECT_TRUE(set->twoStepFlag());
   EXPECT_EQ(Kiv::strRep(set->clockIdentity()), "52:aa:c8:ff:fe:3b:55:bd");
   EXPECT_EQ(set->numberPorts(), 1u);
   EXPECT_EQ(set->clockQuality(), Ptp::ClockQuality(255, 0xFE, Dorn::NetU16(0xFFFF)));
   EXPECT_TRUE(set->slaveOnly());
   EXPECT_EQ(set->priority1(), 128);
   EXPECT_EQ(set->priority2(), 128);
   EXPECT_EQ(set->domainNumber(), 0);
   EXPECT_EQ(set->ptpMode(), Ptp::PtpMode::ordinary);
   EXPECT_EQ(Kiv::strRep(set->srcIp4()), "10.77.0.2");
   EXPECT_EQ(status().localClockQuality(), set->clockQuality());
   EXPECT_EQ(status().domainStatus()->globalDomain(), 0);
}

TEST_F(ClockTest, ShowsTheMaster) {
   start("ptp4l-3.1.1-slave");
   follow();
   auto const parent = status().parentDS();
   EXPECT_EQ(parent->parentSourceAddrs().parentPortIdentity(),
             Ptp::PortIdentity(Ptp::ClockIdentity("0a:cd:14:ff:fe:33:e0:79"), 1));
   EXPECT_FALSE(parent->parentStats());
   EXPECT_EQ(parent->observedParentOffsetScaledLogVariance(), 0xFFFF);
   EXPECT_EQ(parent->observedParentClockPhaseChangeRate(), 0x7FFFFFFF);
   EXPECT_EQ(parent->grandmasterPriority1(), 10);
   EXPECT_EQ(parent->grandmasterClockQuality(), Ptp::ClockQuality(13, 0xFE, Dorn::NetU16(0xFFFF)));
   EXPECT_EQ(parent->grandmasterPriority2(), 128);
   EXPECT_EQ(Kiv::strRep(parent->grandmasterIdentity()), "0a:cd:14:ff:fe:33:e0:79");
   auto const time = status().timePropertiesDS();
   EXPECT_EQ(time->currentUtcOffset().value(), 37);
   EXPECT_EQ(time->flagField(), 0);
   EXPECT_EQ(time->timeSource(), 0xA0);
   auto const current = status().currentDS();
   EXPECT_EQ(current->stepsRemoved().value(), 1);
   EXPECT_EQ(current->meanPathDelay(), 0x092d);
   EXPECT_EQ(current->lastUpdatePortKey(), key("pvb"));
   EXPECT_TRUE(current->gmPresent());
   EXPECT_EQ(current->lastSyncLocalTime(), 0x18ea636a45c32403u);
   EXPECT_DOUBLE_EQ(current->lastSyncSystemTime(), 1000);
}

TEST_F(ClockTest, ShowsThePort) {
   start("ptp4l-3.1.1-slave");
   follow();
   ASSERT_EQ(status().portDSCount(), 1u);
   auto const port = status().portDS(key("pvb"));
   EXPECT_EQ(port->portIdentity(),
             Ptp::PortIdentity(Ptp::ClockIdentity("52:aa:c8:ff:fe:3b:55:bd"), 1));
   EXPECT_EQ(port->portState(), PortState::slave);
   EXPECT_EQ(port->role(), Ptp::Role::slaveOnly);
   EXPECT_EQ(port->logMinDelayReqInterval(), -2);
   EXPECT_EQ(port->logAnnounceInterval(), -2);
   EXPECT_EQ(port->announceReceiptTimeout(), 3);
   EXPECT_EQ(port->logSyncInterval(), -3);
   EXPECT_EQ(port->logMinPdelayReqInterval(), -2);
   EXPECT_EQ(port->delayMechanism(), Ptp::DelayMechanism::e2e);
   EXPECT_EQ(port->transportMode(), Ptp::TransportMode::ipv4);
   EXPECT_EQ(port->linkDelayThreshold(), 20'000'000u);
   EXPECT_TRUE(port->asCapable());
   EXPECT_TRUE(port->enabled());
   EXPECT_TRUE(port->initialized());
   EXPECT_FALSE(port->adminDisabled());
   EXPECT_FALSE(port->faultyFlag());
   EXPECT_EQ(port->disabledReasonCount(), 0u);
   EXPECT_EQ(port->syncMessageReceived(), 0x241fu);
   auto const mib = status().ptpMibData();
   EXPECT_EQ(mib->numClockPorts(), 1);
   EXPECT_EQ(mib->clockState(), Ptp::ClockStateType::phaseAligned);
   EXPECT_EQ(mib->totalPacketsReceived(), 0x241fu + 0x241f + 0x125a + 0x1222);
   EXPECT_EQ(mib->ptpMibPortData(key("pvb"))->clockRoleType(), PtpMib::ClockRoleType::slave);
   EXPECT_TRUE(status().intfStatusHas(key("pvb")));
}

TEST_F(ClockTest, ShowsTheConfiguration) {
   start("ptp4l-3.1.1-boundary");
   follow();
   pass(600);
   EXPECT_TRUE(config().enabled());
   EXPECT_TRUE(config().managementEnabled());
   EXPECT_EQ(config().domainNumber(), 24);
   EXPECT_EQ(config().ptpMode(), Ptp::PtpMode::ptpGeneralized);
   EXPECT_EQ(config().priority1(), 128);
   ASSERT_EQ(config().intfConfigCount(), 2u);
   auto const port = config().intfConfig(Dorn::IntfId("pxd"));
   EXPECT_TRUE(port->enabled());
   EXPECT_EQ(port->logSyncInterval(), -3);
   EXPECT_EQ(port->logAnnounceInterval(), -2);
   EXPECT_EQ(port->logMinPdelayReqInterval(), -2);
   EXPECT_EQ(port->delayMechanism(), Ptp::DelayMechanism::p2p);
   EXPECT_EQ(port->transportMode(), Ptp::TransportMode::layer2);
   EXPECT_EQ(port->timeStampingMode(), Ptp::TimeStampingMode::software);
   EXPECT_EQ(port->linkDelayThreshold(), 20'000'000u);
}

TEST_F(ClockTest, ShowsTheOpenConfigInstance) {
   start("ptp4l-3.1.1-slave");
   follow();
   auto const set = clock->instance().defaultDs()->state();
   EXPECT_EQ(set->instanceType(), Openconfig::Ptp::InstanceType::ordinary);
   EXPECT_EQ(set->clockIdentity(), "52:aa:c8:ff:fe:3b:55:bd");
   EXPECT_EQ(set->numberPorts(), 1);
   EXPECT_EQ(set->priority1(), 128);
   EXPECT_EQ(clock->instance().defaultDs()->clockQuality().state().clockClass(), 255);
   auto const current = clock->instance().currentDs()->state();
   EXPECT_EQ(current->stepsRemoved(), 1);
   EXPECT_EQ(current->meanPathDelay(), 0x092d);
   EXPECT_EQ(clock->instance().timePropertiesDs()->state()->currentUtcOffset(), 37);
}

TEST_F(ClockTest, WithPeerDelayThePathDelayIsThatOfThePort) {
   start("ptp4l-3.1.1-boundary");
   follow();
   pass(600);
   daemon->change<PortDataSet>(
         1, [](PortDataSet& set) { set.peerMeanPathDelay = 164 * 65536 + 32768; });
   pass(1000);
   auto const port = status().portDS(key("pwd"));
   ASSERT_EQ(port->portState(), PortState::slave);
   EXPECT_EQ(status().currentDS()->meanPathDelay(), 164);
   EXPECT_EQ(port->peerMeanPathDelay(), 164);
   EXPECT_EQ(port->precisePeerMeanPathDelay(), 164.5);
   EXPECT_EQ(port->peerPathDelayBack(), 164.5);
   EXPECT_GE(port->firstSuccessfulPdelayTransactionTime(), 1000);
   EXPECT_EQ(status().portDS(key("pxd"))->portState(), PortState::master);
}

TEST_F(ClockTest, OnlyTheLastPeerDelaysAreKept) {
   start("ptp4l-3.1.1-boundary");
   follow();
   pass(600);
   for (int i = 0; i != 20; ++i) {
      daemon->change<PortDataSet>(
            1, [i](PortDataSet& set) { set.peerMeanPathDelay = (100 + i) * 65536; });
      pass(1000);
   }
   auto const port = status().portDS(key("pwd"));
   EXPECT_EQ(port->peerPathDelayCount(), 8u);
   EXPECT_EQ(port->peerPathDelayFront(), 112);
   EXPECT_EQ(port->peerPathDelayBack(), 119);
}

TEST_F(ClockTest, AFaultyPortIsNotFollowed) {
   start("ptp4l-3.1.1-slave");
   follow();
   daemon->change<PortDataSet>(1, [](PortDataSet& set) { set.portState = 2; });
   daemon->change<PortPropertiesNp>(1, [](PortPropertiesNp& set) { set.portState = 2; });
   pass(1000);
   EXPECT_EQ(status().currentDS()->lastUpdatePortKey(), Ptp::PortDSKey());
   EXPECT_EQ(status().ptpMibData()->clockState(), Ptp::ClockStateType::freerun);
   EXPECT_TRUE(status().portDS(key("pvb"))->faultyFlag());
   EXPECT_EQ(status().portDS(key("pvb"))->disabledReasonCount(), 0u) << "nothing tells why";
   clock->linkIs("pvb", false);
   EXPECT_TRUE(status().portDS(key("pvb"))->disabledReason(Ptp::PortDisabledReason::linkDown));
   clock->linkIs("pvb", true);
   EXPECT_EQ(status().portDS(key("pvb"))->disabledReasonCount(), 0u);
}

TEST_F(ClockTest, PortsThatDoNotAnswerAreGone) {
   start("ptp4l-3.1.1-boundary");
   follow();
   pass(600);
   ASSERT_EQ(status().portDSCount(), 2u);
   daemon->removePort(1);
   pass(2000);
   EXPECT_EQ(status().portDSCount(), 1u);
   EXPECT_EQ(status().intfStatusCount(), 1u);
   EXPECT_EQ(status().ptpMibData()->ptpMibPortDataCount(), 1u);
   EXPECT_EQ(status().defaultDS()->numberPorts(), 1u);
   EXPECT_TRUE(status().portDSHas(key("pxd")));
   EXPECT_EQ(status().currentDS()->lastUpdatePortKey(), Ptp::PortDSKey());
}

TEST_F(ClockTest, APortMayGetAnotherInterface) {
   start("ptp4l-3.1.1-slave");
   follow();
   daemon->change<PortPropertiesNp>(1,
                                    [](PortPropertiesNp& set) { set.interface.text = "eth7.100"; });
   pass(2000);
   EXPECT_EQ(status().portDSCount(), 1u);
   EXPECT_TRUE(status().portDSHas(key("eth7.100")));
   EXPECT_EQ(status().portDS(key("eth7.100"))->portState(), PortState::slave);
}

TEST_F(ClockTest, PortsMayExchangeTheirInterfaces) {
   start("ptp4l-3.1.1-boundary");
   follow();
   pass(600);
   daemon->change<PortPropertiesNp>(1, [](PortPropertiesNp& set) { set.interface.text = "pxd"; });
   daemon->change<PortPropertiesNp>(2, [](PortPropertiesNp& set) { set.interface.text = "pwd"; });
   pass(2000);
   EXPECT_EQ(status().portDSCount(), 2u);
   EXPECT_EQ(status().portDS(key("pxd"))->portIdentity().portNumber(), 1);
   EXPECT_EQ(status().portDS(key("pwd"))->portIdentity().portNumber(), 2);
}

TEST_F(ClockTest, AnInterfaceThatTheModelCannotNameIsLeftOutOnce) {
   start("ptp4l-3.1.1-boundary");
   daemon->change<PortPropertiesNp>(
         1, [](PortPropertiesNp& set) { set.interface.text = "an!interface"; });
   follow();
   pass(5000);
   EXPECT_EQ(status().portDSCount(), 1u);
   std::string const lines = said();
   EXPECT_NE(lines.find("port 1 is left out: "), std::string::npos) << lines;
   EXPECT_EQ(lines.find("port 1 is left out: "), lines.rfind("port 1 is left out: "));
}

TEST_F(ClockTest, NumbersThatTheModelDoesNotKnowChangeNothing) {
   start("ptp4l-3.1.1-slave");
   follow();
   daemon->change<PortDataSet>(1, [](PortDataSet& set) {
      set.portState = 77;
      set.delayMechanism = 77;
      set.logSyncInterval = -100;
   });
   daemon->change<PortPropertiesNp>(1, [](PortPropertiesNp& set) {
      set.portState = 0;
      set.timestamping = 99;
   });
   pass(1000);
   auto const port = status().portDS(key("pvb"));
   EXPECT_EQ(port->portState(), PortState::slave);
   EXPECT_EQ(port->delayMechanism(), Ptp::DelayMechanism::e2e);
   EXPECT_EQ(port->logSyncInterval(), -100);
   EXPECT_EQ(config().intfConfig(Dorn::IntfId("pvb"))->logSyncInterval(), -3)
         << "out of the range of the configuration";
}

TEST_F(ClockTest, CountsUnansweredPeerDelayRequests) {
   start("ptp4l-3.1.1-boundary");
   follow();
   pass(600);
   auto const send = [&](U64 requests, U64 answers) {
      daemon->change<PortStatsNp>(1, [&](PortStatsNp& set) {
         set.sent.values[2] += requests;
         set.received.values[3] += answers;
      });
      pass(1000);
   };
   auto const port = status().portDS(key("pwd"));
   send(4, 4);
   EXPECT_TRUE(port->isMeasuringLinkDelay());
   EXPECT_EQ(port->lostResponsesPeerDelay(), 0u);
   send(4, 0);
   send(4, 0);
   EXPECT_EQ(port->lostResponsesPeerDelay(), 8u);
   EXPECT_TRUE(port->isMeasuringLinkDelay());
   send(4, 0);
   send(4, 0);
   send(4, 0);
   EXPECT_FALSE(port->isMeasuringLinkDelay());
   send(4, 1);
   EXPECT_EQ(port->lostResponsesPeerDelay(), 0u);
   EXPECT_TRUE(port->isMeasuringLinkDelay());
}

TEST_F(ClockTest, FollowUpsTellThatTheParentIsTwoStep) {
   start("ptp4l-3.1.1-boundary");
   follow();
   pass(600);
   auto const hear = [&](U64 syncs, U64 followUps) {
      daemon->change<PortStatsNp>(1, [&](PortStatsNp& set) {
         set.received.values[0] += syncs;
         set.received.values[8] += followUps;
      });
      pass(1000);
   };
   hear(8, 8);
   EXPECT_TRUE(status().parentTwoStepFlag());
   hear(0, 0);
   EXPECT_TRUE(status().parentTwoStepFlag());
   hear(8, 0);
   EXPECT_FALSE(status().parentTwoStepFlag());
}

TEST_F(ClockTest, ShowsTheFirst32BitsOfTheSyncCounter) {
   start("ptp4l-3.1.1-slave");
   follow();
   daemon->change<PortStatsNp>(
         1, [](PortStatsNp& set) { set.received.values[0] = (U64{7} << 32) + 5; });
   pass(1000);
   EXPECT_EQ(status().portDS(key("pvb"))->syncMessageReceived(), 5u);
   EXPECT_GT(status().ptpMibData()->ptpMibPortData(key("pvb"))->totalPacketsReceived(),
             U64{7} << 32);
}

TEST_F(ClockTest, TheAddressOfTheClockIsThatOfItsFirstPort) {
   start("ptp4l-3.1.1-boundary");
   for (U16 const number : {U16{1}, U16{2}}) {
      daemon->change<ClockDescription>(number, [number](ClockDescription& set) {
         static constexpr U8 addresses[][4] = {{10, 0, 0, 1}, {10, 0, 0, 2}};
         set.networkProtocol = 1;
         set.protocolAddress.octets = addresses[number - 1];
      });
   }
   follow();
   pass(600);
   struct Never final : Kiv::Observer {
      void onChange(Kiv::Change const&) override { ADD_FAILURE() << "the address changes"; }
   } never;
   EXPECT_EQ(Kiv::strRep(status().defaultDS()->srcIp4()), "10.0.0.1");
   status().defaultDS()->observerAdd(never);
   pass(3000);
   status().defaultDS()->observerDel(never);
}

TEST_F(ClockTest, TellsWhenAsCapableChanged) {
   start("ptp4l-3.1.1-slave");
   follow();
   pass(5000);
   EXPECT_DOUBLE_EQ(status().portDS(key("pvb"))->lastUpdateTimeAsCapable(), 1000);
   daemon->change<PortDataSetNp>(1, [](PortDataSetNp& set) { set.asCapable = 0; });
   pass(1000);
   EXPECT_FALSE(status().portDS(key("pvb"))->asCapable());
   EXPECT_GT(status().portDS(key("pvb"))->lastUpdateTimeAsCapable(), 1004);
}

TEST_F(ClockTest, TheConfigurationFileTellsWhatNoDataSetTells) {
   start("ptp4l-3.1.1-slave");
   conf = Ptp::configFactory("conf");
   conf->localPriorityIs(7);
   conf->ttlIs(9);
   conf->driftLimitIs(1000);
   conf->netSyncMonitorIs(true);
   conf->ptpProfileIs(Ptp::PtpProfile::g8275_1);
   auto const intf = conf->intfConfigIs(Dorn::IntfId("pvb"), true, false);
   intf->syncReceiptTimeoutIs(5);
   intf->localPriorityIs(6);
   intf->dscpEventIs(46);
   intf->dscpGeneralIs(34);
   follow();
   EXPECT_EQ(status().defaultDS()->localPriority(), 7);
   EXPECT_EQ(status().defaultDS()->ttl(), 9);
   EXPECT_EQ(status().defaultDS()->driftLimit(), 1000u);
   EXPECT_TRUE(status().netSyncMonitor());
   EXPECT_TRUE(status().g82751Enabled());
   auto const port = status().portDS(key("pvb"));
   EXPECT_EQ(port->syncReceiptTimeout(), 5);
   EXPECT_EQ(port->localPriority(), 6);
   EXPECT_EQ(port->dscpEvent(), 46);
   EXPECT_EQ(port->dscpGeneral(), 34);
}

TEST_F(ClockTest, EachRestartOfSynchronisationHasANumber) {
   start("ptp4l-3.1.1-slave");
   follow();
   auto const number = [&] { return status().currentDS()->genId().count(); };
   U64 const first = number();
   pass(3000);
   EXPECT_EQ(number(), first);
   daemon->change<ParentDataSet>(0, [](ParentDataSet& set) {
      set.parentPortIdentity = Ptp::PortIdentity(Ptp::ClockIdentity(U64{5}), 1);
   });
   pass(1000);
   EXPECT_EQ(number(), first + 1);
   for (U8 const state : {U8{2}, U8{9}}) {
      daemon->change<PortDataSet>(1, [state](PortDataSet& set) { set.portState = state; });
      daemon->change<PortPropertiesNp>(1,
                                       [state](PortPropertiesNp& set) { set.portState = state; });
      pass(1000);
   }
   EXPECT_EQ(number(), first + 2);
}

// What linuxptp 4 tells in addition.

TEST_F(ClockTest, Version4TellsTheMastersOfAUnicastClient) {
   start("ptp4l-3.1.1-slave");
   daemon->answerIs(Id::unicastMasterTableNp, 1,
                    octets("0002"
                           "0acd14fffe33e079 0001 06211234 01 03 80 7f 0001 0004 0a4d0001"
                           "ffffffffffffffff ffff 00000000 00 00 00 00 0001 0004 0a4d0009"));
   follow();
   EXPECT_EQ(status().portDS(key("pvb"))->numPotentialMasters(), 2u);
   EXPECT_TRUE(status().unicastNegotiation());
   auto const intf = status().intfStatus(key("pvb"));
   ASSERT_EQ(intf->foreignMasterDSCount(), 1u);
   Ptp::PortIdentity const master(Ptp::ClockIdentity("0a:cd:14:ff:fe:33:e0:79"), 1);
   EXPECT_EQ(Kiv::strRep(intf->foreignMasterDS(master)->foreignMasterIpAddr()), "10.77.0.1");
   EXPECT_EQ(Kiv::strRep(status().parentDS()->parentSourceAddrs().parentIpAddr()), "10.77.0.1");
   daemon->answerIs(Id::unicastMasterTableNp, 1, octets("0000"));
   pass(1000);
   EXPECT_EQ(intf->foreignMasterDSCount(), 0u);
   EXPECT_EQ(status().portDS(key("pvb"))->numPotentialMasters(), 0u);
}

TEST_F(ClockTest, Version4TellsMasterOnlySyncTimeoutsAndTheHardwareClock) {
   start("ptp4l-3.1.1-grandmaster");
   PortServiceStatsNp stats;
   daemon->answerIs(Id::masterOnly, 1, encode(OctetValue{1, 0}));
   daemon->answerIs(Id::portServiceStatsNp, 1, encode(stats));
   daemon->answerIs(Id::portHwclockNp, 1, encode(PortHwclockNp{{}, 3, 0, 0}));
   follow();
   auto const port = status().portDS(key("pva"));
   EXPECT_EQ(port->role(), Ptp::Role::masterOnly);
   EXPECT_EQ(clock->ports().at(1).phcIndex, 3);
   pass(2000);
   EXPECT_EQ(port->lastSyncReceiptTimeout(), std::numeric_limits<double>::infinity());
   stats.counters.values[PortServiceStatsNp::syncTimeout] = 1;
   daemon->answerIs(Id::portServiceStatsNp, 1, encode(stats));
   pass(1000);
   EXPECT_GT(port->lastSyncReceiptTimeout(), 1001);
   EXPECT_LT(port->lastSyncReceiptTimeout(), 1004);
}

}  // namespace

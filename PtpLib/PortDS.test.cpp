#include "PtpLib/PtpStatusStatedbTypes/PortDS.h"

#include <gtest/gtest.h>

#include <limits>

#include "Kiv/System.h"
#include "KivTest/Observer.test.h"
#include "KivTest/Witness.h"

namespace Ptp {
namespace {

using KivTest::Witness;

constexpr MessageTypeNumber messageType(int number) {
   return static_cast<MessageTypeNumber>(number);
}

Kiv::Seconds standIn = 1000;

class PortDSTest : public testing::Test {
protected:
   PortDSTest() {
      standIn = 1000;
      Kiv::System::clockIs([] { return standIn; });
   }
   ~PortDSTest() override { Kiv::System::clockIs(nullptr); }

   PortDSKey const key{Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone(10)};
   Sarn::Ptr<PortDS> port = portDSFactory(key, PortIdentity(ClockIdentity(), 1));
};

TEST_F(PortDSTest, InterfaceAndVlanAreThoseOfTheKey) {
   EXPECT_EQ(port->intf(), Dorn::IntfId("Ethernet1"));
   EXPECT_EQ(port->vlanId(), Bridging::VlanIdOrNone(10));
}

TEST_F(PortDSTest, VersionIsThatOfIeee1588From2008) {
   EXPECT_EQ(port->versionNumber(), 2);
}

// ---- Intervals ----

TEST_F(PortDSTest, LogMessageIntervalOfAMulticastMessageFollowsItsType) {
   port->logAnnounceIntervalIs(-2);
   port->logSyncIntervalIs(-4);
   port->logMinDelayReqIntervalIs(-5);
   bool const multicast = true;
   for (int number = 0; number <= 15; ++number) {
      S16 const expected = number == 11                 ? -2
                           : number == 0 || number == 8 ? -4
                           : number == 9                ? -5
                                                        : 127;
      EXPECT_EQ(port->getLogMessageInterval(messageType(number), multicast), expected) << number;
   }
   EXPECT_EQ(port->getLogMessageInterval(messageType(24), multicast), 127);
}

TEST_F(PortDSTest, LogMessageIntervalOfAUnicastMessageIs127ButForAnnounce) {
   port->logAnnounceIntervalIs(-2);
   port->logSyncIntervalIs(-4);
   port->logMinDelayReqIntervalIs(-5);
   bool const multicast = false;
   for (int number = 0; number <= 15; ++number) {
      EXPECT_EQ(port->getLogMessageInterval(messageType(number), multicast),
                number == 11 ? -2 : 127)
            << number;
   }
}

TEST_F(PortDSTest, ManagementMessagesAreForwardedInFourStates) {
   for (int state = 0; state <= 10; ++state) {
      port->portStateIs(static_cast<PortState>(state));
      EXPECT_EQ(port->isManagementPktForwardingState(),
                state == 5 || state == 6 || state == 8 || state == 9)
            << state;
   }
}

// ---- Counters ----

TEST_F(PortDSTest, IncrementOf0PublishesNothingAndReceivedSyncAlways) {
   Witness published(*port);
   port->syncMessageReceivedInc(0);
   EXPECT_EQ(published.ids(), "");
   port->syncMessageReceivedInc(3);
   port->receiveSyncMessage();
   EXPECT_EQ(published.changes(), "syncMessageReceived was 0; syncMessageReceived was 3");
   EXPECT_EQ(port->syncMessageReceived(), 4u);
}

TEST_F(PortDSTest, CountersWrapAroundInTheirOwnWidth) {
   Witness published(*port);
   port->syncMessageReceivedIs(4294967295);
   port->receiveSyncMessage();
   EXPECT_EQ(port->syncMessageReceived(), 0u);
   port->currentSimpleAverageCountIs(250);
   port->currentSimpleAverageCountInc(10);
   EXPECT_EQ(port->currentSimpleAverageCount(), 4);
   EXPECT_EQ(published.ids(), "280 280 308 308");
   auto const g8275 = port->g8275_2Is();
   g8275->missingDelayRespCounterIs(255);
   g8275->missingDelayRespCounterInc(2);
   EXPECT_EQ(g8275->missingDelayRespCounter(), 1);
}

void setAllCounters(PortDS& port) {
   port.syncMessageReceivedIs(1);
   port.gptpFollowUpMessagesSentMissedIs(1);
   port.lostResponsesPeerDelayIs(1);
   port.stpDiscardedRxMessagesCountIs(1);
   port.stpDiscardedTxMessagesCountIs(1);
   port.ucastNegRequestTlvsReceivedIs(1);
   port.ucastNegRequestTlvsSentIs(1);
   port.ucastNegGrantTlvsReceivedIs(1);
   port.ucastNegGrantTlvsSentIs(1);
   port.ucastNegCancelTlvsReceivedIs(1);
   port.ucastNegCancelTlvsSentIs(1);
   port.ucastNegAckCancelTlvsReceivedIs(1);
   port.ucastNegAckCancelTlvsSentIs(1);
   port.ptpDiscardedTxArpExpireCountIs(1);
   port.corruptedRxManagementMessagesCountIs(1);
   port.netSyncMonitorDelayReqMessagesReceivedIs(1);
   port.netSyncMonitorDelayRespMessagesSentIs(1);
   port.netSyncMonitorSyncMessagesSentIs(1);
   port.netSyncMonitorFollowUpMessagesSentIs(1);
   port.currentPDelayReqIntervalsNRRIs(1);
   port.currentSimpleAverageCountIs(1);
}

TEST_F(PortDSTest, ClearCountsASyncThenClearsInIdOrderThenNotesTheTime) {
   port->initializedIs(true);
   setAllCounters(*port);
   Witness published(*port);
   port->maybeClearCounters();
   EXPECT_EQ(published.ids(), "280 284 285 286 287 288 289 290 291 292 293 294 295 319");
   EXPECT_EQ(port->syncMessageReceived(), 2u);
   EXPECT_EQ(port->gptpFollowUpMessagesSentMissed(), 1u);
   EXPECT_EQ(port->lostResponsesPeerDelay(), 1u);
   EXPECT_EQ(port->netSyncMonitorFollowUpMessagesSent(), 1u);
   EXPECT_EQ(port->currentPDelayReqIntervalsNRR(), 1);
   EXPECT_EQ(port->lastClearTime(), 1000);
}

TEST_F(PortDSTest, ClearOfAFreshInitializedOneTouchesNoZeroCounter) {
   port->initializedIs(true);
   Witness published(*port);
   port->maybeClearCounters();
   EXPECT_EQ(published.ids(), "280 319");
}

TEST_F(PortDSTest, NothingIsClearedBeforeTheDataSetIsInitialized) {
   setAllCounters(*port);
   port->clearCountersRequestTimeIs(5);
   Witness published(*port);
   port->maybeClearCounters();
   EXPECT_EQ(published.ids(), "");
}

TEST_F(PortDSTest, SecondClearWaitsForANewRequest) {
   port->initializedIs(true);
   port->updateClearCountersRequestTime();
   EXPECT_EQ(port->clearCountersRequestTime(), 1000);
   port->maybeClearCounters();
   EXPECT_GT(port->lastClearTime(), port->clearCountersRequestTime());
   Witness published(*port);
   port->maybeClearCounters();
   EXPECT_EQ(published.ids(), "");
   port->updateClearCountersRequestTime();
   port->maybeClearCounters();
   EXPECT_EQ(published.ids(), "318 280 319");
}

TEST_F(PortDSTest, RequestAtTheTimeOfTheLastClearCounts) {
   port->initializedIs(true);
   port->lastClearTimeIs(500);
   port->clearCountersRequestTimeIs(500);
   Witness published(*port);
   port->maybeClearCounters();
   EXPECT_EQ(published.changes(), "syncMessageReceived was 0; lastClearTime was 500");
   port->maybeClearCounters();
   EXPECT_EQ(published.ids(), "");
}

TEST_F(PortDSTest, SecondClearDoesNothingOnTheSystemsClockEither) {
   Kiv::System::clockIs(nullptr);
   port->initializedIs(true);
   for (int i = 0; i != 1000; ++i) {
      port->updateClearCountersRequestTime();
      port->maybeClearCounters();
      Witness published(*port);
      port->maybeClearCounters();
      ASSERT_EQ(published.ids(), "");
   }
   EXPECT_EQ(port->syncMessageReceived(), 1000u);
}

TEST_F(PortDSTest, RequestThatIsNotANumberCounts) {
   port->initializedIs(true);
   port->lastClearTimeIs(500);
   port->clearCountersRequestTimeIs(std::numeric_limits<double>::quiet_NaN());
   Witness published(*port);
   port->maybeClearCounters();
   EXPECT_EQ(published.ids(), "280 319");
}

// ---- Children and collections ----

TEST_F(PortDSTest, G8275ChildIsMadeOnce) {
   Witness published(*port);
   auto const child = port->g8275_2Is();
   EXPECT_EQ(port->g8275_2Is(), child);
   EXPECT_EQ(child->parent(), port.get());
   EXPECT_EQ(published.ids(), "276");
   EXPECT_EQ(port->g8275_2Del(), child);
   EXPECT_EQ(child->parent(), nullptr);
   EXPECT_EQ(published.changes(), "g8275_2 was Ptp::PortDS_G8275_2");
   EXPECT_EQ(port->g8275_2Del(), nullptr);
   EXPECT_EQ(published.ids(), "");
}

TEST_F(PortDSTest, DisabledReasonsAreASetWithABoolEach) {
   Witness published(*port);
   port->disabledReasonIs(PortDisabledReason::linkDown, true);
   port->disabledReasonIs(PortDisabledReason::linkDown, true);
   EXPECT_EQ(published.changes(), "disabledReason[linkDown] was nothing");
   port->disabledReasonIs(PortDisabledReason::noIpAddr, true);
   port->disabledReasonDel(PortDisabledReason::linkDown);
   port->disabledReasonDelAll();
   EXPECT_EQ(published.ids(), "330 330 330");
}

TEST_F(PortDSTest, SignalFailIsKeptByMaster) {
   auto const child = port->g8275_2Is();
   Witness published(*child);
   Dorn::IpGenAddr const master("192.0.2.1");
   child->signalFailIs(master, 10.5);
   child->signalFailIs(master, 10.5);
   EXPECT_EQ(published.changes(), "signalFail[192.0.2.1] was nothing");
   EXPECT_EQ(child->signalFailDel(master), 10.5);
   EXPECT_EQ(published.changes(), "signalFail[192.0.2.1] was 10.5");
   EXPECT_EQ(child->signalFailDel(master), 0.0);
}

// ---- The delay queue ----

TEST_F(PortDSTest, TenThousandDelaysAreKept) {
   for (int i = 1; i <= 10000; ++i) {
      port->peerPathDelayEnq(i);
   }
   EXPECT_EQ(port->peerPathDelayFront(), 1.0);
   EXPECT_EQ(port->peerPathDelayBack(), 10000.0);
   EXPECT_TRUE(port->peerPathDelayHas(1));
   EXPECT_TRUE(port->peerPathDelayHas(10000));
   EXPECT_FALSE(port->peerPathDelayHas(10001));
   EXPECT_FALSE(port->peerPathDelayHas(0));
   EXPECT_EQ(port->peerPathDelay(5000), 5000.0);
}

TEST_F(PortDSTest, DelaysArePublishedByTheirSequenceNumbers) {
   Witness published(*port);
   EXPECT_EQ(port->peerPathDelayDeq(), 0.0);
   EXPECT_EQ(port->peerPathDelayFront(), 0.0);
   EXPECT_EQ(published.ids(), "");
   port->peerPathDelayEnq(1.5);
   port->peerPathDelayEnq(2.5);
   EXPECT_EQ(port->peerPathDelayDeq(), 1.5);
   EXPECT_EQ(published.changes(),
             "peerPathDelay[1] was nothing; peerPathDelay[2] was nothing; "
             "peerPathDelay[1] was nothing");
   EXPECT_EQ(port->peerPathDelay(1), 0.0);
   port->peerPathDelayDelAll();
   port->peerPathDelayEnq(3.5);
   EXPECT_EQ(published.changes(), "peerPathDelay[2] was nothing; peerPathDelay[3] was nothing");
}

TEST_F(PortDSTest, ClearFinishesThoughObserversThrow) {
   port->initializedIs(true);
   port->stpDiscardedRxMessagesCountIs(5);
   port->corruptedRxManagementMessagesCountIs(6);
   port->updateClearCountersRequestTime();
   ++standIn;
   KivTest::Hears const hears(*port,
                              [](Kiv::Change const&) { throw std::runtime_error("an observer"); });
   EXPECT_EQ(KivTest::thrown<std::runtime_error>([&] { port->maybeClearCounters(); }),
             "an observer");
   EXPECT_EQ(port->syncMessageReceived(), 1u);
   EXPECT_EQ(port->stpDiscardedRxMessagesCount(), 0u);
   EXPECT_EQ(port->corruptedRxManagementMessagesCount(), 0u);
   EXPECT_EQ(port->lastClearTime(), 1001);
}

}  // namespace
}  // namespace Ptp

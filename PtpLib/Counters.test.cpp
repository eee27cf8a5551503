// Every counter of the data sets: what `Inc` adds and what it publishes.
#include <gtest/gtest.h>

#include <limits>

#include "KivTest/Witness.h"
#include "PtpLib/PtpStatusStatedbTypes/ForeignMasterDS.h"
#include "PtpLib/PtpStatusStatedbTypes/PortDS.h"
#include "PtpLib/PtpStatusStatedbTypes/PortDS_G8275_2.h"

namespace Ptp {
namespace {

template <class Owner, class T>
struct Counter {
   int id;
   T (Owner::*get)() const;
   void (Owner::*set)(T);
   void (Owner::*inc)(T);
};

/// Checks a counter of a newly created entity.
template <class Owner, class T>
void check(Owner& owner, Counter<Owner, T> const& counter, T fresh = 0) {
   SCOPED_TRACE(counter.id);
   constexpr T most = std::numeric_limits<T>::max();
   std::string const once = std::to_string(counter.id);
   KivTest::Witness published(owner);
   EXPECT_EQ((owner.*counter.get)(), fresh);
   (owner.*counter.inc)(0);
   EXPECT_EQ(published.ids(), "");
   (owner.*counter.inc)(3);
   EXPECT_EQ((owner.*counter.get)(), fresh + 3);
   EXPECT_EQ(published.ids(), once);
   (owner.*counter.set)(most);
   published.clear();
   (owner.*counter.inc)(0);
   EXPECT_EQ(published.ids(), "");
   (owner.*counter.inc)(1);
   EXPECT_EQ((owner.*counter.get)(), 0u);
   EXPECT_EQ(published.changes(),
             std::string(owner.kivType().field(static_cast<U16>(counter.id))->name) + " was " +
                   std::to_string(most));
   (owner.*counter.set)(5);
   (owner.*counter.inc)(most);
   EXPECT_EQ((owner.*counter.get)(), 4u);
   EXPECT_EQ(published.ids(), once + " " + once);
}

#define COUNTER(name) &PortDS::name, &PortDS::name##Is, &PortDS::name##Inc

TEST(Counters, OfAPortWrapAroundIn32BitsAndPublishOnlyChanges) {
   Counter<PortDS, U32> const all[] = {
         {280, COUNTER(syncMessageReceived)},
         {282, COUNTER(gptpFollowUpMessagesSentMissed)},
         {283, COUNTER(lostResponsesPeerDelay)},
         {284, COUNTER(stpDiscardedRxMessagesCount)},
         {285, COUNTER(stpDiscardedTxMessagesCount)},
         {286, COUNTER(ucastNegRequestTlvsReceived)},
         {287, COUNTER(ucastNegRequestTlvsSent)},
         {288, COUNTER(ucastNegGrantTlvsReceived)},
         {289, COUNTER(ucastNegGrantTlvsSent)},
         {290, COUNTER(ucastNegCancelTlvsReceived)},
         {291, COUNTER(ucastNegCancelTlvsSent)},
         {292, COUNTER(ucastNegAckCancelTlvsReceived)},
         {293, COUNTER(ucastNegAckCancelTlvsSent)},
         {294, COUNTER(ptpDiscardedTxArpExpireCount)},
         {295, COUNTER(corruptedRxManagementMessagesCount)},
         {296, COUNTER(netSyncMonitorDelayReqMessagesReceived)},
         {297, COUNTER(netSyncMonitorDelayRespMessagesSent)},
         {298, COUNTER(netSyncMonitorSyncMessagesSent)},
         {299, COUNTER(netSyncMonitorFollowUpMessagesSent)},
   };
   auto const port = portDSFactory(PortDSKey(), PortIdentity());
   for (auto const& counter : all) {
      check(*port, counter);
   }
}

TEST(Counters, OfALinkDelayMeasurementWrapAroundIn8Bits) {
   auto const port = portDSFactory(PortDSKey(), PortIdentity());
   check(*port, Counter<PortDS, U8>{307, COUNTER(currentPDelayReqIntervalsNRR)});
   check(*port, Counter<PortDS, U8>{308, COUNTER(currentSimpleAverageCount)});
}

#undef COUNTER

TEST(Counters, OfG8275WrapAroundEachInItsOwnWidth) {
   auto const child = portDS_G8275_2Factory();
   check(*child, Counter<PortDS_G8275_2, U8>{260, &PortDS_G8275_2::missingDelayRespCounter,
                                             &PortDS_G8275_2::missingDelayRespCounterIs,
                                             &PortDS_G8275_2::missingDelayRespCounterInc});
   check(*child, Counter<PortDS_G8275_2, U32>{262, &PortDS_G8275_2::announceTxSmCount,
                                              &PortDS_G8275_2::announceTxSmCountIs,
                                              &PortDS_G8275_2::announceTxSmCountInc});
}

TEST(Counters, OfAForeignMasterStartAtTheAnnounceThatMadeIt) {
   auto const master = foreignMasterDSFactory(PortIdentity());
   check(*master,
         Counter<ForeignMasterDS, U32>{259, &ForeignMasterDS::foreignMasterAnnounceMessages,
                                       &ForeignMasterDS::foreignMasterAnnounceMessagesIs,
                                       &ForeignMasterDS::foreignMasterAnnounceMessagesInc},
         U32(1));
}

}  // namespace
}  // namespace Ptp

#include "PtpLib/PtpStatusStatedbTypes/PortDS.h"

#include "Kiv/Glue/AllSteps.h"
#include "Kiv/System.h"

namespace Ptp {

namespace {

/// The `logMessageInterval` of messages that have none, and of unicast messages (IEEE 1588-2008,
/// table 24).
constexpr S16 noInterval = 0x7F;

}  // namespace

U8 PortDS::versionNumber() const {
   return 2;
}

S16 PortDS::getLogMessageInterval(MessageTypeNumber messageType, bool multicast) const {
   if (messageType == MessageTypeNumber::announce) {
      return logAnnounceInterval();
   }
   if (!multicast) {
      return noInterval;
   }
   switch (messageType) {
      case MessageTypeNumber::sync:
      case MessageTypeNumber::followUp:
         return logSyncInterval();
      case MessageTypeNumber::delayResp:
         return logMinDelayReqInterval();
      default:
         return noInterval;
   }
}

bool PortDS::isManagementPktForwardingState() const {
   switch (portState()) {
      case PortState::preMaster:
      case PortState::master:
      case PortState::uncalibrated:
      case PortState::slave:
         return true;
      default:
         return false;
   }
}

void PortDS::receiveSyncMessage() {
   // Adding one is always a change, even if the counter wraps.
   syncMessageReceivedInc(1);
}

void PortDS::maybeClearCounters() {
   // Not `<=`: the counters are also cleared if either side is NaN.
   if (!initialized() || lastClearTime() > clearCountersRequestTime()) {
      return;
   }
   // Deliberate: clearing increments this counter rather than resetting it.
   Kiv::AllSteps steps(*this);
   steps.take([&] { syncMessageReceivedInc(1); });
   steps.take([&] { stpDiscardedRxMessagesCountIs(0); });
   steps.take([&] { stpDiscardedTxMessagesCountIs(0); });
   steps.take([&] { ucastNegRequestTlvsReceivedIs(0); });
   steps.take([&] { ucastNegRequestTlvsSentIs(0); });
   steps.take([&] { ucastNegGrantTlvsReceivedIs(0); });
   steps.take([&] { ucastNegGrantTlvsSentIs(0); });
   steps.take([&] { ucastNegCancelTlvsReceivedIs(0); });
   steps.take([&] { ucastNegCancelTlvsSentIs(0); });
   steps.take([&] { ucastNegAckCancelTlvsReceivedIs(0); });
   steps.take([&] { ucastNegAckCancelTlvsSentIs(0); });
   steps.take([&] { ptpDiscardedTxArpExpireCountIs(0); });
   steps.take([&] { corruptedRxManagementMessagesCountIs(0); });
   steps.take([&] { lastClearTimeIs(Kiv::System::currentTime()); });
   steps.finish();
}

void PortDS::updateClearCountersRequestTime() {
   clearCountersRequestTimeIs(Kiv::System::currentTime());
}

}  // namespace Ptp

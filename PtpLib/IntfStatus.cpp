#include "PtpLib/PtpStatusStatedbTypes/IntfStatus.h"

namespace Ptp {

Sarn::String IntfStatus::disabledReasonString() const {
   if (mpassEnabled()) {
      return {};
   }
   switch (mpassDisabledReason()) {
      case Mpass::DisabledReason::notConfigured:
         return "MPASS not configured";
      case Mpass::DisabledReason::notMlagInterface:
         return "Interface not part of MLAG";
      case Mpass::DisabledReason::ptpDisabledInterface:
         return "PTP not enabled on interface";
      case Mpass::DisabledReason::ptpDisabledPeerLink:
         return "PTP not enabled on MLAG peer-link";
      case Mpass::DisabledReason::notBoundaryMode:
         return "PTP not in boundary mode";
      case Mpass::DisabledReason::delayMechanismNotE2e:
         return "Delay mechanism not end to end";
      case Mpass::DisabledReason::ucastNegEnabled:
         return "Unicast negotiation enabled";
      case Mpass::DisabledReason::mlagIntfDisabled:
         break;
   }
   // A reason that only a newer writer knows is reported as the last one.
   return "MLAG interface disabled";
}

}  // namespace Ptp

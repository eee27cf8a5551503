#include "PtpLib/PtpStatusStatedbTypes/PtpMibData.h"

namespace Ptp {

U32 PtpMibData::domainTotal() const {
   // All ports of one clock share its domain.
   return numClockPorts() != 0 ? 1 : 0;
}

}  // namespace Ptp

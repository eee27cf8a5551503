#include "PtpLib/PtpStatusStatedbTypes/DefaultDS.h"

namespace Ptp {

bool DefaultDS::slaveOnly() const {
   // The class that IEEE 1588-2008, 7.6.2.4 reserves for clocks that are never a master.
   return clockQuality().clockClass() == 255;
}

}  // namespace Ptp

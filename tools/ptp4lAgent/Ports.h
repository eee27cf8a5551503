// The ports of one daemon: what joins their number, which messages carry, to their interface, which
// is the key of everything in the trees.
#pragma once

#include <map>
#include <string>

#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace Ptp4lAgent {

/// One port, with what must be remembered to tell what has changed.
struct Port {
   /// The interface's name as the daemon gives it.
   std::string name;
   Ptp::PortDSKey key;
   Sarn::Ptr<Ptp::PortDS> status;
   Sarn::Ptr<Ptp::PtpMibPortData> mib;
   /// `timestamping` of PORT_PROPERTIES_NP.
   U8 timestamping = 0;
   /// N of /dev/ptpN if the daemon tells; -1 otherwise.
   S32 phcIndex = -1;
   bool masterOnly = false;
   /// Counters of the last poll.
   bool counted = false;
   U64 syncs = 0;
   U64 followUps = 0;
   U64 pdelayResps = 0;
   /// Pdelay_Req sent when the last answer was counted.
   U64 pdelayReqs = 0;
   /// By the agent's clock in seconds; 0 for never.
   double lastPdelayResp = 0;
   bool serviceCounted = false;
   U64 syncTimeouts = 0;
};

/// By port number.
using Ports = std::map<U16, Port>;

}  // namespace Ptp4lAgent

#include "tools/shared/PortRemarks.h"

#include <algorithm>

namespace Tools {

std::vector<Ptp::PortDisabledReason> disabledReasons(Ptp::PortDS const& port) {
   std::vector<Ptp::PortDisabledReason> reasons;
   for (auto const& [reason, holds] : port.disabledReasonAll()) {
      if (holds) {
         reasons.push_back(reason);
      }
   }
   std::sort(reasons.begin(), reasons.end());
   return reasons;
}

bool isMpassInactive(Ptp::IntfStatus const* intf) {
   return intf != nullptr && intf->mpassEnabled() &&
          intf->mpassStatus() == Ptp::Mpass::Status::inactive;
}

std::string portRemarks(Ptp::PortDS const& port, Ptp::IntfStatus const* intf) {
   std::string all = port.faultyFlag() ? "fault" : "";
   for (Ptp::PortDisabledReason const reason : disabledReasons(port)) {
      all += (all.empty() ? "" : ", ") + Kiv::strRep(reason);
   }
   if (isMpassInactive(intf)) {
      all += std::string(all.empty() ? "" : ", ") + "MPASS inactive";
   }
   return all;
}

}  // namespace Tools

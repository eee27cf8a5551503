#include "tests/fleet/Simulated.h"

#include <algorithm>

#include "Holt/Client.h"
#include "Holt/Times.h"
#include "tools/demoAgent/Agent.h"

namespace FleetLoad {

Simulated::Simulated(std::string name, U32 ports, U32 counters, U32 seed)
      : name_(std::move(name)),
        counters_(std::min(counters, ports)),
        random_(seed),
        status_(static_cast<Ptp::Status*>(&*Holt::newRoot("Ptp::Status", "ptp/status"))) {
   DemoAgent::Agent(status_, ports, seed).fill();
   for (auto const& port : status_->portDSAll()) {
      keys_.push_back(port->portDSKey());
   }
   std::sort(keys_.begin(), keys_.end(),
             [](auto const& a, auto const& b) { return a.intf().bits() < b.intf().bits(); });
}

void Simulated::tick() {
   U64 const now = Holt::steadyNow();
   auto const current = status_->currentDS();
   current->offsetFromMasterIs(noise(40));
   current->meanPathDelayIs(212 + noise(6));
   current->lastSyncSeqIdIs(static_cast<U16>(current->lastSyncSeqId() + 1));
   auto const mib = status_->ptpMibData();
   mib->totalPacketsReceivedIs(mib->totalPacketsReceived() + 8 * keys_.size());
   mib->totalPacketsSentIs(mib->totalPacketsSent() + 9 * keys_.size());
   for (U32 i = 0; i != counters_; ++i) {
      next_ = (next_ + 1) % keys_.size();
      auto const port = mib->ptpMibPortData(keys_[next_]);
      port->totalPacketsReceivedIs(port->totalPacketsReceived() + 8);
      port->totalPacketsSentIs(port->totalPacketsSent() + 9);
   }
   if (random_() % 20 == 0) {
      auto const intf = status_->intfStatus(keys_[random_() % keys_.size()]);
      Ptp::PortIdentity const heard(Ptp::ClockIdentity(0x020011fffe00bb00u + random_() % 3), 1);
      if (intf->foreignMasterDSHas(heard)) {
         intf->foreignMasterDSDel(heard);
      } else {
         intf->foreignMasterDSIs(heard);
      }
   }
   // Last: the entity is as of now.
   current->lastSyncLocalTimeIs(now);
}

}  // namespace FleetLoad

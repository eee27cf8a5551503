// A switch of the fleet test: the status of a simulated boundary clock that changes every second.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace FleetLoad {

class Simulated {
public:
   /// `ports`: at least 3. `counters`: how many of them count each second, in turn.
   Simulated(std::string name, U32 ports, U32 counters, U32 seed);

   std::string const& name() const noexcept { return name_; }
   Sarn::Ptr<Ptp::Status> const& status() const noexcept { return status_; }

   /// A second: another offset and mean path delay, with the steady time of this machine as the
   /// local time of the last Sync; more packets, of the switch and of as many ports as count. Once
   /// in twenty seconds, a foreign master appears or disappears.
   void tick();

private:
   S64 noise(U32 spread) { return S64(random_() % (2 * spread + 1)) - spread; }

   std::string name_;
   U32 counters_;
   std::mt19937 random_;
   Sarn::Ptr<Ptp::Status> status_;
   std::vector<Ptp::PortDSKey> keys_;
   std::size_t next_ = 0;
};

}  // namespace FleetLoad

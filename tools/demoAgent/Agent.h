// A simulated boundary clock for demonstrations: it fills and changes a status as a PTP agent
// would.
#pragma once

#include <random>
#include <vector>

#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace DemoAgent {

/// The first two ports lead to masters, which the clock follows in turn; the others serve slaves.
/// Everything that happens depends on the seed alone, except for the times at which counters are
/// cleared.
class Agent {
public:
   /// `status`: a new one. `ports`: at least 3.
   Agent(Sarn::Ptr<Ptp::Status> status, U32 ports, U32 seed);

   /// Fills the status: the clock's data sets, and everything there is for each port.
   void fill();
   /// Sets the time, in seconds since 1970; at first, a day in 2023.
   void timeIs(Kiv::Seconds now) noexcept { now_ = now - 1; }
   /// Simulates a second, which ends at the time that was set or a second after the last one:
   /// counts messages, measures delays, hears foreign masters. Now and then a link goes down or
   /// comes up, a port's counters are cleared, or the clock follows another master.
   void tick();

private:
   void addPort(U32 index);
   void follow(U32 index);
   void synchronise();
   void measureDelay(Ptp::PortDS& port);
   void serve(Ptp::PortDS& port);
   void hearMasters(Ptp::PortDSKey const& key);
   void linkDown(Ptp::PortDS& port);
   void linkUp(Ptp::PortDS& port);
   void count();

   U32 below(U32 bound) { return static_cast<U32>(random_() % bound); }
   bool oneIn(U32 n) { return below(n) == 0; }
   /// A random number from -`spread` to `spread`.
   S64 noise(U32 spread) { return S64(below(2 * spread + 1)) - spread; }

   Sarn::Ptr<Ptp::Status> status_;
   U32 portCount_;
   std::mt19937 random_;
   std::vector<Ptp::PortDSKey> keys_;
   U32 followed_ = 0;
   /// What the offset wanders around, in nanoseconds.
   S64 wander_ = 0;
   Kiv::Seconds now_ = 1700000000;
};

}  // namespace DemoAgent

// A boundary clock that is played, for demonstrations: it fills and changes a status as an agent
// would that runs PTP.
#pragma once

#include <random>
#include <vector>

#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace DemoAgent {

/// The first two ports lead to masters and take turns at being followed; the others serve slaves.
/// Everything that happens comes from the seed, so that two runs are alike but for the times at
/// which counters are cleared.
class Agent {
public:
   /// `status`: a fresh one. `ports`: 3 at least.
   Agent(Sarn::Ptr<Ptp::Status> status, U32 ports, U32 seed);

   /// Fills the status: the clock's data sets, and for each port all that there is of one.
   void fill();
   /// A second of the clock's life: messages are counted, delays measured, foreign masters heard.
   /// Now and then a link goes down or comes up, a port is cleared, another master is followed.
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
   /// About zero, `spread` at most on either side.
   S64 noise(U32 spread) { return S64(below(2 * spread + 1)) - spread; }

   Sarn::Ptr<Ptp::Status> status_;
   U32 portCount_;
   std::mt19937 random_;
   std::vector<Ptp::PortDSKey> keys_;
   U32 followed_ = 0;
   Kiv::Seconds now_ = 1700000000;
};

}  // namespace DemoAgent

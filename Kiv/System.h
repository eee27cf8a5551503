#pragma once

#include "Kiv/ValueOps.h"

namespace Kiv {

/// The system as types see it.
class System {
public:
   /// A clock: seconds since the epoch.
   using Clock = Seconds (*)();

   /// Seconds since the epoch. Each call in a process gives a later time than all before it, even
   /// where the clock stands still or is set back, so that what happened first has the smaller
   /// time. Any thread.
   static Seconds currentTime() noexcept;

   /// Has `currentTime` ask `clock` from now on and forget the times that it gave; null brings the
   /// system's clock back. For tests: REQUIRES: no other thread is asking for the time.
   static void clockIs(Clock clock) noexcept;
};

}  // namespace Kiv

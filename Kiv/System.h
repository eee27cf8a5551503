#pragma once

#include "Kiv/ValueOps.h"

namespace Kiv {

/// The system as types see it.
class System {
public:
   /// A clock: seconds since the epoch.
   using Clock = Seconds (*)();

   /// Seconds since the epoch. Each call in a process returns a later time than all calls before
   /// it, even if the clock stops or is set back, so that earlier events have smaller times. Any
   /// thread.
   static Seconds currentTime() noexcept;

   /// Makes `currentTime` read `clock` and forget the times that it returned; null restores the
   /// system's clock. For tests. REQUIRES: no other thread reads the time meanwhile.
   static void clockIs(Clock clock) noexcept;
};

}  // namespace Kiv

// `fleetLoad switches`: publishes simulated switches.
#pragma once

#include <string>

#include "tools/fleet/NatsOptions.h"

namespace FleetLoad {

struct SwitchesOptions {
   Tools::NatsOptions nats;
   /// The number of the first switch: "sw-00001" is the second one.
   U32 first = 0;
   U32 count = 1;
   U32 ports = 64;
   U32 counters = 1;
   U32 seed = 1;
   U32 replicas = 1;
   bool inMemory = false;
   /// Seconds.
   double interval = 0;
   double heartbeat = 2;
};

/// Until the end of the standard input. Each second, it writes a line of JSON about itself. Lines
/// that it reads: "stop" stops all changes; "digests FILE" writes a line "SWITCH ROOT DIGEST" for
/// each root to a file.
void runSwitches(SwitchesOptions const& options);

}  // namespace FleetLoad

// `fleetLoad reader`: mirrors a fleet, and measures how late changes arrive.
#pragma once

#include <string>

#include "tools/fleet/NatsOptions.h"

namespace FleetLoad {

struct ReaderOptions {
   Tools::NatsOptions nats;
   std::string switches = "*";
};

/// Until the end of the standard input. Each second, it writes a line of JSON about itself, with
/// the delays of that second: from the steady time that a switch has as its last Sync's to its
/// observer. A line "digests FILE" that it reads writes a line "SWITCH ROOT DIGEST" for each root
/// to a file.
void runReader(ReaderOptions const& options);

}  // namespace FleetLoad

// What the commands need of a fleet in NATS. A build without the library of NATS has this, too, and
// says so.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/fleet/NatsOptions.h"
#include "tools/ptpstate/RootSource.h"
#include "tools/shared/CommandLine.h"

namespace Ptpstate {

/// Which switches of which fleet, as typed.
struct FleetOptions {
   Tools::NatsOptions nats;
   std::string stream = "PTP";
   /// A name, or a pattern in which "*" stands for any characters.
   std::string switches;

   /// Whether a fleet was asked for, instead of a server at a socket.
   bool areGiven() const { return !nats.urls.empty() || !switches.empty(); }
   bool isPattern() const { return switches.find('*') != std::string::npos; }
};

/// A state with a name for those who read several.
struct NamedState {
   /// Of the switch; empty for a server.
   std::string name;
   std::unique_ptr<RootSource> source;
};

/// Adds `--fleet` and what belongs to it. `withSwitch`: `--switch`, too.
void addFleetOptions(Tools::Command const& command, FleetOptions& options, bool withSwitch = true);

/// Reads the switches that are asked for, in the order of their names; at least one. A warning on
/// standard error names each that is not current. Throws `Holt::Failure`: `Exit::noSwitch` if there
/// is none, `Exit::connection` if the fleet does not answer in time. `interruptFd`: ends all
/// waiting once it is readable; -1 for none.
std::vector<NamedState> openFleet(FleetOptions const& options, std::chrono::milliseconds patience,
                                  int interruptFd = -1);

}  // namespace Ptpstate

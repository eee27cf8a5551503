// The switches of a fleet over HTTP. A build without the library of NATS has this, too, and says
// so.
#pragma once

#include <memory>
#include <string>

#include "Holt/Loop.h"
#include "tools/fleet/NatsOptions.h"
#include "tools/ptpexport/Http/HttpServer.h"

namespace Ptpexport {

/// Which switches of which fleet, as typed.
struct FleetOptions {
   Tools::NatsOptions nats;
   std::string stream = "PTP";
   /// A name, or a pattern in which "*" stands for any characters.
   std::string switches = "*";

   /// Whether a fleet was asked for, instead of a server at a socket.
   bool areGiven() const { return !nats.urls.empty(); }
};

/// Adds `--fleet` and what belongs to it.
void addFleetOptions(Tools::Command const& command, FleetOptions& options);

/// Mirrors switches of a fleet, and answers what clients ask of them:
///
///     GET /healthz             whether the fleet answers, and which switches are not current
///     GET /metrics             as of a single agent, with a first label "switch"
///     GET /state               the names of the switches
///     GET /state/SWITCH/PATH   as of a single agent
///
/// Threads: that of its loop.
class FleetExport {
public:
   virtual ~FleetExport() = default;

   /// Throws `Holt::Failure` for options that cannot be right.
   static std::unique_ptr<FleetExport> make(FleetOptions const& options);

   /// Adds what it needs to a loop, which must not take turns after its end.
   virtual void joins(Holt::Loop& loop) = 0;
   /// Adds its routes to a server, which must not answer after its end.
   virtual void answersAt(HttpServer& server) = 0;
};

}  // namespace Ptpexport

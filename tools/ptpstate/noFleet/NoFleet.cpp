// Instead of what is in `fleet`, in a build without the library of NATS.
#include "Holt/Failure.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/FleetStates.h"
#include "tools/ptpstate/FleetWatch.h"

namespace Ptpstate {

namespace {

[[noreturn]] void refuse() {
   throw Holt::Failure(
         "this ptpstate was built without the client library of NATS, and cannot read a fleet; "
         "build it with Debian's libnats-dev installed",
         Holt::Exit::usage);
}

}  // namespace

void addFleetOptions(Command const& command, FleetOptions& options, bool withSwitch) {
   command.option("--fleet", options.nats.urls, "Not in this build: it has no library of NATS")
         .placeholder("URL");
   if (withSwitch) {
      command.option("--switch", options.switches, "Not in this build").placeholder("NAME");
   }
}

std::vector<NamedState> openFleet(FleetOptions const&, std::chrono::milliseconds, int) {
   refuse();
}

Holt::Exit watchFleet(WatchOptions const&) {
   refuse();
}

void addFleet(Command const& program, Run& run) {
   Command const command = program.command(
         "fleet", "Shows all switches of a fleet; not in this build: it has no library of NATS.");
   command.onChosen([&run] { run = []() -> Holt::Exit { refuse(); }; });
}

}  // namespace Ptpstate

// --fleet, --switch
#include <iostream>

#include "Kiv/Printable.h"
#include "tools/ptpstate/fleet/SwitchRoots.h"

namespace Ptpstate {

void addFleetOptions(Tools::Command const& command, FleetOptions& options, bool withSwitch) {
   Tools::addNatsOptions(command, options.nats, "--fleet");
   command
         .option("--stream", options.stream, "Name of the fleet's JetStream stream; PTP by default")
         .placeholder("NAME")
         .notEmpty();
   if (withSwitch) {
      command
            .option("--switch", options.switches,
                    "Read this switch of the fleet, instead of a server at a socket. A * stands "
                    "for any characters; then lines begin with the name of a switch, as in "
                    "edge-7:ptp/status")
            .placeholder("NAME");
   }
}

std::vector<NamedState> openFleet(FleetOptions const& options, std::chrono::milliseconds patience,
                                  int interruptFd) {
   auto const session =
         std::make_shared<FleetSession>(options, options.switches, patience, interruptFd);
   session->wait();
   std::vector<NamedState> states;
   for (std::string const& name : session->names()) {
      if (std::string const trouble = troubleOf(session->mirror().find(name)); !trouble.empty()) {
         std::cerr << "ptpstate: " << Kiv::printable(name) << " is not current " << trouble
                   << std::endl;
      }
      states.push_back({name, std::make_unique<SwitchRoots>(session, name)});
   }
   return states;
}

}  // namespace Ptpstate

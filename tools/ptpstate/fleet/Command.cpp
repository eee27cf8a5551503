// fleet
#include <unistd.h>

#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Holt/StopSignals.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/fleet/FleetSession.h"
#include "tools/ptpstate/fleet/FleetTable.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using std::chrono::milliseconds;

struct ListOptions {
   FleetOptions fleet;
   /// In seconds.
   double timeout = 10;
   double interval = 1;
   std::string sort = "name";
   bool json = false;
   bool watch = false;
};

FleetOrder orderOf(std::string const& text) {
   struct Order {
      char const* name;
      FleetOrder order;
   };
   constexpr Order orders[] = {{"name", FleetOrder::name},
                               {"offset", FleetOrder::offset},
                               {"ports", FleetOrder::ports},
                               {"age", FleetOrder::age}};
   for (Order const& each : orders) {
      if (text == each.name) {
         return each.order;
      }
   }
   throw Failure("--sort: '" + text + "' is none of name, offset, ports and age", Exit::usage);
}

milliseconds timeOf(double seconds) {
   return milliseconds(static_cast<S64>(seconds * 1000));
}

std::string shown(ListOptions const& options, Fleet::Mirror const& mirror, FleetOrder order) {
   if (options.json) {
      return jsonLine(fleetJson(mirror, order), options.watch ? -1 : 3) + "\n";
   }
   std::ostringstream out;
   printFleet(out, mirror, order);
   return out.str();
}

void print(std::string const& text) {
   std::cout << text << std::flush;
   Tools::requireWritten(std::cout);
}

Exit list(ListOptions const& options) {
   FleetOrder const order = orderOf(options.sort);
   StopSignals const stop;
   FleetSession session(options.fleet,
                        options.fleet.switches.empty() ? "*" : options.fleet.switches,
                        timeOf(options.timeout), stop.fd());
   session.wait();
   std::string last = shown(options, session.mirror(), order);
   print(last);
   // On a terminal in place of what was there, else one after the other.
   bool const inPlace = !options.json && ::isatty(STDOUT_FILENO) == 1;
   Clock::time_point next = Clock::now() + timeOf(options.interval);
   while (options.watch) {
      auto const left = std::chrono::ceil<milliseconds>(next - Clock::now());
      if (session.turn(stop.fd(), std::max(left, milliseconds(0)))) {
         break;
      }
      if (Clock::now() >= next) {
         std::string text = shown(options, session.mirror(), order);
         if (text != last) {
            last = std::move(text);
            print((inPlace ? "\033[H\033[2J" : options.json ? "" : "\n") + last);
         }
         next = Clock::now() + timeOf(options.interval);
      }
   }
   return Exit::ok;
}

}  // namespace

void addFleet(Command const& program, Run& run) {
   auto const options = std::make_shared<ListOptions>();
   Command const command = program.command(
         "fleet",
         "Prints a table of the switches of a fleet: grandmaster and its class, steps, offset, "
         "ports that are not as they should be, and whether the state is current. Those ports are "
         "faulty or uncalibrated, or have remarks as ptpports shows them. The line above has the "
         "worst offset of all.\n"
         "\n"
         "It waits until everything has been read, and for a heartbeat of each switch that seems "
         "to be alive. The state of a switch that is not current is the last that is known.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate fleet\n"
         "  $ ptpstate fleet --fleet nats://nats1 --sort offset\n"
         "  $ ptpstate fleet --fleet nats://nats1 --watch 'edge-*'\n"
         "  $ ptpstate fleet --json | jq -r '.[] | select(.current | not) | .switch'");
   addFleetOptions(command, options->fleet, false);
   command.option("--timeout", options->timeout, "Total time to wait for the fleet; 10 by default")
         .placeholder("SECONDS")
         .range(0.001, 1e6);
   command.option("pattern", options->fleet.switches, "A * stands for any characters")
         .placeholder("PATTERN");
   command
         .option("--sort", options->sort,
                 "What comes first: name (the default), offset (the largest, whatever its sign), "
                 "ports (most that are not as they should be) or age (not current for longest)")
         .placeholder("ORDER");
   command.flag("--json", options->json,
                "Print a JSON array with an object per clock; with --watch, one per line");
   Option const watch = command.flag("--watch", options->watch,
                                     "Print it again whenever it has changed, until interrupted");
   command.option("--interval", options->interval, "With --watch, at most so often; 1 by default")
         .placeholder("SECONDS")
         .range(0.05, 3600.0)
         .needs(watch);
   command.onChosen([options, &run] { run = [options] { return list(*options); }; });
}

}  // namespace Ptpstate

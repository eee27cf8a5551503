// fleetLoad: the switches and the readers of fleet.py.
#include "tests/fleet/Reader.h"
#include "tests/fleet/Switches.h"
#include "tools/shared/CommandLine.h"

int main(int argc, char** argv) {
   Tools::Program program("fleetLoad", "Simulates a fleet of switches, or mirrors it.");
   program.command().requireCommand();
   std::function<void()> run;
   FleetLoad::SwitchesOptions switches;
   Tools::Command const publish =
         program.command().command("switches", "Publishes switches that change every second.");
   Tools::addNatsOptions(publish, switches.nats);
   publish.option("--first", switches.first, "Number of the first switch (0)");
   publish.option("--count", switches.count, "How many switches (1)").range(1, 100'000);
   publish.option("--ports", switches.ports, "Ports of each (64)").range(3, 4096);
   publish.option("--counters", switches.counters,
                  "How many ports of each count packets every second, in turn (1)");
   publish.option("--seed", switches.seed, "Seed of the random numbers (1)");
   publish.option("--replicas", switches.replicas, "Copies of the stream (1)").range(1, 5);
   publish.flag("--memory", switches.inMemory, "Keep the stream in memory");
   publish.option("--interval", switches.interval,
                  "Shortest time between two messages of one entity, in seconds (0)");
   publish.option("--heartbeat", switches.heartbeat, "Time between heartbeats, in seconds (2)");
   publish.onChosen([&] { run = [&switches] { FleetLoad::runSwitches(switches); }; });
   FleetLoad::ReaderOptions reader;
   Tools::Command const read = program.command().command("reader", "Mirrors switches.");
   Tools::addNatsOptions(read, reader.nats);
   read.option("--switches", reader.switches, "Name or pattern of the switches (*)");
   read.onChosen([&] { run = [&reader] { FleetLoad::runReader(reader); }; });
   return Tools::runProgram(program, argc, argv, [&run] { run(); });
}

#include "tests/fleet/Switches.h"

#include <iostream>
#include <list>

#include "Fleet/Publisher.h"
#include "Holt/File.h"
#include "Kiv/Digest.h"
#include "tests/fleet/Commands.h"
#include "tests/fleet/Simulated.h"

namespace FleetLoad {

namespace {

std::string nameOf(U32 number) {
   std::string const digits = std::to_string(number);
   return "sw-" + std::string(5 - std::min<std::size_t>(digits.size(), 5), '0') + digits;
}

struct Published {
   Published(Fleet::Connection& connection, Fleet::Publisher::Options const& options,
             Simulated source)
         : its(std::move(source)), publisher(connection, options) {
      publisher.rootAdd(its.status());
      publisher.sourceIs(true, Holt::wallNow(), "");
   }

   Simulated its;
   Fleet::Publisher publisher;
};

using Switches = std::list<Published>;

void writeDigests(Switches const& switches, std::string const& path) {
   Holt::writeWholeFile(path, [&](std::ostream& out) {
      for (Published const& each : switches) {
         out << each.its.name() << ' ' << each.its.status()->nameString() << ' '
             << Kiv::treeDigest(*each.its.status()).text() << '\n';
      }
   });
}

void writeStatus(Switches const& switches, Fleet::Connection const& connection, U64 missed,
                 bool changing) {
   Fleet::Publisher::Status sum;
   U64 publishing = 0;
   for (Published const& each : switches) {
      Fleet::Publisher::Status const status = each.publisher.status();
      publishing += status.publishing ? 1 : 0;
      sum.messages += status.messages;
      sum.deletions += status.deletions;
      sum.repeated += status.repeated;
      sum.bytes += status.bytes;
      sum.heartbeats += status.heartbeats;
      sum.entities += status.entities;
      sum.pending += status.pending;
      sum.inFlight += status.inFlight;
      sum.leftOut += status.leftOut;
   }
   std::cout << "{\"time\":" << Holt::steadyNow() << ",\"switches\":" << switches.size()
             << ",\"changing\":" << (changing ? "true" : "false")
             << ",\"connections\":" << connection.status().connections
             << ",\"publishing\":" << publishing << ",\"messages\":" << sum.messages
             << ",\"deletions\":" << sum.deletions << ",\"repeated\":" << sum.repeated
             << ",\"bytes\":" << sum.bytes << ",\"heartbeats\":" << sum.heartbeats
             << ",\"entities\":" << sum.entities << ",\"pending\":" << sum.pending
             << ",\"inFlight\":" << sum.inFlight << ",\"leftOut\":" << sum.leftOut
             << ",\"missed\":" << missed << "}" << std::endl;
}

U64 nanoseconds(double seconds) {
   return static_cast<U64>(seconds * 1e9);
}

}  // namespace

void runSwitches(SwitchesOptions const& options) {
   constexpr U64 second = 1'000'000'000;
   constexpr U32 slots = 50;
   Fleet::Connection connection(Tools::connectionOptions(options.nats, "switches"));
   Switches switches;
   Holt::Loop loop;
   loop.add(connection);
   for (U32 i = options.first; i != options.first + options.count; ++i) {
      std::string const name = nameOf(i);
      Fleet::Publisher::Options const fleet{
            .switchName = name,
            .stream = {.replicas = options.replicas, .inMemory = options.inMemory},
            .interval = nanoseconds(options.interval),
            .heartbeat = nanoseconds(options.heartbeat)};
      loop.add(switches
                     .emplace_back(connection, fleet,
                                   Simulated(name, options.ports, options.counters,
                                             options.seed * 100'003 + i))
                     .publisher);
   }
   bool changing = true;
   Commands commands([&](std::string const& line) {
      constexpr std::string_view digests = "digests ";
      if (line == "stop") {
         changing = false;
      } else if (line.starts_with(digests)) {
         writeDigests(switches, line.substr(digests.size()));
      }
   });
   // The switches change one after the other, not all at once.
   U32 slot = 0;
   Every change(second / slots, [&] {
      U32 number = 0;
      for (Published& each : switches) {
         if (changing && number++ % slots == slot) {
            each.its.tick();
         }
      }
      slot = (slot + 1) % slots;
   });
   Every tell(second, [&] { writeStatus(switches, connection, change.missed(), changing); });
   loop.add(commands);
   loop.add(change);
   loop.add(tell);
   while (!commands.ended()) {
      loop.turn(-1);
   }
   for (Published const& each : switches) {
      loop.remove(each.publisher);
   }
}

}  // namespace FleetLoad

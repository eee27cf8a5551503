// How long a new mirror takes to load a fleet, and what it needs.
#include <benchmark/benchmark.h>

#include <fstream>

#include "Fleet/Mirror.h"
#include "Fleet/NatsServer.test.h"
#include "Fleet/Publisher.h"
#include "Holt/Client.h"
#include "tools/demoAgent/Agent.h"

namespace Fleet::Test {

namespace {

/// Bytes of memory of this process.
double ownMemory() {
   std::ifstream file("/proc/self/statm");
   double pages = 0;
   file >> pages >> pages;
   return pages * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

struct Published {
   Published(Connection& connection, U32 number)
         : status(static_cast<Ptp::Status*>(&*Holt::newRoot("Ptp::Status", "ptp/status"))),
           publisher(connection, {.switchName = "edge-" + std::to_string(number)}) {
      DemoAgent::Agent(status, 64, number).fill();
      publisher.rootAdd(status);
      publisher.sourceIs(true, 1, "");
   }
   bool done() const {
      Publisher::Status const now = publisher.status();
      return now.publishing && now.pending == 0 && now.inFlight == 0;
   }

   Sarn::Ptr<Ptp::Status> status;
   Publisher publisher;
};

/// Switches of 64 ports, from an empty mirror until all are complete and current.
void loadFleet(benchmark::State& state) {
   if (!NatsServer::isInstalled()) {
      state.SkipWithError("nats-server is not installed");
      return;
   }
   NatsServer const server;
   auto const count = static_cast<U32>(state.range(0));
   Holt::Loop loop;
   Connection writing({.urls = {server.url()}});
   loop.add(writing);
   double const before = ownMemory();
   std::list<Published> switches;
   for (U32 i = 0; i != count; ++i) {
      loop.add(switches.emplace_back(writing, i).publisher);
   }
   double const sources = ownMemory() - before;
   for (bool done = false; !done;) {
      loop.turn(-1, std::chrono::milliseconds(100));
      done = true;
      for (Published const& each : switches) {
         done = done && each.done();
      }
   }
   double entities = 0;
   double mirrors = 0;
   for (auto _ : state) {
      double const empty = ownMemory();
      Connection reading({.urls = {server.url()}});
      Mirror mirror(reading, {});
      loop.add(reading);
      loop.add(mirror);
      std::size_t current = 0;
      while (current != count) {
         loop.turn(-1, std::chrono::milliseconds(100));
         current = 0;
         for (auto const& [name, its] : mirror.switches()) {
            current += its->status().current ? 1 : 0;
         }
      }
      loop.remove(reading);
      loop.remove(mirror);
      state.PauseTiming();
      mirrors = std::max(mirrors, ownMemory() - empty);
      entities = 0;
      for (auto const& [name, its] : mirror.switches()) {
         entities += static_cast<double>(its->entities());
      }
      state.ResumeTiming();
   }
   for (Published const& each : switches) {
      loop.remove(each.publisher);
   }
   state.counters["entities"] = entities;
   state.counters["entities/s"] = benchmark::Counter(
         entities * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
   state.counters["sourceKB"] = sources / 1000 / count;
   state.counters["mirrorKB"] = mirrors / 1000 / count;
}

BENCHMARK(loadFleet)
      ->Arg(10)
      ->Arg(200)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime()
      ->Iterations(1);

}  // namespace

}  // namespace Fleet::Test

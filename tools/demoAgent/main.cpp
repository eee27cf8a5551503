// demoAgent: serves a status that it fills and changes as a PTP agent would. In real time, a second
// takes a second. For `./dev demo` and for tests it plays a number of seconds at once: it begins
// when a reader has everything, says when the reader has all changes, and then changes nothing
// more.
#include <chrono>
#include <ctime>
#include <iostream>
#include <limits>
#include <optional>

#include "Holt/File.h"
#include "Holt/Loop.h"
#include "Holt/Server.h"
#include "Holt/State/Dump.h"
#include "Holt/StopSignals.h"
#include "Kiv/Printable.h"
#include "tools/demoAgent/Agent.h"
#include "tools/shared/CommandLine.h"
#include "tools/shared/Contribution.h"

namespace {

using DemoAgent::Agent;
using Clock = std::chrono::steady_clock;

struct Options {
   std::string socket;
   std::string statedb;
   std::string dump;
   U32 ports = 64;
   U32 seconds = 0;
   bool instant = false;
   U32 seed = 1;
};

/// Counts the changes published in a tree.
class Count final : public Kiv::Observer {
public:
   explicit Count(Sarn::Ptr<Kiv::Entity> root) : root_(std::move(root)) {
      root_->observerAdd(*this, Kiv::Scope::subtree);
   }
   ~Count() { root_->observerDel(*this, Kiv::Scope::subtree); }
   Count(Count const&) = delete;
   Count& operator=(Count const&) = delete;

   void onChange(Kiv::Change const&) override { ++changes_; }
   U64 changes() const noexcept { return changes_; }

private:
   Sarn::Ptr<Kiv::Entity> root_;
   U64 changes_ = 0;
};

/// Waits until `done()`, or until the process is told to stop; then returns false.
template <class Done>
bool waitUntil(Holt::Loop& loop, int stopFd, Done&& done) {
   while (!done()) {
      if (loop.turn(stopFd)) {
         return false;
      }
   }
   return true;
}

/// Serves for a second. Returns false if the process is told to stop.
bool serveASecond(Holt::Loop& loop, int stopFd, Clock::time_point end) {
   for (;;) {
      auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
      if (left.count() <= 0) {
         return true;
      }
      if (loop.turn(stopFd, left)) {
         return false;
      }
   }
}

/// Simulates until the time is over or the process is told to stop, and prints what it did. Returns
/// false if it was told to stop.
bool play(Options const& options, Agent& agent, Sarn::Ptr<Ptp::Status> const& status,
          Holt::Server& server, Holt::Loop& loop, int stopFd) {
   auto const before = server.total();
   Count const count(status);
   U32 const seconds = options.seconds != 0 ? options.seconds
                       : options.instant    ? 300
                                            : std::numeric_limits<U32>::max();
   U32 second = 0;
   bool goesOn = true;
   Clock::time_point next = Clock::now();
   for (; goesOn && second != seconds; ++second) {
      if (!options.instant) {
         agent.timeIs(static_cast<Kiv::Seconds>(std::time(nullptr)));
      }
      agent.tick();
      next += std::chrono::seconds(1);
      goesOn = options.instant ? !loop.turn(stopFd, std::chrono::milliseconds::zero())
                               : serveASecond(loop, stopFd, next);
   }
   server.sync();
   goesOn = goesOn && waitUntil(loop, stopFd, [&server] { return server.synced(); });
   auto const after = server.total();
   // What a reader gets that comes meanwhile is more than the changes.
   std::cout << "made " << count.changes() << " changes in " << second << " played seconds; sent "
             << after.messagesOut - before.messagesOut << " messages and "
             << after.bytesOut - before.bytesOut << " bytes to its readers" << std::endl;
   return goesOn;
}

void run(Options const& options) {
   auto const status = Ptp::statusFactory("ptp/status");
   Agent agent(status, options.ports, options.seed);
   agent.fill();
   {
      Holt::StopSignals const stop;
      Holt::Server server(
            {.socket = options.socket, .writers = Holt::Writers::nobody("the agent's own")});
      server.rootIs(status);
      Holt::Loop loop;
      loop.add(server);
      std::optional<Tools::Contribution> contribution;
      if (!options.statedb.empty()) {
         contribution.emplace(options.statedb, status);
         loop.add(*contribution);
      }
      std::cout << "serving " << status->nameString() << " with " << status->portDSCount()
                << " ports" << std::endl;
      auto const confirmed = [&server] { return server.synced(); };
      bool const begins = !options.instant ||
                          (waitUntil(loop, stop.fd(), [&server] { return server.isMirrored(); }) &&
                           (server.sync(), waitUntil(loop, stop.fd(), confirmed)));
      if (begins && play(options, agent, status, server, loop, stop.fd())) {
         loop.run(stop.fd());
      }
   }
   if (!options.dump.empty()) {
      Holt::writeWholeFile(options.dump,
                           [&status](std::ostream& out) { Holt::dumpRoots(out, {status.get()}); });
   }
}

}  // namespace

int main(int argc, char** argv) {
   Tools::Program program(
         "demoAgent",
         "Simulates a PTP agent: serves a status that it fills and changes in real time.");
   Tools::Command const& command = program.command();
   Options options;
   Tools::addListenOption(command, options.socket);
   command.option("--ports", options.ports, "How many ports (64)").range(3, 4096);
   command.option("--seconds", options.seconds,
                  "How many seconds to simulate; by default, until it is interrupted, and with "
                  "--instant 300");
   command.flag("--instant", options.instant,
                "Wait until a reader has everything, and then simulate all seconds at once");
   command.option("--seed", options.seed, "Seed of the random numbers (1)");
   command.option("--statedb", options.statedb, "Keep the status at this server, too")
         .placeholder("SOCKET");
   command.option("--dump", options.dump, "At the end, write a dump; - for standard output")
         .placeholder("FILE");
   return Tools::runProgram(program, argc, argv, [&options] { run(options); });
}

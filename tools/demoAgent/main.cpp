// demoAgent: serves a status that it fills and changes, for `./dev demo`. Says when its reader has
// everything; then it keeps still until it is interrupted.
#include <poll.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <list>

#include "Kiv/NboAttrLogConnection.h"
#include "tools/demoAgent/Agent.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/Signals.h"
#include "tools/ptpstate/Socket.h"

namespace {

using Ptpstate::Exit;
using Ptpstate::Failure;

struct Options {
   std::string socket;
   std::string dump;
   U32 ports = 64;
   U32 seconds = 300;
   U32 seed = 1;
};

/// Counts what is published in a tree.
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

/// The loop of a process that owns a tree: one listening socket, any number of readers.
class Loop final : Kiv::NboAttrLog::SessionListener {
public:
   Loop(std::string const& socket, Sarn::Ptr<Kiv::NamedEntity> const& root) : listener_(socket) {
      hub_.rootIs(root);
   }

   /// Waits for so many milliseconds at most (-1: for ever) and does what there is to do.
   /// Notes when the process is told to end.
   void turn(int timeout) {
      std::vector<pollfd> polled = {{stop_.fd(), POLLIN, 0}, {listener_.fd(), POLLIN, 0}};
      for (auto const& connection : connections_) {
         polled.push_back({connection.fd(), connection.events(), 0});
      }
      if (::poll(polled.data(), polled.size(), timeout) < 0) {
         return;
      }
      if (polled[0].revents != 0) {
         stopped_ = true;
         return;
      }
      std::size_t i = 2;
      for (auto& connection : connections_) {
         connection.onReady(polled[i++].revents);
      }
      connections_.remove_if([](auto const& connection) { return connection.done(); });
      bool exhausted = false;
      for (int fd = -1; polled[1].revents != 0 && (fd = listener_.accept(exhausted)) >= 0;) {
         connections_.emplace_back(hub_, fd, static_cast<Kiv::NboAttrLog::SessionListener*>(this));
      }
   }
   bool stopped() const noexcept { return stopped_; }

   /// Waits until a reader has all that there is, or the process is told to end.
   void waitForReader() {
      while (!stopped_ && (connections_.empty() || mounted() == 0)) {
         turn(-1);
      }
      waitSynced();
   }
   /// Waits until all readers have applied all changes.
   void waitSynced() {
      synced_ = 0;
      for (auto& connection : connections_) {
         connection.session().syncIs(1);
         connection.flush();
      }
      while (!stopped_ && synced_ < connections_.size()) {
         turn(-1);
      }
   }
   Kiv::NboAttrLog::SessionStats total() const {
      Kiv::NboAttrLog::SessionStats sum;
      for (auto const& connection : connections_) {
         sum.messagesOut += connection.session().stats().messagesOut;
         sum.bytesOut += connection.session().stats().bytesOut;
      }
      return sum;
   }

private:
   void onSynced(Kiv::NboAttrLog::Session&, U32) override { ++synced_; }
   /// Readers that have been told of the root: more than the greeting has gone out.
   std::size_t mounted() const {
      std::size_t count = 0;
      for (auto const& connection : connections_) {
         count += connection.session().stats().messagesOut > 10 && connection.session().upToDate();
      }
      return count;
   }

   Ptpstate::StopSignals stop_;
   Ptpstate::Listener listener_;
   Kiv::NboAttrLog::Hub hub_;
   std::list<Kiv::NboAttrLog::FdConnection> connections_;
   std::size_t synced_ = 0;
   bool stopped_ = false;
};

void run(Options const& options) {
   auto const status = Ptp::statusFactory("ptp/status");
   DemoAgent::Agent agent(status, options.ports, options.seed);
   agent.fill();
   Loop loop(options.socket, status);
   std::cout << "serving " << status->nameString() << " with " << status->portDSCount() << " ports"
             << std::endl;
   loop.waitForReader();
   {
      auto const before = loop.total();
      Count const count(status);
      U32 second = 0;
      for (; second != options.seconds && !loop.stopped(); ++second) {
         agent.tick();
         loop.turn(0);
      }
      loop.waitSynced();
      std::cout << "made " << count.changes() << " changes in " << second
                << " played seconds; mirrored in " << loop.total().messagesOut - before.messagesOut
                << " messages and " << loop.total().bytesOut - before.bytesOut << " bytes"
                << std::endl;
   }
   while (!loop.stopped()) {
      loop.turn(-1);
   }
   if (!options.dump.empty()) {
      Ptpstate::writeFile(options.dump, [&status](std::ostream& out) {
         Ptpstate::dumpRoots(out, {status.get()});
      });
   }
}

}  // namespace

int main(int argc, char** argv) {
   CLI::App app{"Plays a PTP agent: serves a status that it fills and changes.", "demoAgent"};
   Options options;
   Ptpstate::addSocketOption(app, options.socket);
   app.add_option("--ports", options.ports, "How many ports (64)")->check(CLI::Range(3, 4096));
   app.add_option("--seconds", options.seconds, "How many seconds to play (300)");
   app.add_option("--seed", options.seed, "What chance begins with (1)");
   app.add_option("--dump", options.dump, "At the end, write a dump; - for standard output")
         ->type_name("FILE");
   try {
      app.parse(argc, argv);
      run(options);
      return 0;
   } catch (CLI::ParseError const& error) {
      return app.exit(error) == 0 ? 0 : static_cast<int>(Exit::usage);
   } catch (Failure const& error) {
      std::cerr << "demoAgent: " << error.what() << std::endl;
      return static_cast<int>(error.status());
   } catch (std::exception const& error) {
      std::cerr << "demoAgent: internal error: " << error.what() << std::endl;
      return 4;
   }
}

// demoAgent: serves a status that it fills and changes, for `./dev demo`. Says when its reader has
// everything; then it keeps still until it is interrupted.
#include <poll.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <list>

#include "Holt/Failure.h"
#include "Holt/Socket.h"
#include "Holt/State/Dump.h"
#include "Holt/StopSignals.h"
#include "Kiv/NboAttrLogConnection.h"
#include "Kiv/Printable.h"
#include "tools/demoAgent/Agent.h"
#include "tools/shared/CommandLine.h"

namespace {

using Holt::Exit;
using Holt::Failure;

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

/// The loop of a process that owns a tree: one listening socket, any number of readers, no writer.
class Loop {
public:
   Loop(std::string const& socket, Sarn::Ptr<Kiv::NamedEntity> const& root) : listener_(socket) {
      hub_.rootIs(root);
   }

   /// Waits for so many milliseconds at most (-1: for ever) and does what there is to do.
   /// Notes when the process is told to end.
   void turn(int timeout) {
      std::vector<pollfd> polled = {{stop_.fd(), POLLIN, 0}, {listener_.fd(), POLLIN, 0}};
      for (Reader const& reader : readers_) {
         polled.push_back({reader.connection.fd(), reader.connection.events(), 0});
      }
      if (::poll(polled.data(), polled.size(), timeout) < 0) {
         return;
      }
      if (polled[0].revents != 0) {
         stopped_ = true;
         return;
      }
      std::size_t i = 2;
      for (Reader& reader : readers_) {
         reader.connection.onReady(polled[i++].revents);
      }
      readers_.remove_if([this](Reader const& reader) {
         if (reader.connection.done()) {
            add(gone_, reader);
         }
         return reader.connection.done();
      });
      bool exhausted = false;
      for (int fd = -1; polled[1].revents != 0 && (fd = listener_.accept(exhausted)) >= 0;) {
         readers_.emplace_back(hub_, fd);
      }
   }
   bool stopped() const noexcept { return stopped_; }

   /// Waits until a reader has all that there is, or the process is told to end.
   void waitForReader() {
      while (!stopped_ && std::none_of(readers_.begin(), readers_.end(),
                                       [](Reader const& reader) { return reader.isTold(); })) {
         turn(-1);
      }
      waitSynced();
   }
   /// Waits until all readers that there are now, and stay, have applied all changes.
   void waitSynced() {
      for (Reader& reader : readers_) {
         reader.synced = false;
         reader.connection.session().syncIs(1);
         reader.connection.flush();
      }
      while (!stopped_ && !std::all_of(readers_.begin(), readers_.end(),
                                       [](Reader const& reader) { return reader.synced; })) {
         turn(-1);
      }
   }
   /// What has been sent to all readers, those that are gone included.
   Kiv::NboAttrLog::SessionStats total() const {
      Kiv::NboAttrLog::SessionStats all = gone_;
      for (Reader const& reader : readers_) {
         add(all, reader);
      }
      return all;
   }

private:
   struct Reader final : Kiv::NboAttrLog::SessionListener {
      Reader(Kiv::NboAttrLog::Hub& hub, int fd) : connection(hub, fd, this) {}

      Sarn::String onMountAsked(Kiv::NboAttrLog::Session&, Kiv::NamedEntity const& root,
                                Kiv::NboAttrLog::MountMode mode) override {
         return writesBack(mode) ? root.nameString() + " is the agent's own; it may only be read"
                                 : Sarn::String();
      }
      void onSynced(Kiv::NboAttrLog::Session&, U32) override { synced = true; }
      /// Whether it has been told of the root: more than the greeting has gone out.
      bool isTold() const {
         Kiv::NboAttrLog::Session const& session = connection.session();
         return session.stats().messagesOut > 10 && session.upToDate();
      }

      Kiv::NboAttrLog::FdConnection connection;
      /// One that has come since it was last asked for has nothing to wait for.
      bool synced = true;
   };

   static void add(Kiv::NboAttrLog::SessionStats& sum, Reader const& reader) {
      sum.messagesOut += reader.connection.session().stats().messagesOut;
      sum.bytesOut += reader.connection.session().stats().bytesOut;
   }

   Holt::StopSignals stop_;
   Holt::Listener listener_;
   Kiv::NboAttrLog::Hub hub_;
   std::list<Reader> readers_;
   Kiv::NboAttrLog::SessionStats gone_;
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
      Tools::writeFile(options.dump,
                       [&status](std::ostream& out) { Holt::dumpRoots(out, {status.get()}); });
   }
}

}  // namespace

int main(int argc, char** argv) {
   CLI::App app{"Plays a PTP agent: serves a status that it fills and changes.", "demoAgent"};
   Options options;
   Tools::addSocketOption(app, options.socket);
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
      std::cerr << "demoAgent: " << Kiv::printable(error.what()) << std::endl;
      return static_cast<int>(error.status());
   } catch (std::exception const& error) {
      std::cerr << "demoAgent: internal error: " << Kiv::printable(error.what()) << std::endl;
      return 4;
   }
}

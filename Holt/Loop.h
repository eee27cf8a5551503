// The loop of a process with one thread: waits in poll() for everything that its parts wait for.
#pragma once

#include <poll.h>

#include <chrono>
#include <span>
#include <vector>

#include "Holt/Times.h"

namespace Holt {

/// A part of a program that waits for descriptors or for a time: a `Server`, a `Client`, or one of
/// your own.
class Source {
public:
   /// Called before each wait: sends what can be sent at once, and appends the descriptors to wait
   /// for. One that is -1 keeps its place and is not waited for.
   virtual void appendTo(std::vector<pollfd>& polled) = 0;
   /// When there is something to do even if no descriptor is ready, by the loop's clock; 0: never.
   virtual U64 deadline() const { return 0; }
   /// Called after each wait, whatever has ended it. `polled`: what `appendTo` has appended, with
   /// the events that have come.
   virtual void onTurn(std::span<pollfd const> polled) = 0;

protected:
   ~Source() = default;
};

/// Serves sources in turns.
///
///     Holt::StopSignals stop;
///     Holt::Server server({.socket = "/run/ptp.sock"});
///     server.rootIs(status);
///     Holt::Loop loop;
///     loop.add(server);
///     loop.run(stop.fd());
///
/// Ownership: holds no source; each is removed before it is destroyed.
/// Threads: a loop and its sources belong to one thread.
class Loop {
public:
   /// Time without a limit.
   static constexpr std::chrono::milliseconds forever{-1};

   /// `clock`: nanoseconds that never go back, as `Source::deadline` gives them.
   explicit Loop(U64 (*clock)() noexcept = &steadyNow) : clock_(clock) {}
   Loop(Loop const&) = delete;
   Loop& operator=(Loop const&) = delete;

   /// Serves a source from the next turn on.
   void add(Source& source) { sources_.push_back({&source, 0}); }
   /// Serves it no longer. May be called by a source in its turn, for itself or another.
   void remove(Source const& source) noexcept;

   /// Waits until something is ready or a deadline has come, `most` at most, and serves all
   /// sources. Whether `stopFd` is readable; then nothing is served. -1 for none. Throws `Failure`
   /// if poll() does. What a source throws comes out here, and the sources after it are served next
   /// time.
   bool turn(int stopFd, std::chrono::milliseconds most = forever);
   /// Takes turns until `stopFd` is readable.
   void run(int stopFd) {
      while (!turn(stopFd)) {
      }
   }

private:
   struct Served {
      /// Null once it has been removed.
      Source* source;
      /// How many descriptors it has appended for this turn.
      std::size_t count;
   };

   /// Milliseconds to wait, as poll() takes them.
   int timeout(std::chrono::milliseconds most) const;

   U64 (*clock_)() noexcept;
   std::vector<Served> sources_;
   std::vector<pollfd> polled_;
};

}  // namespace Holt

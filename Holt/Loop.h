// The event loop of a single-threaded process, built on poll().
#pragma once

#include <poll.h>

#include <chrono>
#include <span>
#include <vector>

#include "Holt/Times.h"

namespace Holt {

/// A part of a program that waits for descriptors or for a deadline: a `Server`, a `Client`, or
/// your own.
class Source {
public:
   /// Called before each wait: sends what can be sent at once, and appends the descriptors to wait
   /// for. A descriptor of -1 keeps its place, but poll() ignores it.
   virtual void appendTo(std::vector<pollfd>& polled) = 0;
   /// When the source must be called even if no descriptor is ready, by the loop's clock; 0: never.
   virtual U64 deadline() const { return 0; }
   /// Called after each wait, whatever has ended it. `polled`: what `appendTo` appended, with the
   /// events.
   virtual void onTurn(std::span<pollfd const> polled) = 0;

protected:
   ~Source() = default;
};

/// Serves its sources in turn.
///
///     Holt::StopSignals stop;
///     Holt::Server server({.socket = "/run/ptp.sock"});
///     server.rootIs(status);
///     Holt::Loop loop;
///     loop.add(server);
///     loop.run(stop.fd());
///
/// Ownership: does not own its sources. REQUIRES: each is removed before it is destroyed.
/// Threads: a loop and its sources belong to one thread.
class Loop {
public:
   /// No limit.
   static constexpr std::chrono::milliseconds forever{-1};

   /// `clock`: nanoseconds that never go back, as `Source::deadline` gives them.
   explicit Loop(U64 (*clock)() noexcept = &steadyNow) : clock_(clock) {}
   Loop(Loop const&) = delete;
   Loop& operator=(Loop const&) = delete;

   /// Adds a source, which is served from the next turn on.
   void add(Source& source) { sources_.push_back({&source, 0}); }
   /// Removes a source. A source may call this in its turn, for itself or for another.
   void remove(Source const& source) noexcept;

   /// Waits until a descriptor is ready or a deadline has passed, for `most` at most, and serves
   /// all sources. Returns true, without serving them, if `stopFd` (-1: none) is readable. Throws
   /// `Failure` if poll() fails. An exception of a source passes through; the sources after it are
   /// served in the next turn.
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
      /// How many descriptors it appended for this turn.
      std::size_t count;
   };

   /// Milliseconds to wait, as poll() takes them.
   int timeout(std::chrono::milliseconds most) const;

   U64 (*clock_)() noexcept;
   std::vector<Served> sources_;
   std::vector<pollfd> polled_;
};

}  // namespace Holt

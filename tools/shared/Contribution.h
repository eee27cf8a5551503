#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "Holt/Client.h"
#include "Holt/Loop.h"
#include "Holt/State/Twin.h"

namespace Tools {

/// Keeps a root of a server equal to a root of this process, for as long as the program runs: the
/// state of this process is shown where all states of the machine are kept. It claims the root, so
/// nobody else writes it meanwhile. When the connection is lost, or the server refuses, it tries
/// again; what has changed by then is sent, and nothing else.
///
///     Contribution status("/run/statedb.sock", agentStatus);
///     loop.add(status);
///
/// The own root never changes through this: what the server held before is overwritten.
/// It never waits. Memory: a second copy of the root while connected.
/// Threads: belongs to the thread of its loop.
class Contribution final : public Holt::Source, Kiv::NboAttrLog::SessionListener {
public:
   struct Options {
      /// Nanoseconds from a failure to the next attempt; it doubles up to `longestPause`.
      U64 pause = 100'000'000;
      U64 longestPause = 2'000'000'000;
      /// Measures these times; must be the clock of the loop.
      U64 (*clock)() noexcept = &Holt::steadyNow;
   };

   /// `own`: the server must offer a root of its type and name.
   Contribution(Sarn::String socket, Sarn::Ptr<Kiv::NamedEntity> own, Options options);
   Contribution(Sarn::String socket, Sarn::Ptr<Kiv::NamedEntity> own)
         : Contribution(std::move(socket), std::move(own), Options{}) {}
   ~Contribution();
   Contribution(Contribution const&) = delete;
   Contribution& operator=(Contribution const&) = delete;

   /// Whether the server has the state of this process, but for what is still on its way.
   bool current() const noexcept { return twin_.has_value(); }
   /// What the last attempt failed of; printable, empty if it is current.
   Sarn::String const& reason() const noexcept { return reason_; }
   /// Called when `current()` or `reason()` has changed, from within the turn.
   std::function<void(Contribution const&)> onStatus;

   Kiv::NamedEntity& own() const noexcept { return *own_; }

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override;
   U64 deadline() const override;
   void onTurn(std::span<pollfd const> polled) override;

private:
   struct Link;

   void connect();
   void lost(Sarn::String const& reason);
   void statusIs(Sarn::String const& reason);
   U64 now() const noexcept { return options_.clock(); }

   Sarn::String socket_;
   Sarn::Ptr<Kiv::NamedEntity> own_;
   Options options_;
   std::unique_ptr<Link> link_;
   /// From the own root to the mirror of the server's, while that is complete.
   std::optional<Holt::Twin> twin_;
   Sarn::String reason_;
   U64 pause_;
   U64 connectAt_;
};

}  // namespace Tools

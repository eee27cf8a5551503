#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "Holt/Client.h"
#include "Holt/Loop.h"

namespace Tools {

/// Mirrors every root that a server offers, for as long as the program runs. When the connection is
/// lost, it keeps the last state, says since when it is old, and connects again; then the same
/// mirrors are brought up to date, and their observers see what has changed meanwhile.
///
///     Feed feed("/run/ptpstate.sock");
///     loop.add(feed);
///     if (feed.status().current) { ... feed.root("Ptp::Status") ... }
///
/// It never waits: not for a server that is too busy to accept, nor for one that does not answer.
/// Threads: belongs to the thread of its loop.
class Feed final : public Holt::Source, Kiv::NboAttrLog::SessionListener {
public:
   struct Options {
      /// Path of the server's socket.
      Sarn::String socket;
      /// Nanoseconds between two questions whether the server still answers.
      U64 probe = 1'000'000'000;
      /// Nanoseconds without an answer after which the state counts as old.
      U64 silence = 5'000'000'000;
      /// Nanoseconds from losing a connection to the first attempt; it doubles up to
      /// `longestPause`.
      U64 pause = 100'000'000;
      U64 longestPause = 2'000'000'000;
      /// Nanoseconds between two questions for the roots that the server offers.
      U64 rootsEvery = 10'000'000'000;
      /// Which roots to mirror; all if empty.
      std::function<bool(Holt::OfferedRoot const&)> wanted = {};
      /// Measures these times; must be the clock of the loop.
      U64 (*clock)() noexcept = &Holt::steadyNow;
   };

   struct Status {
      /// Whether the server answers, and all mirrors are complete that have been so before; on the
      /// first connection, all. A root that the server offers later, or refuses, changes nothing.
      bool current = false;
      /// Wall time, in nanoseconds since 1970, since when `current` is what it is.
      U64 since = 0;
      /// Why it is not current; printable, empty if it is.
      Sarn::String reason;
      /// Wall time, in nanoseconds since 1970, at which the process was started that serves the
      /// state; if that is not known, when it was first connected. 0 before it has been current.
      U64 start = 0;
      /// Changes of all mirrors since this program has begun, without those that filled the mirrors
      /// for the first time.
      U64 changes = 0;
      /// How often a connection has been made.
      U64 connections = 0;
   };

   explicit Feed(Options options);
   explicit Feed(Sarn::String socket) : Feed(Options{.socket = std::move(socket)}) {}
   ~Feed();
   Feed(Feed const&) = delete;
   Feed& operator=(Feed const&) = delete;

   Options const& options() const noexcept { return options_; }
   Status const& status() const noexcept { return status_; }
   /// The mirrors, in the order in which the server offers their roots, whether or not they are
   /// up to date. Those that have never been complete are not among them.
   std::vector<Kiv::NamedEntity*> roots() const;
   /// Roots that are wanted and cannot be mirrored, with the reason, printable: "NAME: ...". Beyond
   /// 60, which leaves a session room for its questions, no more are mirrored.
   std::vector<Sarn::String> leftOut() const;

   /// What follows the state. Calls come from within the turn of the feed.
   class Listener {
   public:
      /// `current` or `start` has changed.
      virtual void onStatus(Status const&) {}
      /// A mirror is complete for the first time. From here on, every change is a change.
      virtual void onRoot(Sarn::Ptr<Kiv::NamedEntity> const& root) { (void)root; }
      /// The server offers a root no longer. It is not among `roots()` any more.
      virtual void onRootGone(Kiv::NamedEntity& root) { (void)root; }

   protected:
      ~Listener() = default;
   };

   /// Tells a listener of everything from here on, and of the roots so far.
   void listenerAdd(Listener& listener);
   void listenerDel(Listener& listener) noexcept;

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override;
   U64 deadline() const override;
   void onTurn(std::span<pollfd const> polled) override;

private:
   struct Mirror;
   /// A connection with a hub of its own.
   struct Link;

   void onMount(Kiv::NboAttrLog::Session& session, Holt::Mount& mount) override;
   void onSynced(Kiv::NboAttrLog::Session& session, U32 token) override;
   void onRoots(Kiv::NboAttrLog::Session& session,
                std::vector<Holt::OfferedRoot> const& roots) override;

   U64 now() const noexcept { return options_.clock(); }
   void connect();
   void lost(Sarn::String const& reason);
   void probe();
   void review();
   Sarn::String whyNotCurrent() const;
   void statusIs(bool current, Sarn::String const& reason);
   void mirror(Holt::OfferedRoot const& root);
   void drop(Mirror& mirror);

   Options options_;
   Status status_;
   /// Roots that have no mirror.
   std::vector<Sarn::String> leftOut_;
   std::vector<Listener*> listeners_;
   std::vector<std::unique_ptr<Mirror>> mirrors_;
   std::unique_ptr<Link> link_;
   /// Whether the server has told what it offers, on this connection.
   bool rootsKnown_ = false;
   /// When to connect, if there is no connection.
   U64 connectAt_ = 0;
   U64 pause_;
   /// When to ask next, for an answer and for the roots.
   U64 probeAt_ = 0;
   U64 rootsAt_ = 0;
   /// When the question was sent that has no answer yet; 0 if all have one.
   U64 asked_ = 0;
   U32 token_ = 0;
   /// The process at the other end; 0 if it is not known.
   U32 pid_ = 0;
};

}  // namespace Tools

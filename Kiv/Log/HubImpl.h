#pragma once

#include "Kiv/Log/Clock.h"
#include "Kiv/Log/RootWatcher.h"
#include "Kiv/NboAttrLogHub.h"
#include "Kiv/NboAttrLogMount.h"

namespace Kiv::NboAttrLog {

/// The implementation of a hub: what its sessions share, and the roots that they mirror.
///
///     Handles      of entities        Ring        Limits, Clock, ByteBudget
///     held roots   | RootWatcher, users, offered |  ...
///     sessions     | oldest | ... |
///
/// Invariants:
/// - a root is held as long as it is offered or mounted; only the hub counts;
/// - the entities below held roots have handles, except those that were just made.
class Hub::Impl final : Handles::Listener {
public:
   explicit Impl(Limits const& limits);
   ~Impl();
   Impl(Impl const&) = delete;
   Impl& operator=(Impl const&) = delete;

   Limits const& limits() const noexcept { return limits_; }
   Clock& clock() noexcept { return clock_; }
   ByteBudget& budget() noexcept { return budget_; }
   Ring& ring() noexcept { return ring_; }
   Handles& handles() noexcept { return handles_; }
   Applying& applying() noexcept { return applying_; }

   /// Adds a session and returns its number; numbers begin at 1.
   U64 add(Session& session);
   void remove(Session const& session) noexcept { std::erase(sessions_, &session); }
   std::vector<Session*> const& sessions() const noexcept { return sessions_; }

   /// Holds a root for one more user. `subscriber`, if not null, is notified of changes below it.
   RootWatcher& hold(Sarn::Ptr<NamedEntity> const& root, bool offered, Teller* subscriber);
   /// Adds a user to a root that is held already.
   void hold(RootWatcher& watcher) noexcept { ++heldOf(watcher).users; }
   /// Releases a root for one user. When the last one has gone, everything below it loses its
   /// handle.
   void release(RootWatcher& watcher);
   RootWatcher* find(std::string_view type, std::string_view name) const noexcept;
   RootWatcher* findOffered(std::string_view type, std::string_view name) const noexcept;
   /// The session whose mount of the root rules out another one in this mode; null if there is
   /// none.
   Session const* inTheWay(RootWatcher const& watcher, MountMode mode) const noexcept;
   /// Who claims the root may have changed: lets the best candidate lead if nobody does, sets
   /// whether the root is stale, and tells those that mirror it. `anyway`: even if nothing has
   /// changed.
   void elect(RootWatcher const& watcher, bool anyway);
   void staleIs(NamedEntity const& root, bool stale, U64 since);
   /// What is known of who claims a root.
   struct Claim {
      /// Whether anybody has ever claimed it.
      bool ever = false;
      bool stale = false;
      U64 since = 0;
   };
   Claim const* claim(NamedEntity const& root) const noexcept;
   void wallIs(U64 (*wall)() noexcept) noexcept { wall_ = wall; }
   /// Withdraws an offered root and tells the peers that mirror it. Null if there is no such root.
   Sarn::Ptr<NamedEntity> withdraw(std::string_view type, std::string_view name);
   std::vector<NamedEntity*> offered() const;

   void batchBegin() noexcept;
   void batchEnd() noexcept;
   /// How many batches have begun and not ended.
   U32 batches() const noexcept { return batches_; }

   U64 deadline() const noexcept;
   void expire();

private:
   struct Held {
      std::unique_ptr<RootWatcher> watcher;
      bool offered = false;
      /// The mounts, plus one if it is offered.
      U32 users = 0;
      Claim claim;
   };

   Held const* findHeld(std::string_view type, std::string_view name) const noexcept;
   /// Whether nobody waits for the lead, or else when the leader must have been heard.
   U64 leaderDeadline(RootWatcher const& watcher) const noexcept;
   void watchLeader(RootWatcher const& watcher, U64 time);
   Session* leaderOf(RootWatcher const& watcher) const noexcept;
   bool anyWaits(RootWatcher const& watcher) const noexcept;
   Held& heldOf(RootWatcher const& watcher) noexcept;
   void onGone(Entity& entity, U32 handle) override;

   Limits const limits_;
   Clock clock_;
   ByteBudget budget_;
   Ring ring_;
   /// How far it was written at the last `expire`, and since when it has been.
   U64 ringHead_ = 0;
   U64 ringIdleSince_ = 0;
   Handles handles_;
   Applying applying_;
   std::vector<Held> held_;
   std::vector<Session*> sessions_;
   U64 sessionsMade_ = 0;
   U32 batches_ = 0;
   U64 (*wall_)() noexcept = nullptr;
};

}  // namespace Kiv::NboAttrLog

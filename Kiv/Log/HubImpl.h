#pragma once

#include "Kiv/Log/Clock.h"
#include "Kiv/Log/RootWatcher.h"
#include "Kiv/NboAttrLogCircularBuffer.h"
#include "Kiv/NboAttrLogHub.h"
#include "Kiv/NboAttrLogMount.h"

namespace Kiv::NboAttrLog {

/// The inside of a hub: what its sessions share, and the roots that they mirror.
///
///     Handles      numbers of entities            Limits, Clock, ByteBudget
///     held roots   | RootWatcher, users, offered |  ...
///     sessions     | oldest | ... |
///
/// Invariants:
/// - a root is held as long as it is offered or somebody mounts it; only the hub counts;
/// - the entities below held roots have numbers, but for those that were just made.
class Hub::Impl final : Handles::Listener {
public:
   explicit Impl(Limits const& limits);
   ~Impl();
   Impl(Impl const&) = delete;
   Impl& operator=(Impl const&) = delete;

   Limits const& limits() const noexcept { return limits_; }
   Clock& clock() noexcept { return clock_; }
   ByteBudget& budget() noexcept { return budget_; }
   Handles& handles() noexcept { return handles_; }
   Applying& applying() noexcept { return applying_; }

   /// Takes a session in, and returns its number: they are numbered from 1.
   U64 add(Session& session);
   void remove(Session const& session) noexcept { std::erase(sessions_, &session); }
   std::vector<Session*> const& sessions() const noexcept { return sessions_; }

   /// Holds a root for one more user; `subscriber`, if not null, is told of changes there.
   RootWatcher& hold(Sarn::Ptr<NamedEntity> const& root, bool offered, Teller* subscriber);
   /// The same for a root that is held already.
   void hold(RootWatcher& watcher) noexcept { ++heldOf(watcher).users; }
   /// Gives a root up for one user. The last one takes the numbers from all below it.
   void release(RootWatcher& watcher);
   RootWatcher* find(std::string_view type, std::string_view name) const noexcept;
   RootWatcher* findOffered(std::string_view type, std::string_view name) const noexcept;
   /// Who mounts the root in a way that does not go with such a mount of another; null if nobody.
   Session const* inTheWay(RootWatcher const& watcher, MountMode mode) const noexcept;
   /// Takes back the offer of a root, and tells the peers that mirror it. Null if there is none.
   Sarn::Ptr<NamedEntity> withdraw(std::string_view type, std::string_view name);
   std::vector<NamedEntity*> offered() const;

private:
   struct Held {
      std::unique_ptr<RootWatcher> watcher;
      bool offered = false;
      /// Mounts, and the offer.
      U32 users = 0;
   };

   Held const* findHeld(std::string_view type, std::string_view name) const noexcept;
   Held& heldOf(RootWatcher const& watcher) noexcept;
   void onGone(Entity& entity, U32 handle) override;

   Limits const limits_;
   Clock clock_;
   ByteBudget budget_;
   Handles handles_;
   Applying applying_;
   std::vector<Held> held_;
   std::vector<Session*> sessions_;
   U64 sessionsMade_ = 0;
};

}  // namespace Kiv::NboAttrLog

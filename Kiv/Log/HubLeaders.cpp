// Who claims the roots of a hub: which candidate leads, whether it is still there, and since when a
// root has no writer.
#include <algorithm>

#include "Kiv/Log/HubImpl.h"
#include "Kiv/Log/SessionImpl.h"

namespace Kiv::NboAttrLog {

namespace {

/// What the session serves of the root, if it claims it and can lead.
Served* claimOf(Session& session, RootWatcher const& watcher) {
   Served* const served = session.closed() ? nullptr : session.impl().served(watcher);
   return served != nullptr && claims(served->mode) ? served : nullptr;
}

}  // namespace

Session* Hub::Impl::leaderOf(RootWatcher const& watcher) const noexcept {
   auto const found = std::find_if(sessions_.begin(), sessions_.end(), [&](Session* session) {
      Served const* const served = claimOf(*session, watcher);
      return served != nullptr && !served->waits();
   });
   return found != sessions_.end() ? *found : nullptr;
}

bool Hub::Impl::anyWaits(RootWatcher const& watcher) const noexcept {
   return std::any_of(sessions_.begin(), sessions_.end(), [&](Session* session) {
      Served const* const served = claimOf(*session, watcher);
      return served != nullptr && served->waits() && !session->impl().silent();
   });
}

void Hub::Impl::elect(RootWatcher const& watcher, bool anyway) {
   Claim& claim = heldOf(watcher).claim;
   bool changed = anyway;
   bool leads = leaderOf(watcher) != nullptr;
   if (!leads) {
      Session* best = nullptr;
      for (Session* const session : sessions_) {
         Served const* const served = claimOf(*session, watcher);
         bool const may = served != nullptr && !session->impl().silent();
         if (may && (best == nullptr || served->priority < claimOf(*best, watcher)->priority)) {
            best = session;
         }
      }
      leads = best != nullptr;
      if (leads) {
         best->impl().leadsIs(*claimOf(*best, watcher), true);
         changed = true;
      }
   }
   claim.ever = claim.ever || leads;
   bool const stale = claim.ever && !leads;
   if (stale != claim.stale) {
      claim.stale = stale;
      claim.since = stale && wall_ != nullptr ? wall_() : 0;
      changed = true;
   }
   if (changed && claim.ever) {
      for (Session* const session : sessions_) {
         session->impl().tellWriters(watcher);
      }
   }
}

Hub::Impl::Claim const* Hub::Impl::claim(NamedEntity const& root) const noexcept {
   Held const* const held = findHeld(root.kivType().name, root.nameString());
   return held != nullptr && &held->watcher->root() == &root ? &held->claim : nullptr;
}

void Hub::Impl::staleIs(NamedEntity const& root, bool stale, U64 since) {
   if (claim(root) == nullptr) {
      return;
   }
   RootWatcher const& watcher = *find(root.kivType().name, root.nameString());
   if (leaderOf(watcher) == nullptr) {
      heldOf(watcher).claim = {stale, stale, since};
      for (Session* const session : sessions_) {
         session->impl().tellWriters(watcher);
      }
   }
}

/// A leader is asked for a sign of life only while others wait, a few times in `leaderSilence`.
U64 Hub::Impl::leaderDeadline(RootWatcher const& watcher) const noexcept {
   Session const* const leader = leaderOf(watcher);
   return leader != nullptr && anyWaits(watcher) ? leader->impl().lifeDeadline() : 0;
}

void Hub::Impl::watchLeader(RootWatcher const& watcher, U64 time) {
   Session* const leader = leaderOf(watcher);
   if (leader == nullptr || !anyWaits(watcher) ||
       claimOf(*leader, watcher)->mode != MountMode::candidate) {
      return;
   }
   if (leader->impl().askForLife(time)) {
      leader->impl().leadsIs(*claimOf(*leader, watcher), false);
      elect(watcher, true);
   }
}

}  // namespace Kiv::NboAttrLog

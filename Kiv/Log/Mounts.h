#pragma once

#include <deque>
#include <list>
#include <utility>

#include "Kiv/NboAttrLogMount.h"

namespace Kiv::NboAttrLog {

class RootWatcher;

/// A root of ours that the peer mirrors.
///
///     requested ---- replayBegin ----> begun ---- the walk has sent everything ----> walked
///        ---- changes made behind the walk are sent, too: replayEnd ----> ended
struct Served {
   RootWatcher* watcher;
   NamedEntity* root;
   U32 id;
   MountMode mode;
   bool begun = false;
   bool walked = false;
   bool ended = false;
   /// `replayEnd` waits until everything listed up to this `Backlog::sequence` has been sent.
   U64 endAfter = 0;
   /// Of a candidate; the smallest leads.
   U32 priority = 0;
   /// Whether it is the candidate that leads.
   bool leads = false;
   /// Whether it is a candidate that waits for the lead.
   bool waits() const noexcept { return mode == MountMode::candidate && !leads; }
};

/// What one session mirrors, in both directions: our roots at the peer, and the peer's roots here.
///
///     served:  ours ----> the peer's mirrors; a writer's changes come back
///     own:     the peer's ----> our mirrors;  our changes go back where we write
///
/// Invariants: a root is served at most once; a mount of ours keeps its number and its address.
class Mounts {
public:
   std::list<Served>& served() noexcept { return served_; }
   std::list<Served> const& served() const noexcept { return served_; }
   std::deque<Mount> const& own() const noexcept { return own_; }
   bool any() const noexcept { return !served_.empty() || !own_.empty(); }

   /// The served root that the watcher watches, or null.
   Served const* find(RootWatcher const& watcher) const noexcept;
   /// Whether the root above the entity is served.
   bool serves(Entity const& entity) const noexcept;
   /// Whether that root is served to a peer that writes to it.
   bool isWrittenByPeer(Entity const& entity) const noexcept;
   /// Whether the peer writes to any root.
   bool peerWrites() const noexcept;
   /// Whether there is a root that the peer may not change now, because another one leads; and
   /// whether it is the root above the entity.
   bool peerWaits() const noexcept { return waiting_ != 0; }
   bool peerWaits(Entity const& entity) const noexcept;
   /// Serves one more root.
   void add(Served const& served);
   void leadsIs(Served& served, bool leads) noexcept;
   std::list<Served>::iterator erase(std::list<Served>::iterator at) noexcept {
      waiting_ -= at->waits() ? 1 : 0;
      return served_.erase(at);
   }
   /// Takes out all that are served.
   std::list<Served> takeServed() noexcept;

   /// The mount, replaying or complete, whose mirror contains the entity; null if there is none.
   Mount const* followed(Entity const& entity) const noexcept;
   /// Whether changes of the entity go to the peer that serves it.
   bool writes(Entity const& entity) const noexcept;

   /// Adds a mount of ours; `withdraw` removes the last one.
   Mount& add(Sarn::Ptr<NamedEntity> const& root, MountMode mode);
   void withdraw() noexcept { own_.pop_back(); }
   /// The mount with this number, from 1; null if there is none.
   Mount* mount(U32 id) noexcept { return id != 0 && id <= own_.size() ? &own_[id - 1] : nullptr; }
   static U32 idOf(Mount const& mount) noexcept { return mount.id_; }
   static void stateIs(Mount& mount, Mount::State state) noexcept { mount.state_ = state; }
   static void reasonIs(Mount& mount, Sarn::String reason) noexcept {
      mount.reason_ = std::move(reason);
   }
   static void priorityIs(Mount& mount, U32 priority) noexcept { mount.priority_ = priority; }
   static void writersAre(Mount& mount, bool stale, U64 since,
                          std::vector<Writer> writers) noexcept {
      mount.stale_ = stale;
      mount.staleSince_ = since;
      mount.writers_ = std::move(writers);
   }
   static void tornIs(Mount& mount, bool torn) noexcept { mount.torn_ = torn; }
   /// Sets whether the hub holds the root for this mount; returns the previous value.
   static bool adoptedIs(Mount& mount, bool adopted) noexcept {
      return std::exchange(mount.adopted_, adopted);
   }

private:
   /// A list, so that taking all out needs no memory.
   std::list<Served> served_;
   std::deque<Mount> own_;
   /// Served roots whose peer waits for the lead.
   std::size_t waiting_ = 0;
};

}  // namespace Kiv::NboAttrLog

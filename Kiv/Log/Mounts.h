#pragma once

#include <deque>
#include <utility>

#include "Kiv/NboAttrLogMount.h"

namespace Kiv::NboAttrLog {

class RootWatcher;

/// A root of ours that the peer mirrors.
///
///     asked for ---- replayBegin ----> begun ---- the walk has met all ----> walked
///        ---- what changed behind the walk is told, too: replayEnd ----> ended
struct Served {
   RootWatcher* watcher;
   NamedEntity* root;
   U32 id;
   MountMode mode;
   bool begun = false;
   bool walked = false;
   bool ended = false;
   /// `replayEnd` waits for what was dirty by then: a number of `Backlog::sequence`.
   U64 endAfter = 0;
};

/// What one session mirrors, both ways: roots of ours at the peer, and roots of the peer's here.
///
///     served:  ours ----> the peer's mirrors; a writer's changes come back
///     own:     the peer's ----> our mirrors;  our changes go back where we write
///
/// Invariants: a root is served once at most; a mount of ours keeps its number and its place.
class Mounts {
public:
   std::deque<Served>& served() noexcept { return served_; }
   std::deque<Served> const& served() const noexcept { return served_; }
   std::deque<Mount> const& own() const noexcept { return own_; }
   bool any() const noexcept { return !served_.empty() || !own_.empty(); }

   /// The served root that the watcher watches, or null.
   Served const* find(RootWatcher const& watcher) const noexcept;
   /// Whether the root above the entity is served.
   bool serves(Entity const& entity) const noexcept;
   /// Whether it is served to a peer that writes.
   bool isWrittenByPeer(Entity const& entity) const noexcept;
   /// Whether the peer writes to any root.
   bool peerWrites() const noexcept;

   /// The mount through which the peer tells of the entity; null if there is none.
   Mount const* followed(Entity const& entity) const noexcept;
   /// Whether changes of the entity go to the peer that serves it.
   bool writes(Entity const& entity) const noexcept;

   /// Asks for a root; `withdraw` takes the last one back.
   Mount& add(Sarn::Ptr<NamedEntity> const& root, MountMode mode);
   void withdraw() noexcept { own_.pop_back(); }
   /// The mount with this number, from 1; null if there is none.
   Mount* mount(U32 id) noexcept { return id != 0 && id <= own_.size() ? &own_[id - 1] : nullptr; }
   static U32 idOf(Mount const& mount) noexcept { return mount.id_; }
   static void stateIs(Mount& mount, Mount::State state) noexcept { mount.state_ = state; }
   static void reasonIs(Mount& mount, Sarn::String reason) noexcept {
      mount.reason_ = std::move(reason);
   }
   /// Whether the hub holds the root for this mount; returns what was so before.
   static bool adoptedIs(Mount& mount, bool adopted) noexcept {
      return std::exchange(mount.adopted_, adopted);
   }

private:
   std::deque<Served> served_;
   std::deque<Mount> own_;
};

}  // namespace Kiv::NboAttrLog

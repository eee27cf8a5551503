#pragma once

#include <vector>

#include "Kiv/HashMap2018.h"
#include "Kiv/Log/ChildChange.h"
#include "Kiv/Log/Handles.h"
#include "Kiv/NboAttrLog.h"

namespace Kiv::NboAttrLog {

class Mounts;
class OpenCollections;

/// By which handles the two ends of a session know an entity. Each end numbers what it introduces;
/// what it did not introduce it may `bind`: from then on, its own handle stands for it, too.
///
///     ours      entity.streamHandle() --index--> | 0 1 1 0 1 ... |     a bit: the peer knows it
///     theirs    handle --index--> | handle, writable, entity |     what the peer has introduced
///                                        ^
///               entity ------------------'
///
/// Invariants:
/// - an entity has one handle of the peer's at most: the one that it used last;
/// - an entity that is gone keeps its entry in `theirs`, without an entity: what the peer says of
/// it
///   later is for nobody.
class Names {
public:
   /// An entity that the peer has introduced.
   struct Theirs {
      U32 handle = 0;
      bool writable = false;
      Sarn::Ptr<Entity> entity;
   };

   /// `limit`: entities that the peer may introduce.
   Names(U32 limit, Mounts const& mounts, OpenCollections& open)
         : limit_(limit), mounts_(mounts), open_(open) {}

   /// Whether the peer knows the entity by this handle of ours.
   bool introduced(U32 handle) const noexcept {
      U32 const at = HandleTable::index(handle);
      return at / 64 < introduced_.size() && (introduced_[at / 64] >> at % 64 & 1) != 0;
   }
   void introducedIs(U32 handle, bool introduced);
   /// Whether the peer knows the entity, by our handle or by its own.
   bool known(Entity const& entity) const noexcept {
      return (entity.streamHandle() != 0 && introduced(entity.streamHandle())) ||
             theirHandle(entity) != nullptr;
   }
   /// Whether the peer need not be told of a child. What it made itself it is told of again by who
   /// serves the root, if at all, since others may have changed it meanwhile.
   bool peerHas(Entity const& child) const noexcept;

   /// What the peer has introduced by exactly this handle, or null.
   Theirs* theirs(U32 handle) noexcept {
      U32 const at = HandleTable::index(handle);
      return at < theirs_.size() && theirs_[at].handle == handle ? &theirs_[at] : nullptr;
   }
   Theirs const* theirs(U32 handle) const noexcept {
      return const_cast<Names*>(this)->theirs(handle);
   }
   /// The peer's handle of an entity, or null.
   U32 const* theirHandle(Entity const& entity) const noexcept {
      return handles_.find(reinterpret_cast<U64>(&entity));
   }
   /// Faults if the peer must not introduce an entity by this handle.
   void checkHandle(U32 handle, In const& in) const;
   /// The peer calls `entity` by this handle from now on; null if it is gone already. REQUIRES: a
   /// handle that `checkHandle` takes.
   void map(U32 handle, Entity* entity, bool writable);

   /// The peer has a handle for the child that is being made.
   void expectChild(U32 handle) noexcept { expected_ = handle; }
   void expectNoChild() noexcept { expected_ = 0; }
   /// The expected child is in place, and nobody has been told yet.
   void childIsMade(Entity& child);

   /// Neither end knows the entity by our handle any more; the peer's is for nobody.
   void forget(Entity& entity, U32 handle);
   /// The peer's handles of an entity and of all below it are for nobody.
   void unmapTree(Entity& entity);
   void clear() noexcept;

private:
   void unmap(Entity const& entity) noexcept;

   U32 limit_;
   U32 expected_ = 0;
   Mounts const& mounts_;
   OpenCollections& open_;
   std::vector<U64> introduced_;
   std::vector<Theirs> theirs_;
   HashMap2018<U64, U32, 1> handles_;
};

}  // namespace Kiv::NboAttrLog

#pragma once

#include <vector>

#include "Kiv/HashMap2018.h"
#include "Kiv/Log/ChildChange.h"
#include "Kiv/Log/Handles.h"
#include "Kiv/NboAttrLog.h"

namespace Kiv::NboAttrLog {

class Mounts;
class OpenCollections;

/// The handles by which the two ends of a session know an entity. Each end numbers the entities
/// that it introduces. For one that the other end introduced it may `bind` a handle of its own.
///
///     ours      entity.streamHandle() --index--> | 0 1 1 0 1 ... |     bit set: the peer knows it
///     theirs    handle --index--> | handle, writable, entity |     what the peer has introduced
///                                        ^
///               entity ------------------'
///
/// The way back, from an entity to the peer's handle, is a hash map. A mirror that only receives
/// changes and new children never asks for it; so its entries are made when it is first needed, and
/// kept up to date from then on.
///
/// Invariants:
/// - an entity has at most one handle of the peer's: the one that the peer used last;
/// - while `deferred_`, the map is empty and no entity is in `theirs_` twice;
/// - the entry of an entity that is gone stays in `theirs`, with a null entity: later messages for
///   its handle are ignored.
class Names {
public:
   /// An entity that the peer has introduced.
   struct Theirs {
      U32 handle = 0;
      bool writable = false;
      Sarn::Ptr<Entity> entity;
   };

   /// `limit`: the most entities that the peer may introduce.
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
   /// Whether the peer has this child, so that it need not be sent. A child that the peer made in a
   /// root that we serve counts only once we have introduced it: others may have changed it
   /// meanwhile.
   bool peerHas(Entity const& child) const noexcept;

   /// The entry that the peer has introduced by exactly this handle, or null.
   Theirs* theirs(U32 handle) noexcept {
      U32 const at = HandleTable::index(handle);
      return at < theirs_.size() && theirs_[at].handle == handle ? &theirs_[at] : nullptr;
   }
   Theirs const* theirs(U32 handle) const noexcept {
      return const_cast<Names*>(this)->theirs(handle);
   }
   /// The entries by which the peer has introduced entities, by index; some may be empty.
   std::size_t theirIndexes() const noexcept { return theirs_.size(); }
   Theirs const& theirsAt(std::size_t index) const noexcept { return theirs_[index]; }
   /// The peer's handle for an entity, or null.
   U32 const* theirHandle(Entity const& entity) const noexcept {
      return deferred_ ? findDeferred(entity) : handles_.find(keyOf(entity));
   }
   /// Throws `FaultException` if the peer must not introduce an entity by this handle.
   void checkHandle(U32 handle, In const& in) const;
   /// From now on `handle` is the peer's handle for `entity`, which is null if the entity is gone
   /// already. `fresh`: it was made just now, or is known to be in no other entry.
   /// REQUIRES: `checkHandle` accepts the handle.
   void map(U32 handle, Entity* entity, bool writable, bool fresh = false);
   /// The same for the root of a mount.
   void mapRoot(U32 handle, Entity& root);

   /// Announces the peer's handle for the child that is about to be made.
   void expectChild(U32 handle) noexcept { expected_ = handle; }
   void expectNoChild() noexcept { expected_ = 0; }
   /// Maps the expected child: it has been inserted, but no other session has been told yet.
   void childIsMade(Entity& child);

   /// Forgets both handles of an entity; later messages for the peer's are ignored.
   void forget(Entity& entity, U32 handle);
   /// Forgets the peer's handles for an entity and for everything below it.
   void unmapTree(Entity& entity);
   void clear() noexcept;

private:
   static U64 keyOf(Entity const& entity) noexcept { return reinterpret_cast<U64>(&entity); }
   void makeIndex() const;
   U32 const* findDeferred(Entity const& entity) const noexcept;
   U32 const* scan(Entity const& entity) const noexcept;
   void unmap(Entity const& entity) noexcept;

   U32 limit_;
   U32 expected_ = 0;
   Mounts const& mounts_;
   OpenCollections& open_;
   std::vector<U64> introduced_;
   std::vector<Theirs> theirs_;
   /// What is in `theirs_`, by entity. Made on demand.
   mutable HashMap2018<U64, U32, 1> handles_;
   mutable bool deferred_ = true;
};

}  // namespace Kiv::NboAttrLog

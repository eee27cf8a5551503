#pragma once

#include <vector>

#include "Kiv/Entity.h"

namespace Kiv::NboAttrLog {

/// The handles by which entities are known in the log. A handle is an index into the table and, in
/// its upper byte, a count of how often that entry has been taken. So a late message for an entity
/// that is gone is not mistaken for one to the entity that has its entry now.
///
///     31 .. 24      23 .. 0
///     | turn 1..255 | index |
///
/// Entries are reused in the order in which they were freed.
class HandleTable {
public:
   static constexpr U32 indexMask = 0xffffff;

   explicit HandleTable(U32 limit) : limit_(limit) {}

   static U32 index(U32 handle) noexcept { return handle & indexMask; }
   /// The entity's new handle; 0 if the table is full.
   U32 add(Entity& entity);
   void remove(U32 handle) noexcept;
   /// The entity with exactly this handle, or null.
   Entity* find(U32 handle) const noexcept {
      U32 const at = index(handle);
      return at < entries_.size() && entries_[at].handle == handle ? entries_[at].entity : nullptr;
   }
   /// The entity that has the entry with this index, or null. REQUIRES: index < size().
   Entity* at(U32 index) const noexcept { return entries_[index].entity; }
   /// Whether an entity ever had the entry of this handle.
   bool known(U32 handle) const noexcept { return index(handle) < entries_.size(); }
   /// The number of entries, taken or free.
   std::size_t size() const noexcept { return entries_.size(); }

private:
   struct Entry {
      U32 handle;
      U32 nextFree;
      Entity* entity;
   };
   static constexpr U32 none = ~U32(0);
   /// A freed entry is not reused until this many others have been freed after it.
   static constexpr U32 resting = 1024;

   std::vector<Entry> entries_;
   U32 limit_;
   U32 firstFree_ = none;
   U32 lastFree_ = none;
   U32 freeCount_ = 0;
};

/// The entities of a hub that have a handle: all below its roots, except those just made whose
/// creation has not been published yet.
///
/// Invariant: `entity.streamHandle()` is the entity's handle in this table, or 0.
class Handles {
public:
   /// Whoever keeps data by an entity's handle.
   class Listener {
   public:
      /// The entity is about to lose its handle.
      virtual void onGone(Entity& entity, U32 handle) = 0;

   protected:
      ~Listener() = default;
   };

   /// `limit`: the most entities that may have a handle; beyond 2^24 - 1, the most that an index
   /// counts, it is that.
   Handles(U32 limit, Listener& listener);

   /// Gives an entity and everything below it handles. If the table is full, returns false and
   /// gives out none. If there is no memory, throws std::bad_alloc, also without giving out any.
   bool registerTree(Entity& entity);
   /// Why `registerTree` returned false.
   Sarn::String tooMany() const;
   void unregisterTree(Entity& entity);
   /// The same for children that were removed from an entity after it had been unregistered. No
   /// watcher was told of such a removal, since the entity had no parent to publish it to.
   void unregisterUntold();

   /// The entity with exactly this handle, or null.
   Entity* find(U32 handle) const noexcept { return table_.find(handle); }
   /// Whether an entity ever had the entry of this handle.
   bool known(U32 handle) const noexcept { return table_.known(handle); }
   /// The entity that has the handle with this index, or null. REQUIRES: index < indexes().
   Entity* at(U32 index) const noexcept { return table_.at(index); }
   /// One more than the greatest index of a handle.
   std::size_t indexes() const noexcept { return table_.size(); }

private:
   bool numberTree(Entity& entity);

   U32 limit_;
   HandleTable table_;
   Listener& listener_;
};

}  // namespace Kiv::NboAttrLog

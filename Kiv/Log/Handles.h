#pragma once

#include <vector>

#include "Kiv/Entity.h"

namespace Kiv::NboAttrLog {

/// The numbers by which entities are known in the log. A handle is an index into the table and, in
/// its upper byte, how often that entry was taken before, so that a late message for an entity that
/// is gone is distinguished from one for the entity that has its entry now.
///
///     31 .. 24      23 .. 0
///     | turn 1..255 | index |
///
/// Freed entries are taken again in the order in which they were freed.
class HandleTable {
public:
   static constexpr U32 indexMask = 0xffffff;

   explicit HandleTable(U32 limit) : limit_(limit) {}

   static U32 index(U32 handle) noexcept { return handle & indexMask; }
   /// 0 when the table is full.
   U32 add(Entity& entity);
   void remove(U32 handle) noexcept;
   /// The entity with exactly this handle, or null.
   Entity* find(U32 handle) const noexcept {
      U32 const at = index(handle);
      return at < entries_.size() && entries_[at].handle == handle ? entries_[at].entity : nullptr;
   }
   /// Whether an entity ever had the entry of this handle.
   bool known(U32 handle) const noexcept { return index(handle) < entries_.size(); }
   /// Entries, taken or free.
   std::size_t size() const noexcept { return entries_.size(); }

private:
   struct Entry {
      U32 handle;
      U32 nextFree;
      Entity* entity;
   };
   static constexpr U32 none = ~U32(0);
   /// A freed entry rests until so many others were freed after it.
   static constexpr U32 resting = 1024;

   std::vector<Entry> entries_;
   U32 limit_;
   U32 firstFree_ = none;
   U32 lastFree_ = none;
   U32 freeCount_ = 0;
};

/// The entities of a hub that have a number: all below its roots, but for those that were just made
/// and of which nobody has been told.
///
/// Invariant: `entity.streamHandle()` is the entity's handle in this table, or 0.
class Handles {
public:
   /// Who keeps something by an entity's handle.
   class Listener {
   public:
      /// The entity is about to lose its number.
      virtual void onGone(Entity& entity, U32 handle) = 0;

   protected:
      ~Listener() = default;
   };

   /// `limit`: entities that may have a number.
   Handles(U32 limit, Listener& listener);

   /// Numbers an entity and all below it; false, and none has a number, when the table is full. The
   /// same if there is no memory: std::bad_alloc.
   bool registerTree(Entity& entity);
   /// Why `registerTree` says no.
   Sarn::String tooMany() const;
   void unregisterTree(Entity& entity);
   /// The same for children that were taken out of what has been unregistered meanwhile: nobody
   /// was told of that, since the change had no way up any more.
   void unregisterUntold();

   /// The entity with exactly this handle, or null.
   Entity* find(U32 handle) const noexcept { return table_.find(handle); }
   /// Whether an entity ever had the entry of this handle.
   bool known(U32 handle) const noexcept { return table_.known(handle); }
   /// More than any index of a handle.
   std::size_t indexes() const noexcept { return table_.size(); }

private:
   bool numberTree(Entity& entity);

   U32 limit_;
   HandleTable table_;
   Listener& listener_;
};

}  // namespace Kiv::NboAttrLog

#pragma once

#include "Kiv/Map/Table.h"

namespace Kiv {

template <class Key, U32 seedConstant>
class HSet;

namespace Impl {

template <class KeyType, U32 seed>
struct SetPolicy {
   using Collection = HSet<KeyType, seed>;
   using Key = KeyType;
   using Slot = KeyType;
   static constexpr U32 seedConstant = seed;
   static Key const& keyOf(Slot const& slot) noexcept { return slot; }
   static Key const& valueOf(Slot const& slot) noexcept { return slot; }
};

}  // namespace Impl

/// A hash set, such as the keys of a collection whose changes a reader has not received yet.
/// Iterates as `HashMap2018` does, and keeps its promises; `operator*` gives the key.
template <class Key, U32 seedConstant = 1>
class HSet : public Impl::HashTable<Impl::SetPolicy<Key, seedConstant>> {
   using Table = Impl::HashTable<Impl::SetPolicy<Key, seedConstant>>;

public:
   using typename Table::Iterator;
   using typename Table::LookupKey;

   /// Whether the key was added; false if it was there already. Amortised O(1).
   bool insert(LookupKey key) {
      return this->insertSlot(key, [&](void* where) { new (where) Key(key); }).second;
   }

   /// Whether the key was there. O(1).
   bool erase(LookupKey key) {
      Key* const slot = this->findSlot(key);
      if (slot != nullptr) {
         this->eraseSlot(slot, [](Key&) {});
      }
      return slot != nullptr;
   }
   /// Removes the current key of a checked iterator of this set.
   /// REQUIRES: not at the end, not `markedForDeletion()`.
   void erase(Iterator const& it) {
      this->eraseSlot(this->slotOf(it), [](Key&) {});
   }
};

}  // namespace Kiv

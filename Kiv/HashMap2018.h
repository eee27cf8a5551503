#pragma once

#include <optional>
#include <utility>

#include "Kiv/Map/Table.h"

namespace Kiv {

template <class Key, class Value, U32 seedConstant>
class HashMap2018;

namespace Impl {

template <class KeyType, class ValueType, U32 seed>
struct ExternalKeyPolicy {
   using Collection = HashMap2018<KeyType, ValueType, seed>;
   using Key = KeyType;
   struct Slot {
      KeyType key;
      ValueType value;
   };
   static constexpr U32 seedConstant = seed;
   static Key const& keyOf(Slot const& slot) noexcept { return slot.key; }
   static ValueType const& valueOf(Slot const& slot) noexcept { return slot.value; }
};

}  // namespace Impl

/// A hash map that stores keys beside their values. For values that contain their keys, and for
/// pointers to such values, see `HashMap2018NodeInternalKey`.
///
///     Kiv::HashMap2018<Ptp::MessageTypeNumber, U16, 0xDE80331F> thresholds;
///     thresholds.insert(type, 3);
///     if (U16 const* threshold = thresholds.find(type)) { ... }
///     for (auto const& [key, value] : thresholds) { ... }        // must not change meanwhile
///     for (auto it = thresholds.iterator(); it; ++it) { ... }    // may
///
/// It is one pointer in size, allocates nothing while empty, and grows and shrinks with its
/// contents. See `Impl::HashTable` for invalidation, threads and exceptions.
///
/// `seedConstant` makes the hashes of this collection differ from those of other collections.
template <class Key, class Value, U32 seedConstant = 0>
class HashMap2018 : public Impl::HashTable<Impl::ExternalKeyPolicy<Key, Value, seedConstant>> {
   using Table = Impl::HashTable<Impl::ExternalKeyPolicy<Key, Value, seedConstant>>;

public:
   using typename Table::Iterator;
   using typename Table::LookupKey;
   using typename Table::Slot;
   using Entry = Slot;

   /// The value of `key`, or null; valid until the next structural change. O(1), allocates nothing.
   Value* find(LookupKey key) {
      Slot* const slot = this->findSlot(key);
      return slot != nullptr ? &slot->value : nullptr;
   }
   Value const* find(LookupKey key) const {
      Slot const* const slot = this->findSlot(key);
      return slot != nullptr ? &slot->value : nullptr;
   }

   /// Adds the element unless the key exists; then nothing changes, and `second` is false. Copies
   /// or moves from the value only if it is added. Amortised O(1).
   std::pair<Value*, bool> insert(LookupKey key, Value const& value) { return add(key, value); }
   std::pair<Value*, bool> insert(LookupKey key, Value&& value) {
      return add(key, std::move(value));
   }

   /// Removes the element and returns its value, or nothing if there is none. O(1).
   std::optional<Value> erase(LookupKey key) {
      Slot* const slot = this->findSlot(key);
      return slot != nullptr ? take(slot) : std::nullopt;
   }
   /// The same for the current element of a checked iterator of this map, which is then
   /// `markedForDeletion()`. REQUIRES: not at the end, not marked already.
   std::optional<Value> erase(Iterator const& it) { return take(this->slotOf(it)); }

private:
   template <class V>
   std::pair<Value*, bool> add(LookupKey key, V&& value) {
      auto const [slot, added] = this->insertSlot(key, [&](void* where) {
         new (where) Slot{Key(key), std::forward<V>(value)};
      });
      return {&slot->value, added};
   }

   std::optional<Value> take(Slot* slot) {
      std::optional<Value> value;
      this->eraseSlot(slot, [&](Slot& s) { value.emplace(std::move(s.value)); });
      return value;
   }
};

}  // namespace Kiv

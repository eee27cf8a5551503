#pragma once

#include <optional>
#include <utility>

#include "Kiv/Map/Table.h"

namespace Kiv {

template <class Value, class KeyFunktor, U32 seedConstant>
class HashMap2018NodeInternalKey;

namespace Impl {

template <class Value, class KeyFunktor, U32 seed>
struct InternalKeyPolicy {
   using Collection = HashMap2018NodeInternalKey<Value, KeyFunktor, seed>;
   using Key = std::remove_cvref_t<decltype(KeyFunktor()(std::declval<Value const&>()))>;
   using Slot = Value;
   static constexpr U32 seedConstant = seed;
   static decltype(auto) keyOf(Slot const& slot) noexcept { return KeyFunktor()(slot); }
   static Value const& valueOf(Slot const& slot) noexcept { return slot; }
};

}  // namespace Impl

/// A hash map whose values contain their keys, directly or behind a pointer such as
/// `Sarn::Ptr<Child>`. `KeyFunktor` gives the key, by reference or by value:
///
///     struct IntfConfigKeyFunktor {
///        Dorn::IntfId const& operator()(Sarn::Ptr<IntfConfig> const& c) const { return c->intf();
///        }
///     };
///     Kiv::HashMap2018NodeInternalKey<Sarn::Ptr<IntfConfig>, IntfConfigKeyFunktor, 0x5B266113> m;
///
/// The key of a stored value must not change. Otherwise like `HashMap2018`.
template <class Value, class KeyFunktor, U32 seedConstant = 0>
class HashMap2018NodeInternalKey
      : public Impl::HashTable<Impl::InternalKeyPolicy<Value, KeyFunktor, seedConstant>> {
   using Table = Impl::HashTable<Impl::InternalKeyPolicy<Value, KeyFunktor, seedConstant>>;

public:
   using typename Table::Iterator;
   using typename Table::LookupKey;

   /// The value of `key`, or null; valid until the next structural change. It may be replaced by
   /// another with the same key. O(1), allocates nothing.
   Value* find(LookupKey key) { return this->findSlot(key); }
   Value const* find(LookupKey key) const { return this->findSlot(key); }

   /// Adds the value unless its key exists; then nothing changes, and `second` is false. Copies or
   /// moves from the value only if it is added. Amortised O(1).
   std::pair<Value*, bool> insert(Value const& value) { return add(value); }
   std::pair<Value*, bool> insert(Value&& value) { return add(std::move(value)); }

   /// Removes the element and returns it, or nothing if there is none. O(1).
   std::optional<Value> erase(LookupKey key) {
      Value* const slot = this->findSlot(key);
      return slot != nullptr ? take(slot) : std::nullopt;
   }
   /// The same for the current element of a checked iterator of this map, which is then
   /// `markedForDeletion()`. REQUIRES: not at the end, not marked already.
   std::optional<Value> erase(Iterator const& it) { return take(this->slotOf(it)); }

private:
   template <class V>
   std::pair<Value*, bool> add(V&& value) {
      return this->insertSlot(KeyFunktor()(value),
                              [&](void* where) { new (where) Value(std::forward<V>(value)); });
   }

   std::optional<Value> take(Value* slot) {
      std::optional<Value> value;
      this->eraseSlot(slot, [&](Value& v) { value.emplace(std::move(v)); });
      return value;
   }
};

}  // namespace Kiv

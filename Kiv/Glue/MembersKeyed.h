#pragma once

#include <cstdint>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kiv/Entity.h"
#include "Kiv/FirstException.h"
#include "Kiv/HashMap2018.h"
#include "Kiv/HashMap2018NodeInternalKey.h"
#include "Kiv/Identical.h"
#include "Kiv/Map/CheckedIterator.h"
#include "Kiv/Map/RbTreeMap.h"
#include "Kiv/ValueOps.h"

/// Members that hold many things by key: collections of children and of values. See
/// `Kiv/Glue/Members.h`.
namespace Kiv {

/// The key comparison that accompanies a change.
template <class K>
bool keysEqual(void const* a, void const* b) {
   return *static_cast<K const*>(a) == *static_cast<K const*>(b);
}

/// Drops every element at once, without notifying anybody.
template <class Map>
void _memberDelAll(Map& map) noexcept {
   if constexpr (requires { map.orphan(); }) {
      map.orphan();
   }
   map.clear();
}

// Keyed collections of children

/// An instantiating collection: `KeyFunktor` reads the child's own key. The destructor clears the
/// children's parent links.
template <class T, class KeyFunktor, U32 seedConstant>
class ChildMap : public HashMap2018NodeInternalKey<Sarn::Ptr<T>, KeyFunktor, seedConstant> {
public:
   using Child = T;
   using Key = std::remove_cvref_t<decltype(KeyFunktor()(std::declval<Sarn::Ptr<T> const&>()))>;

   ChildMap() = default;
   ChildMap(ChildMap const&) = delete;
   ChildMap& operator=(ChildMap const&) = delete;
   ~ChildMap() { orphan(); }

   void orphan() noexcept {
      for (Sarn::Ptr<T> const& child : *this) {
         child->parentIs(nullptr);
      }
   }
   Sarn::Ptr<T> child(Key const& key) const {
      Sarn::Ptr<T> const* const found = this->find(key);
      return found != nullptr ? *found : Sarn::Ptr<T>();
   }
};

/// *xIs(key, ...)* of an absent child: inserts the fresh child and publishes.
template <class Map>
Sarn::Ptr<typename Map::Child> childrenAdd(Entity& owner, AttributeId id, Map& map,
                                           typename Map::Key const& key,
                                           Sarn::Ptr<typename Map::Child> child) {
   map.insert(child);
   child->parentIs(&owner);
   owner.publishChangeRecursive(id, &key, nullptr, &keysEqual<typename Map::Key>);
   return child;
}

/// *xDel(key)*: the removed child, null if there was none.
template <class Map>
Sarn::Ptr<typename Map::Child> childrenDel(Entity& owner, AttributeId id, Map& map,
                                           typename Map::Key const& givenKey) {
   typename Map::Key const key = givenKey;  // `givenKey` may be the child's own
   std::optional<Sarn::Ptr<typename Map::Child>> taken = map.erase(key);
   if (!taken) {
      return {};
   }
   (*taken)->parentIs(nullptr);
   if (owner.watched()) {
      Sarn::Ptr<Entity> const old = *taken;
      owner.publishChangeRecursive(id, &key, &old, &keysEqual<typename Map::Key>);
   }
   return *std::move(taken);
}

/// *xDelAll()*: removes and publishes the present children one by one, each once; whatever
/// observers insert in their place stays. If observers throw, the first exception is rethrown at
/// the end.
template <class Map>
void childrenDelAll(Entity& owner, AttributeId id, Map& map) {
   if (!owner.watched()) {
      _memberDelAll(map);
      return;
   }
   std::vector<Sarn::Ptr<typename Map::Child>> children;
   children.reserve(map.size());
   for (Sarn::Ptr<typename Map::Child> const& child : map) {
      children.push_back(child);
   }
   Sarn::Ptr<Entity> const alive(&owner);  // an observer may drop the last reference
   Impl::FirstException thrown;
   for (auto& listed : children) {
      auto const child = std::move(listed);
      auto&& key = Map::PolicyType::keyOf(child);
      if (map.child(key) == child) {
         thrown.attempt([&] { childrenDel(owner, id, map, key); });
      }
   }
   thrown.rethrow();
}

namespace Impl {
[[noreturn]] void throwMutatorReinstVal(Entity const& owner, AttributeId collection,
                                        Entity const& child, AttributeId argument,
                                        Sarn::String const& oldArgument,
                                        Sarn::String const& newArgument);
}  // namespace Impl

/// Throws `MutatorReinstValException` unless an existing child's constant argument is the given
/// one.
template <class T>
void checkReinstVal(Entity const& owner, AttributeId collection, Entity const& child,
                    AttributeId argument, T const& stored, T const& given) {
   bool same = stored == given;
   if constexpr (equalMayDiffer<T>) {
      same = same && (Impl::exactChild != &child || isIdentical(stored, given));
   }
   if (!same) {
      Impl::throwMutatorReinstVal(owner, collection, child, argument, strRep(stored),
                                  strRep(given));
   }
}

// Keyed collections of values. `Map` is `HashMap2018` or `RbTreeMap`.

namespace Impl {
/// Replaces the value of an element and publishes. Steps that may throw come first.
template <class K, class V>
void replaceValue(Entity& owner, AttributeId id, K const& key, V& stored, V const& value) {
   V fresh(value);
   V const old = std::exchange(stored, std::move(fresh));
   owner.publishChangeRecursive(id, &key, &old, &keysEqual<K>);
}

/// Whether an element has to be stored. `exactly`: also if it equals the stored one but differs in
/// its bits.
template <bool exactly, class V>
bool elementDiffers(V const& stored, V const& value) {
   return !(stored == value) || (exactly && !isIdentical(stored, value));
}
}  // namespace Impl

/// *xIs(key, value)*. `exactly`: see `Kiv/Identical.h`.
template <class Map, class K, class V, bool exactly = false>
void mapIs(Entity& owner, AttributeId id, Map& map, K const& key, V const& value) {
   V* const stored = map.find(key);
   if (stored == nullptr) {
      map.insert(key, value);
      owner.publishChangeRecursive(id, &key, nullptr, &keysEqual<K>);
   } else if (Impl::elementDiffers<exactly>(*stored, value)) {
      // The key may be the element's own, as from an iterator. It is copied, since an observer may
      // remove the element before others have been notified.
      auto const distance =
            reinterpret_cast<std::uintptr_t>(stored) - reinterpret_cast<std::uintptr_t>(&key);
      if (distance < sizeof(typename Map::Entry)) [[unlikely]] {
         K const own = key;
         Impl::replaceValue(owner, id, own, *stored, value);
      } else {
         Impl::replaceValue(owner, id, key, *stored, value);
      }
   }
}

/// *xIs(value)* where the value contains its key.
template <class Map, class K, class V, bool exactly = false>
void internalKeyMapIs(Entity& owner, AttributeId id, Map& map, K const& key, V const& value) {
   V* const stored = map.find(key);
   if (stored == nullptr) {
      map.insert(value);
      owner.publishChangeRecursive(id, &key, nullptr, &keysEqual<K>);
   } else if (Impl::elementDiffers<exactly>(*stored, value)) {
      Impl::replaceValue(owner, id, key, *stored, value);
   }
}

/// *xDel(key)*: the removed value, the default value if the key was absent.
template <class V, class Map, class K>
V mapDel(Entity& owner, AttributeId id, Map& map, K const& givenKey) {
   K const key = givenKey;  // `givenKey` may be the element's own
   std::optional<V> taken = map.erase(key);
   if (!taken) {
      return defaultValue<V>();
   }
   owner.publishChangeRecursive(id, &key, &*taken, &keysEqual<K>);
   return *std::move(taken);
}

/// *x(key)*: the value, the default value if the key is absent.
template <class V, class Map, class K>
V mapValue(Map const& map, K const& key) {
   V const* const stored = map.find(key);
   return stored != nullptr ? *stored : defaultValue<V>();
}

namespace Impl {
/// The present keys of `map` for which `wanted(key)` holds, in its order.
template <class Map, class Wanted>
auto keysOf(Map& map, Wanted&& wanted) {
   std::vector<typename Map::Key> keys;
   for (auto at = checkedIterator(map); at; ++at) {
      if (typename Map::Key const& key = at.key(); wanted(key)) {
         keys.push_back(key);
      }
   }
   return keys;
}
}  // namespace Impl

/// *xDelAll()*: removes and publishes the present elements one by one, each key once. If observers
/// throw, the first exception is rethrown at the end.
template <class V, class K, class Map>
void mapDelAll(Entity& owner, AttributeId id, Map& map) {
   if (!owner.watched()) {
      _memberDelAll(map);
      return;
   }
   auto const keys = Impl::keysOf(map, [](K const&) { return true; });
   Sarn::Ptr<Entity> const alive(&owner);
   Impl::FirstException thrown;
   for (K const& key : keys) {
      thrown.attempt([&] { mapDel<V, Map, K>(owner, id, map, key); });
   }
   thrown.rethrow();
}

}  // namespace Kiv

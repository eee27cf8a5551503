#pragma once

#include <cstdint>
#include <type_traits>

#include "Kiv/CheckedIterator.h"
#include "Kiv/Entity.h"
#include "Kiv/HashMap2018.h"
#include "Kiv/HashMap2018NodeInternalKey.h"
#include "Kiv/RbTreeMap.h"
#include "Kiv/ValueOps.h"
#include "Sarn/RQueue.h"

/// Members that hold many things: collections of children and of values, and queues. See
/// `Kiv/Members.h`.
namespace Kiv {

/// The key comparison that goes with a change.
template <class K>
bool keysEqual(void const* a, void const* b) {
   return *static_cast<K const*>(a) == *static_cast<K const*>(b);
}

// Keyed collections of children

/// An instantiating collection: `KeyFunktor` reads the child's own key. Its death clears the
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

/// *xIs(key, ...)* of a child that is not there: puts the fresh child in place and publishes.
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
   typename Map::Key const key = givenKey;  // the given one may be the child's own
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

template <class Map>
void childrenDelAll(Entity& owner, AttributeId id, Map& map) {
   if (!owner.watched()) {
      map.orphan();
      map.clear();
      return;
   }
   Sarn::Ptr<Entity> const alive(&owner);  // an observer may drop the last reference
   for (auto at = checkedIterator(map); at; ++at) {
      childrenDel(owner, id, map, at.key());
   }
}

namespace Impl {
[[noreturn]] void throwMutatorReinstVal(Entity const& owner, AttributeId collection,
                                        Entity const& child, AttributeId argument,
                                        Sarn::String const& oldArgument,
                                        Sarn::String const& newArgument);
}  // namespace Impl

/// Throws `MutatorReinstValException` unless an existing child's constant argument is the given.
template <class T>
void checkReinstVal(Entity const& owner, AttributeId collection, Entity const& child,
                    AttributeId argument, T const& stored, T const& given) {
   if (!(stored == given)) {
      Impl::throwMutatorReinstVal(owner, collection, child, argument, strRep(stored),
                                  strRep(given));
   }
}

// Keyed collections of values. `Map` is `HashMap2018` or `RbTreeMap`.

namespace Impl {
/// Replaces the value of an element and publishes that. What may throw comes first.
template <class K, class V>
void replaceValue(Entity& owner, AttributeId id, K const& key, V& stored, V const& value) {
   V fresh(value);
   V const old = std::exchange(stored, std::move(fresh));
   owner.publishChangeRecursive(id, &key, &old, &keysEqual<K>);
}
}  // namespace Impl

/// *xIs(key, value)*.
template <class Map, class K, class V>
void mapIs(Entity& owner, AttributeId id, Map& map, K const& key, V const& value) {
   V* const stored = map.find(key);
   if (stored == nullptr) {
      map.insert(key, value);
      owner.publishChangeRecursive(id, &key, nullptr, &keysEqual<K>);
   } else if (!(*stored == value)) {
      // A key that lies in the element, as an iterator gives it, is copied: an observer may remove
      // the element while others are still to be told.
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
template <class Map, class K, class V>
void internalKeyMapIs(Entity& owner, AttributeId id, Map& map, K const& key, V const& value) {
   V* const stored = map.find(key);
   if (stored == nullptr) {
      map.insert(value);
      owner.publishChangeRecursive(id, &key, nullptr, &keysEqual<K>);
   } else if (!(*stored == value)) {
      Impl::replaceValue(owner, id, key, *stored, value);
   }
}

/// *xDel(key)*: the removed value, the default value if the key was absent.
template <class V, class Map, class K>
V mapDel(Entity& owner, AttributeId id, Map& map, K const& givenKey) {
   K const key = givenKey;  // the given one may be the element's own
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

template <class V, class K, class Map>
void mapDelAll(Entity& owner, AttributeId id, Map& map) {
   if (!owner.watched()) {
      map.clear();
      return;
   }
   Sarn::Ptr<Entity> const alive(&owner);
   for (auto at = checkedIterator(map); at; ++at) {
      mapDel<V, Map, K>(owner, id, map, at.key());
   }
}

// Sequence-numbered queues

template <class T>
void queueEnq(Entity& owner, AttributeId id, Sarn::RQueue<T>& queue, T const& value) {
   U32 const sequence = queue.enq(value);
   owner.publishChangeRecursive(id, &sequence, nullptr, &keysEqual<U32>);
}

template <class T>
T queueDeq(Entity& owner, AttributeId id, Sarn::RQueue<T>& queue) {
   if (queue.empty()) {
      return T();
   }
   U32 const sequence = queue.frontSequence();
   T const value = queue.deq();
   owner.publishChangeRecursive(id, &sequence, nullptr, &keysEqual<U32>);
   return value;
}

template <class T>
void queueDelAll(Entity& owner, AttributeId id, Sarn::RQueue<T>& queue) {
   if (!owner.watched()) {
      queue.doClear();
      return;
   }
   Sarn::Ptr<Entity> const alive(&owner);
   while (!queue.empty()) {
      queueDeq(owner, id, queue);
   }
}

}  // namespace Kiv

#pragma once

#include <memory>
#include <variant>

#include "Kiv/DirtyKeySet.h"
#include "Kiv/FirstException.h"
#include "Kiv/Glue/Members.h"
#include "Kiv/Types.h"

/// Operations on a collection of values with keys. See `Kiv/Glue/MemberOps.h`.
namespace Kiv::Impl {
#pragma GCC visibility push(hidden)

template <class Iterator, class Child>
class CollectionIteratorOf final : public CollectionIterator {
public:
   explicit CollectionIteratorOf(Iterator const& at) : at_(at) {}
   bool valid() override {
      while (at_ && at_.markedForDeletion()) {
         ++at_;
      }
      return static_cast<bool>(at_);
   }
   void next() override { ++at_; }
   void const* key() override {
      if constexpr (std::is_lvalue_reference_v<KeyResult>) {
         return &at_.key();
      } else {
         return &key_.emplace(at_.key());
      }
   }
   void const* value() override {
      if constexpr (std::is_void_v<Child>) {
         return &at_.value();
      } else {
         return static_cast<Entity const*>(at_.value().get());
      }
   }
   Entity* child() override {
      if constexpr (std::is_void_v<Child>) {
         return nullptr;
      } else {
         return at_.value().get();
      }
   }

private:
   using KeyResult = decltype(std::declval<Iterator const&>().key());

   Iterator at_;
   /// Holds the current key where the map gives keys by value only.
   [[no_unique_address]] std::conditional_t<std::is_lvalue_reference_v<KeyResult>, std::monostate,
                                            std::optional<std::remove_cvref_t<KeyResult>>>
         key_;
};

constexpr AttrOps collectionOps(CollectionOps const& collection) {
   AttrOps all{};
   all.collection = &collection;
   return all;
}

/// What all keyed collections share. `Self` has `K`, `Keys` and `map(owner)`.
template <class Self, class Child>
struct KeyedOps {
   template <class K>
   static K const& keyOf(void const* key) {
      return *static_cast<K const*>(key);
   }
   static std::size_t size(Entity const& owner) { return Self::map(owner).size(); }
   static CollectionIterator* iterator(Entity& owner, IteratorStorage& storage) {
      auto at = checkedIterator(Self::map(owner));
      using Erased = CollectionIteratorOf<decltype(at), Child>;
      static_assert(sizeof(Erased) <= sizeof(IteratorStorage));
      static_assert(alignof(Erased) <= alignof(IteratorStorage));
      return new (storage.bytes) Erased(at);
   }
   static DirtyKeys* newDirtyKeys() { return new typename Self::Keys(); }
   static std::size_t keySize(void const* key) {
      return ValueOps<typename Self::K>::size(keyOf<typename Self::K>(key));
   }
   static void encodeKey(NboAttrLog::Out& out, void const* key) {
      ValueOps<typename Self::K>::encode(out, keyOf<typename Self::K>(key));
   }
   static bool del(Entity& owner, void const* key) {
      bool const there = Self::map(owner).find(keyOf<typename Self::K>(key)) != nullptr;
      Self::erase(owner, keyOf<typename Self::K>(key));
      return there;
   }
   static void applyDelete(Entity& owner, NboAttrLog::In& in, DirtyKeys* seen,
                           Sarn::Ptr<Entity>& removed) {
      typename Self::K const key = ValueOps<typename Self::K>::decode(in);
      in.expectEnd();
      if (seen != nullptr) {
         seen->remove(&key);  // before observers run: they may insert something under this key
      }
      if constexpr (!std::is_void_v<Child>) {
         removed = Self::map(owner).child(key);
      }
      Self::erase(owner, key);
   }
   static void delUnseen(Entity& owner, DirtyKeys const& seen) {
      using K = typename Self::K;
      auto const keys = keysOf(Self::map(owner), [&](K const& key) { return !seen.has(&key); });
      FirstException thrown;
      for (K const& key : keys) {
         if (!seen.has(&key)) {  // an observer may have inserted something under this key
            thrown.attempt([&] { Self::erase(owner, key); });
         }
      }
      thrown.rethrow();
   }
   template <class K>
   static void saw(DirtyKeys* seen, K const& key) {
      if (seen != nullptr) {
         seen->insert(&key, false);
      }
   }
   static constexpr CollectionOps common() {
      CollectionOps ops{};
      ops.size = &size;
      ops.del = &del;
      ops.delAll = &Self::delAll;
      ops.iterator = &iterator;
      ops.newDirtyKeys = &newDirtyKeys;
      ops.keySize = &keySize;
      ops.encodeKey = &encodeKey;
      ops.applyDelete = &applyDelete;
      ops.delUnseen = &delUnseen;
      return ops;
   }
};

/// A map with keys beside its values: a hash map or an ordered map.
template <class Owner, auto Map, AttributeId id>
struct MapOps : KeyedOps<MapOps<Owner, Map, id>, void> {
   using Self = MapOps;
   using Base = KeyedOps<Self, void>;
   using M = std::remove_cvref_t<decltype(std::declval<Owner&>().*Map)>;
   using K = typename M::Key;
   using V = typename M::Value;
   static constexpr bool isOrdered = requires(M & m, K const& k) { m.upperBound(k); };
   using Keys = std::conditional_t<isOrdered, OrderedDirtyKeySet<K>, DirtyKeySet<K>>;

   static M& map(Entity& owner) { return static_cast<Owner&>(owner).*Map; }
   static M const& map(Entity const& owner) { return static_cast<Owner const&>(owner).*Map; }
   static void erase(Entity& owner, K const& key) { mapDel<V, M, K>(owner, id, map(owner), key); }
   static void delAll(Entity& owner) { mapDelAll<V, K, M>(owner, id, map(owner)); }

   static void const* find(Entity const& owner, void const* key) {
      return map(owner).find(*static_cast<K const*>(key));
   }
   static void is(Entity& owner, void const* key, void const* value) {
      mapIs<M, K, V>(owner, id, map(owner), *static_cast<K const*>(key),
                     *static_cast<V const*>(value));
   }
   static std::size_t elementSize(void const* key, void const* value) {
      return Base::keySize(key) + ValueOps<V>::size(*static_cast<V const*>(value));
   }
   static void encodeElement(NboAttrLog::Out& out, void const* key, void const* value) {
      Base::encodeKey(out, key);
      ValueOps<V>::encode(out, *static_cast<V const*>(value));
   }
   static void applyElement(Entity& owner, NboAttrLog::In& in, DirtyKeys* seen) {
      K const key = ValueOps<K>::decode(in);
      V const value = ValueOps<V>::decode(in);
      in.expectEnd();
      Base::saw(seen, key);
      mapIs<M, K, V, true>(owner, id, map(owner), key, value);
   }

   static constexpr CollectionOps collection = [] {
      CollectionOps ops = Base::common();
      ops.find = &find;
      ops.is = &is;
      ops.elementSize = &elementSize;
      ops.encodeElement = &encodeElement;
      ops.applyElement = &applyElement;
      return ops;
   }();
   static constexpr AttrOps ops = collectionOps(collection);
};

/// A hash map of values that contain their keys.
template <class Owner, auto Map, AttributeId id>
struct InternalKeyMapOps : KeyedOps<InternalKeyMapOps<Owner, Map, id>, void> {
   using Self = InternalKeyMapOps;
   using Base = KeyedOps<Self, void>;
   using M = std::remove_cvref_t<decltype(std::declval<Owner&>().*Map)>;
   using K = typename M::Key;
   using V = typename M::Value;
   using Keys = DirtyKeySet<K>;

   static M& map(Entity& owner) { return static_cast<Owner&>(owner).*Map; }
   static M const& map(Entity const& owner) { return static_cast<Owner const&>(owner).*Map; }
   static void erase(Entity& owner, K const& key) { mapDel<V, M, K>(owner, id, map(owner), key); }
   static void delAll(Entity& owner) { mapDelAll<V, K, M>(owner, id, map(owner)); }

   static void const* find(Entity const& owner, void const* key) {
      return map(owner).find(*static_cast<K const*>(key));
   }
   static void is(Entity& owner, void const*, void const* value) {
      V const& v = *static_cast<V const*>(value);
      K const key = M::PolicyType::keyOf(v);
      internalKeyMapIs<M, K, V>(owner, id, map(owner), key, v);
   }
   static std::size_t elementSize(void const*, void const* value) {
      return ValueOps<V>::size(*static_cast<V const*>(value));
   }
   static void encodeElement(NboAttrLog::Out& out, void const*, void const* value) {
      ValueOps<V>::encode(out, *static_cast<V const*>(value));
   }
   static void applyElement(Entity& owner, NboAttrLog::In& in, DirtyKeys* seen) {
      V const value = ValueOps<V>::decode(in);
      in.expectEnd();
      K const key = M::PolicyType::keyOf(value);
      Base::saw(seen, key);
      internalKeyMapIs<M, K, V, true>(owner, id, map(owner), key, value);
   }

   static constexpr CollectionOps collection = [] {
      CollectionOps ops = Base::common();
      ops.find = &find;
      ops.is = &is;
      ops.elementSize = &elementSize;
      ops.encodeElement = &encodeElement;
      ops.applyElement = &applyElement;
      return ops;
   }();
   static constexpr AttrOps ops = collectionOps(collection);
};

#pragma GCC visibility pop

}  // namespace Kiv::Impl

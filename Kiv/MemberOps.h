#pragma once

#include <exception>
#include <memory>
#include <tuple>
#include <variant>

#include "Kiv/AttrOps.h"
#include "Kiv/HSet.h"
#include "Kiv/Members.h"
#include "Kiv/Types.h"

/// Rows of a type's member table: `FieldDescriptor`s with the functions that drive one member. The
/// generated source has one line a member, such as
///
///     Kiv::single<Config, &Config::driftLimit, &Config::driftLimitIs>(274, "driftLimit", flags)
namespace Kiv {

namespace Impl {

/// The object of a generic operation: an entity is given as its `Entity`, a value as itself.
template <class Owner>
Owner const& ownerOf(void const* object) {
   if constexpr (std::is_base_of_v<Entity, Owner>) {
      return static_cast<Owner const&>(*static_cast<Entity const*>(object));
   } else {
      return *static_cast<Owner const*>(object);
   }
}
template <class Owner>
Owner& ownerOf(void* object) {
   return const_cast<Owner&>(ownerOf<Owner>(static_cast<void const*>(object)));
}

/// `Get` is an accessor, or a static function that gives a constant.
template <class Owner, auto Get>
decltype(auto) getMember(Owner const& owner) {
   if constexpr (std::is_invocable_v<decltype(Get)>) {
      (void)owner;
      return Get();
   } else {
      return (owner.*Get)();
   }
}

/// Hands a decoded value to `use`, a string as a view of the message.
template <class T, class Use>
void decodeTo(NboAttrLog::In& in, Use&& use) {
   if constexpr (std::is_same_v<T, Sarn::String>) {
      std::string_view const v = in.nextString();
      in.expectEnd();
      use(v);
   } else {
      T const v = ValueOps<T>::decode(in);
      in.expectEnd();
      use(v);
   }
}

template <class Owner, auto Get, auto Set>
struct SingleOps {
   using T = std::remove_cvref_t<decltype(getMember<Owner, Get>(std::declval<Owner const&>()))>;
   static constexpr bool settable = !std::is_null_pointer_v<decltype(Set)>;

   static void read(void const* object, void* result) {
      std::construct_at(static_cast<T*>(result), getMember<Owner, Get>(ownerOf<Owner>(object)));
   }
   static void write(void* object, void const* value) {
      if constexpr (settable) {
         (ownerOf<Owner>(object).*Set)(*static_cast<T const*>(value));
      }
   }
   static std::size_t encodedSize(Entity const& entity) {
      return ValueOps<T>::size(getMember<Owner, Get>(ownerOf<Owner>(&entity)));
   }
   static void encode(Entity const& entity, NboAttrLog::Out& out) {
      ValueOps<T>::encode(out, getMember<Owner, Get>(ownerOf<Owner>(&entity)));
   }
   static void apply(Entity& entity, NboAttrLog::In& in) {
      if constexpr (settable) {
         decodeTo<T>(in, [&](auto const& v) { (static_cast<Owner&>(entity).*Set)(v); });
      }
   }

   static constexpr AttrOps ops = [] {
      AttrOps all{};
      all.read = &read;
      if constexpr (settable) {
         all.write = &write;
      }
      if constexpr (std::is_base_of_v<Entity, Owner>) {
         all.fixedSize = fixedEncodedSize<T>;
         all.encodedSize = &encodedSize;
         all.encode = &encode;
         if constexpr (settable) {
            all.apply = &apply;
         }
      }
      return all;
   }();
};

/// Keeps the first exception of several steps that must all be taken: those of observers, which
/// come when a step has done its work.
class FirstException {
public:
   template <class Step>
   void attempt(Step&& step) {
      try {
         step();
      } catch (...) {
         if (first_ == nullptr) {
            first_ = std::current_exception();
         }
      }
   }
   void rethrow() const {
      if (first_ != nullptr) {
         std::rethrow_exception(first_);
      }
   }

private:
   std::exception_ptr first_;
};

/// A set of dirty keys: which ones, and of each whether its former element was removed.
template <class K>
class DirtyKeySet final : public DirtyKeys {
public:
   void insert(void const* key, bool erased) override {
      K const& k = *static_cast<K const*>(key);
      keys_.insert(k);
      if (erased) {
         erased_.insert(k);
      }
   }
   void remove(void const* key) override {
      keys_.erase(*static_cast<K const*>(key));
      erased_.erase(*static_cast<K const*>(key));
   }
   bool has(void const* key) const override { return keys_.has(*static_cast<K const*>(key)); }
   std::size_t size() const override { return keys_.size(); }
   bool flush(void* context, DirtyKeyResult (*write)(void*, void const*, bool)) override {
      for (auto at = keys_.iterator(); at; ++at) {
         K const key = at.key();
         DirtyKeyResult const result = write(context, &key, erased_.has(key));
         if (result == DirtyKeyResult::full) {
            return false;
         }
         keys_.erase(at);
         erased_.erase(key);
         if (result == DirtyKeyResult::writtenAndStop) {
            return keys_.size() == 0;
         }
      }
      return true;
   }

private:
   HSet<K> keys_;
   HSet<K> erased_;
};

/// The same in key order, for ordered maps.
template <class K>
class OrderedDirtyKeySet final : public DirtyKeys {
public:
   void insert(void const* key, bool erased) override {
      K const& k = *static_cast<K const*>(key);
      if (bool* const known = keys_.find(k)) {
         *known = *known || erased;
      } else {
         keys_.insert(k, erased);
      }
   }
   void remove(void const* key) override { keys_.erase(*static_cast<K const*>(key)); }
   bool has(void const* key) const override {
      return keys_.find(*static_cast<K const*>(key)) != nullptr;
   }
   std::size_t size() const override { return keys_.size(); }
   bool flush(void* context, DirtyKeyResult (*write)(void*, void const*, bool)) override {
      while (keys_.size() != 0) {
         auto const at = keys_.begin();
         K const key = at->key;
         DirtyKeyResult const result = write(context, &key, at->value);
         if (result == DirtyKeyResult::full) {
            return false;
         }
         keys_.erase(key);
         if (result == DirtyKeyResult::writtenAndStop) {
            break;
         }
      }
      return keys_.size() == 0;
   }

private:
   RbTreeMap<K, bool> keys_;
};

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
   static Sarn::Ptr<Entity> applyDelete(Entity& owner, NboAttrLog::In& in) {
      typename Self::K const key = ValueOps<typename Self::K>::decode(in);
      in.expectEnd();
      if constexpr (std::is_void_v<Child>) {
         Self::erase(owner, key);
         return {};
      } else {
         return Self::erase(owner, key);
      }
   }
   static void delUnseen(Entity& owner, DirtyKeys const& seen) {
      FirstException thrown;
      for (auto at = checkedIterator(Self::map(owner)); at; ++at) {
         typename Self::K const key = at.key();
         if (!seen.has(&key)) {
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

/// A map of values whose keys lie outside them: a hash map or an ordered map.
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
      mapIs<M, K, V>(owner, id, map(owner), key, value);
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
   static void set(Entity& owner, V const& value) {
      K const key = M::PolicyType::keyOf(value);
      internalKeyMapIs<M, K, V>(owner, id, map(owner), key, value);
   }
   static void is(Entity& owner, void const*, void const* value) {
      set(owner, *static_cast<V const*>(value));
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
      Base::saw(seen, M::PolicyType::keyOf(value));
      set(owner, value);
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

/// The parameters of a creating accessor, without reference and const.
template <class F>
struct AccessorArgs;
template <class Owner, class R, class... A>
struct AccessorArgs<R (Owner::*)(A...)> {
   using Tuple =
         std::tuple<std::conditional_t<std::is_same_v<std::remove_cvref_t<A>, std::string_view>,
                                       Sarn::String, std::remove_cvref_t<A>>...>;
};

/// An instantiating collection. `Is` and `Del` are the owner's accessors.
template <class Owner, auto Map, AttributeId id, auto Is, auto Del>
struct ChildrenOps
      : KeyedOps<ChildrenOps<Owner, Map, id, Is, Del>,
                 typename std::remove_cvref_t<decltype(std::declval<Owner&>().*Map)>::Child> {
   using Self = ChildrenOps;
   using M = std::remove_cvref_t<decltype(std::declval<Owner&>().*Map)>;
   using Child = typename M::Child;
   using Base = KeyedOps<Self, Child>;
   using K = typename M::Key;
   using Keys = DirtyKeySet<K>;
   using Args = typename AccessorArgs<decltype(Is)>::Tuple;

   static M& map(Entity& owner) { return static_cast<Owner&>(owner).*Map; }
   static M const& map(Entity const& owner) { return static_cast<Owner const&>(owner).*Map; }
   static Sarn::Ptr<Entity> erase(Entity& owner, K const& key) {
      return (static_cast<Owner&>(owner).*Del)(key);
   }
   static void delAll(Entity& owner) { childrenDelAll(owner, id, map(owner)); }

   static Entity* findChild(Entity const& owner, void const* key) {
      auto const* const found = map(owner).find(*static_cast<K const*>(key));
      return found != nullptr ? found->get() : nullptr;
   }
   static void const* find(Entity const& owner, void const* key) { return findChild(owner, key); }
   static Sarn::Ptr<Entity> make(Entity& owner, Args const& args) {
      return std::apply([&](auto const&... a) { return (static_cast<Owner&>(owner).*Is)(a...); },
                        args);
   }
   static constexpr auto childArgTypes = []<std::size_t... i>(std::index_sequence<i...>) {
      return std::array<TypeImpl const*, sizeof...(i)>{&typeOf<std::tuple_element_t<i, Args>>()...};
   }
   (std::make_index_sequence<std::tuple_size_v<Args>>());
   static Sarn::Ptr<Entity> childIs(Entity& owner, void const* const* given) {
      return [&]<std::size_t... i>(std::index_sequence<i...>)->Sarn::Ptr<Entity> {
         if (given == nullptr || (... || (given[i] == nullptr))) {
            throwNewEntityArgsException(typeOf<Child>().name);
         }
         return (static_cast<Owner&>(owner).*
                 Is)(*static_cast<std::tuple_element_t<i, Args> const*>(given[i])...);
      }
      (std::make_index_sequence<std::tuple_size_v<Args>>());
   }
   static Sarn::Ptr<Entity> applyCreate(Entity& owner, NboAttrLog::In& in, DirtyKeys* seen,
                                        void* context, void (*found)(void*, Entity&)) {
      Args args;
      std::apply(
            [&](auto&... a) {
               ((a = ValueOps<std::remove_reference_t<decltype(a)>>::decode(in)), ...);
            },
            args);
      in.expectEnd();
      Base::saw(seen, std::get<0>(args));
      if (Entity* const there = findChild(owner, &std::get<0>(args))) {
         found(context, *there);
      }
      FirstException thrown;
      for (int left = mostReplacements;; --left) {
         try {
            Sarn::Ptr<Entity> const child = make(owner, args);
            thrown.rethrow();
            return child;
         } catch (MutatorReinstValException const&) {
            if (left == 0) {
               throw;
            }
         }
         // The source has another child under this key than the mirror: it replaces ours, and what
         // an observer puts in its place.
         thrown.attempt([&] { erase(owner, std::get<0>(args)); });
      }
   }
   static constexpr int mostReplacements = 8;

   static constexpr CollectionOps collection = [] {
      CollectionOps ops = Base::common();
      ops.find = &find;
      ops.findChild = &findChild;
      ops.childIs = &childIs;
      ops.childArgTypes = childArgTypes.data();
      ops.childArgCount = childArgTypes.size();
      ops.applyCreate = &applyCreate;
      return ops;
   }();
   static constexpr AttrOps ops = collectionOps(collection);
};

/// A singleton child. `Is` takes a name where the child has one.
template <class Owner, auto Get, auto Is, auto Del>
struct SingletonOps {
   static Entity* get(Entity const& owner) {
      return (static_cast<Owner const&>(owner).*Get)().get();
   }
   static Sarn::Ptr<Entity> is(Entity& owner, std::string_view name) {
      if constexpr (std::is_invocable_v<decltype(Is), Owner&>) {
         (void)name;
         return (static_cast<Owner&>(owner).*Is)();
      } else {
         return (static_cast<Owner&>(owner).*Is)(name);
      }
   }
   static Sarn::Ptr<Entity> del(Entity& owner) { return (static_cast<Owner&>(owner).*Del)(); }

   static constexpr ChildOps child{&get, &is, &del};
   static constexpr AttrOps ops = [] {
      AttrOps all{};
      all.child = &child;
      return all;
   }();
};

template <class Owner, auto Queue, AttributeId id>
struct QueueMemberOps {
   using Q = std::remove_cvref_t<decltype(std::declval<Owner&>().*Queue)>;
   using T = typename Q::Value;

   static Q& queue(Entity& owner) { return static_cast<Owner&>(owner).*Queue; }
   static Q const& queue(Entity const& owner) { return static_cast<Owner const&>(owner).*Queue; }

   static std::size_t size(Entity const& owner) { return queue(owner).size(); }
   static U32 frontSequence(Entity const& owner) {
      return queue(owner).empty() ? queue(owner).nextSequence() : queue(owner).frontSequence();
   }
   static U32 nextSequence(Entity const& owner) { return queue(owner).nextSequence(); }
   static void const* at(Entity const& owner, U32 sequence) { return queue(owner).find(sequence); }
   static void enq(Entity& owner, void const* value) {
      queueEnq(owner, id, queue(owner), *static_cast<T const*>(value));
   }
   static bool deq(Entity& owner) {
      bool const any = !queue(owner).empty();
      queueDeq(owner, id, queue(owner));
      return any;
   }
   static void delAll(Entity& owner) { queueDelAll(owner, id, queue(owner)); }
   static std::size_t elementSize(void const* value) {
      return ValueOps<T>::size(*static_cast<T const*>(value));
   }
   static void encodeElement(NboAttrLog::Out& out, void const* value) {
      ValueOps<T>::encode(out, *static_cast<T const*>(value));
   }
   static void applyEnq(Entity& owner, U32 sequence, NboAttrLog::In& in) {
      T const value = ValueOps<T>::decode(in);
      in.expectEnd();
      Q& q = queue(owner);
      FirstException thrown;
      if (q.nextSequence() != sequence) {
         dropTo(owner, q.nextSequence(), thrown);
         q.forceSequenceNumber(sequence);
      }
      thrown.attempt([&] { queueEnq(owner, id, q, value); });
      thrown.rethrow();
   }
   static void applyFront(Entity& owner, U32 sequence) {
      Q& q = queue(owner);
      FirstException thrown;
      dropTo(owner, sequence, thrown);
      if (!q.empty() && q.frontSequence() != sequence) {
         dropTo(owner, q.nextSequence(), thrown);
      }
      if (q.empty() && q.nextSequence() != sequence) {
         q.forceSequenceNumber(sequence);
         thrown.attempt(
               [&] { owner.publishChangeRecursive(id, &sequence, nullptr, &keysEqual<U32>); });
      }
      thrown.rethrow();
   }
   /// Takes out the elements before `sequence`.
   static void dropTo(Entity& owner, U32 sequence, FirstException& thrown) {
      Q& q = queue(owner);
      while (!q.empty() && static_cast<S32>(sequence - q.frontSequence()) > 0) {
         thrown.attempt([&] { queueDeq(owner, id, q); });
      }
   }

   static constexpr QueueOps queueOps{&size,          &frontSequence, &nextSequence, &at,
                                      &enq,           &deq,           &delAll,       &elementSize,
                                      &encodeElement, &applyEnq,      &applyFront};
   static constexpr AttrOps ops = [] {
      AttrOps all{};
      all.queue = &queueOps;
      return all;
   }();
};

}  // namespace Impl

// Row makers. `flags` are `FieldDescriptor::Flag`s.

/// A value. Without a setter it is read-only.
template <class Owner, auto Get, auto Set = nullptr>
constexpr FieldDescriptor single(AttributeId id, U16 kindWord, char const* name, U16 flags) {
   using Ops = Impl::SingleOps<Owner, Get, Set>;
   return {id,      kindWord, flags, MemberKind::single, name, &typeOf<typename Ops::T>(),
           nullptr, &Ops::ops};
}

template <class Owner, auto Get, auto Is, auto Del>
constexpr FieldDescriptor child(AttributeId id, char const* name, U16 flags) {
   using Child = typename std::remove_cvref_t<decltype((std::declval<Owner const&>().*
                                                        Get)())>::element_type;
   return {id,   0xdd20,           flags,   MemberKind::child,
           name, &typeOf<Child>(), nullptr, &Impl::SingletonOps<Owner, Get, Is, Del>::ops};
}

template <class Owner, auto Map, AttributeId id, auto Is, auto Del>
constexpr FieldDescriptor children(char const* name, U16 flags) {
   using Ops = Impl::ChildrenOps<Owner, Map, id, Is, Del>;
   return {id,
           0xdd21,
           flags,
           MemberKind::children,
           name,
           &typeOf<typename Ops::Child>(),
           &typeOf<typename Ops::K>(),
           &Ops::ops};
}

/// A map with its keys outside the values; `MemberKind::ordered` for an ordered one.
template <class Owner, auto Map, AttributeId id>
constexpr FieldDescriptor map(char const* name, U16 flags) {
   using Ops = Impl::MapOps<Owner, Map, id>;
   return {id,
           0xdc01,
           flags,
           Ops::isOrdered ? MemberKind::ordered : MemberKind::map,
           name,
           &typeOf<typename Ops::V>(),
           &typeOf<typename Ops::K>(),
           &Ops::ops};
}

template <class Owner, auto Map, AttributeId id>
constexpr FieldDescriptor internalKeyMap(char const* name, U16 flags) {
   using Ops = Impl::InternalKeyMapOps<Owner, Map, id>;
   return {id,
           0xdc01,
           static_cast<U16>(flags | FieldDescriptor::keyInside),
           MemberKind::map,
           name,
           &typeOf<typename Ops::V>(),
           &typeOf<typename Ops::K>(),
           &Ops::ops};
}

template <class Owner, auto Queue, AttributeId id>
constexpr FieldDescriptor queue(char const* name, U16 flags) {
   using Ops = Impl::QueueMemberOps<Owner, Queue, id>;
   return {id,
           0xdc01,
           flags,
           MemberKind::queue,
           name,
           &typeOf<typename Ops::T>(),
           &typeOf<U32>(),
           &Ops::ops};
}

/// A hand-written operation: it has a place and a name, nothing else.
constexpr FieldDescriptor operation(AttributeId id, U16 kindWord, char const* name) {
   return {id, kindWord, 0, MemberKind::operation, name, nullptr, nullptr, nullptr};
}

/// An id that nobody has.
constexpr FieldDescriptor reserved(AttributeId id) {
   return {id, 0, 0, MemberKind::none, "", nullptr, nullptr, nullptr};
}

}  // namespace Kiv

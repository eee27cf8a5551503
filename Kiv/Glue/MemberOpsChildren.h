#pragma once

#include <memory>
#include <tuple>

#include "Kiv/Glue/MemberOpsKeyed.h"

/// Operations on a collection of child entities. See `Kiv/Glue/MemberOps.h`.
namespace Kiv::Impl {
#pragma GCC visibility push(hidden)

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
      return typesOf<std::tuple_element_t<i, Args>...>;
   }
   (std::make_index_sequence<std::tuple_size_v<Args>>());
   static Sarn::Ptr<Entity> childIs(Entity& owner, CtorArgs given) {
      checkCtorArgs(typeOf<Child>().name, given, childArgTypes);
      return [&]<std::size_t... i>(std::index_sequence<i...>)->Sarn::Ptr<Entity> {
         return (static_cast<Owner&>(owner).*
                 Is)(*static_cast<std::tuple_element_t<i, Args> const*>(given[i].address)...);
      }
      (std::make_index_sequence<std::tuple_size_v<Args>>());
   }
   static Sarn::Ptr<Entity> applyCreate(Entity& owner, NboAttrLog::In& in, DirtyKeys* seen,
                                        CreationReceiver& receiver) {
      Args args;
      std::apply(
            [&](auto&... a) {
               ((a = ValueOps<std::remove_reference_t<decltype(a)>>::decode(in)), ...);
            },
            args);
      in.expectEnd();
      Base::saw(seen, std::get<0>(args));
      Entity* there = findChild(owner, &std::get<0>(args));
      if (there != nullptr) {
         receiver.found(*there);
      } else if (!receiver.wanted(&std::get<0>(args))) {
         return {};
      }
      FirstException thrown;
      for (int left = mostReplacements;; --left) {
         Sarn::Ptr<Entity> child;
         bool replace = false;
         thrown.attempt([&] {
            U32 const before = Sarn::Publisher::observersThrew();
            Exactly<void const*> const exactly(exactChild, there);
            try {
               child = make(owner, args);
            } catch (MutatorReinstValException const&) {
               replace = left != 0 && before == Sarn::Publisher::observersThrew();
               if (!replace) {
                  throw;
               }
            }
         });
         if (!replace) {
            there = child ? nullptr : findChild(owner, &std::get<0>(args));
            if (there != nullptr) {
               receiver.found(*there);
            }
            thrown.rethrow();
            return child;
         }
         // The source has another child under this key than the mirror: it replaces ours, and
         // whatever an observer inserts in its place.
         thrown.attempt([&] { erase(owner, std::get<0>(args)); });
         there = findChild(owner, &std::get<0>(args));
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

#pragma GCC visibility pop

}  // namespace Kiv::Impl

#pragma once

#include <memory>

#include "Kiv/AttrOps.h"
#include "Kiv/Glue/Members.h"
#include "Kiv/Types.h"

/// Operations on a member that holds one thing: a value or a singleton child. See
/// `Kiv/Glue/MemberOps.h`.
namespace Kiv::Impl {
#pragma GCC visibility push(hidden)

/// The object of a generic operation: an entity is passed as its `Entity`, a value as itself.
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

/// `Get` is an accessor, or a static function that returns a constant.
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
         decodeTo<T>(in, [&](auto const& v) {
            auto& owner = static_cast<Owner&>(entity);
            if constexpr (equalMayDiffer<T>) {
               T const& stored = getMember<Owner, Get>(owner);
               if (stored == v && !isIdentical(stored, v)) [[unlikely]] {
                  Exactly const exactly(storesEqual, true);
                  (owner.*Set)(v);
                  return;
               }
            }
            (owner.*Set)(v);
         });
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

/// A singleton child. `Is` takes a name if the child has one.
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

#pragma GCC visibility pop

}  // namespace Kiv::Impl

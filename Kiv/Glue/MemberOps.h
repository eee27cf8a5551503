#pragma once

#include <array>
#include <limits>

#include "Kiv/Glue/MemberOpsChildren.h"
#include "Kiv/Glue/MemberOpsKeyed.h"
#include "Kiv/Glue/MemberOpsQueue.h"
#include "Kiv/Glue/MemberOpsSingle.h"

/// Rows of a type's member table: `FieldDescriptor`s with the functions that drive one member. The
/// generated source has one line per member, such as
///
///     Kiv::single<Config, &Config::driftLimit, &Config::driftLimitIs, &Config::driftLimitRange_>(
///           274, 0xdc00, "driftLimit", Flag::streamed),
///
/// The functions and their tables have hidden visibility: only the library itself refers to them,
/// so loading it needs no symbol lookups for them.
namespace Kiv {

namespace Impl {

/// The bounds of a range, as a row points to them.
template <auto RangeOf>
[[gnu::visibility("hidden")]] inline constexpr std::array boundsOf{RangeOf().least,
                                                                   RangeOf().greatest};

/// Null for no range, and for one that leaves nothing of the type out.
template <auto RangeOf>
constexpr void const* bounds() {
   if constexpr (!std::is_null_pointer_v<decltype(RangeOf)>) {
      using Limits = std::numeric_limits<decltype(RangeOf().least)>;
      if constexpr (RangeOf().least != Limits::lowest() || RangeOf().greatest != Limits::max()) {
         return boundsOf<RangeOf>.data();
      }
   }
   return nullptr;
}

}  // namespace Impl

// Row makers. `flags` are `FieldDescriptor::Flag`s.

/// A value. Without a setter it is read-only. `RangeOf`: a function that gives its `Range`.
template <class Owner, auto Get, auto Set = nullptr, auto RangeOf = nullptr>
constexpr FieldDescriptor single(AttributeId id, U16 kindWord, char const* name, U16 flags) {
   using Ops = Impl::SingleOps<Owner, Get, Set>;
   return {id,
           kindWord,
           flags,
           MemberKind::single,
           name,
           &typeOf<typename Ops::T>(),
           nullptr,
           &Ops::ops,
           Impl::bounds<RangeOf>()};
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

/// A hand-written operation: an id and a name, nothing else.
constexpr FieldDescriptor operation(AttributeId id, U16 kindWord, char const* name) {
   return {id, kindWord, 0, MemberKind::operation, name, nullptr, nullptr, nullptr};
}

/// A reserved id.
constexpr FieldDescriptor reserved(AttributeId id) {
   return {id, 0, 0, MemberKind::none, "", nullptr, nullptr, nullptr};
}

}  // namespace Kiv

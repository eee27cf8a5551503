#pragma once

#include <concepts>
#include <string_view>
#include <tuple>

#include "Kiv/Map/Hash.h"

namespace Kiv {

/// A value type that hands over the parts of its hash as a tuple, for tables: those that its `hash`
/// passes to `hashFields`.
template <class T>
concept HasHashParts = requires(T const& v) {
   v.hashParts();
};

namespace Impl {

/// A generated value type that has a hash, and not just that of its only field.
template <class T>
concept HasHashedFields = requires(T const& v) {
   v.hash(U32{});
   T::kivFields();
}
&&!requires {
   requires T::kivTransparent;
};

/// The hash of a key as the hash tables use it: that of `hashSingleAttr`, and so of the key's own
/// `hash(seed)`, before it is reduced to 32 bits. All 64 bits matter, but they are mixed only as
/// far as they have to be before a table multiplies them by its factor: one multiplication for one
/// or two parts. A type with a hash of its own that does not say what it is made of has 32 bits.
template <class T>
U64 tableHash(U32 seed, T const& v) {
   auto const ofParts = [&](auto const& a, auto const&... rest) {
      if constexpr (sizeof...(rest) == 0) {
         return mixWord(spreadSeed(seed), hashField(seed, a));
      } else {
         return hashRest(spreadSeed(seed), a, rest...);
      }
   };
   if constexpr (std::integral<T> || std::is_enum_v<T> || HasHashWord<T>) {
      return ofParts(v);
   } else if constexpr (std::convertible_to<T const&, std::string_view>) {
      std::string_view const text = v;
      return mixBytes(spreadSeed(seed), text.data(), text.size());
   } else if constexpr (HasHashParts<T>) {
      return std::apply(ofParts, v.hashParts());
   } else if constexpr (HasHashedFields<T>) {
      return std::apply([&](auto const&... f) { return ofParts(v.*f.member...); }, T::kivFields());
   } else {
      return hashSingleAttr(seed, v);
   }
}

}  // namespace Impl

}  // namespace Kiv

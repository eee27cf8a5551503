#pragma once

#include <bit>
#include <cstring>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "Kiv/ValueOps.h"

/// Values that are equal but not identical: 0.0 and -0.0, alone or inside other values. Setters
/// compare by equality. Values from the attribute log are stored bit by bit, so a mirror shows the
/// same one as its source even if it missed the changes in between.
namespace Kiv {

/// Whether equal values of the type may have different text or encoding.
template <class T>
inline constexpr bool equalMayDiffer = [] {
   if constexpr (requires { T::kivFields(); }) {
      return std::apply(
            [](auto const&... f) {
               return (equalMayDiffer<typename std::remove_cvref_t<decltype(f)>::Type> || ...);
            },
            T::kivFields());
   } else if constexpr (requires { typename T::value_type; } && !std::is_same_v<T, Sarn::String>) {
      return equalMayDiffer<typename T::value_type>;  // an optional
   } else {
      // For a hand-written type, only the encoding tells.
      return std::is_floating_point_v<T> || requires {
         T::kivMaxEncodedSize;
      };
   }
}();

/// Whether two equal values have the same encoding. REQUIRES: a == b.
template <class T>
bool isIdentical(T const& a, T const& b) {
   if constexpr (!equalMayDiffer<T>) {
      return true;
   } else if constexpr (std::is_same_v<T, float>) {
      return std::bit_cast<U32>(a) == std::bit_cast<U32>(b);
   } else if constexpr (std::is_same_v<T, double>) {
      return std::bit_cast<U64>(a) == std::bit_cast<U64>(b);
   } else if constexpr (requires { T::kivFields(); }) {
      return std::apply(
            [&](auto const&... f) { return (isIdentical(a.*f.member, b.*f.member) && ...); },
            T::kivFields());
   } else if constexpr (requires { typename T::value_type; }) {
      return !a || isIdentical(*a, *b);
   } else {
      std::size_t const size = ValueOps<T>::size(a);
      if (size != ValueOps<T>::size(b)) {
         return false;
      }
      auto const equalEncodings = [&](U8* room) {
         NboAttrLog::Out out(room, 2 * size);
         ValueOps<T>::encode(out, a);
         ValueOps<T>::encode(out, b);
         return std::memcmp(room, room + size, size) == 0;
      };
      constexpr std::size_t most = ValueOps<T>::maxSize;
      if constexpr (most <= 64) {
         U8 room[2 * most];
         return equalEncodings(room);
      } else {
         return equalEncodings(std::vector<U8>(2 * size).data());
      }
   }
}

namespace Impl {

/// Set while the log applies a value that equals the stored one but is not identical to it; reset
/// by the setter that the value goes through.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local bool storesEqual;
/// The child that the log is creating again: its constant arguments are compared bit by bit.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local void const* exactChild;

/// Sets one of these variables for its own lifetime.
template <class T>
class Exactly {
public:
   Exactly(T& place, T value) noexcept : place_(place) { place_ = value; }
   ~Exactly() { place_ = T(); }
   Exactly(Exactly const&) = delete;
   Exactly& operator=(Exactly const&) = delete;

private:
   T& place_;
};

}  // namespace Impl

/// A setter's comparison: whether there is nothing to store and publish.
template <class T, class V>
inline bool isUnchanged(T const& stored, V const& v) {
   if constexpr (equalMayDiffer<T>) {
      return stored == v && !std::exchange(Impl::storesEqual, false);
   } else {
      return stored == v;
   }
}

}  // namespace Kiv

#pragma once

#include <atomic>
#include <bit>
#include <concepts>
#include <cstring>
#include <optional>
#include <string_view>
#include <type_traits>

#include "Sarn/String.h"
#include "Sarn/Types.h"

/// Hashing of keys: 32 bits, seeded, and well mixed in all of them. The hash tables use the same
/// functions, as far as they can before the result is reduced to 32 bits: see `TableHash.h`.
///
/// A composite value hashes its fields in declaration order, in one line:
///
///     U32 PortDSKey::hash(U32 seed) const { return Kiv::hashFields(seed, intf_, vlanId_); }
///
/// Every hash depends on a seed and on a secret of 64 bits. Both differ from process to process, so
/// that a peer that chooses keys cannot know which ones collide.
namespace Kiv {

/// The process-wide seed.
class HashHelper {
public:
   /// The seed of this process: random, never 0, the same for the life of the process. A collection
   /// hashes with this seed exclusive-or its own constant. Any thread may ask.
   static U32 hashSeed32() noexcept {
      U32 const seed = seed_.load(std::memory_order_relaxed);
      return seed != 0 ? seed : makeSeed();
   }

   /// Fixes the seed and all secrets, so that a test sees the same orders in every run: from each
   /// call on, maps get the orders that they got after the first call.
   /// REQUIRES: `seed` is not 0, nothing has been hashed yet except with this seed, and no other
   /// thread makes maps meanwhile.
   static void hashSeed32Is(U32 seed) noexcept;

private:
   static U32 makeSeed() noexcept;

   inline static constinit std::atomic<U32> seed_{0};
};

namespace Impl {

__extension__ using U128 = unsigned __int128;

inline constexpr U64 hashMultiplier = 0x9E6C63D0876A9A47;
inline constexpr U64 hashMultiplier2 = 0xB5026F5AA96619E9;

/// Both halves of the 128-bit product, folded together: each bit of the result depends on each bit
/// of both factors.
constexpr U64 foldedMultiply(U64 a, U64 b) {
   U128 const product = static_cast<U128>(a) * b;
   return static_cast<U64>(product) ^ static_cast<U64>(product >> 64);
}

/// The secret part of every hash: 64 random bits, drawn when the library is loaded, which never
/// leave the process. A forked process keeps them.
extern U64 hashSecret;

/// The number of the next order that a hash table requests, from 1. No number is given twice.
U64 nextOrder() noexcept;
/// The factor of that order: odd, and derived from a second secret, which a forked process draws
/// again.
U64 orderFactor(U64 number) noexcept;

/// A seed spread over 64 bits and mixed with the secret. The multiplier is not symmetric, so that
/// folding does not cancel it.
inline U64 spreadSeed(U32 seed) noexcept {
   return seed * hashMultiplier2 ^ hashSecret;
}

/// Spreads differences to the lower bits, and by the product to the upper ones.
constexpr U64 hashStep(U64 state) {
   return (state ^ state >> 32) * hashMultiplier;
}
/// Reduces a state whose bits are mixed already to 32 bits.
constexpr U32 hashFinish(U64 state) {
   return static_cast<U32>(hashStep(state) >> 32);
}

/// The seed goes into both factors: whoever could make one of them zero would find collisions.
constexpr U64 mixWord(U64 state, U64 v) {
   return foldedMultiply(state ^ v, state ^ hashMultiplier);
}
inline U32 hashWord(U32 seed, U64 v) {
   return hashFinish(mixWord(spreadSeed(seed), v));
}

U64 mixLongBytes(U64 state, char const* bytes, std::size_t size) noexcept;

template <class T>
T loadUnaligned(char const* p) {
   T v;
   std::memcpy(&v, p, sizeof v);
   return v;
}

inline U64 mixBytes(U64 state, char const* p, std::size_t size) noexcept {
   U64 a = 0;
   U64 b = 0;
   if (size > 16) {
      return mixLongBytes(state, p, size);
   }
   if (size >= 8) {
      a = loadUnaligned<U64>(p);
      b = loadUnaligned<U64>(p + size - 8);
   } else if (size >= 4) {
      a = loadUnaligned<U32>(p);
      b = loadUnaligned<U32>(p + size - 4);
   } else if (size > 0) {
      a = static_cast<U8>(p[0]);
      b = U64{static_cast<U8>(p[size / 2])} << 8 | static_cast<U8>(p[size - 1]);
   }
   // As for a word the seed goes into both factors.
   return foldedMultiply(a ^ state, b ^ state ^ hashMultiplier) + size;
}
inline U32 hashBytes(U32 seed, char const* p, std::size_t size) noexcept {
   return hashFinish(mixBytes(spreadSeed(seed), p, size));
}

}  // namespace Impl

/// The hash of one integer, bool, enumerator, floating value (0.0 and -0.0 hash alike, as they are
/// equal), string or value type; one to two nanoseconds for anything up to eight bytes.
template <class T>
requires std::integral<T> || std::is_enum_v<T>
inline U32 hashSingleAttr(U32 seed, T v) noexcept {
   return Impl::hashWord(seed, static_cast<U64>(v));
}
template <std::floating_point T>
U32 hashSingleAttr(U32 seed, T v) noexcept {
   double const wide = static_cast<double>(v == 0 ? T{0} : v);
   return Impl::hashWord(seed, std::bit_cast<U64>(wide));
}
inline U32 hashSingleAttr(U32 seed, std::string_view v) noexcept {
   return Impl::hashBytes(seed, v.data(), v.size());
}
template <class T>
requires requires(T const& v, U32 seed) {
   { v.hash(seed) } -> std::same_as<U32>;
}
U32 hashSingleAttr(U32 seed, T const& v) {
   return v.hash(seed);
}
template <class T>
U32 hashSingleAttr(U32 seed, std::optional<T> const& v) {
   return v ? hashSingleAttr(seed, *v) : Impl::hashWord(seed, Impl::hashMultiplier2);
}

/// Mixes the hash of one more part into a running hash. Not symmetric: order counts.
inline U32 hashMix(U32 seed, U32 h) noexcept {
   return Impl::hashWord(seed, h);
}

/// A value type of at most 64 bits that, as a field, hands over its bits unhashed: then the whole
/// is hashed at once.
template <class T>
concept HasHashWord = requires(T const& v) {
   { v.hashWord() } -> std::same_as<U64>;
};

namespace Impl {

template <class T>
U64 hashField(U32 seed, T const& field) {
   if constexpr (std::integral<T> || std::is_enum_v<T>) {
      return static_cast<U64>(field);
   } else if constexpr (HasHashWord<T>) {
      return field.hashWord();
   } else {
      return hashSingleAttr(seed, field);
   }
}

/// Two fields at a time: the seed is in both factors, so that nobody can make one of them zero.
inline U64 hashRest(U64 state) {
   return state;
}
template <class A>
U64 hashRest(U64 state, A const& a) {
   return foldedMultiply(state ^ hashField(static_cast<U32>(state), a), hashMultiplier);
}
template <class A, class B, class... Rest>
U64 hashRest(U64 state, A const& a, B const& b, Rest const&... rest) {
   U32 const seed = static_cast<U32>(state);
   return hashRest(
         foldedMultiply(state ^ hashField(seed, a), state ^ hashMultiplier ^ hashField(seed, b)),
         rest...);
}

}  // namespace Impl

/// The hash of one or more fields in declaration order: what a value type's `hash(seed)` returns.
template <class First, class... Rest>
U32 hashFields(U32 seed, First const& first, Rest const&... rest) {
   if constexpr (sizeof...(Rest) == 0) {
      return Impl::hashWord(seed, Impl::hashField(seed, first));
   } else {
      return Impl::hashFinish(Impl::hashRest(Impl::spreadSeed(seed), first, rest...));
   }
}

/// How a lookup takes a key of type `K`: a string as a view, so that no string has to be made.
template <class K>
using LookupKey = std::conditional_t<
      std::is_same_v<K, Sarn::String>, std::string_view,
      std::conditional_t<std::is_trivially_copyable_v<K> && sizeof(K) <= 8, K, K const&>>;

/// Hashes keys of type `K` with a given seed.
template <class K>
struct Hash {
   U32 operator()(LookupKey<K> key, U32 seed) const { return hashSingleAttr(seed, key); }
};

}  // namespace Kiv

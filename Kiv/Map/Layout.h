#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

#if defined(__SSE2__)
#   include <emmintrin.h>
#endif

#include "Sarn/Types.h"

namespace Sarn {
template <class T>
class Ptr;
}  // namespace Sarn

/// Building blocks of bucket arrays: moving elements, sizes, and comparing tags sixteen at a time.
/// For the hash tables only; `Kiv/Map/Array.h` shows the whole.
namespace Kiv::Impl {

/// Whether an object may be moved by copying its bytes and forgetting the original.
template <class T>
inline constexpr bool triviallyRelocatable = std::is_trivially_copyable_v<T>;
template <class T>
inline constexpr bool triviallyRelocatable<Sarn::Ptr<T>> = true;
template <class T>
inline constexpr bool triviallyRelocatable<std::unique_ptr<T>> = true;

/// Moves an object to uninitialised memory, leaving uninitialised memory.
template <class T>
void relocate(T* to, T* from) noexcept {
   if constexpr (triviallyRelocatable<T>) {
      std::memcpy(static_cast<void*>(to), static_cast<void const*>(from), sizeof(T));
   } else {
      static_assert(std::is_nothrow_move_constructible_v<T>,
                    "elements move when others come and go, and that must not fail");
      std::construct_at(to, std::move(*from));
      std::destroy_at(from);
   }
}

/// A smart pointer to something.
template <class T>
concept PointsToObject = requires(T const& p) {
   sizeof(*p.get());
};

/// Prefetches the start of the object that `p` points to.
template <PointsToObject T>
void prefetchObject(T const& p) noexcept {
   constexpr std::size_t lines = 4;
   char const* const object = reinterpret_cast<char const*>(p.get());
   for (std::size_t i = 0; i < lines && i * 64 < sizeof(*p.get()); ++i) {
      __builtin_prefetch(object + i * 64);
   }
}

/// A step in the size of bucket arrays.
class HashSizeStep {
public:
   constexpr HashSizeStep() noexcept = default;
   /// The smallest step that has room for `count` elements.
   static constexpr HashSizeStep forCount(std::size_t count) noexcept {
      if (count <= 8) {
         return HashSizeStep(count <= 2 ? 1 : count <= 4 ? 2 : 3);
      }
      // Three quarters of the slots may be taken.
      return HashSizeStep(static_cast<U8>(std::bit_width((count * 4 + 2) / 3 - 1)));
   }
   constexpr HashSizeStep next() const noexcept { return HashSizeStep(static_cast<U8>(log2_ + 1)); }

   /// The slots of all homes, a power of two.
   constexpr U32 homeSlots() const noexcept { return U32{1} << log2_; }
   /// place >> shift is the number of the home block.
   constexpr U8 shift() const noexcept {
      return static_cast<U8>(log2_ <= blockLog2 ? 32 : 32 + blockLog2 - log2_);
   }
   /// The most elements of an array of this step.
   constexpr U32 limit() const noexcept { return isSmall() ? homeSlots() : homeSlots() / 4 * 3; }
   /// Slots, those of the homes and of the usual tail together. A single block is never full.
   constexpr U32 slots() const noexcept {
      return homeSlots() + (log2_ > blockLog2 ? 1 << blockLog2 : 0);
   }
   /// An array of this step shrinks when this many elements are left.
   constexpr U32 shrinkAt() const noexcept { return log2_ > 1 ? limit() / 8 : 0; }
   /// How many insertions far from home an array of this step tolerates: by then they have cost
   /// about as much as reordering it.
   constexpr U16 patience() const noexcept {
      return static_cast<U16>(std::min(homeSlots() / 128, U32{0xffff}));
   }
   constexpr bool operator==(HashSizeStep const&) const = default;

private:
   constexpr explicit HashSizeStep(U8 log2) noexcept : log2_(log2) {}
   constexpr bool isSmall() const noexcept { return log2_ < blockLog2; }

   static constexpr U8 blockLog2 = 4;
   /// The base-2 logarithm of the slots of the homes.
   U8 log2_ = 1;
};

/// What distinguishes a new bucket array from all others of the process.
struct HashOrder {
   /// Counts the orders that have been made.
   U64 number;
   /// Odd, random, and another in each process, a forked one included.
   U64 factor;

   /// Any thread may ask.
   static HashOrder fresh() noexcept;
};

inline constexpr U8 hashTag(U64 hash) noexcept {
   U8 const low = static_cast<U8>(hash);
   return static_cast<U8>(low + (low == 0));
}

/// The number of the lowest bit that is set. REQUIRES: there is one.
inline U32 lowestBit(U64 bits) noexcept {
   return static_cast<U32>(__builtin_ctzll(bits));
}

/// Sixteen tags, compared at once.
class TagWindow {
public:
   static constexpr U32 width = 16;

#if defined(__SSE2__)
   explicit TagWindow(U8 const* tags) noexcept
         : tags_(_mm_loadu_si128(reinterpret_cast<__m128i const*>(tags))) {}
   /// A bit for each tag that equals `hashTag(hash)`.
   U32 matchTagOf(U64 hash) const noexcept {
      __m128i const low = _mm_set1_epi8(static_cast<char>(hash));
      __m128i const wanted = _mm_max_epu8(low, _mm_set1_epi8(1));
      return static_cast<U32>(_mm_movemask_epi8(_mm_cmpeq_epi8(tags_, wanted)));
   }
   /// A bit for each free slot.
   U32 free() const noexcept {
      return static_cast<U32>(_mm_movemask_epi8(_mm_cmpeq_epi8(tags_, _mm_setzero_si128())));
   }

private:
   __m128i tags_;
#else
   explicit TagWindow(U8 const* tags) noexcept {
      std::memcpy(tags_, tags, width);
   }
   U32 match(U8 tag) const noexcept {
      U32 bits = 0;
      for (U32 i = 0; i < width; ++i) {
         bits |= static_cast<U32>(tags_[i] == tag) << i;
      }
      return bits;
   }
   U32 matchTagOf(U64 hash) const noexcept {
      return match(hashTag(hash));
   }
   U32 free() const noexcept {
      return match(0);
   }

private:
   U8 tags_[width];
#endif
public:
   U32 occupied() const noexcept {
      return free() ^ 0xffff;
   }
};

}  // namespace Kiv::Impl

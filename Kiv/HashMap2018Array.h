#pragma once

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

#if defined(__SSE2__)
#   include <emmintrin.h>
#endif

#include "Kiv/AllocTrack.h"
#include "Sarn/Types.h"

namespace Sarn {
template <class T>
class Ptr;
}  // namespace Sarn

/// The bucket array beneath `HashMap2018` and `HSet`, without their types: its layout, and the
/// choice of its size. Not for use by anyone else.
///
/// One block of memory:
///
///     | header | tag | tag | ...  | 16 x 0 | hash | hash | ... | slot | slot | slot | ...
///       48 B     1 byte a slot               4 bytes a slot      elements, in place
///
/// - The home of a key is its slot when there is no other: the upper bits of its hash. The homes,
///   a power of two, are followed by a tail of further slots instead of wrapping around.
/// - Elements lie in ascending order of their hashes, equal hashes in order of insertion, each at
///   its home or, pushed on by its predecessors, in an unbroken run behind it (linear probing).
/// - A tag is 0 for a free slot, else the lower bits of the hash with 0 made 1. A lookup compares
///   sixteen tags from the home on at once; only slots whose tag agrees are looked at. The last
///   sixteen tags, behind the slots, are always 0.
/// - The order never depends on the size. Growing and shrinking read one array and write the
///   other, each from front to back; nothing is hashed again.
/// - Up to eight elements have the same home and fill their slots to the last.
namespace Kiv::Impl {

class HashIteratorBase;
template <class Policy>
class HashTable;

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

/// Has the start of the object that `p` points to brought into the cache.
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
      // Three quarters of the homes may be taken.
      return HashSizeStep(static_cast<U8>(std::bit_width((count * 4 + 2) / 3 - 1)));
   }
   constexpr HashSizeStep next() const noexcept { return HashSizeStep(static_cast<U8>(log2_ + 1)); }

   /// A power of two; small arrays have one home for all.
   constexpr U32 homes() const noexcept { return isSmall() ? 1 : U32{1} << log2_; }
   /// hash >> shift is the home.
   constexpr U8 shift() const noexcept { return static_cast<U8>(isSmall() ? 32 : 32 - log2_); }
   /// The most elements of an array of this step.
   constexpr U32 limit() const noexcept { return isSmall() ? U32{1} << log2_ : homes() / 4 * 3; }
   /// Slots, homes and the usual tail together.
   constexpr U32 slots() const noexcept {
      return isSmall() ? U32{1} << log2_ : homes() + (log2_ > 4 ? 16 : 8);
   }
   /// Whether an array of this step with `count` elements should shrink.
   constexpr bool tooLargeFor(U32 count) const noexcept {
      return log2_ > 1 && count <= limit() / 8;
   }
   constexpr bool operator==(HashSizeStep const&) const = default;

private:
   constexpr explicit HashSizeStep(U8 log2) noexcept : log2_(log2) {}
   constexpr bool isSmall() const noexcept { return log2_ < 4; }

   /// The base-2 logarithm of the slots of a small array, and of the homes of another.
   U8 log2_ = 1;
};

inline constexpr U8 hashTag(U32 hash) noexcept {
   U8 const low = static_cast<U8>(hash);
   return static_cast<U8>(low + (low == 0));
}

/// Sixteen tags, compared at once.
class TagWindow {
public:
   static constexpr U32 width = 16;

#if defined(__SSE2__)
   explicit TagWindow(U8 const* tags) noexcept
         : tags_(_mm_loadu_si128(reinterpret_cast<__m128i const*>(tags))) {}
   /// A bit for each tag that equals `tag`.
   U32 match(U8 tag) const noexcept {
      __m128i const wanted = _mm_set1_epi8(static_cast<char>(tag));
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

/// The header of a bucket array; tags, hashes and slots follow it in the same block.
struct BucketArray {
   /// The map, while it uses this array, and each checked iterator on it.
   U32 users = 1;
   U32 count = 0;
   U32 slotCount = 0;
   U32 limit = 0;
   /// Counts structural changes. A map never has the same version twice, cleared or not.
   U64 version = 0;
   std::byte* slotBase = nullptr;
   /// The checked iterators on this array.
   HashIteratorBase* iterators = nullptr;
   /// The seed of every hash in this array.
   U32 seed = 0;
   U8 shift = 32;
   HashSizeStep step;

   /// Extra tags behind the slots, so that sixteen can be read from any slot on.
   static constexpr std::size_t tagPadding = 16;

   U8* tags() noexcept { return reinterpret_cast<U8*>(this + 1); }
   U8 const* tags() const noexcept { return reinterpret_cast<U8 const*>(this + 1); }
   static constexpr std::size_t hashesOffset(U32 slots) noexcept {
      return (sizeof(BucketArray) + slots + tagPadding + 3) / 4 * 4;
   }
   U32* hashes() noexcept {
      return reinterpret_cast<U32*>(reinterpret_cast<std::byte*>(this) + hashesOffset(slotCount));
   }
   static constexpr std::size_t slotsOffset(U32 slots, std::size_t alignment) noexcept {
      std::size_t const end = hashesOffset(slots) + slots * sizeof(U32);
      return (end + alignment - 1) / alignment * alignment;
   }
   static constexpr std::size_t blockSize(U32 slots, std::size_t slotSize,
                                          std::size_t alignment) noexcept {
      return slotsOffset(slots, alignment) + slots * slotSize;
   }
   std::size_t home(U32 hash) const noexcept {
      return static_cast<std::size_t>(U64{hash} >> shift);
   }
   /// The first occupied slot from `slot` on, or `slotCount`.
   U32 occupiedFrom(U32 slot) const noexcept;
   /// The first free slot from `slot` on, or `slotCount`.
   U32 freeFrom(U32 slot) const noexcept {
      U32 free = TagWindow(tags() + slot).free();
      while (free == 0)
         [[unlikely]] {
            slot += TagWindow::width;
            free = TagWindow(tags() + slot).free();
         }
      return slot + static_cast<U32>(std::countr_zero(free));
   }
   /// Calls `visit(slot)` for each occupied slot, in order.
   void eachOccupied(auto&& visit) const noexcept {
      U8 const* const tag = tags();
      for (U32 base = 0; base < slotCount; base += TagWindow::width) {
         for (U32 bits = TagWindow(tag + base).occupied(); bits != 0; bits &= bits - 1) {
            visit(base + static_cast<U32>(std::countr_zero(bits)));
         }
      }
   }
   /// The number of elements before `slot`, and the slot of the element that has that many.
   U32 rankOf(U32 slot) const noexcept;
   U32 slotOfRank(U32 rank) const noexcept;

   /// Makes an empty array. `slotSize` and `alignment` are those of one slot.
   static BucketArray* create(AllocTrackTypeInfo& tracker, HashSizeStep step, U32 slots,
                              U64 version, std::size_t slotSize, std::size_t alignment);
   /// Takes one user away, with the last one the block. The elements are the caller's business.
   void release(AllocTrackTypeInfo& tracker, std::size_t slotSize, std::size_t alignment) noexcept;
   /// The slots that the elements of this array need when laid out by `step`.
   U32 slotsNeeded(HashSizeStep newStep) noexcept;
   /// A version that no array of the process has had.
   static U64 freshVersion() noexcept;
};

/// What the checked iterators on one array share, whatever the element type.
class HashIteratorBase {
public:
   HashIteratorBase(HashIteratorBase const&) = delete;
   HashIteratorBase& operator=(HashIteratorBase const&) = delete;

protected:
   HashIteratorBase() noexcept = default;
   ~HashIteratorBase() { assert(array_ == nullptr); }

   void attach(BucketArray* array) noexcept;
   /// Leaves the array's list; the user that the iterator counts for is the caller's to release.
   void detach() noexcept;

   /// Null at the end.
   BucketArray* array_ = nullptr;
   /// The slot of the current element; after its removal, where to look for the next.
   U32 slot_ = 0;
   bool erased_ = false;

private:
   template <class>
   friend class HashTable;
   friend struct BucketArray;

   HashIteratorBase* nextOnArray_ = nullptr;
   HashIteratorBase** link_ = nullptr;
};

}  // namespace Kiv::Impl

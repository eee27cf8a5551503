#pragma once

#include <bit>
#include <cassert>
#include <cstddef>

#include "Kiv/AllocTrack.h"
#include "Kiv/Map/Layout.h"
#include "Sarn/Types.h"
#include "Sarn/Util.h"

/// The bucket array beneath `HashMap2018` and `HSet`, without their types: its layout, and the
/// choice of its size. Not for use by anyone else.
///
/// One block of memory:
///
///     | header | tag | tag | ...  | 16 x 0 | place | place | ... | slot | slot | slot | ...
///       64 B     1 byte a slot               4 bytes a slot        elements, in place
///
/// - The place of a key is its hash times the factor of the array, a random number that differs
///   from map to map. So no two maps have the same order, and filling one from another is linear.
/// - The home of a key is the upper bits of its place: the slot where it lies if nothing is in the
///   way. The homes, a power of two, are followed by a tail of further slots; nothing wraps around.
/// - Elements lie in ascending order of their places, those with equal places in the order of
///   their insertion, each at its home or, displaced by its predecessors, in an unbroken run after
///   it (linear probing).
/// - A tag is 0 for a free slot, else the lower bits of the hash, with 0 replaced by 1. A lookup
///   compares sixteen tags at once, from the home on, and looks only at slots with an equal tag.
///   The last sixteen tags, after the slots, are always 0.
/// - The order does not depend on the size. Growing and shrinking read one array and write the
///   other, each from front to back, without hashing again.
/// - If most elements cluster, as the rest does when a map is emptied in its own order, the map
///   takes another factor, and so another order: when it shrinks, or after too many insertions far
///   from home. While a checked iterator exists, the order stays, and a clustered map does not
///   shrink.
/// - Up to eight elements share one home and use every slot.
namespace Kiv::Impl {

class HashIteratorBase;
template <class Policy>
class HashTable;

/// How far an element may be from its home before the map suspects a cluster, which another order
/// would dissolve: while the array fills, and when it has just shrunk to half of its limit. With
/// well-spread hashes neither happens, up to the largest map.
inline constexpr U32 farFromHome = 512;
inline constexpr U32 farFromHomeWhenShrunk = 64;

/// The header of a bucket array; tags, places and slots follow it in the same block.
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
   /// What hashes are multiplied by; odd.
   U64 factor = 1;
   /// The seed of every hash in this array.
   U32 seed = 0;
   /// No element lies before this slot.
   U32 first = 0;
   /// The removal that leaves this many elements shrinks the array.
   U32 shrinkAt = 0;
   U8 shift = 32;
   HashSizeStep step;
   /// How many more insertions may end far from home before the elements are reordered.
   U16 patience = 0;

   /// Extra tags after those of the slots, so that sixteen can be read at any slot.
   static constexpr std::size_t tagPadding = 16;

   U8* tags() noexcept { return reinterpret_cast<U8*>(this + 1); }
   U8 const* tags() const noexcept { return reinterpret_cast<U8 const*>(this + 1); }
   static constexpr std::size_t placesOffset(U32 slots) noexcept {
      return (sizeof(BucketArray) + slots + tagPadding + 3) / 4 * 4;
   }
   U32* places() noexcept {
      return reinterpret_cast<U32*>(reinterpret_cast<std::byte*>(this) + placesOffset(slotCount));
   }
   static constexpr std::size_t slotsOffset(U32 slots, std::size_t alignment) noexcept {
      std::size_t const end = placesOffset(slots) + slots * sizeof(U32);
      return (end + alignment - 1) / alignment * alignment;
   }
   static constexpr std::size_t blockSize(U32 slots, std::size_t slotSize,
                                          std::size_t alignment) noexcept {
      return slotsOffset(slots, alignment) + slots * slotSize;
   }
   U32 placeOf(U32 hash) const noexcept { return static_cast<U32>(hash * factor >> 32); }
   /// The home of a place.
   std::size_t home(U32 place) const noexcept {
      return static_cast<std::size_t>(U64{place} >> shift);
   }
   /// Moves an element's tag and place to the next or the previous slot.
   void moveByOne(U32 to, U32 from) noexcept {
      U32 const slotsToShift = to > from ? to - from : from - to;
      SARN_CHECK(slotsToShift == 1);
      tags()[to] = tags()[from];
      places()[to] = places()[from];
   }
   /// The first occupied slot from `slot` on, or `slotCount`.
   U32 occupiedFrom(U32 slot) const noexcept {
      for (; slot < slotCount; slot += TagWindow::width) {
         if (U32 const bits = TagWindow(tags() + slot).occupied(); bits != 0) {
            return slot + static_cast<U32>(std::countr_zero(bits));
         }
      }
      return slotCount;
   }
   /// The first free slot from `slot` on, or `slotCount`.
   U32 freeFrom(U32 slot) const noexcept {
      for (;; slot += TagWindow::width) {
         if (U32 const free = TagWindow(tags() + slot).free(); free != 0) [[likely]] {
            return slot + static_cast<U32>(std::countr_zero(free));
         }
      }
   }
   /// Calls `visit(slot)` for each occupied slot, in order.
   void eachOccupied(auto&& visit) const {
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

   /// Makes an empty array for a map without one, with a factor and a version that no other array
   /// of the process has had. `slotSize` and `alignment` are those of one slot.
   static BucketArray* create(AllocTrackTypeInfo& tracker, HashSizeStep step, U32 slots,
                              std::size_t slotSize, std::size_t alignment);
   /// Makes an empty array that is to replace this one, with its seed and its factor.
   BucketArray* createNext(AllocTrackTypeInfo& tracker, HashSizeStep step, U32 slots,
                           std::size_t slotSize, std::size_t alignment) const;
   /// Drops one user, and frees the block with the last one. The caller destroys the elements.
   void release(AllocTrackTypeInfo& tracker, std::size_t slotSize, std::size_t alignment) noexcept;
   /// The result of laying out elements by a step.
   struct Layout {
      HashSizeStep step;
      /// The slots that they need.
      U32 slots = 0;
      /// The largest distance of an element from its home.
      U32 furthest = 0;

      /// The slot of the next element in the order of places.
      U32 add(U32 place) noexcept {
         U32 const home = static_cast<U32>(U64{place} >> step.shift());
         U32 const slot = home < slots ? slots : home;
         furthest = furthest < slot - home ? slot - home : furthest;
         slots = slot + 1;
         return slot;
      }
   };
   /// The layout of this array's elements, in their order, by another step.
   Layout layoutBy(HashSizeStep newStep) noexcept;
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

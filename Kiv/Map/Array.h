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
/// - The place of a key is its hash times the array's factor, a random number that no other map
///   has: so no map's order is another's, and filling one from another stays linear.
/// - The home of a key is its slot when there is no other: the upper bits of its place. The homes,
///   a power of two, are followed by a tail of further slots instead of wrapping around.
/// - Elements lie in ascending order of their places, equal places in order of insertion, each at
///   its home or, pushed on by its predecessors, in an unbroken run behind it (linear probing).
/// - A tag is 0 for a free slot, else the lower bits of the hash with 0 made 1. A lookup compares
///   sixteen tags from the home on at once; only slots whose tag agrees are looked at. The last
///   sixteen tags, behind the slots, are always 0.
/// - The order does not depend on the size. Growing and shrinking read one array and write the
///   other, each from front to back; nothing is hashed again.
/// - Where most elements have come to lie together, as the rest does when a map is emptied in its
///   own order, the map takes another factor, and with it another order: when it shrinks, or when
///   it has been inserted into far from home too often. While a checked iterator is on its way
///   the order stays, and such a map does not shrink.
/// - Up to eight elements have the same home and fill their slots to the last.
namespace Kiv::Impl {

class HashIteratorBase;
template <class Policy>
class HashTable;

/// How far elements may lie from their homes before that is taken for a cluster that another order
/// would dissolve: when the array fills, and when it has just shrunk to half of what it may hold.
/// With well-spread hashes neither happens, up to the largest map.
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
   /// The removal that leaves so many elements shrinks the array.
   U32 shrinkAt = 0;
   U8 shift = 32;
   HashSizeStep step;
   /// So many insertions may still end far from home before the elements are ordered anew.
   U16 patience = 0;

   /// Extra tags behind the slots, so that sixteen can be read from any slot on.
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
   /// Moves what this array itself knows of an element to the next slot or the one before.
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
      U32 free = TagWindow(tags() + slot).free();
      while (free == 0)
         [[unlikely]] {
            slot += TagWindow::width;
            free = TagWindow(tags() + slot).free();
         }
      return slot + static_cast<U32>(std::countr_zero(free));
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

   /// Makes an empty array for a map that has none, with a factor and a version that no array of
   /// the process has had. `slotSize` and `alignment` are those of one slot.
   static BucketArray* create(AllocTrackTypeInfo& tracker, HashSizeStep step, U32 slots,
                              std::size_t slotSize, std::size_t alignment);
   /// Makes an empty array that is to replace this one, with its seed and its factor.
   BucketArray* createNext(AllocTrackTypeInfo& tracker, HashSizeStep step, U32 slots,
                           std::size_t slotSize, std::size_t alignment) const;
   /// Takes one user away, with the last one the block. The elements are the caller's business.
   void release(AllocTrackTypeInfo& tracker, std::size_t slotSize, std::size_t alignment) noexcept;
   /// What laying out elements by a step comes to.
   struct Layout {
      HashSizeStep step;
      /// The slots that they need.
      U32 slots = 0;
      /// How far the furthest lies from its home.
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
   /// That of this array's elements, in their order, by another step.
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

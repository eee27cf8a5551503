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
/// - Sixteen slots are a block. The home of a key is the upper bits of its place: the block where
///   it lies unless others are in the way. The homes, a power of two, are followed by a tail of
///   further blocks; nothing wraps around.
/// - An element lies anywhere in its home or, displaced, in a block after it; all blocks from its
///   home to its own are full. What lies in a block has no later home than what lies in the next
///   one. So an insertion into a full block moves one element from there to the next block, and so
///   on up to the first block with a free slot; a removal from a full block moves one element back.
///   Nothing else moves, except to another array.
/// - A tag is 0 for a free slot, else the lower bits of the hash, with 0 replaced by 1. A lookup
///   compares the sixteen tags of a block at once, and looks only at slots with an equal tag. The
///   last sixteen tags, after the slots, are always 0.
/// - The order of the checked iterators is that of places, and of slots where places are equal. It
///   does not depend on the size, and a move keeps the order of equal places. Unsafe iterators go
///   from slot to slot.
/// - Growing and shrinking read one array and write the other, each from front to back, without
///   hashing again.
/// - If most elements cluster, as the rest does when a map is emptied in its own order, the map
///   takes another factor, and so another order: when it shrinks, or after too many insertions far
///   from home. While a checked iterator exists, the order stays, and a clustered map does not
///   shrink.
/// - Arrays of up to eight slots are one block that ends early, and use every slot.
namespace Kiv::Impl {

class HashIteratorBase;

/// Elements of a block in the order of their places.
struct HashBlockOrder {
   /// Their slots, four bits each, the first one lowest.
   U64 slots = 0;
   U8 count = 0;
   bool known = false;
};
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
   U32 const* places() const noexcept { return const_cast<BucketArray*>(this)->places(); }
   static constexpr std::size_t slotsOffset(U32 slots, std::size_t alignment) noexcept {
      std::size_t const end = placesOffset(slots) + slots * sizeof(U32);
      return (end + alignment - 1) / alignment * alignment;
   }
   static constexpr std::size_t blockSize(U32 slots, std::size_t slotSize,
                                          std::size_t alignment) noexcept {
      return slotsOffset(slots, alignment) + slots * slotSize;
   }
   U32 placeOf(U64 hash) const noexcept { return static_cast<U32>(hash * factor >> 32); }
   /// The first slot of the home of a place.
   std::size_t home(U32 place) const noexcept {
      return static_cast<std::size_t>(U64{place} >> shift) * TagWindow::width;
   }
   /// The first slot of the block of `slot`.
   static constexpr U32 blockOf(U32 slot) noexcept {
      return slot / TagWindow::width * TagWindow::width;
   }
   /// The first occupied slot from `slot` on, or `slotCount`.
   U32 occupiedFrom(U32 slot) const noexcept {
      for (; slot < slotCount; slot += TagWindow::width) {
         if (U32 const bits = TagWindow(tags() + slot).occupied(); bits != 0) {
            return slot + lowestBit(bits);
         }
      }
      return slotCount;
   }
   /// The first free slot from `slot`, where a block begins, or `slotCount`.
   U32 freeFrom(U32 slot) const noexcept {
      for (;; slot += TagWindow::width) {
         if (U32 const free = TagWindow(tags() + slot).free(); free != 0) [[likely]] {
            return slot + lowestBit(free);
         }
      }
   }
   /// Calls `visit(slot)` for each occupied slot, in order.
   void eachOccupied(auto&& visit) const {
      U8 const* const tag = tags();
      for (U32 base = 0; base < slotCount; base += TagWindow::width) {
         for (U32 bits = TagWindow(tag + base).occupied(); bits != 0; bits &= bits - 1) {
            visit(base + lowestBit(bits));
         }
      }
   }
   /// The first element in the order of places and slots that is not before the given ones, or
   /// `slotCount`.
   U32 following(U32 place, U32 slot) const noexcept {
      return firstFrom(U64{place} << 32 | slot, static_cast<U32>(home(place)));
   }
   /// The elements of a block in that order, from the given place and slot on. Unknown where the
   /// block is full. REQUIRES: all of them have their home there.
   HashBlockOrder orderOf(U32 block, U32 place, U32 slot) const noexcept;
   /// The first element in that order that is in a block or after it, or `slotCount`.
   U32 firstOf(U32 block) const noexcept { return firstFrom(0, block); }
   U32 front() const noexcept { return firstOf(blockOf(first)); }
   /// The last element of a block in that order. REQUIRES: the block is full.
   U32 lastOf(U32 block) const noexcept;
   /// The first element of a block in that order if its home is earlier, or `slotCount`.
   U32 firstDisplacedIn(U32 block) const noexcept;
   /// Moves an element's tag and place to the next or the previous block.
   void moveByOne(U32 to, U32 from) noexcept {
      U32 const slotsToShift =
            blockOf(to > from ? to - blockOf(from) : from - blockOf(to)) / TagWindow::width;
      SARN_CHECK(slotsToShift == 1);
      tags()[to] = tags()[from];
      places()[to] = places()[from];
   }

   /// Makes an empty array for a map without one, with a factor and a version that no other array
   /// of the process has had. `slotSize` and `alignment` are those of one slot.
   static BucketArray* create(AllocTrackTypeInfo& tracker, HashSizeStep step, U32 slots,
                              std::size_t slotSize, std::size_t alignment);
   /// Makes an empty array that is to replace this one, with its seed and its factor.
   BucketArray* createNext(AllocTrackTypeInfo& tracker, HashSizeStep step, U32 slots,
                           std::size_t slotSize, std::size_t alignment) const;
   /// Drops one user, and frees the block with the last one. The caller destroys the elements.
   void release(AllocTrackTypeInfo& tracker, std::size_t slotSize, std::size_t alignment) noexcept;
   /// What elements need when they are laid out by a step in the order of their blocks: an upper
   /// bound, exact in the order of places.
   struct Layout {
      HashSizeStep step;
      /// The slots that they need, to the end of a block.
      U32 slots = 0;
      /// Of these, in the last block.
      U32 taken = TagWindow::width;
      /// The largest distance of an element's block from its home.
      U32 furthest = 0;

      void add(U32 place) noexcept {
         U32 const home = static_cast<U32>(U64{place} >> step.shift()) * TagWindow::width;
         if (home >= slots) {
            slots = home + TagWindow::width;
            taken = 0;
         } else if (taken == TagWindow::width) {
            slots += TagWindow::width;
            taken = 0;
         }
         ++taken;
         U32 const distance = slots - TagWindow::width - home;
         furthest = furthest < distance ? distance : furthest;
      }
      /// The slots of an array for them.
      U32 slotCount() const noexcept {
         bool const several = step.homeSlots() > TagWindow::width;
         return several && slots > step.slots() ? slots : step.slots();
      }
   };
   /// The layout of this array's elements, in their order, by another step.
   Layout layoutBy(HashSizeStep newStep) const noexcept;

private:
   /// The first element from a place (upper half) and a slot on, in no earlier block than `block`.
   U32 firstFrom(U64 from, U32 block) const noexcept;
};

}  // namespace Kiv::Impl

#pragma once

#include <bit>
#include <cassert>
#include <cstddef>

#include "Kiv/AllocTrack.h"
#include "Kiv/HashMap2018Layout.h"
#include "Sarn/Types.h"

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

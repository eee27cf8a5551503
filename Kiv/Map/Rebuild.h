#pragma once

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Kiv/Map/Table.h"

/// How a `HashTable` moves to another bucket array; included by its header.
namespace Kiv::Impl {

/// Where the next elements of a new array go. The two blocks that get elements in turn, as where
/// one block becomes two, are known without reading tags that have just been written one by one,
/// which would wait for them.
class NewBlocks {
public:
   explicit NewBlocks(BucketArray* array) noexcept
         : tags_(array->tags()), shift_(array->shift), none_(array->slotCount) {}
   /// A slot in the home of a place, or `slotCount` if that is full.
   U32 slotFor(U32 place) noexcept {
      U32 const block = static_cast<U32>(U64{place} >> shift_);
      Block& known = blocks_[block % 2];
      U32 const home = block * TagWindow::width;
      if (known.home != home) [[unlikely]] {
         U32 const free = TagWindow(tags_ + home).free();
         known = {home, free != 0 ? lowestBit(free) : TagWindow::width};
      }
      return known.taken < TagWindow::width ? home + known.taken++ : none_;
   }

private:
   struct Block {
      U32 home = ~U32{0};
      /// A new array is filled without gaps.
      U32 taken = 0;
   };

   U8 const* tags_;
   U8 shift_;
   U32 none_;
   Block blocks_[2];
};

/// Moves elements from one array to another.
template <class Policy>
struct HashTable<Policy>::SlotMover {
   SlotMover(BucketArray* from, BucketArray* to) noexcept
         : fromPlaces(from->places()),
           fromTags(from->tags()),
           fromSlots(slots(from)),
           toPlaces(to->places()),
           toTags(to->tags()),
           toSlots(slots(to)) {}
   void move(U32 from, U32 to, U32 place) const noexcept {
      toPlaces[to] = place;
      toTags[to] = fromTags[from];
      relocate(toSlots + to, fromSlots + from);
   }

   U32 const* fromPlaces;
   U8 const* fromTags;
   Slot* fromSlots;
   U32* toPlaces;
   U8* toTags;
   Slot* toSlots;
};

/// Moves the elements to an array of another size, in the same order.
template <class Policy>
void HashTable<Policy>::rebuild(HashSizeStep step, U32 slotsWanted) {
   if (step.homeSlots() > U32{1} << 30) {
      throw std::length_error("hash table: more elements than a 32-bit hash tells apart");
   }
   U32 slotCount = std::max(step.slots(), slotsWanted);
   BucketArray* const old = array_;
   if (old == nullptr) {
      array_ = BucketArray::create(tracker(), step, slotCount, sizeof(Slot), alignof(Slot));
      array_->seed = newSeed();
      return;
   }
   if (step.homeSlots() >= old->step.homeSlots()) {
      // Where the homes double, the tail holds no more than before.
      slotCount = std::max(slotCount, step.homeSlots() + old->slotCount - old->step.homeSlots());
   }
   BucketArray* const made = makeNext(step, slotCount);
   bool const iterated = old->iterators != nullptr;
   NewBlocks blocks(made);
   SlotMover const mover{old, made};
   old->eachOccupied([&](U32 from) {
      U32 const place = mover.fromPlaces[from];
      U32 to = blocks.slotFor(place);
      if (to == slotCount) [[unlikely]] {
         to = slotFor(made, place, made->freeFrom(static_cast<U32>(made->home(place))));
         blocks = NewBlocks(made);
      }
      mover.move(from, to, place);
      if (iterated) [[unlikely]] {
         moveIterators(old, from, made, to);
      }
   });
   if (iterated) [[unlikely]] {
      moveIterators(old, old->slotCount, made, slotCount);
   }
   becomeNext(made);
}

/// Moves the elements to an array of the given size, in another order. REQUIRES: no iterators.
template <class Policy>
void HashTable<Policy>::reorder(HashSizeStep step) {
   BucketArray* const old = array_;
   U64 const factor = HashOrder::fresh().factor;
   std::vector<U64> order;  // a place and the slot where its element lies now
   order.reserve(old->count);
   old->eachOccupied([&](U32 slot) {
      U64 const hash = hashOf(Policy::keyOf(slots(old)[slot]), old->seed);
      order.push_back((hash * factor & ~U64{0xffffffff}) | slot);
   });
   std::sort(order.begin(), order.end());
   BucketArray::Layout needed{step};
   for (U64 const at : order) {
      needed.add(static_cast<U32>(at >> 32));
   }
   BucketArray* const made = makeNext(step, needed.slotCount());
   made->factor = factor;
   SlotMover const mover{old, made};
   for (U64 const at : order) {
      U32 const place = static_cast<U32>(at >> 32);
      U32 const to = made->freeFrom(static_cast<U32>(made->home(place)));
      mover.move(static_cast<U32>(at), to, place);
   }
   becomeNext(made);
}

/// Puts an array in place that the elements have been moved to.
template <class Policy>
void HashTable<Policy>::becomeNext(BucketArray* made) noexcept {
   BucketArray* const old = std::exchange(array_, made);
   made->count = old->count;
   made->first = made->occupiedFrom(0);
   releaseArray(old);
}

/// Iterators follow the element that moves to another array, and so do those that wait for the
/// first element from their slot on with their place. At last, with slots after all, the rest.
template <class Policy>
void HashTable<Policy>::moveIterators(BucketArray* from, U32 fromSlot, BucketArray* to,
                                      U32 toSlot) noexcept {
   for (HashIteratorBase* it = from->iterators; it != nullptr;) {
      HashIteratorBase* const next = it->nextOnArray_;
      bool const last = fromSlot == from->slotCount;
      bool const waits = it->erased_ && !last && fromSlot >= it->slot_;
      bool const follows =
            it->erased_ ? waits && to->places()[toSlot] == it->place_ : fromSlot == it->slot_;
      if (follows || last) {
         it->detach();
         it->attach(to);
         it->slot_ = toSlot;
         --from->users;
      }
      it = next;
   }
}

/// Makes the array smaller: in its order or, where that would put most elements together, in
/// another. Puts it off where it cannot: a removal has succeeded.
template <class Policy>
void HashTable<Policy>::shrink() noexcept {
   auto const step = HashSizeStep::forCount(std::size_t{array_->count} * 2);
   auto const layout = array_->layoutBy(step);
   bool const clustered = layout.furthest > farFromHomeWhenShrunk;
   if (!clustered || array_->iterators == nullptr) {
      try {
         if (clustered) {
            reorder(step);
         } else {
            rebuild(step, layout.slotCount());
         }
         return;
      } catch (std::bad_alloc const&) {  // it stays as large as it is
      }
   }
   array_->shrinkAt = array_->count / 2;
}

}  // namespace Kiv::Impl

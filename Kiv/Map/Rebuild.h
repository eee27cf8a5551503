#pragma once

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Kiv/Map/Table.h"

/// How a `HashTable` moves to another bucket array; included by its header.
namespace Kiv::Impl {

template <class Policy>
void HashTable<Policy>::moveSlot(BucketArray* from, U32 fromSlot, BucketArray* to, U32 toSlot,
                                 U32 place) noexcept {
   relocate(slots(to) + toSlot, slots(from) + fromSlot);
   to->tags()[toSlot] = from->tags()[fromSlot];
   to->places()[toSlot] = place;
}

/// Moves the elements to an array of another size, in the same order.
template <class Policy>
void HashTable<Policy>::rebuild(HashSizeStep step, U32 slotsWanted) {
   if (step.homes() > U32{1} << 30) {
      throw std::length_error("hash table: more elements than a 32-bit hash tells apart");
   }
   U32 slotCount = std::max(step.slots(), slotsWanted);
   BucketArray* const old = array_;
   if (old == nullptr) {
      array_ = BucketArray::create(tracker(), step, slotCount, sizeof(Slot), alignof(Slot));
      array_->seed = newSeed();
      return;
   }
   if (step.homes() >= old->step.homes()) {
      // Where the homes double, the tail holds no more than before.
      slotCount = std::max(slotCount, step.homes() + old->slotCount - old->step.homes());
   }
   BucketArray* const made = makeNext(step, slotCount);
   BucketArray::Layout layout{step};
   old->eachOccupied([&, places = old->places()](U32 from) {
      U32 const place = places[from];
      moveSlot(old, from, made, layout.add(place), place);
   });
   if (old->iterators != nullptr) [[unlikely]] {
      moveIterators(old, made);
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
      U32 const hash = Hash<Key>()(Policy::keyOf(slots(old)[slot]), old->seed);
      order.push_back((hash * factor & ~U64{0xffffffff}) | slot);
   });
   std::sort(order.begin(), order.end());
   BucketArray::Layout needed{step};
   for (U64 const at : order) {
      needed.add(static_cast<U32>(at >> 32));
   }
   BucketArray* const made = makeNext(step, std::max(step.slots(), needed.slots));
   made->factor = factor;
   BucketArray::Layout layout{step};
   for (U64 const at : order) {
      U32 const place = static_cast<U32>(at >> 32);
      moveSlot(old, static_cast<U32>(at), made, layout.add(place), place);
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

/// An iterator stays at its element, or where it was between elements: the order is the same.
template <class Policy>
void HashTable<Policy>::moveIterators(BucketArray* from, BucketArray* to) noexcept {
   eachIterator(from, [&](Iterator& it) {
      it.slot_ = to->slotOfRank(from->rankOf(it.slot_));
      it.array_ = to;
      ++to->users;
      --from->users;
   });
   to->iterators = std::exchange(from->iterators, nullptr);
   to->iterators->link_ = &to->iterators;
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
            rebuild(step, layout.slots);
         }
         return;
      } catch (std::bad_alloc const&) {  // it stays as large as it is
      }
   }
   array_->shrinkAt = array_->count / 2;
}

}  // namespace Kiv::Impl

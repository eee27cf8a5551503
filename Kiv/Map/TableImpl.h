#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "Kiv/Map/Table.h"

/// The longer functions of `HashTable`; included by its header.
namespace Kiv::Impl {

/// Continues with the remaining candidates of the window at `home`.
template <class Policy>
auto HashTable<Policy>::findFurther(LookupKey key, U64 hash, std::size_t home, U32 match) const
      -> Slot* {
   U8 const* tags = array_->tags() + home;
   Slot* slot = slots(array_) + home;
   for (;;) {
      for (; match != 0; match &= match - 1) {
         Slot* const candidate = slot + lowestBit(match);
         if (Policy::keyOf(*candidate) == key) {
            return candidate;
         }
      }
      if (TagWindow(tags).free() != 0) {
         return nullptr;
      }
      tags += TagWindow::width;
      slot += TagWindow::width;
      match = TagWindow(tags).matchTagOf(hash);
   }
}

/// Nearly every element comes into a free slot of its home, where it can be made in place: nothing
/// else moves.
template <class Policy>
template <class Make>
auto HashTable<Policy>::insertSlot(LookupKey key, Make&& make) -> std::pair<Slot*, bool> {
   BucketArray* const array = array_;
   if (array == nullptr) [[unlikely]] {
      return insertFurther(hashOf(key, newSeed()), make);
   }
   U64 const hash = hashOf(key, array->seed);
   U32 const place = array->placeOf(hash);
   std::size_t const home = array->home(place);
   TagWindow const window(array->tags() + home);
   U32 const free = window.free();
   if (window.matchTagOf(hash) != 0 || free == 0) [[unlikely]] {
      if (Slot* const found = findSlot(key, hash); found != nullptr) {
         return {found, false};
      }
   }
   if (free == 0 || array->count == array->limit) [[unlikely]] {
      return insertFurther(hash, make);
   }
   U32 const index = static_cast<U32>(home) + lowestBit(free);
   Slot* const slot = slots(array) + index;
   make(static_cast<void*>(slot));
   occupy(index, hash, place);
   return {slot, true};
}

/// Inserts an absent element where others may have to move.
template <class Policy>
template <class Make>
auto HashTable<Policy>::insertFurther(U64 hash, Make& make) -> std::pair<Slot*, bool> {
   // Built separately first: this may throw, or read from an element that is about to move.
   alignas(Slot) std::byte memory[sizeof(Slot)];
   make(static_cast<void*>(memory));
   auto* const pending = std::launder(reinterpret_cast<Slot*>(memory));
   U32 index;
   try {
      index = openSlot(hash);
   } catch (...) {
      std::destroy_at(pending);
      throw;
   }
   Slot* const slot = slots(array_) + index;
   relocate(slot, pending);
   occupy(index, hash, array_->placeOf(hash));
   return {slot, true};
}

/// Enters a new element in the array.
template <class Policy>
inline void HashTable<Policy>::occupy(U32 index, U64 hash, U32 place) noexcept {
   array_->tags()[index] = hashTag(hash);
   array_->places()[index] = place;
   array_->first = std::min(array_->first, index);
   ++array_->count;
   ++array_->version;
}

template <class Policy>
template <class Take>
void HashTable<Policy>::eraseSlot(Slot* slot, Take&& take) {
   U32 index = slotIndex(slot);
   if (array_->iterators != nullptr) [[unlikely]] {
      keepKeyOf(index, array_->iterators);
   }
   take(*slot);
   std::destroy_at(slot);
   index = closeSlot(index);
   --array_->count;
   ++array_->version;
   if (array_->count == 0) {
      clear();
      return;
   }
   if (index == array_->first) {
      array_->first = array_->occupiedFrom(index);
   }
   if (array_->count <= array_->shrinkAt) [[unlikely]] {
      shrink();
   }
}

/// The iterators at the element, from `at` on, keep its key. If a copy throws, none does.
template <class Policy>
void HashTable<Policy>::keepKeyOf(U32 slot, HashIteratorBase* at) {
   while (at != nullptr && (at->erased_ || at->slot_ != slot)) {
      at = at->nextOnArray_;
   }
   if (at != nullptr) {
      Key key(Policy::keyOf(slots(array_)[slot]));
      keepKeyOf(slot, at->nextOnArray_);
      static_cast<Iterator&>(*at).keepKey(std::move(key));
   }
}

template <class Policy>
void HashTable<Policy>::clear() noexcept {
   BucketArray* const array = std::exchange(array_, nullptr);
   if (array == nullptr) {
      return;
   }
   if (array->iterators != nullptr) [[unlikely]] {
      eachIterator(array, [&](Iterator& it) {
         if (!it.erased_) {
            it.keepKeyOrNone(Policy::keyOf(slots(array)[it.slot_]));
         }
         it.place_ = ~U32{0};
         it.slot_ = array->slotCount;
         it.forgetRest();
      });
   }
   if constexpr (!std::is_trivially_destructible_v<Slot>) {
      array->eachOccupied([&](U32 slot) { std::destroy_at(slots(array) + slot); });
   }
   array->count = 0;
   ++array->version;
   releaseArray(array);
}

}  // namespace Kiv::Impl

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
auto HashTable<Policy>::findFurther(LookupKey key, U32 hash, std::size_t home, U32 match) const
      -> Slot* {
   U8 const* tags = array_->tags() + home;
   Slot* slot = slots(array_) + home;
   for (;;) {
      for (; match != 0; match &= match - 1) {
         Slot* const candidate = slot + std::countr_zero(match);
         if (Policy::keyOf(*candidate) == key) {
            return candidate;
         }
      }
      if (TagWindow(tags).free() != 0) {
         return nullptr;
      }
      tags += TagWindow::width;
      slot += TagWindow::width;
      match = TagWindow(tags).match(hashTag(hash));
   }
}

template <class Policy>
template <class Make>
auto HashTable<Policy>::insertSlot(LookupKey key, Make&& make) -> std::pair<Slot*, bool> {
   U32 const hash = Hash<Key>()(key, array_ != nullptr ? array_->seed : newSeed());
   if (array_ != nullptr) {
      __builtin_prefetch(array_->places() + array_->home(array_->placeOf(hash)));
      if (Slot* const found = findSlot(key, hash); found != nullptr) {
         return {found, false};
      }
   }
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
   array_->tags()[index] = hashTag(hash);
   array_->places()[index] = array_->placeOf(hash);
   array_->first = std::min(array_->first, index);
   ++array_->count;
   ++array_->version;
   return {slot, true};
}

/// Frees the slot where an element of this hash belongs, after all elements with the same place.
template <class Policy>
U32 HashTable<Policy>::openSlot(U32 hash) {
   if (array_ == nullptr || array_->count == array_->limit) {
      rebuild(array_ == nullptr ? HashSizeStep() : array_->step.next());
   }
   U32 place = array_->placeOf(hash);
   U32 home = static_cast<U32>(array_->home(place));
   U32 free = array_->freeFrom(home);
   auto const unfit = [&]() noexcept {
      return __builtin_expect(free - home > farFromHome || free == array_->slotCount, 0) != 0;
   };
   while (unfit()) {
      bool const far = free - home > farFromHome;
      if (far && array_->patience != 0) {
         --array_->patience;
      }
      if (far && array_->patience == 0 && array_->iterators == nullptr) {
         reorder(array_->step);
      } else if (free == array_->slotCount) {
         // The tail is full: few keys, or a hash that does not spread them.
         rebuild(array_->step, array_->slotCount * 2 - array_->step.homes());
      } else {
         break;
      }
      place = array_->placeOf(hash);
      home = static_cast<U32>(array_->home(place));
      free = array_->freeFrom(home);
   }
   U32 at = free;
   for (U32 const* const places = array_->places(); at > home && places[at - 1] > place; --at) {
      moveByOne(array_, at, at - 1);
   }
   if (array_->iterators != nullptr) [[unlikely]] {
      eachIterator(array_, [&](Iterator& it) {
         // After a removal, what lies before `slot_` has been visited, and stays so.
         it.slot_ +=
               it.erased_ ? at < it.slot_ && it.slot_ <= free : at <= it.slot_ && it.slot_ < free;
      });
   }
   return at;
}

template <class Policy>
template <class Take>
void HashTable<Policy>::eraseSlot(Slot* slot, Take&& take) {
   U32 const index = slotIndex(slot);
   if (array_->iterators != nullptr) [[unlikely]] {
      keepKeyOf(index, array_->iterators);
   }
   take(*slot);
   std::destroy_at(slot);
   closeSlot(index);
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

/// Moves back by one slot each element that the one in `slot`, now destroyed, had displaced.
template <class Policy>
void HashTable<Policy>::closeSlot(U32 slot) noexcept {
   U8* const tags = array_->tags();
   U32 const* const places = array_->places();
   U32 end = slot + 1;
   for (; tags[end] != 0 && array_->home(places[end]) != end; ++end) {
      moveByOne(array_, end - 1, end);
   }
   tags[end - 1] = 0;
   if (array_->iterators != nullptr) [[unlikely]] {
      eachIterator(array_, [&](Iterator& it) { it.slot_ -= slot < it.slot_ && it.slot_ < end; });
   }
}

template <class Policy>
void HashTable<Policy>::moveByOne(BucketArray* array, U32 to, U32 from) noexcept {
   array->moveByOne(to, from);
   relocate(slots(array) + to, slots(array) + from);
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
         it.slot_ = array->slotCount;
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

#pragma once

#include "Kiv/Map/Table.h"

/// How a `HashTable` finds room for an element and closes the gap of another, where blocks are
/// full; included by its header.
namespace Kiv::Impl {

/// Finds a slot for a new element of this hash, in a larger or another array if need be.
template <class Policy>
U32 HashTable<Policy>::openSlot(U64 hash) {
   if (array_ == nullptr || array_->count == array_->limit) [[unlikely]] {
      rebuild(array_ == nullptr ? HashSizeStep() : array_->step.next());
   }
   for (;;) {
      U32 const place = array_->placeOf(hash);
      U32 const home = static_cast<U32>(array_->home(place));
      U32 const free = array_->freeFrom(home);
      bool const far = free - home > farFromHome;
      if (far && array_->patience != 0) {
         --array_->patience;
      }
      if (far && array_->patience == 0 && array_->iterators == nullptr) {
         reorder(array_->step);
      } else if (free == array_->slotCount) {
         // The tail is full: few keys, or a hash that does not spread them.
         rebuild(array_->step, array_->slotCount * 2 - array_->step.homeSlots());
      } else {
         return slotFor(array_, place, free);
      }
   }
}

/// A slot for a new element of an array that has `free` as its first free slot from home on.
template <class Policy>
U32 HashTable<Policy>::slotFor(BucketArray* array, U32 place, U32 free) noexcept {
   U32 const end = BucketArray::blockOf(free);
   U32 const home = static_cast<U32>(array->home(place));
   U32 block = home;
   while (block != end && array->home(array->places()[array->lastOf(block)]) <= home) {
      block += TagWindow::width;
   }
   for (U32 from = end; from != block;) {
      from -= TagWindow::width;
      U32 const last = array->lastOf(from);
      for (U32 at = free; at != from + TagWindow::width;) {
         --at;
         if (array->places()[at] == array->places()[last]) {
            moveInBlock(array, free, at);  // which keeps the order of equal places
            free = at;
         }
      }
      moveByOne(array, free, last);
      free = last;
   }
   if (block != end) {
      // The new element comes after those with the same place, of which iterators keep track.
      for (U32 at = free + 1; at != block + TagWindow::width; ++at) {
         if (array->places()[at] == place) {
            moveInBlock(array, free, at);
            free = at;
         }
      }
   }
   return free;
}

/// Frees the slot of an element that has been destroyed, or fills it from the next block and frees
/// another, which is returned.
template <class Policy>
U32 HashTable<Policy>::closeSlot(U32 slot) noexcept {
   U8* const tags = array_->tags();
   if (TagWindow(tags + BucketArray::blockOf(slot)).free() == 0) [[unlikely]] {
      slot = fillBlock(slot);
   }
   tags[slot] = 0;
   return slot;
}

/// Moves an element that the full block of a vacant slot had displaced to that slot, another one to
/// the slot of that one if its block was full as well, and so on. Returns the slot that is vacant
/// in the end.
template <class Policy>
U32 HashTable<Policy>::fillBlock(U32 vacant) noexcept {
   U32 block = BucketArray::blockOf(vacant);
   do {
      U32 const next = block + TagWindow::width;
      U32 const displaced = array_->firstDisplacedIn(next);
      if (displaced == array_->slotCount) {
         break;
      }
      for (U32 at = vacant + 1; at != next; ++at) {
         if (array_->places()[at] == array_->places()[displaced]) {
            moveInBlock(array_, vacant, at);  // which keeps the order of equal places
            vacant = at;
         }
      }
      moveByOne(array_, vacant, displaced);
      vacant = displaced;
      block = next;
   } while (TagWindow(array_->tags() + block).free() == 0);
   return vacant;
}

/// Moves an element to the next or the previous block.
template <class Policy>
void HashTable<Policy>::moveByOne(BucketArray* array, U32 to, U32 from) noexcept {
   array->moveByOne(to, from);
   finishMove(array, to, from);
}

template <class Policy>
void HashTable<Policy>::moveInBlock(BucketArray* array, U32 to, U32 from) noexcept {
   array->tags()[to] = array->tags()[from];
   array->places()[to] = array->places()[from];
   finishMove(array, to, from);
}

/// The iterators follow the element.
template <class Policy>
void HashTable<Policy>::finishMove(BucketArray* array, U32 to, U32 from) noexcept {
   relocate(slots(array) + to, slots(array) + from);
   if (array->iterators != nullptr) [[unlikely]] {
      eachIterator(array, [&](Iterator& it) {
         if (!it.erased_) {
            it.slot_ = it.slot_ == from ? to : it.slot_;
         } else if (it.place_ == array->places()[to]) {
            if (to < it.slot_ && it.slot_ <= from) {
               it.slot_ = to;  // the element is still to come
            } else if (from < it.slot_ && it.slot_ <= to) {
               it.slot_ = to + 1;  // it is not
            }
         }
      });
   }
}

}  // namespace Kiv::Impl

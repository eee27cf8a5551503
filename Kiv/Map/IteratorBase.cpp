#include "Kiv/Map/IteratorBase.h"

namespace Kiv::Impl {

void HashIteratorBase::settle(U32 slot) noexcept {
   slot_ = slot;
   version_ = array_->version;
   restOutlivesRemoval_ = false;
   forgetRest();
   if (slot != array_->slotCount) {
      U32 const place = array_->places()[slot];
      if (U32 const block = BucketArray::blockOf(slot); block == array_->home(place)) {
         restIs(array_->orderOf(block, place, slot + 1));
      }
   }
}

void HashIteratorBase::advanceFurther() noexcept {
   if (!restIsValid() || !restKnown_) {
      settle(erased_ ? array_->following(place_, slot_)
                     : array_->following(array_->places()[slot_], slot_ + 1));
      return;
   }
   // The block is not full, so nothing is displaced from it or from those before it.
   U32 const next = array_->occupiedFrom(BucketArray::blockOf(slot_) + TagWindow::width);
   if (next == array_->slotCount) {
      slot_ = next;
      return;
   }
   U32 const block = BucketArray::blockOf(next);
   restIs(array_->orderOf(block, 0, 0));
   if (restCount_ != 0) [[likely]] {
      takeNext(block);
   } else {
      settle(array_->firstOf(block));
   }
}

void HashIteratorBase::attach(BucketArray* array) noexcept {
   array_ = array;
   ++array->users;
   nextOnArray_ = array->iterators;
   link_ = &array->iterators;
   array->iterators = this;
   if (nextOnArray_ != nullptr) {
      nextOnArray_->link_ = &nextOnArray_;
   }
}

void HashIteratorBase::detach() noexcept {
   if (array_->iterators == this && nextOnArray_ == nullptr) {
      // What may have been put off for the sake of the iterators.
      array_->shrinkAt = array_->step.shrinkAt();
   }
   *link_ = nextOnArray_;
   if (nextOnArray_ != nullptr) {
      nextOnArray_->link_ = link_;
   }
   nextOnArray_ = nullptr;
   link_ = nullptr;
   array_ = nullptr;
}

}  // namespace Kiv::Impl

#pragma once

#include <cassert>

#include "Kiv/Map/Array.h"

namespace Kiv::Impl {

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

   /// Goes to a slot, or to the end (`slotCount`).
   void settle(U32 slot) noexcept;
   /// Goes to the next element or to the end (`slotCount`).
   void advance() noexcept {
      if (restIsValid() && restCount_ != 0) [[likely]] {
         takeNext(BucketArray::blockOf(slot_));
      } else {
         advanceFurther();
      }
   }
   /// Remembers the removal of the current element. REQUIRES: it is still there.
   void markErased() noexcept {
      place_ = array_->places()[slot_];
      erased_ = true;
      // A removal from a block that is not full moves nothing.
      restOutlivesRemoval_ = restKnown_ && version_ == array_->version;
   }
   void forgetRest() noexcept {
      restCount_ = 0;
      restKnown_ = false;
   }

   /// Null at the end.
   BucketArray* array_ = nullptr;
   /// That of the array when the iterator last went on.
   U64 version_ = 0;
   /// The slots that follow in the block of the current one, as in `HashBlockOrder`.
   U64 rest_ = 0;
   /// The slot of the current element.
   U32 slot_ = 0;
   /// After its removal its place; of the elements with the same place, those from `slot_` on are
   /// still to come.
   U32 place_ = 0;
   U8 restCount_ = 0;
   bool restKnown_ = false;
   /// Whether the removal of the current element, the next change of the version, left the rest
   /// where it was.
   bool restOutlivesRemoval_ = false;
   bool erased_ = false;

private:
   template <class>
   friend class HashTable;
   friend struct BucketArray;

   [[gnu::noinline]] void advanceFurther() noexcept;
   bool restIsValid() const noexcept {
      return version_ + (restOutlivesRemoval_ ? 1 : 0) == array_->version;
   }
   /// Goes to the next of the rest, in a block. REQUIRES: there is one.
   void takeNext(U32 block) noexcept {
      version_ = array_->version;
      restOutlivesRemoval_ = false;
      slot_ = block + static_cast<U32>(rest_ & 15);
      rest_ >>= 4;
      --restCount_;
   }
   void restIs(HashBlockOrder const& order) noexcept {
      rest_ = order.slots;
      restCount_ = order.count;
      restKnown_ = order.known;
   }

   HashIteratorBase* nextOnArray_ = nullptr;
   HashIteratorBase** link_ = nullptr;
};

}  // namespace Kiv::Impl

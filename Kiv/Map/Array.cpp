#include "Kiv/Map/Array.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "Kiv/Map/Hash.h"

namespace Kiv::Impl {

namespace {

/// Large arrays start on a cache line.
constexpr std::size_t blockAlignment(std::size_t size, std::size_t slotAlignment) {
   std::size_t const wanted = size > Sarn::slabMaxSize ? 64 : Sarn::slabAlignment;
   return std::max(wanted, slotAlignment);
}

/// Makes an array without factor and version.
BucketArray* makeArray(AllocTrackTypeInfo& tracker, HashSizeStep step, U32 slots,
                       std::size_t slotSize, std::size_t alignment) {
   static_assert(sizeof(BucketArray) == 64, "what a lookup reads of it is on one cache line");
   std::size_t const size = BucketArray::blockSize(slots, slotSize, alignment);
   void* const memory = allocateTrackedArray(tracker, size, blockAlignment(size, alignment));
   auto* const array = new (memory) BucketArray;
   array->slotCount = slots;
   array->limit = step.limit();
   array->slotBase = static_cast<std::byte*>(memory) + BucketArray::slotsOffset(slots, alignment);
   array->first = slots;
   array->shrinkAt = step.shrinkAt();
   array->shift = step.shift();
   array->step = step;
   array->patience = step.patience();
   std::memset(array->tags(), 0, slots + BucketArray::tagPadding);
   return array;
}

}  // namespace

HashOrder HashOrder::fresh() noexcept {
   U64 const number = nextOrder();
   return {number, orderFactor(number)};
}

BucketArray* BucketArray::create(AllocTrackTypeInfo& tracker, HashSizeStep step, U32 slots,
                                 std::size_t slotSize, std::size_t alignment) {
   BucketArray* const array = makeArray(tracker, step, slots, slotSize, alignment);
   HashOrder const order = HashOrder::fresh();
   array->factor = order.factor;
   array->version = order.number << 32;
   return array;
}

BucketArray* BucketArray::createNext(AllocTrackTypeInfo& tracker, HashSizeStep newStep, U32 slots,
                                     std::size_t slotSize, std::size_t alignment) const {
   BucketArray* const array = makeArray(tracker, newStep, slots, slotSize, alignment);
   array->factor = factor;
   array->version = version + 1;
   array->seed = seed;
   return array;
}

void BucketArray::release(AllocTrackTypeInfo& tracker, std::size_t slotSize,
                          std::size_t alignment) noexcept {
   if (--users == 0) {
      std::size_t const size = blockSize(slotCount, slotSize, alignment);
      deallocateTrackedArray(tracker, this, size, blockAlignment(size, alignment));
   }
}

BucketArray::Layout BucketArray::layoutBy(HashSizeStep newStep) noexcept {
   Layout layout{newStep};
   eachOccupied([&, place = places()](U32 slot) { layout.add(place[slot]); });
   return layout;
}

U32 BucketArray::rankOf(U32 slot) const noexcept {
   U32 rank = 0;
   for (U32 i = 0; i < slot; ++i) {
      rank += tags()[i] != 0;
   }
   return rank;
}

U32 BucketArray::slotOfRank(U32 rank) const noexcept {
   U32 slot = occupiedFrom(0);
   for (; rank > 0 && slot < slotCount; --rank) {
      slot = occupiedFrom(slot + 1);
   }
   return slot;
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

#include "Kiv/HashMap2018Array.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace Kiv::Impl {

namespace {

/// Large arrays start on a cache line.
constexpr std::size_t blockAlignment(std::size_t size, std::size_t slotAlignment) {
   std::size_t const wanted = size > Sarn::slabMaxSize ? 64 : Sarn::slabAlignment;
   return std::max(wanted, slotAlignment);
}

constinit std::atomic<U64> arraysMade{0};

}  // namespace

U64 BucketArray::freshVersion() noexcept {
   Sarn::counterAdd(arraysMade, 1);
   // Two threads may read the same number here, but one map never sees it twice.
   return arraysMade.load(std::memory_order_relaxed) << 32;
}

BucketArray* BucketArray::create(AllocTrackTypeInfo& tracker, HashSizeStep step, U32 slots,
                                 U64 version, std::size_t slotSize, std::size_t alignment) {
   std::size_t const size = blockSize(slots, slotSize, alignment);
   void* const memory = allocateTrackedArray(tracker, size, blockAlignment(size, alignment));
   auto* const array = new (memory) BucketArray;
   array->slotCount = slots;
   array->limit = step.limit();
   array->version = version;
   array->slotBase = static_cast<std::byte*>(memory) + slotsOffset(slots, alignment);
   array->shift = step.shift();
   array->step = step;
   std::memset(array->tags(), 0, slots + tagPadding);
   return array;
}

void BucketArray::release(AllocTrackTypeInfo& tracker, std::size_t slotSize,
                          std::size_t alignment) noexcept {
   if (--users == 0) {
      std::size_t const size = blockSize(slotCount, slotSize, alignment);
      deallocateTrackedArray(tracker, this, size, blockAlignment(size, alignment));
   }
}

U32 BucketArray::slotsNeeded(HashSizeStep newStep) noexcept {
   U32 const* const hash = hashes();
   U8 const newShift = newStep.shift();
   U32 next = 0;
   eachOccupied([&](U32 slot) {
      next = std::max(next, static_cast<U32>(U64{hash[slot]} >> newShift)) + 1;
   });
   return next;
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
   *link_ = nextOnArray_;
   if (nextOnArray_ != nullptr) {
      nextOnArray_->link_ = link_;
   }
   nextOnArray_ = nullptr;
   link_ = nullptr;
   array_ = nullptr;
}

}  // namespace Kiv::Impl

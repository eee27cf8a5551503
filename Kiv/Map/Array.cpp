#include "Kiv/Map/Array.h"

#include <algorithm>
#include <cstring>
#include <limits>
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

BucketArray::Layout BucketArray::layoutBy(HashSizeStep newStep) const noexcept {
   Layout layout{newStep};
   eachOccupied([&, place = places()](U32 slot) { layout.add(place[slot]); });
   return layout;
}

U32 BucketArray::firstFrom(U64 from, U32 block) const noexcept {
   U8 const* const tag = tags();
   U32 const* const place = places();
   // How far after `from`: elements before it are further than any after it.
   U64 const furthest = ~from;
   U64 nearest = ~U64{0};
   // What has its home in a block lies before the end of the first block from there on that is not
   // full.
   for (; block < slotCount; block += TagWindow::width) {
      U32 const occupied = TagWindow(tag + block).occupied();
      for (U32 bits = occupied; bits != 0; bits &= bits - 1) {
         U32 const at = block + lowestBit(bits);
         nearest = std::min(nearest, (U64{place[at]} << 32 | at) - from);
      }
      if (occupied != 0xffff && nearest <= furthest && nearest != ~U64{0}) {
         break;
      }
   }
   return nearest <= furthest && nearest != ~U64{0} ? static_cast<U32>(nearest + from) : slotCount;
}

HashBlockOrder BucketArray::orderOf(U32 block, U32 fromPlace, U32 fromSlot) const noexcept {
   constexpr U32 width = TagWindow::width;
   U32 bits = TagWindow(tags() + block).occupied();
   if (bits == 0xffff) {
      return {};
   }
   U32 const* const place = places();
   U64 const from = U64{fromPlace} << 32 | fromSlot;
   // Signed numbers, which baseline processors compare four at a time.
   constexpr S32 none = std::numeric_limits<S32>::max();
   S32 keys[width];
   std::fill_n(keys, width, none);
   U8 slots[width];
   U32 found = 0;
   for (; bits != 0; bits &= bits - 1) {
      U32 const at = block + lowestBit(bits);
      keys[found] = static_cast<S32>(place[at] ^ 0x8000'0000);
      slots[found] = static_cast<U8>(at - block);
      found += (U64{place[at]} << 32 | at) >= from;
   }
   keys[found] = none;
   S32 ranks[width] = {};
   for (U32 other = 0; other != found; ++other) {
      for (U32 i = 0; i != width; ++i) {
         ranks[i] += keys[i] > keys[other];
      }
   }
   HashBlockOrder order;
   U32 sum = 0;
   for (U32 i = 0; i != found; ++i) {
      order.slots |= U64{slots[i]} << 4 * ranks[i];
      sum += static_cast<U32>(ranks[i]);
   }
   order.known = sum == found * (found - 1) / 2;  // unless some have equal places
   order.count = order.known ? static_cast<U8>(found) : U8{0};
   return order;
}

U32 BucketArray::lastOf(U32 block) const noexcept {
   U32 const* const place = places();
   U32 last = block;
   for (U32 at = block + 1; at != block + TagWindow::width; ++at) {
      last = place[at] >= place[last] ? at : last;
   }
   return last;
}

U32 BucketArray::firstDisplacedIn(U32 block) const noexcept {
   U32 const* const place = places();
   U32 least = slotCount;
   for (U32 bits = TagWindow(tags() + block).occupied(); bits != 0; bits &= bits - 1) {
      U32 const at = block + lowestBit(bits);
      least = least == slotCount || place[at] < place[least] ? at : least;
   }
   return least != slotCount && home(place[least]) < block ? least : slotCount;
}

}  // namespace Kiv::Impl

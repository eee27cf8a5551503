#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <new>

#include "Sarn/Types.h"
#include "Sarn/Util.h"

namespace Sarn {

/// The number of an element of an `RQueue`. Numbers wrap around; of two, the later is the one that
/// the other reaches by adding no more than 2147483647.
using RQueueSequence = U32;

namespace Impl {

/// The base-2 logarithm of a power of two; anything else is a fault.
inline U32 log2Of(U32 i) noexcept {
   // clang-format off
   SARN_CHECK( isPowerOfTwo( i ) );
   // clang-format on
   return static_cast<U32>(std::countr_zero(i));
}

/// A piece of an `RQueue`, followed by its slots in the same block.
template <class T>
struct RQueueChunk {
   RQueueChunk* next;
   /// The number that belongs to the first slot.
   RQueueSequence firstSequence;
   /// The occupied slots are [first, end).
   U32 first : 14;
   U32 end : 14;
   U32 log2Size : 4;

   static constexpr std::size_t alignment = std::max(alignof(void*), alignof(T));
   /// The size of a chunk with this many slots.
   static constexpr std::size_t bytes(U32 slots) noexcept {
      return slotsOffset() + slots * sizeof(T);
   }

   U32 size() const noexcept { return U32{1} << log2Size; }
   T* slot(U32 index) noexcept {
      auto* const slots = reinterpret_cast<std::byte*>(this) + slotsOffset();
      return std::launder(reinterpret_cast<T*>(slots)) + index;
   }
   T const* slot(U32 index) const noexcept { return const_cast<RQueueChunk*>(this)->slot(index); }

private:
   static constexpr std::size_t slotsOffset() noexcept {
      return (sizeof(RQueueChunk) + alignof(T) - 1) / alignof(T) * alignof(T);
   }
};

}  // namespace Impl

}  // namespace Sarn

#pragma once

#include <cstddef>

#include "Sarn/PiLock.h"
#include "Sarn/Types.h"

/// Fixed-size slab allocation, for entities, collection nodes, small bucket arrays and queue
/// chunks. Use `slabAllocate` and `slabFree`; only tests make a `Slab` themselves.
///
/// Sizes are rounded up to 16 bytes; each of the 128 sizes up to 2 KiB has a slab of its own, and
/// what is larger goes to operator new. A slab is a set of 32 KiB chunks, each aligned to its size,
/// so that a slot finds its chunk by masking its address:
///
///     32 KiB boundary
///     | chunk header | slot 0 | slot 1 | slot 2 | ...                    | never used ...
///                                 ^ freed: first word links to the next freed slot
///                                                                        ^ fresh_
///
/// - Both operations are O(1) and touch the slab, the chunk's header and the slot alone.
/// - Slots of a fresh chunk are handed out at ascending addresses, so that objects made in a row
///   are adjacent; freed slots are reused last in, first out.
/// - A chunk whose slots are all free is released, except that each slab keeps one.
///
/// Invariants, outside of an operation:
/// 1. a chunk is in its slab's list exactly when it has a free or a fresh slot;
/// 2. `used_` counts the slots given out; at 0 the chunk is fresh again (`fresh_` is its start);
/// 3. at most one chunk of a slab has `used_ == 0`, and `empty_` names it.
///
/// Threads: any thread may allocate, and any other may free. Once threads exist each operation
/// holds the slab's lock for about ten instructions; before, none is taken. The lock has priority
/// inheritance, and no memory is requested or released under it: a real-time thread waits for
/// another no longer than these instructions take, whatever else competes for the CPU.
///
/// With AddressSanitizer `slabAllocate` passes through to operator new, so that its reports of uses
/// after free stay exact.
namespace Sarn {

/// The largest size that comes from a slab.
inline constexpr std::size_t slabMaxSize = 2048;
/// The alignment of every slot.
inline constexpr std::size_t slabAlignment = 16;

#if defined(__SANITIZE_ADDRESS__)
#   define SARN_ASAN 1
#elif defined(__has_feature)
#   if __has_feature(address_sanitizer)
#      define SARN_ASAN 1
#   endif
#endif
#if defined(SARN_ASAN)
inline constexpr bool slabPassesThrough = true;
#else
/// Whether `slabAllocate` leaves everything to operator new.
inline constexpr bool slabPassesThrough = false;
#endif

/// Memory for an object of `size` bytes, not initialised. `alignment` is a power of two; above 16,
/// the memory comes from operator new. Throws std::bad_alloc.
[[nodiscard]] void* slabAllocate(std::size_t size, std::size_t alignment = slabAlignment);

/// Gives back what `slabAllocate` gave, with the same arguments. `p` may be null.
void slabFree(void* p, std::size_t size, std::size_t alignment = slabAlignment) noexcept;

/// The slab of one size.
class Slab {
public:
   static constexpr std::size_t chunkSize = std::size_t{32} * 1024;

   /// REQUIRES: `slotSize` is a multiple of 16, and between 16 and `slabMaxSize`.
   constexpr explicit Slab(U32 slotSize) noexcept : slotSize_(slotSize) {}
   Slab(Slab const&) = delete;
   Slab& operator=(Slab const&) = delete;

   [[nodiscard]] void* allocate();
   void free(void* p) noexcept;

   /// The chunks held, the kept empty one included.
   U32 chunks() const noexcept { return chunks_; }
   U32 slotSize() const noexcept { return slotSize_; }
   /// Gives the kept empty chunk back, too.
   void releaseEmpty() noexcept;

private:
   struct Chunk;
   class Lock;

   void* allocateFromFresh();
   void* take(Chunk* chunk) noexcept;
   Chunk* makeChunk() const;
   static void destroy(Chunk* chunk) noexcept;
   void addChunk(Chunk* chunk) noexcept;
   void removeFromList(Chunk* chunk) noexcept;

   /// Chunks with room, the one to allocate from first.
   Chunk* withRoom_ = nullptr;
   /// The chunk without a used slot, if there is one.
   Chunk* empty_ = nullptr;
   U32 slotSize_;
   U32 chunks_ = 0;
   PiLock lock_;
};

}  // namespace Sarn

#include "Sarn/Slab.h"

#include <sched.h>

#include <array>
#include <bit>
#include <cassert>
#include <new>
#include <utility>

#include "Sarn/Node.h"

#if defined(SARN_ASAN)
#   include <sanitizer/asan_interface.h>
#else
#   define ASAN_POISON_MEMORY_REGION(address, size) static_cast<void>(0)
#   define ASAN_UNPOISON_MEMORY_REGION(address, size) static_cast<void>(0)
#endif

namespace Sarn {

namespace {

/// A chunk leaves this much of its 32 KiB to the system allocator's own header, so that consecutive
/// chunks need not skip an alignment step between them.
constexpr std::size_t allocatorOverhead = 64;
constexpr std::size_t chunkBytes = Slab::chunkSize - allocatorOverhead;
/// The first slot lies on a cache line.
constexpr std::size_t headerSize = 64;

template <std::size_t... Index>
constexpr std::array<Slab, sizeof...(Index)> makeSlabs(std::index_sequence<Index...>) {
   return {Slab(static_cast<U32>((Index + 1) * slabAlignment))...};
}

constexpr std::size_t slabCount = slabMaxSize / slabAlignment;
constinit std::array<Slab, slabCount> slabs = makeSlabs(std::make_index_sequence<slabCount>());

constexpr bool fromSlab(std::size_t size, std::size_t alignment) {
   return !slabPassesThrough && size <= slabMaxSize && alignment <= slabAlignment;
}

Slab& slabOf(std::size_t size) {
   return slabs[(size - (size != 0)) / slabAlignment];
}

}  // namespace

struct Slab::Chunk {
   Chunk* next = nullptr;
   Chunk* previous = nullptr;
   void* free = nullptr;
   std::byte* fresh = nullptr;
   /// Where a fresh slot would no longer fit.
   std::byte* freshEnd = nullptr;
   U32 used = 0;

   std::byte* start() { return reinterpret_cast<std::byte*>(this) + headerSize; }
   bool hasRoom() const { return free != nullptr || fresh != freshEnd; }
};

/// Holds the slab's lock, if there are threads to hold it against.
class Slab::Lock {
public:
   explicit Lock(Slab& slab) noexcept : locked_(threadsExist() ? &slab.locked_ : nullptr) {
      if (locked_ != nullptr) {
         for (U32 tries = 0; locked_->exchange(true, std::memory_order_acquire); ++tries) {
            // The holder is a few instructions from the end, unless it was put off its CPU.
            if (tries % 64 == 63) {
               sched_yield();
            }
         }
      }
   }
   Lock(Lock const&) = delete;
   Lock& operator=(Lock const&) = delete;
   ~Lock() {
      if (locked_ != nullptr) {
         locked_->store(false, std::memory_order_release);
      }
   }

private:
   std::atomic<bool>* locked_;
};

Slab::Chunk* Slab::addChunk() {
   static_assert(sizeof(Chunk) <= headerSize);
   void* const memory = ::operator new(chunkBytes, std::align_val_t(chunkSize));
   auto* const chunk = new (memory) Chunk;
   chunk->fresh = chunk->start();
   chunk->freshEnd = chunk->fresh + (chunkBytes - headerSize) / slotSize_ * slotSize_;
   ASAN_POISON_MEMORY_REGION(chunk->start(), chunkBytes - headerSize);
   withRoom_ = chunk;
   empty_ = chunk;
   ++chunks_;
   return chunk;
}

void Slab::removeFromList(Chunk* chunk) noexcept {
   (chunk->previous != nullptr ? chunk->previous->next : withRoom_) = chunk->next;
   if (chunk->next != nullptr) {
      chunk->next->previous = chunk->previous;
   }
   chunk->next = nullptr;
   chunk->previous = nullptr;
}

void Slab::giveBack(Chunk* chunk) noexcept {
   removeFromList(chunk);
   --chunks_;
   ASAN_UNPOISON_MEMORY_REGION(chunk->start(), chunkBytes - headerSize);
   ::operator delete(chunk, std::align_val_t(chunkSize));
}

void* Slab::allocate() {
   Lock const lock(*this);
   Chunk* const chunk = withRoom_ != nullptr ? withRoom_ : addChunk();
   if (chunk->used++ == 0) {
      empty_ = nullptr;
   }
   void* slot = chunk->free;
   if (slot != nullptr) {
      ASAN_UNPOISON_MEMORY_REGION(slot, slotSize_);
      chunk->free = *static_cast<void**>(slot);
   } else {
      slot = chunk->fresh;
      ASAN_UNPOISON_MEMORY_REGION(slot, slotSize_);
      chunk->fresh += slotSize_;
   }
   if (!chunk->hasRoom()) {
      removeFromList(chunk);
   }
   return slot;
}

void Slab::free(void* p) noexcept {
   Lock const lock(*this);
   auto* const chunk = std::bit_cast<Chunk*>(std::bit_cast<std::uintptr_t>(p) & ~(chunkSize - 1));
   assert(chunk->used > 0);
   if (!chunk->hasRoom()) {
      chunk->next = withRoom_;
      if (withRoom_ != nullptr) {
         withRoom_->previous = chunk;
      }
      withRoom_ = chunk;
   }
   *static_cast<void**>(p) = chunk->free;
   chunk->free = p;
   ASAN_POISON_MEMORY_REGION(p, slotSize_);
   if (--chunk->used == 0) {
      if (empty_ != nullptr) {
         giveBack(chunk);
      } else {
         empty_ = chunk;
         chunk->free = nullptr;
         chunk->fresh = chunk->start();
      }
   }
}

void Slab::releaseEmpty() noexcept {
   Lock const lock(*this);
   if (empty_ != nullptr) {
      giveBack(std::exchange(empty_, nullptr));
   }
}

void* slabAllocate(std::size_t size, std::size_t alignment) {
   if (fromSlab(size, alignment)) [[likely]] {
      return slabOf(size).allocate();
   }
   return alignment <= __STDCPP_DEFAULT_NEW_ALIGNMENT__
                ? ::operator new(size)
                : ::operator new(size, std::align_val_t(alignment));
}

void slabFree(void* p, std::size_t size, std::size_t alignment) noexcept {
   if (fromSlab(size, alignment)) [[likely]] {
      if (p != nullptr) {
         slabOf(size).free(p);
      }
   } else if (alignment <= __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
      ::operator delete(p);
   } else {
      ::operator delete(p, std::align_val_t(alignment));
   }
}

}  // namespace Sarn

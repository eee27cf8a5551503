#include "Sarn/Slab.h"

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
   explicit Lock(Slab& slab) noexcept : lock_(threadsExist() ? &slab.lock_ : nullptr) {
      if (lock_ != nullptr) {
         lock_->lock();
      }
   }
   Lock(Lock const&) = delete;
   Lock& operator=(Lock const&) = delete;
   ~Lock() {
      if (lock_ != nullptr) {
         lock_->unlock();
      }
   }

private:
   PiLock* lock_;
};

Slab::Chunk* Slab::makeChunk() const {
   static_assert(sizeof(Chunk) <= headerSize);
   void* const memory = ::operator new(chunkBytes, std::align_val_t(chunkSize));
   auto* const chunk = new (memory) Chunk;
   chunk->fresh = chunk->start();
   chunk->freshEnd = chunk->fresh + (chunkBytes - headerSize) / slotSize_ * slotSize_;
   ASAN_POISON_MEMORY_REGION(chunk->start(), chunkBytes - headerSize);
   return chunk;
}

void Slab::destroy(Chunk* chunk) noexcept {
   if (chunk != nullptr) {
      ASAN_UNPOISON_MEMORY_REGION(chunk->start(), chunkBytes - headerSize);
      ::operator delete(chunk, std::align_val_t(chunkSize));
   }
}

void Slab::addChunk(Chunk* chunk) noexcept {
   withRoom_ = chunk;
   empty_ = chunk;
   ++chunks_;
}

void Slab::removeFromList(Chunk* chunk) noexcept {
   (chunk->previous != nullptr ? chunk->previous->next : withRoom_) = chunk->next;
   if (chunk->next != nullptr) {
      chunk->next->previous = chunk->previous;
   }
   chunk->next = nullptr;
   chunk->previous = nullptr;
}

void* Slab::take(Chunk* chunk) noexcept {
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

void* Slab::allocate() {
   {
      Lock const lock(*this);
      if (withRoom_ != nullptr) [[likely]] {
         return take(withRoom_);
      }
   }
   return allocateFromFresh();
}

void* Slab::allocateFromFresh() {
   Chunk* made = makeChunk();
   void* slot;
   {
      Lock const lock(*this);
      if (withRoom_ == nullptr) {
         addChunk(std::exchange(made, nullptr));
      }
      slot = take(withRoom_);
   }
   destroy(made);  // another thread was faster
   return slot;
}

void Slab::free(void* p) noexcept {
   Chunk* spare = nullptr;
   {
      Lock const lock(*this);
      auto* const chunk =
            std::bit_cast<Chunk*>(std::bit_cast<std::uintptr_t>(p) & ~(chunkSize - 1));
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
            removeFromList(chunk);
            --chunks_;
            spare = chunk;
         } else {
            empty_ = chunk;
            chunk->free = nullptr;
            chunk->fresh = chunk->start();
         }
      }
   }
   destroy(spare);
}

void Slab::releaseEmpty() noexcept {
   Chunk* spare;
   {
      Lock const lock(*this);
      spare = std::exchange(empty_, nullptr);
      if (spare != nullptr) {
         removeFromList(spare);
         --chunks_;
      }
   }
   destroy(spare);
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

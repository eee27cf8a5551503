#include "tests/CountedNew.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

constinit thread_local long allocated = 0;
constinit thread_local long held = 0;

void* allocateOrNull(std::size_t size, std::size_t alignment) noexcept {
   // aligned_alloc requires a multiple of the alignment, and a size of zero needs a block, too.
   void* const block = std::aligned_alloc(alignment, (size + alignment) / alignment * alignment);
   if (block != nullptr) {
      ++allocated;
      ++held;
   }
   return block;
}

void* allocate(std::size_t size, std::size_t alignment) {
   void* const block = allocateOrNull(size, alignment);
   if (block == nullptr) {
      throw std::bad_alloc();
   }
   return block;
}

void release(void* block) noexcept {
   if (block != nullptr) {
      --held;
      std::free(block);
   }
}

constexpr std::size_t usual = alignof(std::max_align_t);

}  // namespace

long CountedNew::allocations() noexcept {
   return allocated;
}
long CountedNew::blocks() noexcept {
   return held;
}

// Every form, so that none of them is paired with one from a sanitizer's runtime.
// Not inlined: otherwise, the compiler would report the pairs as mismatched.
[[gnu::noinline]] void* operator new(std::size_t size) {
   return allocate(size, usual);
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
   return allocate(size, usual);
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
   return allocate(size, static_cast<std::size_t>(alignment));
}
[[gnu::noinline]] void* operator new[](std::size_t size, std::align_val_t alignment) {
   return allocate(size, static_cast<std::size_t>(alignment));
}
[[gnu::noinline]] void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
   return allocateOrNull(size, usual);
}
[[gnu::noinline]] void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
   return allocateOrNull(size, usual);
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment,
                                     std::nothrow_t const&) noexcept {
   return allocateOrNull(size, static_cast<std::size_t>(alignment));
}
[[gnu::noinline]] void* operator new[](std::size_t size, std::align_val_t alignment,
                                       std::nothrow_t const&) noexcept {
   return allocateOrNull(size, static_cast<std::size_t>(alignment));
}

[[gnu::noinline]] void operator delete(void* block) noexcept {
   release(block);
}
[[gnu::noinline]] void operator delete[](void* block) noexcept {
   release(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
   release(block);
}
[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept {
   release(block);
}
[[gnu::noinline]] void operator delete(void* block, std::align_val_t) noexcept {
   release(block);
}
[[gnu::noinline]] void operator delete[](void* block, std::align_val_t) noexcept {
   release(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
   release(block);
}
[[gnu::noinline]] void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
   release(block);
}
[[gnu::noinline]] void operator delete(void* block, std::nothrow_t const&) noexcept {
   release(block);
}
[[gnu::noinline]] void operator delete[](void* block, std::nothrow_t const&) noexcept {
   release(block);
}
[[gnu::noinline]] void operator delete(void* block, std::align_val_t,
                                       std::nothrow_t const&) noexcept {
   release(block);
}
[[gnu::noinline]] void operator delete[](void* block, std::align_val_t,
                                         std::nothrow_t const&) noexcept {
   release(block);
}

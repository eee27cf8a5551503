#include "tests/alloc/FailingNew.h"

#include <cstdlib>

namespace AllocTesting {
namespace {

Failures kind = Failures::single;
std::size_t failAt = 0;
std::size_t allocations = 0;
std::size_t failedCount = 0;
bool isArmed = false;

bool fails() noexcept {
   if (!isArmed) {
      return false;
   }
   ++allocations;
   bool const now =
         failAt != 0 && (kind == Failures::single ? allocations == failAt : allocations >= failAt);
   failedCount += now ? 1 : 0;
   return now;
}

void* allocate(std::size_t size, std::size_t alignment) {
   // NOLINTNEXTLINE(clang-analyzer-core.StackAddressEscape)
   void* const memory = fails()
                              ? nullptr
                              : std::aligned_alloc(alignment, (size + (size == 0) + alignment - 1) /
                                                                    alignment * alignment);
   if (memory == nullptr) {
      throw std::bad_alloc();
   }
   return memory;
}

}  // namespace

void failuresAre(Failures which, std::size_t n) noexcept {
   kind = which;
   failAt = n;
   allocations = failedCount = 0;
}

std::size_t failed() noexcept {
   return failedCount;
}

Armed::Armed() noexcept {
   isArmed = true;
}

Armed::~Armed() {
   isArmed = false;
}

}  // namespace AllocTesting

// NOLINTBEGIN(misc-new-delete-overloads): the array, sized and nothrow forms end up here as well
// Not inlined: otherwise, the compiler would report the pairs as mismatched.
[[gnu::noinline]] void* operator new(std::size_t size) {
   return AllocTesting::allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
   return AllocTesting::allocate(size, static_cast<std::size_t>(alignment));
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
   std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
   std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::align_val_t) noexcept {
   std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
   std::free(memory);
}
// NOLINTEND(misc-new-delete-overloads)

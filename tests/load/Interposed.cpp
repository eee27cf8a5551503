#include "tests/load/Interposed.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/auxv.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#   define LOAD_TESTING_SANITIZED 1
#elif defined(__has_feature)
#   if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#      define LOAD_TESTING_SANITIZED 1
#   endif
#endif

namespace LoadTesting {
namespace {

constinit bool counting = false;
constinit std::size_t ofLoader = 0;
constinit std::size_t ofOthers = 0;

constinit std::array<Kiv::KivModule const*, 64> handedOver{};
constinit std::size_t handedOverCount = 0;

#ifndef LOAD_TESTING_SANITIZED
/// Whether the address is in the dynamic loader.
bool inLoader(void const* address) {
   struct Search {
      char const* address;
      bool found;
   } search{static_cast<char const*>(address), false};
   dl_iterate_phdr(
         [](dl_phdr_info* object, std::size_t, void* data) {
            auto& wanted = *static_cast<Search*>(data);
            if (object->dlpi_addr != getauxval(AT_BASE)) {
               return 0;
            }
            for (int i = 0; i != object->dlpi_phnum; ++i) {
               auto const* const begin = reinterpret_cast<char const*>(object->dlpi_addr) +
                                         object->dlpi_phdr[i].p_vaddr;
               wanted.found =
                     wanted.found || (wanted.address >= begin &&
                                      wanted.address < begin + object->dlpi_phdr[i].p_memsz);
            }
            return 1;
         },
         &search);
   return search.found;
}

void count(void const* caller) {
   if (counting) {
      ++(inLoader(caller) ? ofLoader : ofOthers);
   }
}
#endif

using ModuleIs = void(Kiv::KivModule const&) noexcept;

ModuleIs* realModuleIs() {
   return reinterpret_cast<ModuleIs*>(dlsym(RTLD_NEXT, "_ZN3Kiv11kivModuleIsERKNS_9KivModuleE"));
}

}  // namespace

#ifdef LOAD_TESTING_SANITIZED
bool const countsAllocations = false;
#else
bool const countsAllocations = true;
#endif

AllocationCount::AllocationCount() noexcept {
   ofLoader = 0;
   ofOthers = 0;
   counting = true;
}
AllocationCount::~AllocationCount() {
   counting = false;
}
std::size_t AllocationCount::byLoader() const noexcept {
   return ofLoader;
}
std::size_t AllocationCount::byOthers() const noexcept {
   return ofOthers;
}

std::vector<Kiv::KivModule const*> modulesHandedOver() {
   std::vector<Kiv::KivModule const*> all(handedOver.begin(), handedOver.begin() + handedOverCount);
   handedOverCount = 0;
   return all;
}

}  // namespace LoadTesting

/// Takes precedence over the framework's function in every library that is loaded.
void Kiv::kivModuleIs(KivModule const& module) noexcept {
   using namespace LoadTesting;
   if (handedOverCount != handedOver.size()) {
      handedOver[handedOverCount++] = &module;
   }
   realModuleIs()(module);
}

#ifndef LOAD_TESTING_SANITIZED
// Every allocation ends up in one of these functions; the C library provides its own under names
// that do not lead back here.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) noexcept {
   LoadTesting::count(__builtin_return_address(0));
   return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) noexcept {
   LoadTesting::count(__builtin_return_address(0));
   return __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) noexcept {
   LoadTesting::count(__builtin_return_address(0));
   return __libc_realloc(memory, size);
}
void* memalign(std::size_t alignment, std::size_t size) noexcept {
   LoadTesting::count(__builtin_return_address(0));
   return __libc_memalign(alignment, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
   LoadTesting::count(__builtin_return_address(0));
   return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
   LoadTesting::count(__builtin_return_address(0));
   *memory = __libc_memalign(alignment, size);
   return *memory != nullptr ? 0 : ENOMEM;
}
}
#endif

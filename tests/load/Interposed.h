// Counts what the loader and the libraries call: heap allocations and the registration of modules.
// In a program linked with Interposed.cpp, its functions are called instead.
#pragma once

#include <cstddef>
#include <vector>

#include "Kiv/Module.h"

namespace LoadTesting {

/// Whether allocations can be counted; with a sanitizer, which has its own allocator, they cannot.
extern bool const countsAllocations;

/// Counts from its construction to its destruction. Only one may exist at a time.
class AllocationCount {
public:
   AllocationCount() noexcept;
   ~AllocationCount();
   AllocationCount(AllocationCount const&) = delete;
   AllocationCount& operator=(AllocationCount const&) = delete;

   /// Allocations made by the dynamic loader for its lists of libraries.
   std::size_t byLoader() const noexcept;
   /// All others.
   std::size_t byOthers() const noexcept;
};

/// The records that were passed to `Kiv::kivModuleIs` since the last call, in order.
std::vector<Kiv::KivModule const*> modulesHandedOver();

}  // namespace LoadTesting

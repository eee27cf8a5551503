// What the loader and the libraries call, counted on the way: heap allocations and the registration
// of modules. A program that is linked with Interposed.cpp has its functions called instead.
#pragma once

#include <cstddef>
#include <vector>

#include "Kiv/Module.h"

namespace LoadTesting {

/// Whether allocations can be counted: a sanitizer has an allocator of its own.
extern bool const countsAllocations;

/// Counts from its construction to its end. One at a time.
class AllocationCount {
public:
   AllocationCount() noexcept;
   ~AllocationCount();
   AllocationCount(AllocationCount const&) = delete;
   AllocationCount& operator=(AllocationCount const&) = delete;

   /// Allocations that were asked for by the dynamic loader, for its own lists of libraries.
   std::size_t byLoader() const noexcept;
   /// All others.
   std::size_t byOthers() const noexcept;
};

/// The records that were handed over to `Kiv::kivModuleIs` since the last call, in order.
std::vector<Kiv::KivModule const*> modulesHandedOver();

}  // namespace LoadTesting

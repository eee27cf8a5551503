#pragma once

#include "Sarn/AllocTrack.h"
#include "Sarn/Slab.h"

/// Allocation tracking of the framework: the record that every generated type has, and the
/// functions that allocate nodes and arrays.
namespace Kiv {

/// The tracker record of one type (`static Kiv::AllocTrackTypeInfo memAllocationTracker_`).
///
/// Read it through the base class; `Sarn::AllocTrackRecord::forEach` visits all that are in use.
class AllocTrackTypeInfo : public Sarn::AllocTrackRecord {
public:
   using AllocTrackRecord::AllocTrackRecord;

   /// Counts an object of `type`.
   static void _trackAllocation(AllocTrackTypeInfo& type, std::size_t size,
                                std::size_t alignment) noexcept {
      type.allocated(size, alignment);
   }
   /// Undoes `_trackAllocation` with the same size.
   static void trackDeallocation(AllocTrackTypeInfo& type, std::size_t size,
                                 std::size_t /*alignment*/) noexcept {
      type.released(size);
   }
   /// Counts an array of `size` bytes in all (a bucket array) as one object of `type`.
   static void trackArrayAllocation(AllocTrackTypeInfo& type, std::size_t size,
                                    std::size_t alignment) noexcept {
      type.allocated(size, alignment);
   }
   /// Undoes `trackArrayAllocation` with the same size.
   static void trackArrayDeallocation(AllocTrackTypeInfo& type, std::size_t size,
                                      std::size_t /*alignment*/) noexcept {
      type.released(size);
   }
};

/// The tracker of a type that has no generated one, usually an instance of a collection template.
template <class T>
inline constinit AllocTrackTypeInfo allocTrackerOf{Sarn::typeNameOf<T>()};

/// Allocates memory for one object of a type from the slab of its size, and tracks it.
inline void* allocateTracked(AllocTrackTypeInfo& type, std::size_t size, std::size_t alignment) {
   void* const p = Sarn::slabAllocate(size, alignment);
   AllocTrackTypeInfo::_trackAllocation(type, size, alignment);
   return p;
}
/// Frees what `allocateTracked` returned for the same arguments.
inline void deallocateTracked(AllocTrackTypeInfo& type, void* p, std::size_t size,
                              std::size_t alignment) noexcept {
   AllocTrackTypeInfo::trackDeallocation(type, size, alignment);
   Sarn::slabFree(p, size, alignment);
}

/// The same for an array, counted as one object.
inline void* allocateTrackedArray(AllocTrackTypeInfo& type, std::size_t size,
                                  std::size_t alignment) {
   void* const p = Sarn::slabAllocate(size, alignment);
   AllocTrackTypeInfo::trackArrayAllocation(type, size, alignment);
   return p;
}
inline void deallocateTrackedArray(AllocTrackTypeInfo& type, void* p, std::size_t size,
                                   std::size_t alignment) noexcept {
   AllocTrackTypeInfo::trackArrayDeallocation(type, size, alignment);
   Sarn::slabFree(p, size, alignment);
}

}  // namespace Kiv

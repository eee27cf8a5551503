#pragma once

/// Counts what this program allocates. A test program that is linked with `CountedNew.cpp` has its
/// `operator new` and `operator delete`, in all forms, replaced by ones that count.
///
/// Counts are kept by thread, so that tests which run threads do not disturb others.
namespace CountedNew {

/// Calls of `operator new` on this thread.
long allocations() noexcept;
/// Blocks allocated on this thread less those freed on it.
long blocks() noexcept;

/// Calls of `operator new` on this thread while `work` runs.
template <class Work>
long allocationsOf(Work&& work) {
   long const before = allocations();
   work();
   return allocations() - before;
}

}  // namespace CountedNew

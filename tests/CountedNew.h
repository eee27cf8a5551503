#pragma once

/// Counts what this program allocates. Linking a test program with `CountedNew.cpp` replaces all
/// forms of `operator new` and `operator delete` with ones that count.
///
/// Counts are kept per thread, so that tests with threads do not disturb others.
namespace CountedNew {

/// Calls of `operator new` on this thread.
long allocations() noexcept;
/// Blocks allocated on this thread minus those freed on it.
long blocks() noexcept;

/// Calls of `operator new` on this thread while `work` runs.
template <class Work>
long allocationsOf(Work&& work) {
   long const before = allocations();
   work();
   return allocations() - before;
}

}  // namespace CountedNew

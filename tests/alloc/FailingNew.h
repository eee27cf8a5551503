// Allocations that fail where a test wants them to. The program has its own operator new.
#pragma once

#include <cstddef>
#include <new>

namespace AllocTesting {

/// Which allocations fail.
enum class Failures : unsigned char {
   /// Only the n-th.
   single,
   /// The n-th and every later one.
   allFrom,
};

/// From now on, the n-th allocation fails. Allocations are counted from 1, and only while failures
/// are armed. 0: none fails.
void failuresAre(Failures failures, std::size_t n) noexcept;
/// Allocations that have failed since then.
std::size_t failed() noexcept;

/// While an object of this class exists, allocations are counted and fail. Do not nest them.
class Armed {
public:
   Armed() noexcept;
   ~Armed();
   Armed(Armed const&) = delete;
   Armed& operator=(Armed const&) = delete;
};

/// Does something with failing allocations. False if it threw std::bad_alloc.
template <class What>
bool attempt(What&& what) {
   try {
      Armed const armed;
      what();
      return true;
   } catch (std::bad_alloc const&) {
      return false;
   }
}

}  // namespace AllocTesting

// Allocations that fail where a test wants them to: this program's operator new is its own.
#pragma once

#include <cstddef>
#include <new>

namespace AllocTesting {

/// Which allocations fail.
enum class Failures : unsigned char {
   single,   ///< the n-th alone
   allFrom,  ///< the n-th and every later one
};

/// From now on the n-th allocation fails, counted from 1 and only where failures are armed. 0:
/// none.
void failuresAre(Failures failures, std::size_t n) noexcept;
/// Allocations that have failed since then.
std::size_t failed() noexcept;

/// While one lives, allocations count and fail. They do not nest.
class Armed {
public:
   Armed() noexcept;
   ~Armed();
   Armed(Armed const&) = delete;
   Armed& operator=(Armed const&) = delete;
};

/// Does something with failing allocations. False if that ended in std::bad_alloc.
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

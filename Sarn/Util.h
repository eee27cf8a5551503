#pragma once

#include <bit>

#include "Sarn/Types.h"

/// Small helpers that everything else builds on.
namespace Sarn {

/// Ends the process as a failed assert() does, in every build. For `SARN_CHECK`, and for checks
/// whose message names a fixed place instead of that in the code.
[[noreturn, gnu::cold]] void checkFailed(char const* expression, char const* file, unsigned line,
                                         char const* function) noexcept;

constexpr bool isPowerOfTwo(U32 i) noexcept {
   return std::has_single_bit(i);
}

}  // namespace Sarn

/// assert() for faults that must be found in every build, the release included, since continuing
/// would destroy data. The message shows the expression as written.
#define SARN_CHECK(expression)                                                         \
   (static_cast<bool>(expression) ? static_cast<void>(0)                               \
                                  : Sarn::checkFailed(#expression, __FILE__, __LINE__, \
                                                      static_cast<char const*>(__func__)))

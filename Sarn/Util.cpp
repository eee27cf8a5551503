#include "Sarn/Util.h"

// What the C library's assert() calls, in the builds that have it.
extern "C" [[gnu::noreturn]] void __assert_fail(  // NOLINT(bugprone-reserved-identifier): its name
      char const* expression, char const* file, unsigned line, char const* function) noexcept;

namespace Sarn {

void checkFailed(char const* expression, char const* file, unsigned line,
                 char const* function) noexcept {
   __assert_fail(expression, file, line, function);
}

}  // namespace Sarn

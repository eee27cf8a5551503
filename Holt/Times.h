// Times of day, as people read and write them.
#pragma once

#include "Sarn/String.h"
#include "Sarn/Types.h"

namespace Holt {

/// "2026-11-21 14:03:59.120", local. `wall`: nanoseconds since 1970.
Sarn::String dateText(U64 wall);

/// Nanoseconds since 1970, and of a clock that never goes back.
U64 wallNow() noexcept;
U64 steadyNow() noexcept;

/// Reads a time of what began at `begin`: "+90.5" seconds later; "14:03", "14:03:59.120" on that
/// day or, if that is before it, on the next; "2026-11-21 14:03:59.120", a T for the blank, all
/// local;
/// "@1795269839.12" seconds since 1970. Throws `Failure`.
U64 parseTime(Sarn::String const& text, U64 begin);

}  // namespace Holt

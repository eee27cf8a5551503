// Times of day, as people read and write them.
#pragma once

#include "Sarn/String.h"
#include "Sarn/Types.h"

namespace Holt {

/// How a time of day is written.
enum class TimeForm : U8 {
   /// "2026-11-21 14:03:59.120", local.
   date,
   /// "14:03:59.120", local.
   time,
   /// "14:03:59", local.
   seconds,
   /// "2026-11-21T13:03:59.120Z": for other programs.
   universal
};

/// `wall`: nanoseconds since 1970. Digits beyond the form are cut off.
Sarn::String timeText(U64 wall, TimeForm form = TimeForm::date);

/// A duration, given in nanoseconds: "3.204 s"; "2:03:04" from a minute on.
Sarn::String durationText(U64 nanoseconds);

/// Since when a root has no writer: "stale since 14:03:59 (5:02:11)", with the date if that was
/// more than half a day ago. `since`: nanoseconds since 1970; 0 if it is not known: "stale".
Sarn::String staleText(U64 since, U64 now);

/// Nanoseconds since 1970; nanoseconds of a clock that never goes back.
U64 wallNow() noexcept;
U64 steadyNow() noexcept;

/// Reads a time in local time: "14:03" or "14:03:59.120", the first after `begin`;
/// "2026-11-21 14:03:59.120", with a blank or a T; "+90.5", seconds after `begin`; or
/// "@1795269839.12", seconds since 1970. Throws `Failure`.
U64 parseTime(Sarn::String const& text, U64 begin);

}  // namespace Holt

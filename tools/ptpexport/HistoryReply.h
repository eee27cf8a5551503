#pragma once

#include "tools/ptpexport/History.h"
#include "tools/ptpexport/Http/Reply.h"

namespace Ptpexport {

/// Answers `GET /history` with the last hour of a clock, and `GET /history/PORT` with that of a
/// port. `?root=NAME` chooses the clock; by default, it is the first. Throws `Holt::Failure` if
/// there is no such clock or port.
Reply historyReply(History const& history, Request const& request);

}  // namespace Ptpexport

// A sample of `top` for programs.
#pragma once

#include <iosfwd>

#include "tools/ptpstate/top/Table.h"

namespace Ptpstate {

/// A sample as a JSON object in one line: "time", "head" and "rows", each row with its "key" and a
/// member for each column. Numbers are numbers, what does not exist is null, and all else is text.
void writeJsonSample(std::ostream& out, TopTable const& table,
                     std::vector<std::pair<Sarn::String, TopCell>> const& head);

/// A sample as lines of comma-separated values (RFC 4180): time, key and columns. `heading`: begin
/// with a line of their names.
void writeCsvSample(std::ostream& out, TopTable const& table, bool heading);

}  // namespace Ptpstate

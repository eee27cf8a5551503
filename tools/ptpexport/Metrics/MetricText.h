// Numbers and labels as both text formats write them.
#pragma once

#include <string>
#include <string_view>

#include "Sarn/Types.h"

namespace Ptpexport {

void appendNumber(std::string& out, U64 number);
void appendNumber(std::string& out, S64 number);
/// A whole number up to 2^53 has its digits, any other number the shortest text that reads back as
/// the same; `+Inf`, `-Inf` and `NaN` have these names.
void appendNumber(std::string& out, double number);

/// Seconds of a number of nanoseconds: the same digits with the decimal point nine places further
/// to the left, so that nothing is rounded.
void appendSeconds(std::string& out, U64 nanoseconds);
void appendSeconds(std::string& out, S64 nanoseconds);
/// The same digits as the shortest text of the number.
void appendSeconds(std::string& out, double nanoseconds);

/// Appends `name="text"`, after a comma unless `out` is empty. Text of unknown origin is made
/// printable first, since both formats need UTF-8.
void appendLabel(std::string& out, std::string_view name, std::string_view text);

}  // namespace Ptpexport

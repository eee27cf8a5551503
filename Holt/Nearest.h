// Suggests a known name for a misspelt one.
#pragma once

#include <string_view>
#include <vector>

#include "Sarn/String.h"

namespace Holt {

/// "; did you mean 'flag'?" for the candidate closest to `name`, or empty if none is close. Ignores
/// case. A candidate that begins with `name` is close, too.
Sarn::String didYouMean(std::string_view name, std::vector<std::string_view> const& candidates);

}  // namespace Holt

// Which name somebody may have meant who wrote another.
#pragma once

#include <string_view>
#include <vector>

#include "Sarn/String.h"

namespace Holt {

/// "; did you mean 'flag'?" for the candidate that is most like `name`, or empty where none is.
/// Case does not count. A candidate that goes on where `name` ends is like it, too.
Sarn::String didYouMean(std::string_view name, std::vector<std::string_view> const& candidates);

}  // namespace Holt

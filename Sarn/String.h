#pragma once

#include <string>
#include <string_view>

namespace Sarn {

/// The framework's string: bytes of any value and any length, not necessarily text.
/// A lookup or a setter that only reads takes a `std::string_view`, so that no string is made for
/// it.
using String = std::string;

}  // namespace Sarn

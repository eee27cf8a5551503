// Makes generated lines fit the page.
#pragma once

#include <string>
#include <string_view>

namespace Kivc {

/// The widest line of generated C++.
inline constexpr std::size_t pageWidth = 100;

/// Breaks lines of C++ that are wider than the page: `//` comments at a blank, with the slashes
/// repeated; code behind a comma, aligned to the bracket that is open there, or behind `=`; a text
/// that is too long by itself is split in two.
std::string fitToPage(std::string_view text);

/// Puts the `// ...` at the ends of lines below each other.
std::string alignRemarks(std::string_view text);

/// `lines` as `///` comment lines.
std::string docComment(std::string_view lines);

}  // namespace Kivc

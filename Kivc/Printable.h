// Text of unknown origin as a terminal may show it. The compiler links none of the libraries, so it
// has its own.
#pragma once

#include <string>
#include <string_view>

namespace Kivc {

/// `text` with `\xHH` for each byte that a terminal might obey: control characters, Unicode
/// characters that break lines or reverse the direction of text, and invalid UTF-8; with `\n` and
/// `\r`, and with tabs as they are.
std::string printable(std::string_view text);

}  // namespace Kivc

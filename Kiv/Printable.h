#pragma once

#include <cstddef>
#include <string_view>

#include "Sarn/String.h"

namespace Kiv {

/// Text of unknown origin (from a peer, a file, a name) as one line that is safe to log and to show
/// on a terminal. It escapes control characters, Unicode characters that break lines or reverse the
/// direction of text, and invalid UTF-8, as `\n`, `\r`, `\t`, or `\xHH` for each byte. All other
/// text, backslashes included, is unchanged: the result is for people, not for parsing. Text
/// without escapes is returned without a copy; a second call changes nothing more.
Sarn::String printable(Sarn::String text);

/// Appends the escape of one byte: `\"`, `\\`, `\n`, `\r`, `\t`, else `\xHH`.
void appendEscape(Sarn::String& out, char c);

/// The length in bytes of the first character; 0 if it needs an escape, or if there is none.
std::size_t printableCharacter(std::string_view text) noexcept;

}  // namespace Kiv

#pragma once

#include <cstddef>
#include <string_view>

#include "Sarn/String.h"

namespace Kiv {

/// Text of unknown origin (what a peer says, a file, a name) as one line that is safe to log and to
/// show on a terminal. Escaped are control characters, what breaks lines or reverses the direction
/// of text in Unicode, and bytes that are no UTF-8: `\n`, `\r`, `\t`, `\xHH` for each byte. The
/// rest stays as it is, backslashes too: the result is for people, and is not read back. Text that
/// needs no escape is returned without a copy; applying it twice changes nothing more.
Sarn::String printable(Sarn::String text);

/// The bytes of the first character if it needs no escape; 0 if it does, or there is none.
std::size_t printableCharacter(std::string_view text) noexcept;

}  // namespace Kiv

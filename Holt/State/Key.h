// Keys as people write them in the brackets of a path: "Ethernet1", "Ethernet1,100".
#pragma once

#include "Holt/State/Values.h"
#include "Kiv/Path.h"

namespace Holt {

using Kiv::keyText;

/// Reads the text of a key, as `keyText` writes it or in the text form of its type. Blanks may
/// stand around a comma. A string may be given without its quotes. Throws a `Failure` that says
/// which field is wrong, or which fields there are.
void parseKey(std::string_view text, Kiv::AnyValue& key);

}  // namespace Holt

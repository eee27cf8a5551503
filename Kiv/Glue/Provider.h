#pragma once

/// Everything that generated code needs from the framework beyond its public headers. Not for other
/// code.
#include "Kiv/Glue/EntityGlue.h"
#include "Kiv/Glue/EnumType.h"
#include "Kiv/Glue/ValueType.h"

namespace Kiv {

/// Raised whenever generated code and framework become incompatible; generated code asserts it.
inline constexpr int providerVersion = 3;

}  // namespace Kiv

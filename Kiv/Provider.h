#pragma once

/// All that generated code uses of the framework beyond what its users see. Not for other code.
#include "Kiv/EntityGlue.h"
#include "Kiv/EnumType.h"
#include "Kiv/ValueType.h"

namespace Kiv {

/// Raised whenever generated code and framework no longer fit each other; generated code asserts
/// it.
inline constexpr int providerVersion = 1;

}  // namespace Kiv

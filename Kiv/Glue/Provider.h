#pragma once

/// All that generated code uses of the framework beyond what its users see. Not for other code.
#include "Kiv/Glue/EntityGlue.h"
#include "Kiv/Glue/EnumType.h"
#include "Kiv/Glue/ValueType.h"

namespace Kiv {

/// Raised whenever generated code and framework no longer fit each other; generated code asserts
/// it.
inline constexpr int providerVersion = 1;

}  // namespace Kiv

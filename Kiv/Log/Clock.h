#pragma once

#include "Sarn/Types.h"

namespace Kiv::NboAttrLog {

/// A hub's monotonic clock, in nanoseconds.
struct Clock {
   U64 (*read)() noexcept = nullptr;

   /// 0 without a clock.
   U64 now() const noexcept { return read != nullptr ? read() : 0; }
};

}  // namespace Kiv::NboAttrLog

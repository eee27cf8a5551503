#pragma once

#include "Sarn/Types.h"

namespace Kiv::NboAttrLog {

/// A hub's clock, in nanoseconds, which never goes back.
struct Clock {
   U64 (*read)() noexcept = nullptr;

   /// 0 without a clock.
   U64 now() const noexcept { return read != nullptr ? read() : 0; }
};

}  // namespace Kiv::NboAttrLog

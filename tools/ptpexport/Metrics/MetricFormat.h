// Which of the text formats a client gets.
#pragma once

#include <string_view>

#include "Sarn/Types.h"

namespace Ptpexport {

/// The two text formats.
enum class MetricFormat : U8 {
   /// Prometheus text 0.0.4.
   prometheus,
   /// OpenMetrics 1.0.0.
   openMetrics,
};

/// The format that an `Accept` header prefers (RFC 9110, 12.5.1): that of the greater quality,
/// which for each is given by the most specific range that covers it. Of equal ones, OpenMetrics
/// only if it is named. Text if the header is empty, or accepts neither: a client that does not
/// know what it wants can read it. Anything that is not a range is ignored.
MetricFormat formatFor(std::string_view accept) noexcept;

/// The value of `Content-Type`.
char const* contentTypeOf(MetricFormat format) noexcept;

}  // namespace Ptpexport

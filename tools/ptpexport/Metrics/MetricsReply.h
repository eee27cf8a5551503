// Answers GET /metrics.
#pragma once

#include "tools/ptpexport/Feed.h"
#include "tools/ptpexport/Http/Reply.h"
#include "tools/ptpexport/Metrics/Counters.h"

namespace Ptpexport {

/// The metrics of the mirrors, in the format that the request prefers, rendered while the client
/// reads them. `counters`: those of the program; they must live as long as the server.
Reply metricsReply(Feed const& feed, Counters& counters, Request const& request);

}  // namespace Ptpexport

// Answers GET /metrics.
#pragma once

#include "tools/ptpexport/Http/Reply.h"
#include "tools/ptpexport/Metrics/Counters.h"
#include "tools/ptpexport/Metrics/Scrape.h"
#include "tools/shared/Feed.h"

namespace Ptpexport {

using Tools::Feed;

/// The metrics of the mirrors, in the format that the request prefers, rendered while the client
/// reads them. `counters`: those of the program; they must live as long as the server.
Reply metricsReply(Feed const& feed, Counters& counters, Request const& request);

/// The same of the switches of a fleet.
Reply metricsReply(std::span<ScrapedSwitch const> switches, SourceHealth const& health,
                   Counters& counters, Request const& request);

}  // namespace Ptpexport

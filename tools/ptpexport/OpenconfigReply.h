#pragma once

#include "tools/ptpexport/Http/Reply.h"
#include "tools/shared/Feed.h"

namespace Ptpexport {

using Tools::Feed;

/// Answers `GET /openconfig/PATH`: what a feed mirrors, as data of the model openconfig-ptp, or the
/// part of it at a path of RESTCONF; see `Holt::openconfigAt`. 404 if the model has no such path,
/// or nothing is there now; 503 as long as no state has been mirrored.
Reply openconfigReply(Feed const& feed, Request const& request);

}  // namespace Ptpexport

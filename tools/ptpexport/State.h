#pragma once

#include "tools/ptpexport/Http/Reply.h"
#include "tools/shared/Feed.h"

namespace Ptpexport {

using Tools::Feed;

/// Answers `GET /state/PATH` with what `ptpstate dump --json PATH` prints, and `GET /state` with
/// all roots. A "*" in a key stands for any characters. 404 if the path leads nowhere, 503 before
/// the state is known at all. While the state is old, the header `Warning` says so.
Reply stateReply(Feed const& feed, Request const& request);

/// The same of other roots, of which there is at least one. `path`: empty for all of them.
Reply stateReply(std::vector<Kiv::NamedEntity*> const& roots, bool current,
                 std::string const& path);

}  // namespace Ptpexport

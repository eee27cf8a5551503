#pragma once

#include "tools/ptpexport/Http/Reply.h"
#include "tools/shared/Feed.h"

namespace Ptpexport {

using Tools::Feed;

/// Answers `GET /healthz`: 200 if the state is connected and up to date, else 503, with an object:
///
///     {"connected":true,"since":"2026-11-22T20:00:00.000Z",
///      "roots":[{"type":"Ptp::Status","name":"ptp/status"}]}
///     {"connected":false,"since":"...","reason":"...","roots":[...]}
///
/// "roots" are those whose state is known, up to date or not; "leftOut", if it is there, tells
/// which roots of the server are not mirrored, and why. With the parameter `always`, the status is
/// 200 in either case, for clients that take any other for a failure.
Reply healthReply(Feed const& feed, Request const& request);

/// The header `Warning` of an answer from a state that is not up to date (RFC 7234, 5.5.1).
inline constexpr char const* staleWarning = "110 - \"Response is Stale\"";

/// The object as a line: also what readers of events get when it changes.
std::string healthJson(Feed const& feed);

}  // namespace Ptpexport

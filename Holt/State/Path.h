// Where something stands in a state, as people type it:
//
//     ptp/config.intfConfig[Ethernet1].logSyncInterval
//
// The root's name, then the attributes that lead there, a key in text form in brackets behind a
// collection. A field of a value is reached like an attribute.
#pragma once

#include <optional>
#include <vector>

#include "Kiv/NboAttrLogSession.h"
#include "Sarn/String.h"

namespace Holt {

using Kiv::NboAttrLog::OfferedRoot;

/// ".name" or ".name[key]".
struct PathStep {
   Sarn::String name;
   /// The text between the brackets. Brackets within it are balanced; in double quotes anything
   /// may stand.
   std::optional<Sarn::String> key;

   bool operator==(PathStep const&) const = default;
};

struct Path {
   OfferedRoot root;
   std::vector<PathStep> steps;
};

/// The attributes behind a root's name, such as ".intfConfig[Ethernet1].enabled"; empty text is no
/// steps. Throws `Failure` with the place of the fault.
std::vector<PathStep> parseSteps(std::string_view text);

/// A path below one of `roots`. A root is named by its name or, where several of different types
/// have that name, by TYPE=NAME. Root names may contain dots; the longest that fits is taken.
/// Throws `Failure` if none fits or the rest is no path.
Path parsePath(std::string_view text, std::vector<OfferedRoot> const& roots);

}  // namespace Holt

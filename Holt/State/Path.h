// Places in a state as people type them:
//
//     ptp/config.intfConfig[Ethernet1].logSyncInterval
//
// First the root's name, then the attributes that lead there; after a collection, a key in brackets
// as `Key.h` reads it. A field of a value is written like an attribute.
#pragma once

#include <optional>
#include <vector>

#include "Kiv/NboAttrLogSession.h"
#include "Sarn/String.h"

namespace Holt {

using Kiv::NboAttrLog::OfferedRoot;

inline bool isSame(OfferedRoot const& a, OfferedRoot const& b) {
   return a.type == b.type && a.name == b.name;
}

/// ".name" or ".name[key]".
struct PathStep {
   Sarn::String name;
   /// The text between the brackets. Brackets within it are balanced, except in double quotes.
   std::optional<Sarn::String> key;

   bool operator==(PathStep const&) const = default;
};

struct Path {
   OfferedRoot root;
   std::vector<PathStep> steps;
};

/// Reads the attributes after a root's name, such as ".intfConfig[Ethernet1].enabled"; empty text
/// has no steps. Throws a `Failure` that says where the text is wrong.
std::vector<PathStep> parseSteps(std::string_view text);

/// The bracket that closes the one at `begin`. Throws `Failure` if there is none.
std::size_t closingBracket(std::string_view text, std::size_t begin);

/// The first "*" outside double quotes in a key, at `from` or after it; npos if there is none.
std::size_t findWildcard(std::string_view key, std::size_t from = 0);
inline bool hasWildcard(std::string_view key) {
   return findWildcard(key) != std::string_view::npos;
}

/// Reads a path below one of `roots`. A root is given by its name or, if roots of several types
/// have that name, as TYPE=NAME; the name may be in its printable form. Root names may contain
/// dots; the longest match counts. Throws `Failure` if there is no match, or if the rest is
/// invalid.
Path parsePath(std::string_view text, std::vector<OfferedRoot> const& roots);

}  // namespace Holt

// Paths that lead to several places: "*" in a key stands for any characters.
//
//     ptp/status.portDS[*].portState
//     ptp/status.portDS[Ethernet1,*]
#pragma once

#include "Holt/State/Place.h"

namespace Holt {

/// Whether any key of a path contains "*" outside double quotes.
bool isPattern(Path const& path);

/// Whether a key as `keyText` writes it fits the text between the brackets of a pattern.
bool keyFits(std::string_view pattern, std::string_view key);

/// The places in a state that a path leads to, in the order of dumps, with their keys as `keyText`
/// writes them; for a path that is no pattern, itself. Where a pattern continues below elements,
/// those without that child are left out. Throws `Failure` if an attribute is unknown, a key cannot
/// be read, or nothing fits a pattern.
std::vector<Path> matchesOf(Sarn::Ptr<Kiv::Entity> const& root, Path const& path);

/// Whether a change at the path `changed` concerns `watched`: it is there or below, or it creates
/// or removes what contains it. `watched` is a path as `destinationOf` returns it; its keys may be
/// patterns.
bool concerns(std::string_view changed, std::string_view watched);

}  // namespace Holt

// Whether the bounds that the types tell of are those that their setters keep to.
#pragma once

#include <string>
#include <vector>

#include "Kiv/Entity.h"

namespace KivTest {

/// Tries every settable number of every entity type that is loaded: at its bounds, or at those of
/// its type where it tells of none, and one step beyond them. Returns what was not as told, such as
/// "Ptp::Config.driftLimit refuses 50".
std::vector<std::string> wrongBounds();

/// The bounds that a type tells of: "driftLimit 50..500000000", in the order of the ids.
std::vector<std::string> boundsOf(Kiv::TypeImpl const& type);

}  // namespace KivTest

// Checks that the bounds that types report are those that their setters enforce.
#pragma once

#include <string>
#include <vector>

#include "Kiv/Entity.h"

namespace KivTest {

/// Tries every settable number of every entity type that is loaded: at its bounds, or at those of
/// its type if it reports none, and one step beyond them. Returns what differs from the report,
/// such as "Ptp::Config.driftLimit refuses 50".
std::vector<std::string> wrongBounds();

/// The bounds that a type reports: "driftLimit 50..500000000", in the order of the ids.
std::vector<std::string> boundsOf(Kiv::TypeImpl const& type);

}  // namespace KivTest

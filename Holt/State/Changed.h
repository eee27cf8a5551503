// What of a state differs from the defaults.
#pragma once

#include <ostream>

#include "Holt/State/Diff.h"
#include "Holt/State/Doc.h"

namespace Holt {

/// Removes from a document what is as in a new state: attributes with their defaults, singleton
/// children that a new entity has or lacks, too, empty collections, unused queues, and everything
/// computed. Other children and elements stay, with what is needed to create them, so that loading
/// the rest into a new state restores the whole. Places that are themselves values or collections
/// stay, too.
void keepChanged(StateDoc& doc);

/// Writes lines as dumps have them, each entity's equal signs aligned.
void writeLines(std::ostream& out, std::vector<StateLine> const& lines);

}  // namespace Holt

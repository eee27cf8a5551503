#pragma once

#include "Kiv/TypeImpl.h"

namespace Kiv {

/// A new entity of a type known at run time, for looking at its members' defaults: its constructor
/// gets the default values of the arguments' types, or the least that it accepts if they are out of
/// range, and "specimen" as the name. REQUIRES: `type` is an entity type.
Sarn::Ptr<Entity> specimenOf(TypeImpl const& type);

}  // namespace Kiv

#pragma once

#include "Kiv/Entity.h"

namespace Kiv {

/// Where an entity stands, as a person writes it: the root's name, then the attributes that lead
/// to it with their keys in text form: "ptp/config.intfConfig[Ethernet1].vlanConfig[100]".
/// It is made anew each time: for messages, not for hot paths. A child is found by the key that it
/// holds; only where it holds none are all children of its parent looked at.
Sarn::String entityPath(Entity const& entity);

}  // namespace Kiv

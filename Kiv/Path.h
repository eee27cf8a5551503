#pragma once

#include "Kiv/Entity.h"

namespace Kiv {

/// Where an entity stands, as a person writes it: the root's name, then the attributes that lead
/// to it with their keys in text form: "ptp/config.intfConfig[Ethernet1].vlanConfig[100]".
/// O(children of each entity on the way): for messages, not for hot paths.
Sarn::String entityPath(Entity const& entity);

}  // namespace Kiv

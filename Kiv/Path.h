#pragma once

#include "Kiv/Entity.h"

namespace Kiv {

/// The path of an entity, as people write it: the root's name, then the attributes that lead to it
/// with their keys in text form: "ptp/config.intfConfig[Ethernet1].vlanConfig[100]".
/// It is built on each call: for messages, not for hot paths. A child is found by its own key; only
/// if it has none are all children of its parent searched.
Sarn::String entityPath(Entity const& entity);

}  // namespace Kiv

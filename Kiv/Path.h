#pragma once

#include "Kiv/Entity.h"

namespace Kiv {

/// The path of an entity as people write it: the root's name, then the attributes that lead to the
/// entity, with keys in text form: "ptp/config.intfConfig[Ethernet1].vlanConfig[100]". Each call
/// builds it: use it for messages, not on hot paths. A child with a key is looked up by it;
/// otherwise all children of its parent are searched.
Sarn::String entityPath(Entity const& entity);

}  // namespace Kiv

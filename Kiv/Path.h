#pragma once

#include "Kiv/Entity.h"

namespace Kiv {

/// A key as people write it in the brackets of a path. A key of a simple type has its text form; a
/// string has no quotes unless it needs them. A value with fields has theirs with commas between
/// them, and trailing fields that are `none` are left out: "Ethernet1", "Ethernet1,100". A field
/// that can be written neither bare nor in quotes makes it the text form of the whole value. Keys
/// of the same type that differ have different texts. `Holt::parseKey` reads it.
Sarn::String keyText(ValueRef key);

/// The path of an entity as people write it: the root's name, then the attributes that lead to the
/// entity, with keys in text form: "ptp/config.intfConfig[Ethernet1].vlanConfig[100]". Each call
/// builds it: use it for messages, not on hot paths. A child with a key is looked up by it;
/// otherwise all children of its parent are searched.
Sarn::String entityPath(Entity const& entity);

}  // namespace Kiv

#pragma once

#include <string>

#include "Kivc/Model.h"

namespace Kivc {

/// An entity's header and source, put together from what `MemberEmitter` says of each member.
std::string emitEntityHeader(Type const& type);
std::string emitEntitySource(Type const& type);

/// Whether the entity or its base has a collection.
bool hasCollection(Type const& type);

}  // namespace Kivc

#pragma once

#include <string>

#include "Kivc/Model.h"

namespace Kivc {

/// A value type's header and source.
std::string emitValueHeader(Type const& type);
std::string emitValueSource(Type const& type);

}  // namespace Kivc

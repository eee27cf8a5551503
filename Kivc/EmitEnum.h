#pragma once

#include <string>

#include "Kivc/Model.h"

namespace Kivc {

/// An enumeration's header. What it declares is defined in the module's record, which holds the
/// names.
std::string emitEnumHeader(Type const& type);

/// The enumeration's definitions within the module's record.
std::string emitEnumDefinitions(Type const& type);

}  // namespace Kivc

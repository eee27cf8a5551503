#pragma once

#include <string>

#include "Kivc/Model.h"

namespace Kivc {

/// The module's reference page in Markdown: each type with its documentation and a table of its
/// members.
std::string emitReference(Module const& module);

}  // namespace Kivc

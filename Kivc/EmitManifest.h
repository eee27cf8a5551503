#pragma once

#include <string>

#include "Kivc/Model.h"

namespace Kivc {

/// The module's ids, one per line: module, type, member, id, keyword, kind word. Ids are given by
/// position, so a reorder is silent in the declarations; as a checked-in file this makes it a
/// visible difference.
std::string emitManifest(Module const& module);

}  // namespace Kivc

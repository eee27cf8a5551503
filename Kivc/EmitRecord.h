#pragma once

#include <cstddef>
#include <string>

#include "Kivc/Diagnostics.h"
#include "Kivc/Model.h"

namespace Kivc {

/// The module's record: its tables, the definitions of its enumerations, and the initializer that
/// registers it.
std::string emitRecordHeader(Module const& module);
std::string emitRecordSource(Module const& module);

/// The header that includes those of all types.
std::string emitUmbrella(Module const& module);

/// One of `count` sources that together include those of all types, so that a build knows its
/// sources without knowing the types. The types are spread over them evenly, in the order of their
/// names.
std::string emitPart(Module const& module, std::size_t part, std::size_t count);

/// Reports what does not fit into the record's fields.
void checkRecordLimits(Module const& module, Diagnostics& diagnostics);

}  // namespace Kivc

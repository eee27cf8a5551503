#pragma once

#include <string>

#include "Kivc/Diagnostics.h"
#include "Kivc/Model.h"

namespace kivc {

/// The module's record: its tables, the definitions of its enumerations, and the initializer that
/// registers it.
std::string emitRecordHeader(Module const& module);
std::string emitRecordSource(Module const& module);

/// The header that includes those of all types.
std::string emitUmbrella(Module const& module);

/// Reports what does not fit into the record's fields.
void checkRecordLimits(Module const& module, Diagnostics& diagnostics);

}  // namespace kivc

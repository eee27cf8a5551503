// A recording as `ptplib.Recording` plays it.
#pragma once

#include "python/core/Errors.h"

namespace Bindings {

/// Adds the class `RecordingPlayer`.
void registerRecordings(py::module_& module);

}  // namespace Bindings

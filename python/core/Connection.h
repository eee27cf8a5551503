// A connection to a server, as `ptplib.Client` uses it.
#pragma once

#include "python/core/Errors.h"

namespace Bindings {

/// Adds the class `Connection`.
void registerConnection(py::module_& module);

}  // namespace Bindings

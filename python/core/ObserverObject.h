// Observers in Python, and the changes that they are given.
#pragma once

#include "python/core/Errors.h"

namespace Bindings {

/// Adds the classes `Observer` and `Change`.
void registerObservers(py::module_& module);

}  // namespace Bindings

// What the classes for collections in `ptplib._classes` are made of.
#pragma once

#include "python/core/Errors.h"

namespace Bindings {

/// Adds functions of (entity, field, ...): `size`, `find`, `keys`, `items`, `put`, `create`,
/// `remove`, `clear`; for queues `at`, `append` and `popFront`; for singleton children
/// `createChild`; for paths `at`.
void registerCollections(py::module_& module);

}  // namespace Bindings

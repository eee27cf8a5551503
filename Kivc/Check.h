// From what is written to what it means: names, types, structure, ids and values.
//
// `check` runs the passes below in order. Each pass reports everything that it finds; a later pass
// skips what an earlier one could not make sense of, so that one mistake gives one message.
#pragma once

#include "Kivc/Diagnostics.h"
#include "Kivc/Model.h"

namespace Kivc {

class Scope;

/// Checks and completes a module whose imports have been checked.
void check(Module& module, Diagnostics& diagnostics);

/// Names: duplicates, names that differ only by case, C++ keywords, names that generated functions
/// take, missing documentation.
void checkNames(Module& module, Diagnostics& diagnostics);

/// Resolves every mention of a type and every constant named by a bound or default.
void checkReferences(Module& module, Scope const& scope, Diagnostics& diagnostics);

/// How types may be put together: bases, keys, children and their arguments, collections, hashes;
/// fills in constructor parameters.
void checkStructure(Module& module, Diagnostics& diagnostics);

/// Numbers of enumerators, ids of members.
void checkIds(Module& module, Diagnostics& diagnostics);

/// Defaults and ranges.
void checkValues(Module& module, Diagnostics& diagnostics);

}  // namespace Kivc

// Modules of the user: libraries that are loaded at run time.
#pragma once

#include <string>

namespace Statedb {

/// Loads a library of modules that `kivc` has compiled, for the rest of the process. Returns the
/// names of the modules that it has added, with commas. Throws `Holt::Failure`, which says why it
/// cannot be loaded, or that there are none in it.
std::string loadModules(std::string const& library);

}  // namespace Statedb

// `kivc diff`: compares two versions of modules, as a gate for CI.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace Kivc {

struct DiffOptions {
   /// A file and all modules that it uses; or a directory and all modules in it and directly below.
   std::string before;
   std::string after;
   /// -I: where modules are searched for that are not beside the file, or not in the directory.
   std::vector<std::string> roots;
};

/// The exit status of `kivc diff`.
enum class DiffExit : int {
   /// Nothing differs, or only what peers of the other version understand.
   compatible = 0,
   /// A file cannot be read, or has errors.
   unreadable = 1,
   usage = 2,
   incompatible = 3,
   /// All differences are compatible, but a module has changed and kept its hash.
   sameHash = 4,
};

/// Writes the differences to `out` and messages to `errors`.
DiffExit diff(DiffOptions const& options, std::ostream& out, std::ostream& errors);

}  // namespace Kivc

// One run of the compiler, as a function.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace Kivc {

struct Options {
   std::string input;
   /// -I.
   std::vector<std::string> roots;
   /// --out; empty: no C++ is written.
   std::string out;
   /// --manifest; empty: none.
   std::string manifest;
   /// --reference; empty: none.
   std::string reference;
   /// --headers: the headers written below `out`, one a line, relative to it. Empty: none.
   std::string headers;
   /// --parts: how many sources are written that together include those of all types.
   std::size_t parts = 0;
   /// --depfile; its target is the path without ".d". Empty: none.
   std::string depfile;
};

/// Compiles one module. Messages go to `errors`. Returns the exit status: 0, or 1 after an error,
/// in which case nothing has been written.
int run(Options const& options, std::ostream& errors);

}  // namespace Kivc

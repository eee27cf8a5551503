#include <cstdio>
#include <cstdlib>

#include "tools/ptpexport/Http/Target.h"

// The target of an HTTP request: the input follows GET. One that can be read is written, and read
// again, with the same meaning; nothing that is read has a null byte.

namespace {

using namespace Ptpexport;

void expect(bool holds, char const* what) {
   if (!holds) {
      std::fprintf(stderr, "%s\n", what);
      std::abort();
   }
}

std::string encoded(std::string_view text) {
   std::string result = percentEncoded(text);
   for (std::size_t at = 0; (at = result.find('/', at)) != std::string::npos;) {
      result.replace(at, 1, "%2f");
   }
   return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
   std::string_view const text(reinterpret_cast<char const*>(data), size);
   // The server passes a text that ends at its first null byte.
   Target target;
   if (!parseTarget(text.substr(0, text.find('\0')), target).empty()) {
      return 0;
   }
   expect(target.path.starts_with('/'), "a path without a slash");
   expect(target.path.find('\0') == std::string::npos, "a null byte in a path");
   std::string again = percentEncoded(target.path) + "?";
   for (auto const& [name, value] : target.query) {
      expect(name.find('\0') == std::string::npos && value.find('\0') == std::string::npos,
             "a null byte in a query");
      again += encoded(name) + "=" + encoded(value) + "&";
   }
   Target second;
   expect(parseTarget(again, second).empty(), "cannot be read again");
   expect(second.path == target.path && second.query == target.query, "reads differently");
   return 0;
}

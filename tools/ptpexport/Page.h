// The page for people: files that are compiled into the program.
#pragma once

#include <span>
#include <string_view>

#include "tools/ptpexport/Http/Reply.h"

namespace Ptpexport {

/// A file that the build has put into the program.
struct EmbeddedFile {
   /// As a browser asks for it, without the leading slash: "page/main.js".
   std::string_view path;
   std::string_view content;
};

/// All files of the page. The index is first, with an empty path.
std::span<EmbeddedFile const> embeddedFiles();

/// Answers a request for a file of the page, whose path is what follows the first slash. A browser
/// that has the file already gets 304.
Reply pageReply(Request const& request);

/// What a browser may load for the page: its own files, and nothing from elsewhere.
inline constexpr char const* pagePolicy =
      "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; img-src 'self'; "
      "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

}  // namespace Ptpexport

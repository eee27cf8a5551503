// The page for people: files that are compiled into the program.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace Ptpexport {

/// A file that the build has put into the program.
struct EmbeddedFile {
   /// As a browser asks for it, without the leading slash: "page/main.js".
   std::string_view path;
   std::string_view content;
};

/// All files of the page. The index is first, with an empty path.
std::span<EmbeddedFile const> embeddedFiles();

/// The file at a path; null if there is none.
EmbeddedFile const* pageFile(std::string_view path);

/// The media type of a file, by its name: "text/javascript; charset=utf-8".
std::string_view mediaType(EmbeddedFile const& file);

/// A tag of a file's content, in quotes, which changes when the content does.
std::string entityTag(EmbeddedFile const& file);

/// What a browser may load for the page: its own files, and nothing from elsewhere.
inline constexpr char const* pagePolicy =
      "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; img-src 'self'; "
      "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

}  // namespace Ptpexport

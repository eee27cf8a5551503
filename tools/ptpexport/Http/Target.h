// What a request asks for: the path and the query of its first line.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Ptpexport {

/// "/events?path=ptp/status&path=ptp%2Fconfig" taken apart.
struct Target {
   /// Decoded. It begins with a slash. Nothing is normalised: ".." is a name like any other.
   std::string path;
   /// Names and values, decoded, in the order of the query. Names may repeat.
   std::vector<std::pair<std::string, std::string>> query;

   /// The values of a parameter, in the order of the query.
   std::vector<std::string> values(std::string_view name) const;
};

/// Replaces each percent sign and the two hexadecimal digits after it by the byte that they stand
/// for; in a query, a plus sign is a blank. Nothing if a percent sign is not followed by two such
/// digits, or if they stand for a null byte.
std::optional<std::string> percentDecoded(std::string_view text, bool inQuery);

/// Reads the target of a request in origin form (RFC 9112, 3.2.1). Returns what is wrong with it,
/// or an empty text.
std::string parseTarget(std::string_view text, Target& target);

/// `text` with all bytes but unreserved characters (RFC 3986, 2.3) and slashes percent-encoded.
std::string percentEncoded(std::string_view text);

}  // namespace Ptpexport

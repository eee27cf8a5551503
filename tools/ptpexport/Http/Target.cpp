#include "tools/ptpexport/Http/Target.h"

#include <algorithm>
#include <charconv>

namespace Ptpexport {
namespace {

bool isUnreserved(char c) {
   return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
          c == '.' || c == '_' || c == '~';
}

}  // namespace

std::vector<std::string> Target::values(std::string_view name) const {
   std::vector<std::string> found;
   for (auto const& [key, value] : query) {
      if (key == name) {
         found.push_back(value);
      }
   }
   return found;
}

std::optional<std::string> percentDecoded(std::string_view text, bool inQuery) {
   std::string decoded;
   decoded.reserve(text.size());
   for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '+' && inQuery) {
         decoded += ' ';
         continue;
      }
      if (text[i] != '%') {
         decoded += text[i];
         continue;
      }
      unsigned byte = 0;
      char const* const begin = text.data() + i + 1;
      if (text.size() - i < 3 || std::from_chars(begin, begin + 2, byte, 16).ptr != begin + 2 ||
          byte == 0) {
         return std::nullopt;
      }
      decoded += static_cast<char>(byte);
      i += 2;
   }
   return decoded;
}

std::string parseTarget(std::string_view text, Target& target) {
   std::string_view const path = text.substr(0, text.find('?'));
   if (!path.starts_with('/')) {
      return "a path begins with a slash";
   }
   auto decoded = percentDecoded(path, false);
   if (!decoded) {
      return "a percent sign is followed by two hexadecimal digits, and not by 00";
   }
   target.path = std::move(*decoded);
   target.query.clear();
   for (std::string_view rest = text.substr(std::min(path.size() + 1, text.size()));
        !rest.empty();) {
      std::string_view const part = rest.substr(0, rest.find('&'));
      rest.remove_prefix(std::min(part.size() + 1, rest.size()));
      if (part.empty()) {
         continue;
      }
      std::size_t const equals = std::min(part.find('='), part.size());
      auto name = percentDecoded(part.substr(0, equals), true);
      auto value = percentDecoded(part.substr(std::min(equals + 1, part.size())), true);
      if (!name || !value) {
         return "in the query, a percent sign is followed by two hexadecimal digits, and not by 00";
      }
      target.query.emplace_back(std::move(*name), std::move(*value));
   }
   return {};
}

std::string percentEncoded(std::string_view text) {
   constexpr char digits[] = "0123456789ABCDEF";
   std::string encoded;
   for (char const c : text) {
      if (isUnreserved(c) || c == '/') {
         encoded += c;
      } else {
         auto const byte = static_cast<unsigned char>(c);
         encoded += '%';
         encoded += digits[byte >> 4];
         encoded += digits[byte & 15];
      }
   }
   return encoded;
}

}  // namespace Ptpexport

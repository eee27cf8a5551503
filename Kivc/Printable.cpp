#include "Kivc/Printable.h"

#include <cstddef>
#include <cstdint>

namespace Kivc {

namespace {

/// The bytes of the first character if it can be shown, else 0.
std::size_t shownSize(std::string_view text) {
   auto const byte = [text](std::size_t at) -> std::uint32_t {
      return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
   };
   if (byte(0) < 0x80) {
      return byte(0) == '\t' || (byte(0) >= 0x20 && byte(0) != 0x7f) ? 1 : 0;
   }
   std::size_t const size = byte(0) >= 0xf0 ? 4 : byte(0) >= 0xe0 ? 3 : 2;
   if (byte(0) < 0xc2 || byte(0) > 0xf4) {
      return 0;
   }
   std::uint32_t point = byte(0) & (0xffU >> (size + 1));
   for (std::size_t at = 1; at != size; ++at) {
      if ((byte(at) & 0xc0) != 0x80) {
         return 0;
      }
      point = point << 6 | (byte(at) & 0x3f);
   }
   constexpr std::uint32_t least[] = {0, 0, 0xa0, 0x800, 0x10000};  // controls end at 0x9f
   bool const valid =
         point >= least[size] && point <= 0x10ffff && (point < 0xd800 || point > 0xdfff);
   bool const moves = (point >= 0x2028 && point <= 0x202e) || (point >= 0x2066 && point <= 0x2069);
   return valid && !moves ? size : 0;
}

void appendEscape(std::string& out, char c) {
   if (c == '\n' || c == '\r') {
      out += c == '\n' ? "\\n" : "\\r";
      return;
   }
   constexpr char hex[] = "0123456789abcdef";
   auto const byte = static_cast<unsigned char>(c);
   out.append({'\\', 'x', hex[byte >> 4], hex[byte & 15]});
}

}  // namespace

std::string printable(std::string_view text) {
   std::string shown;
   while (!text.empty()) {
      std::size_t const size = shownSize(text);
      if (size == 0) {
         appendEscape(shown, text[0]);
      } else {
         shown += text.substr(0, size);
      }
      text.remove_prefix(size == 0 ? 1 : size);
   }
   return shown;
}

}  // namespace Kivc

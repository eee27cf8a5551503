#include "Kiv/Printable.h"

#include "Sarn/Types.h"

namespace Kiv {
namespace {

/// Characters that would affect more than their position in a line: the C1 control characters, line
/// and paragraph separators, and changes of text direction.
bool isControl(U32 point) noexcept {
   return (point >= 0x80 && point < 0xa0) || (point >= 0x2028 && point <= 0x202e) ||
          (point >= 0x2066 && point <= 0x2069);
}

/// The number of leading bytes that need no escape.
std::size_t cleanPrefix(std::string_view text) noexcept {
   std::size_t at = 0;
   while (std::size_t const size = printableCharacter(text.substr(at))) {
      at += size;
   }
   return at;
}

}  // namespace

void appendEscape(Sarn::String& out, char c) {
   static constexpr char hex[] = "0123456789abcdef";
   switch (c) {
      case '"':
      case '\\':
         out.append({'\\', c});
         break;
      case '\n':
         out += "\\n";
         break;
      case '\r':
         out += "\\r";
         break;
      case '\t':
         out += "\\t";
         break;
      default: {
         auto const byte = static_cast<U8>(c);
         out.append({'\\', 'x', hex[byte >> 4], hex[byte & 15]});
      }
   }
}

std::size_t printableCharacter(std::string_view text) noexcept {
   if (text.empty()) {
      return 0;
   }
   auto const first = static_cast<U8>(text[0]);
   if (first < 0x80) {
      return first >= 0x20 && first != 0x7f ? 1 : 0;
   }
   std::size_t const size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
   if (first < 0xc2 || first > 0xf4 || text.size() < size) {
      return 0;
   }
   U32 point = first & (0xffU >> (size + 1));
   for (std::size_t i = 1; i != size; ++i) {
      auto const next = static_cast<U8>(text[i]);
      if ((next & 0xc0) != 0x80) {
         return 0;
      }
      point = point << 6 | (next & 0x3fU);
   }
   static constexpr U32 least[] = {0, 0, 0x80, 0x800, 0x10000};
   bool const valid =
         point >= least[size] && point <= 0x10ffff && (point < 0xd800 || point > 0xdfff);
   return valid && !isControl(point) ? size : 0;
}

Sarn::String printable(Sarn::String text) {
   std::size_t clean = cleanPrefix(text);
   if (clean == text.size()) {
      return text;
   }
   std::string_view rest = text;
   Sarn::String shown;
   shown.reserve(text.size() + text.size() / 4 + 4);
   while (clean != rest.size()) {
      shown += rest.substr(0, clean);
      appendEscape(shown, rest[clean]);
      rest.remove_prefix(clean + 1);
      clean = cleanPrefix(rest);
   }
   shown += rest;
   return shown;
}

}  // namespace Kiv

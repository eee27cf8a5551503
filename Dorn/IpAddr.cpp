#include "Dorn/IpAddr.h"

#include <charconv>

namespace Dorn {

IpAddr::IpAddr(Kiv::CharRange& text) {
   std::string_view const word = text.word(":.-");
   if (word.empty()) {
      text.fail("expected an IPv4 address");
   }
   if (char const* const reason = misspelling(word, value_)) {
      Kiv::throwRangeException("\"" + Sarn::String(word) + "\" is not an IPv4 address: " + reason);
   }
}

void IpAddr::parseAll(std::string_view text) {
   Kiv::CharRange range(text);
   *this = IpAddr(range);
   range.expectEnd();
}

void IpAddr::print(Sarn::String& out) const {
   char text[16];
   char* at = text;
   for (int shift = 24; shift >= 0; shift -= 8) {
      at = std::to_chars(at, text + sizeof text, value_ >> shift & 255).ptr;
      *at++ = '.';
   }
   out.append(text, at - 1);
}

}  // namespace Dorn

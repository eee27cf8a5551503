#include "Dorn/EthAddr.h"

#include <cstring>

namespace Dorn {

EthAddr::EthAddr(Kiv::CharRange& text) {
   std::string_view const word = text.word(":.-");
   if (word.empty()) {
      text.fail("expected a MAC address");
   }
   if (!spelled(word, bytes_)) {
      Kiv::throwRangeException("\"" + Sarn::String(word) +
                               "\" is not a MAC address, such as 01:80:c2:00:00:0e");
   }
}

void EthAddr::parseAll(std::string_view text) {
   Kiv::CharRange range(text);
   *this = EthAddr(range);
   range.expectEnd();
}

EthAddr::EthAddr(Kiv::NboAttrLog::In* in, Kiv::StreamBogon) {
   std::memcpy(bytes_.data(), in->nextBytes(bytes_.size()), bytes_.size());
}

void EthAddr::print(Sarn::String& out) const {
   static constexpr char hex[] = "0123456789abcdef";
   char text[17];
   char* at = text;
   for (U8 const byte : bytes_) {
      if (at != text) {
         *at++ = ':';
      }
      *at++ = hex[byte >> 4];
      *at++ = hex[byte & 15];
   }
   out.append(text, sizeof text);
}

}  // namespace Dorn

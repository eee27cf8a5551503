#include "PtpPlatform/ClockIdentity.h"

namespace Ptp {
namespace {

int hexDigit(char c) {
   if (c >= '0' && c <= '9') {
      return c - '0';
   }
   if (c >= 'a' && c <= 'f') {
      return c - 'a' + 10;
   }
   return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

/// Whether `text` matches `pattern`, in which `h` is any hexadecimal digit and anything else is
/// itself. The digits are stored in `value`.
bool matches(std::string_view text, std::string_view pattern, U64& value) {
   if (text.size() != pattern.size()) {
      return false;
   }
   U64 v = 0;
   for (std::size_t i = 0; i < text.size(); ++i) {
      if (pattern[i] != 'h') {
         if (text[i] != pattern[i]) {
            return false;
         }
         continue;
      }
      int const digit = hexDigit(text[i]);
      if (digit < 0) {
         return false;
      }
      v = v << 4 | static_cast<U64>(digit);
   }
   value = v;
   return true;
}

}  // namespace

ClockIdentity::ClockIdentity(Kiv::CharRange& text) {
   std::string_view const word = text.word(":.-");
   if (word.empty()) {
      text.fail("expected a clock identity");
   }
   U64 value = 0;
   if (!matches(word, "hh:hh:hh:hh:hh:hh:hh:hh", value) &&
       !matches(word, "hh-hh-hh-hh-hh-hh-hh-hh", value) &&
       !matches(word, "hhhhhh.hhhh.hhhhhh", value)) {
      Kiv::throwRangeException("\"" + Sarn::String(word) +
                               "\" is not a clock identity, such as 00:11:22:ff:fe:33:44:55");
   }
   identity_ = Dorn::NetU64(value);
}

ClockIdentity::ClockIdentity(std::string_view text) {
   Kiv::CharRange range(text);
   *this = ClockIdentity(range);
   range.expectEnd();
}

void ClockIdentity::print(Sarn::String& out) const {
   static constexpr char hex[] = "0123456789abcdef";
   char text[23];
   char* at = text;
   for (int shift = 56; shift >= 0; shift -= 8) {
      U64 const byte = value() >> shift;
      if (at != text) {
         *at++ = ':';
      }
      *at++ = hex[byte >> 4 & 15];
      *at++ = hex[byte & 15];
   }
   out.append(text, sizeof text);
}

}  // namespace Ptp

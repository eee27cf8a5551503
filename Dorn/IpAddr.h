#pragma once

#include <compare>

#include "Kiv/Map/Hash.h"
#include "Kiv/NboAttrLog.h"
#include "Kiv/Text.h"

namespace Dorn {

/// An IPv4 address, ordered as a number. Text: a dotted quad, each part from 0 to 255 in decimal
/// without leading zeros, since some programs would read those as octal.
class IpAddr {
public:
   static constexpr char const* kivTypeName = "Dorn::IpAddr";
   static constexpr std::size_t kivMaxEncodedSize = 4;

   /// 0.0.0.0.
   constexpr IpAddr() noexcept = default;
   /// `value`: the first byte on the wire is the most significant.
   constexpr explicit IpAddr(U32 value) noexcept : value_(value) {}
   constexpr IpAddr(U8 b0, U8 b1, U8 b2, U8 b3) noexcept
         : value_(U32{b0} << 24 | U32{b1} << 16 | U32{b2} << 8 | b3) {}
   /// Parses all of `text`; blanks around the address are allowed. In a constant expression
   /// (without blanks), a malformed address does not compile.
   constexpr explicit IpAddr(std::string_view text) {
      if (misspelling(text, value_) != nullptr) {
         parseAll(text);
      }
   }
   /// Reads an address at the cursor. Throws `RangeException` if the word is not an IPv4 address,
   /// `ParseException` if there is no word.
   explicit IpAddr(Kiv::CharRange& text);
   IpAddr(Kiv::NboAttrLog::In* in, Kiv::StreamBogon) : value_(in->nextU32()) {}

   constexpr U32 value() const noexcept { return value_; }
   /// Whether it is a group address: 224.0.0.0/4.
   constexpr bool isMulticast() const noexcept { return value_ >> 28 == 14; }

   constexpr bool operator==(IpAddr const&) const noexcept = default;
   constexpr std::strong_ordering operator<=>(IpAddr const&) const noexcept = default;
   constexpr bool isEq(IpAddr const& other) const noexcept { return *this == other; }
   U32 hash(U32 seed) const noexcept { return Kiv::hashSingleAttr(seed, value_); }

   void print(Sarn::String& out) const;
   constexpr std::size_t kivEncodedSize() const noexcept { return kivMaxEncodedSize; }
   friend Kiv::NboAttrLog::Out& operator<<(Kiv::NboAttrLog::Out& out, IpAddr const& v) {
      out.writeU32(v.value_);
      return out;
   }

   /// What is wrong with `text` as a dotted quad; null if nothing is, and only then is `value` set.
   static constexpr char const* misspelling(std::string_view text, U32& value) noexcept {
      U32 v = 0;
      std::size_t at = 0;
      for (int part = 0; part < 4; ++part) {
         if (part != 0 && (at == text.size() || text[at++] != '.')) {
            return "it needs four numbers with dots between them";
         }
         std::size_t const begin = at;
         U32 number = 0;
         while (at < text.size() && text[at] >= '0' && text[at] <= '9' && number <= 255) {
            number = number * 10 + static_cast<U32>(text[at++] - '0');
         }
         if (at == begin) {
            return "it needs four numbers with dots between them";
         }
         if (number > 255) {
            return "a number exceeds 255";
         }
         if (at - begin > 1 && text[begin] == '0') {
            return "a number has a leading zero";
         }
         v = v << 8 | number;
      }
      if (at != text.size()) {
         return "there is text after the fourth number";
      }
      value = v;
      return nullptr;
   }

private:
   void parseAll(std::string_view text);

   U32 value_ = 0;
};

}  // namespace Dorn

#pragma once

#include <array>
#include <compare>

#include "Kiv/Map/Hash.h"
#include "Kiv/NboAttrLog.h"
#include "Kiv/Text.h"

namespace Dorn {

/// An IEEE 802 MAC address. Six bytes in transmission order, both in memory and in the stream;
/// ordered as the number that they form.
///
/// Text, with digits of either case: `01:80:c2:00:00:0e`, `01-80-C2-00-00-0E` or `0180.c200.000e`;
/// printed in the first form, in lower case.
class EthAddr {
public:
   using Bytes = std::array<U8, 6>;

   static constexpr char const* kivTypeName = "Dorn::EthAddr";
   static constexpr std::size_t kivMaxEncodedSize = 6;

   /// 00:00:00:00:00:00.
   constexpr EthAddr() noexcept = default;
   constexpr explicit EthAddr(Bytes const& bytes) noexcept : bytes_(bytes) {}
   constexpr EthAddr(U8 b0, U8 b1, U8 b2, U8 b3, U8 b4, U8 b5) noexcept
         : bytes_{b0, b1, b2, b3, b4, b5} {}
   /// Parses all of `text`; blanks around the address are allowed. In a constant expression
   /// (without blanks), a malformed address does not compile.
   constexpr explicit EthAddr(std::string_view text) {
      if (!spelled(text, bytes_)) {
         parseAll(text);
      }
   }
   /// Reads an address at the cursor. Throws `RangeException` if the word is not a MAC address,
   /// `ParseException` if there is no word.
   explicit EthAddr(Kiv::CharRange& text);
   EthAddr(Kiv::NboAttrLog::In* in, Kiv::StreamBogon);

   constexpr Bytes const& bytes() const noexcept { return bytes_; }
   /// The bytes as one number, the first the most significant; below 2^48.
   constexpr U64 value() const noexcept {
      U64 v = 0;
      for (U8 const byte : bytes_) {
         v = v << 8 | byte;
      }
      return v;
   }
   /// Whether it is a group address: the first bit on the wire, the lowest of the first byte, is
   /// set.
   constexpr bool isMulticast() const noexcept { return (bytes_[0] & 1) != 0; }

   constexpr bool operator==(EthAddr const&) const noexcept = default;
   constexpr std::strong_ordering operator<=>(EthAddr const& other) const noexcept {
      return value() <=> other.value();
   }
   constexpr bool isEq(EthAddr const& other) const noexcept { return *this == other; }
   U32 hash(U32 seed) const noexcept { return Kiv::hashSingleAttr(seed, value()); }

   void print(Sarn::String& out) const;
   constexpr std::size_t kivEncodedSize() const noexcept { return kivMaxEncodedSize; }
   friend Kiv::NboAttrLog::Out& operator<<(Kiv::NboAttrLog::Out& out, EthAddr const& v) {
      out.writeBytes(v.bytes_.data(), v.bytes_.size());
      return out;
   }

private:
   static constexpr int digit(char c) noexcept {
      return c >= '0' && c <= '9'   ? c - '0'
             : c >= 'a' && c <= 'f' ? c - 'a' + 10
             : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                    : -1;
   }
   /// Whether `text` is exactly one of the three spellings; otherwise `bytes` may be incomplete.
   static constexpr bool spelled(std::string_view text, Bytes& bytes) noexcept {
      bool const dotted = text.size() == 14;
      if (!dotted && text.size() != 17) {
         return false;
      }
      std::size_t const group = dotted ? 4 : 2;
      char const separator = dotted ? '.' : text[2];
      if (!dotted && separator != ':' && separator != '-') {
         return false;
      }
      std::size_t digits = 0;
      for (std::size_t i = 0; i < text.size(); ++i) {
         if (i % (group + 1) == group) {
            if (text[i] != separator) {
               return false;
            }
            continue;
         }
         int const v = digit(text[i]);
         if (v < 0) {
            return false;
         }
         bytes[digits / 2] = static_cast<U8>(bytes[digits / 2] << 4 | v);
         ++digits;
      }
      return true;
   }
   void parseAll(std::string_view text);

   Bytes bytes_{};
};

}  // namespace Dorn

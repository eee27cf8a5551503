#pragma once

#include <array>
#include <compare>

#include "Kiv/Map/Hash.h"
#include "Kiv/NboAttrLog.h"
#include "Kiv/Text.h"

namespace Dorn {

/// An IPv6 address, ordered as a number; 16 bytes in the stream.
///
/// Read in any form of RFC 4291, section 2.2, including an embedded IPv4 address; printed in the
/// form of RFC 5952 (lower case, the longest run of zero groups as `::`, IPv4-mapped addresses as
/// `::ffff:192.0.2.1`). There is no zone: an address does not belong to an interface here.
class Ip6Addr {
public:
   using Bytes = std::array<U8, 16>;

   static constexpr char const* kivTypeName = "Dorn::Ip6Addr";
   static constexpr std::size_t kivMaxEncodedSize = 16;
   /// No text form is longer: "ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255".
   static constexpr std::size_t maxTextSize = 45;

   /// The unspecified address, `::`.
   constexpr Ip6Addr() noexcept = default;
   /// `high`: the first eight bytes on the wire; `low`: the last.
   constexpr Ip6Addr(U64 high, U64 low) noexcept : high_(high), low_(low) {}
   /// The bytes in transmission order.
   constexpr explicit Ip6Addr(Bytes const& bytes) noexcept {
      for (std::size_t i = 0; i < 8; ++i) {
         high_ = high_ << 8 | bytes[i];
         low_ = low_ << 8 | bytes[i + 8];
      }
   }
   /// Parses all of `text`; blanks around the address are allowed.
   explicit Ip6Addr(std::string_view text);
   /// Reads an address at the cursor. Throws `RangeException` if the word is not an IPv6 address,
   /// `ParseException` if there is no word.
   explicit Ip6Addr(Kiv::CharRange& text);
   Ip6Addr(Kiv::NboAttrLog::In* in, Kiv::StreamBogon);

   constexpr U64 high() const noexcept { return high_; }
   constexpr U64 low() const noexcept { return low_; }
   constexpr Bytes bytes() const noexcept {
      Bytes bytes{};
      for (std::size_t i = 0; i < 8; ++i) {
         bytes[i] = static_cast<U8>(high_ >> (56 - 8 * i));
         bytes[i + 8] = static_cast<U8>(low_ >> (56 - 8 * i));
      }
      return bytes;
   }
   /// Whether it is a group address: ff00::/8.
   constexpr bool isMulticast() const noexcept { return high_ >> 56 == 0xff; }

   constexpr bool operator==(Ip6Addr const&) const noexcept = default;
   constexpr std::strong_ordering operator<=>(Ip6Addr const&) const noexcept = default;
   constexpr bool isEq(Ip6Addr const& other) const noexcept { return *this == other; }
   U32 hash(U32 seed) const noexcept { return Kiv::hashFields(seed, high_, low_); }

   void print(Sarn::String& out) const;
   constexpr std::size_t kivEncodedSize() const noexcept { return kivMaxEncodedSize; }
   friend Kiv::NboAttrLog::Out& operator<<(Kiv::NboAttrLog::Out& out, Ip6Addr const& v) {
      out.writeU64(v.high_);
      out.writeU64(v.low_);
      return out;
   }

   /// What is wrong with `text` as an IPv6 address; null if nothing is, and only then is `value`
   /// set.
   static char const* misspelling(std::string_view text, Ip6Addr& value) noexcept;

private:
   U64 high_ = 0;
   U64 low_ = 0;
};

}  // namespace Dorn

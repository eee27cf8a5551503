#pragma once

#include <array>
#include <compare>

#include "Dorn/EthAddr.h"
#include "Dorn/NetU64.h"

namespace Ptp {

/// The identity of a PTP clock (IEEE 1588-2008, 7.5.2.2): an EUI-64, usually derived from a MAC
/// address. Ordered as a number, as the best master clock algorithm compares identities.
///
/// Text, with digits of either case: `00:11:22:ff:fe:33:44:55`, `00-11-22-FF-FE-33-44-55` or
/// `001122.fffe.334455`; printed in the first form, in lower case.
class ClockIdentity {
public:
   using Bytes = std::array<U8, 8>;

   static constexpr char const* kivTypeName = "Ptp::ClockIdentity";
   static constexpr std::size_t kivMaxEncodedSize = 8;

   /// All zero.
   constexpr ClockIdentity() noexcept = default;
   constexpr explicit ClockIdentity(Dorn::NetU64 identity) noexcept : identity_(identity) {}
   /// `identity`: the first byte on the wire is the most significant.
   constexpr explicit ClockIdentity(U64 identity) noexcept : identity_(identity) {}
   /// The bytes in transmission order.
   constexpr explicit ClockIdentity(Bytes const& bytes) noexcept {
      U64 v = 0;
      for (U8 const byte : bytes) {
         v = v << 8 | byte;
      }
      identity_ = Dorn::NetU64(v);
   }
   /// Derives the identity from a MAC address by inserting ff:fe in its middle (IEEE 1588-2008,
   /// 7.5.2.2.2).
   constexpr explicit ClockIdentity(Dorn::EthAddr const& mac) noexcept
         : identity_((mac.value() >> 24) << 40 | U64{0xfffe} << 24 | (mac.value() & 0xffffff)) {}
   /// Parses all of `text`; blanks around the identity are allowed.
   explicit ClockIdentity(std::string_view text);
   /// Reads an identity at the cursor. Throws `RangeException` if the word is not an identity,
   /// `ParseException` if there is no word.
   explicit ClockIdentity(Kiv::CharRange& text);
   ClockIdentity(Kiv::NboAttrLog::In* in, Kiv::StreamBogon tag) : identity_(in, tag) {}

   constexpr Dorn::NetU64 identity() const noexcept { return identity_; }
   /// The identity as a number; the first byte on the wire is the most significant.
   constexpr U64 value() const noexcept { return identity_.value(); }
   constexpr Bytes bytes() const noexcept {
      Bytes bytes{};
      for (std::size_t i = 0; i < bytes.size(); ++i) {
         bytes[i] = static_cast<U8>(value() >> (56 - 8 * i));
      }
      return bytes;
   }

   constexpr bool operator==(ClockIdentity const&) const noexcept = default;
   constexpr std::strong_ordering operator<=>(ClockIdentity const&) const noexcept = default;
   constexpr bool isEq(ClockIdentity const& other) const noexcept { return *this == other; }
   U32 hash(U32 seed) const noexcept { return identity_.hash(seed); }

   void print(Sarn::String& out) const;
   constexpr std::size_t kivEncodedSize() const noexcept { return kivMaxEncodedSize; }
   friend Kiv::NboAttrLog::Out& operator<<(Kiv::NboAttrLog::Out& out, ClockIdentity const& v) {
      return out << v.identity_;
   }

private:
   Dorn::NetU64 identity_;
};

}  // namespace Ptp

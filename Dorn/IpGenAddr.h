#pragma once

#include "Dorn/Ip6Addr.h"
#include "Dorn/IpAddr.h"

namespace Dorn {

/// An address of either family, or none (unset, the default). Unset is a separate value: it differs
/// from 0.0.0.0 and from `::`, which differ from each other. Ordered: unset, then the IPv4
/// addresses, then the IPv6 addresses, each as numbers.
///
/// Text: `none`, or the text of `IpAddr` or `Ip6Addr`, which decides the family. In the stream: U32
/// family (0 for unset, 4 or 6), then the 0, 4 or 16 bytes of the address.
class IpGenAddr {
public:
   /// The numbers that the stream carries.
   enum class Family : U8 { unset = 0, v4 = 4, v6 = 6 };

   static constexpr char const* kivTypeName = "Dorn::IpGenAddr";
   static constexpr std::size_t kivMaxEncodedSize = 20;

   /// Unset.
   constexpr IpGenAddr() noexcept = default;
   constexpr explicit IpGenAddr(IpAddr address) noexcept
         : family_(Family::v4), low_(address.value()) {}
   constexpr explicit IpGenAddr(Ip6Addr const& address) noexcept
         : family_(Family::v6), high_(address.high()), low_(address.low()) {}
   /// Parses all of `text`; blanks around the address are allowed.
   explicit IpGenAddr(std::string_view text);
   /// Reads an address at the cursor. Throws `RangeException` if the word is not an address,
   /// `ParseException` if there is no word.
   explicit IpGenAddr(Kiv::CharRange& text);
   IpGenAddr(Kiv::NboAttrLog::In* in, Kiv::StreamBogon);

   constexpr Family family() const noexcept { return family_; }
   constexpr bool isSet() const noexcept { return family_ != Family::unset; }
   constexpr bool isV4() const noexcept { return family_ == Family::v4; }
   constexpr bool isV6() const noexcept { return family_ == Family::v6; }
   /// The IPv4 address; 0.0.0.0 if the family is another.
   constexpr IpAddr v4() const noexcept {
      return isV4() ? IpAddr(static_cast<U32>(low_)) : IpAddr();
   }
   /// The IPv6 address; `::` if the family is another.
   constexpr Ip6Addr v6() const noexcept { return isV6() ? Ip6Addr(high_, low_) : Ip6Addr(); }
   /// How many bits an address of this family has: 0, 32 or 128.
   constexpr U8 bitCount() const noexcept { return isV4() ? 32 : isV6() ? 128 : 0; }
   constexpr bool isMulticast() const noexcept {
      return isV4() ? v4().isMulticast() : v6().isMulticast();
   }

   constexpr bool operator==(IpGenAddr const&) const noexcept = default;
   constexpr std::strong_ordering operator<=>(IpGenAddr const&) const noexcept = default;
   constexpr bool isEq(IpGenAddr const& other) const noexcept { return *this == other; }
   U32 hash(U32 seed) const noexcept {
      // With the family: 0.0.0.0, :: and unset are three keys.
      return Kiv::hashFields(seed, high_ ^ U64{static_cast<U8>(family_)} << 56, low_);
   }

   void print(Sarn::String& out) const;
   constexpr std::size_t kivEncodedSize() const noexcept { return 4 + bitCount() / 8u; }
   friend Kiv::NboAttrLog::Out& operator<<(Kiv::NboAttrLog::Out& out, IpGenAddr const& v) {
      out.writeU32(static_cast<U32>(v.family_));
      if (v.isV4()) {
         out << v.v4();
      } else if (v.isV6()) {
         out << v.v6();
      }
      return out;
   }

private:
   // Compared in this order. Whatever the family does not use is 0.
   Family family_ = Family::unset;
   U64 high_ = 0;
   U64 low_ = 0;
};

}  // namespace Dorn

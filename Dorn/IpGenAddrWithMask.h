#pragma once

#include "Dorn/IpGenAddr.h"

namespace Dorn {

/// An address of either family with a prefix length, or none.
///
/// The address is kept whole, including the bits beyond the mask: 10.1.2.3/8 is not equal to
/// 10.0.0.0/8, and text and stream preserve it. `network()` clears these bits. Ordered by address,
/// then by length.
///
/// Text: `10.0.0.0/8`, `2001:db8::/32`; an address alone has a length of 32 or 128 bits; the unset
/// value is `none`. In the stream: the address, then the length as one byte.
class IpGenAddrWithMask {
public:
   static constexpr char const* kivTypeName = "Dorn::IpGenAddrWithMask";
   static constexpr std::size_t kivMaxEncodedSize = IpGenAddr::kivMaxEncodedSize + 1;

   /// No address, of length 0.
   constexpr IpGenAddrWithMask() noexcept = default;
   /// Throws `RangeException` if the address has fewer than `length` bits.
   IpGenAddrWithMask(IpGenAddr const& address, U8 length);
   /// Parses all of `text`; blanks around the value are allowed.
   explicit IpGenAddrWithMask(std::string_view text);
   /// Reads a value at the cursor. Errors as in `IpGenAddr`; also throws `RangeException` if the
   /// length exceeds the address's bits. Blanks around the slash are not allowed.
   explicit IpGenAddrWithMask(Kiv::CharRange& text);
   IpGenAddrWithMask(Kiv::NboAttrLog::In* in, Kiv::StreamBogon);

   constexpr IpGenAddr const& address() const noexcept { return address_; }
   /// At most 0, 32 or 128, depending on the address's family.
   constexpr U8 length() const noexcept { return length_; }
   /// The value with the bits beyond the mask cleared: 10.0.0.0/8 for 10.1.2.3/8.
   IpGenAddrWithMask network() const noexcept;
   /// Whether `other` is of the same family and agrees in the leading bits. `none` contains
   /// nothing.
   bool contains(IpGenAddr const& other) const noexcept;

   constexpr bool operator==(IpGenAddrWithMask const&) const noexcept = default;
   constexpr std::strong_ordering operator<=>(IpGenAddrWithMask const&) const noexcept = default;
   constexpr bool isEq(IpGenAddrWithMask const& other) const noexcept { return *this == other; }
   U32 hash(U32 seed) const noexcept { return Kiv::hashFields(seed, address_, length_); }

   void print(Sarn::String& out) const;
   constexpr std::size_t kivEncodedSize() const noexcept { return address_.kivEncodedSize() + 1; }
   friend Kiv::NboAttrLog::Out& operator<<(Kiv::NboAttrLog::Out& out, IpGenAddrWithMask const& v) {
      out << v.address_;
      out.writeU8(v.length_);
      return out;
   }

private:
   IpGenAddr address_;
   U8 length_ = 0;
};

}  // namespace Dorn

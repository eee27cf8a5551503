#pragma once

#include "Dorn/IpGenAddr.h"

namespace Dorn {

/// An address of either family with a mask, as the number of leading bits that count; or none.
///
/// The address is kept whole, bits beyond the mask included: 10.1.2.3/8 is not equal to 10.0.0.0/8,
/// and comes back from text and stream as it was. `network()` clears them. Ordered by address, then
/// by length.
///
/// Text: `10.0.0.0/8`, `2001:db8::/32`; an address alone is read as that one address, of 32 or 128
/// bits; the unset value is `none`. In the stream: the address, then the length as one byte.
class IpGenAddrWithMask {
public:
   static constexpr char const* kivTypeName = "Dorn::IpGenAddrWithMask";
   static constexpr std::size_t kivMaxEncodedSize = IpGenAddr::kivMaxEncodedSize + 1;

   /// No address, of length 0.
   constexpr IpGenAddrWithMask() noexcept = default;
   /// Throws `RangeException` if the address has fewer than `length` bits.
   IpGenAddrWithMask(IpGenAddr const& address, U8 length);
   /// The value that all of `text` spells, blanks around it allowed.
   explicit IpGenAddrWithMask(std::string_view text);
   /// Reads a value at the cursor. Errors as in `IpGenAddr`; a length beyond the address's bits is
   /// a `RangeException` too. No blanks around the slash.
   explicit IpGenAddrWithMask(Kiv::CharRange& text);
   IpGenAddrWithMask(Kiv::NboAttrLog::In* in, Kiv::StreamBogon);

   constexpr IpGenAddr const& address() const noexcept { return address_; }
   /// At most 0, 32 or 128 by the address's family.
   constexpr U8 length() const noexcept { return length_; }
   /// The mask with the bits beyond it cleared: 10.0.0.0/8 of 10.1.2.3/8.
   IpGenAddrWithMask network() const noexcept;
   /// Whether `other` is of the same family and agrees in the leading bits. Nothing is in `none`.
   bool contains(IpGenAddr const& other) const noexcept;

   constexpr bool operator==(IpGenAddrWithMask const&) const noexcept = default;
   constexpr std::strong_ordering operator<=>(IpGenAddrWithMask const&) const noexcept = default;
   constexpr bool isEq(IpGenAddrWithMask const& other) const noexcept { return *this == other; }
   constexpr U32 hash(U32 seed) const noexcept { return Kiv::hashFields(seed, address_, length_); }

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

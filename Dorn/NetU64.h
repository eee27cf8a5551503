#pragma once

#include <compare>

#include "Kiv/Map/Hash.h"
#include "Kiv/NboAttrLog.h"
#include "Kiv/Text.h"

namespace Dorn {

/// A 64-bit unsigned number stored in network byte order, so that a packet's field can be copied to
/// it and from it as bytes. Ordered and printed as the number. There are no implicit conversions,
/// so that nobody calculates with swapped bytes.
class NetU64 {
public:
   static constexpr char const* kivTypeName = "Dorn::NetU64";
   static constexpr std::size_t kivMaxEncodedSize = 8;

   /// 0.
   constexpr NetU64() noexcept = default;
   /// `value`: in the host's byte order.
   constexpr explicit NetU64(U64 value) noexcept
         : networkOrder_(Kiv::NboAttrLog::byteSwapped(value)) {}
   /// Parses all of `text` as a decimal number; blanks around it are allowed.
   explicit NetU64(std::string_view text);
   /// Reads a decimal number at the cursor. Throws `RangeException` if it is too large,
   /// `ParseException` if there is no number.
   explicit NetU64(Kiv::CharRange& text);
   NetU64(Kiv::NboAttrLog::In* in, Kiv::StreamBogon) : NetU64(in->nextU64()) {}

   /// The number, in the host's byte order.
   constexpr U64 value() const noexcept { return Kiv::NboAttrLog::byteSwapped(networkOrder_); }

   constexpr bool operator==(NetU64 const&) const noexcept = default;
   constexpr std::strong_ordering operator<=>(NetU64 const& other) const noexcept {
      return value() <=> other.value();
   }
   constexpr bool isEq(NetU64 const& other) const noexcept { return *this == other; }
   U32 hash(U32 seed) const noexcept { return Kiv::hashSingleAttr(seed, value()); }

   void print(Sarn::String& out) const { Kiv::printUnsigned(out, value()); }
   constexpr std::size_t kivEncodedSize() const noexcept { return kivMaxEncodedSize; }
   friend Kiv::NboAttrLog::Out& operator<<(Kiv::NboAttrLog::Out& out, NetU64 const& v) {
      out.writeU64(v.value());
      return out;
   }

private:
   U64 networkOrder_ = 0;
};

}  // namespace Dorn

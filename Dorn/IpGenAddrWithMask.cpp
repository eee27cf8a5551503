#include "Dorn/IpGenAddrWithMask.h"

namespace Dorn {
namespace {

/// `bits` with all but the leading `length` bits cleared. `length` may exceed 64.
constexpr U64 leading(U64 bits, unsigned length) {
   return length == 0 ? 0 : length >= 64 ? bits : bits & ~U64{0} << (64 - length);
}

IpGenAddr masked(IpGenAddr const& address, unsigned length) {
   if (address.isV4()) {
      U64 const bits = leading(U64{address.v4().value()} << 32, length);
      return IpGenAddr(IpAddr(static_cast<U32>(bits >> 32)));
   }
   if (address.isV6()) {
      Ip6Addr const v6 = address.v6();
      return IpGenAddr(
            Ip6Addr(leading(v6.high(), length), leading(v6.low(), length > 64 ? length - 64 : 0)));
   }
   return address;
}

[[noreturn]] void tooLong(Sarn::String const& length, U8 bitCount) {
   Kiv::throwRangeException("a mask of " + length + " bits exceeds the address's " +
                            std::to_string(bitCount));
}

}  // namespace

IpGenAddrWithMask::IpGenAddrWithMask(IpGenAddr const& address, U8 length)
      : address_(address), length_(length) {
   if (length > address.bitCount()) {
      tooLong(std::to_string(length), address.bitCount());
   }
}

IpGenAddrWithMask::IpGenAddrWithMask(Kiv::CharRange& text) : address_(text) {
   length_ = address_.bitCount();
   if (!address_.isSet() || text.peek() != '/') {
      return;
   }
   text.advance(1);
   std::size_t digits = 0;
   std::string_view const rest = text.rest();
   while (digits < rest.size() && rest[digits] >= '0' && rest[digits] <= '9') {
      ++digits;
   }
   if (digits == 0) {
      text.fail("expected the number of leading bits");
   }
   if (digits > 3) {
      tooLong(Sarn::String(rest.substr(0, digits)), address_.bitCount());
   }
   auto const length = static_cast<unsigned>(Kiv::parseUnsigned(text, 999, "U8"));
   if (length > address_.bitCount()) {
      tooLong(std::to_string(length), address_.bitCount());
   }
   length_ = static_cast<U8>(length);
}

IpGenAddrWithMask::IpGenAddrWithMask(std::string_view text) {
   Kiv::CharRange range(text);
   *this = IpGenAddrWithMask(range);
   range.expectEnd();
}

IpGenAddrWithMask::IpGenAddrWithMask(Kiv::NboAttrLog::In* in, Kiv::StreamBogon tag)
      : address_(in, tag), length_(in->nextU8()) {
   if (length_ > address_.bitCount()) {
      in->fault("a mask of " + std::to_string(length_) + " bits exceeds the address's " +
                      std::to_string(address_.bitCount()),
                1);
   }
}

IpGenAddrWithMask IpGenAddrWithMask::network() const noexcept {
   IpGenAddrWithMask network = *this;
   network.address_ = masked(address_, length_);
   return network;
}

bool IpGenAddrWithMask::contains(IpGenAddr const& other) const noexcept {
   return address_.isSet() && masked(other, length_) == masked(address_, length_);
}

void IpGenAddrWithMask::print(Sarn::String& out) const {
   address_.print(out);
   if (address_.isSet()) {
      out += '/';
      Kiv::printUnsigned(out, length_);
   }
}

}  // namespace Dorn

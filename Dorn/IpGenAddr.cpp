#include "Dorn/IpGenAddr.h"

namespace Dorn {

IpGenAddr::IpGenAddr(Kiv::CharRange& text) {
   std::string_view const word = text.word(":.-");
   if (word.empty()) {
      text.fail("expected an IP address or none");
   }
   if (word == "none") {
      return;
   }
   char const* reason = nullptr;
   if (word.find(':') != std::string_view::npos) {
      Ip6Addr v6;
      reason = Ip6Addr::misspelling(word, v6);
      *this = IpGenAddr(v6);
   } else {
      U32 v4 = 0;
      reason = IpAddr::misspelling(word, v4);
      *this = IpGenAddr(IpAddr(v4));
   }
   if (reason != nullptr) {
      Kiv::throwRangeException("\"" + Sarn::String(word) + "\" is not an " +
                               (isV6() ? "IPv6" : "IPv4") + " address: " + reason);
   }
}

IpGenAddr::IpGenAddr(std::string_view text) {
   Kiv::CharRange range(text);
   *this = IpGenAddr(range);
   range.expectEnd();
}

IpGenAddr::IpGenAddr(Kiv::NboAttrLog::In* in, Kiv::StreamBogon tag) {
   U32 const family = in->nextU32();
   switch (family) {
      case static_cast<U32>(Family::unset):
         break;
      case static_cast<U32>(Family::v4):
         *this = IpGenAddr(IpAddr(in, tag));
         break;
      case static_cast<U32>(Family::v6):
         *this = IpGenAddr(Ip6Addr(in, tag));
         break;
      default:
         in->fault("an address family of " + std::to_string(family) + " is not 0, 4 or 6", 4);
   }
}

void IpGenAddr::print(Sarn::String& out) const {
   if (isV4()) {
      v4().print(out);
   } else if (isV6()) {
      v6().print(out);
   } else {
      out += "none";
   }
}

}  // namespace Dorn

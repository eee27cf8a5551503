#include "Bridging/VlanIdOrNone.h"

#include <limits>

namespace Bridging {

void VlanIdOrNone::throwRange(U64 id) {
   Kiv::throwRangeException(std::to_string(id) + " is not a VLAN id (1 to 4094, or none)");
}

VlanIdOrNone::VlanIdOrNone(Kiv::CharRange& text) {
   text.skipBlanks();
   Kiv::CharRange ahead = text;
   if (ahead.word("_-") == "none") {
      text = ahead;
      return;
   }
   char const first = text.peek();
   if (first != '-' && (first < '0' || first > '9')) {
      text.fail("expected a VLAN id or none");
   }
   U64 const id = Kiv::parseUnsigned(text, std::numeric_limits<U64>::max(), kivTypeName);
   if (id < min || id > max) {
      throwRange(id);
   }
   id_ = static_cast<U16>(id);
}

VlanIdOrNone::VlanIdOrNone(std::string_view text) {
   Kiv::CharRange range(text);
   *this = VlanIdOrNone(range);
   range.expectEnd();
}

VlanIdOrNone::VlanIdOrNone(Kiv::NboAttrLog::In* in, Kiv::StreamBogon) : id_(in->nextU16()) {
   if (id_ > max) {
      in->fault("a VLAN id of " + std::to_string(id_) + " exceeds 4094", 2);
   }
}

void VlanIdOrNone::print(Sarn::String& out) const {
   if (isNone()) {
      out += "none";
   } else {
      Kiv::printUnsigned(out, id_);
   }
}

}  // namespace Bridging

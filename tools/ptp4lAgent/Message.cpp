#include "tools/ptp4lAgent/Message.h"

#include <cstdio>

namespace Ptp4lAgent {

namespace {

constexpr U8 managementType = 0xD;
/// Minor version 0: linuxptp 3 does not answer other minor versions.
constexpr U8 version = 2;
constexpr U8 controlManagement = 4;
constexpr U8 noInterval = 0x7F;
constexpr std::size_t bodyBegin = 48;
constexpr std::size_t tlvHeader = 6;
constexpr U16 tlvManagement = 1;
constexpr U16 tlvError = 2;

}  // namespace

char const* textOf(Fault fault) noexcept {
   switch (fault) {
      case Fault::none:
         return "nothing is wrong";
      case Fault::tooShort:
         return "shorter than the header of a management message";
      case Fault::notManagement:
         return "not a management message of PTP version 2";
      case Fault::wrongLength:
         return "its length is not that of the datagram";
      case Fault::wrongTlv:
         return "its TLV is missing, exceeds the message, or is of an unknown type";
   }
   return "";
}

Fault parse(Octets octets, Message& message) noexcept {
   OctetReader in(octets);
   if (octets.size() < bodyBegin) {
      return Fault::tooShort;
   }
   U8 const type = in.number<U8>();
   U8 const versions = in.number<U8>();
   if ((type & 0xF) != managementType || (versions & 0xF) != version) {
      return Fault::notManagement;
   }
   message.transportSpecific = static_cast<U8>(type >> 4);
   if (in.number<U16>() != octets.size()) {
      return Fault::wrongLength;
   }
   message.domainNumber = in.number<U8>();
   in.take(15);  // reserved octets, flags, correction
   read(in, message.source);
   message.sequenceId = in.number<U16>();
   in.take(2);  // control, interval
   read(in, message.target);
   in.take(2);  // hops
   message.action = static_cast<Action>(in.number<U8>() & 0xF);
   in.take(1);
   U16 const tlvType = in.number<U16>();
   U16 const tlvLength = in.number<U16>();
   if (!in.ok() || tlvLength < 2 || tlvLength > in.left()) {
      return Fault::wrongTlv;
   }
   if (tlvType == tlvManagement) {
      message.error = 0;
      message.id = static_cast<Id>(in.number<U16>());
      message.data = in.take(tlvLength - 2u);
      return Fault::none;
   }
   if (tlvType == tlvError && tlvLength >= 4) {
      message.error = in.number<U16>();
      message.id = static_cast<Id>(in.number<U16>());
      message.data = {};
      // 0 is reserved: it is not to be taken for success.
      return message.error != 0 ? Fault::none : Fault::wrongTlv;
   }
   return Fault::wrongTlv;
}

std::vector<U8> format(Message const& message) {
   std::vector<U8> octets;
   OctetWriter out(octets);
   bool const isError = message.error != 0;
   std::size_t const tlvData = isError ? 8 : message.data.size() + 2;
   out.number(static_cast<U8>(message.transportSpecific << 4 | managementType));
   out.number(version);
   out.number(static_cast<U16>(bodyBegin + tlvHeader - 2 + tlvData));
   out.number(message.domainNumber);
   out.put(std::array<U8, 15>{});
   write(out, message.source);
   out.number(message.sequenceId);
   out.number(controlManagement);
   out.number(noInterval);
   write(out, message.target);
   out.put(std::array<U8, 2>{});
   out.number(static_cast<U8>(message.action));
   out.number(U8{0});
   out.number(isError ? tlvError : tlvManagement);
   out.number(static_cast<U16>(tlvData));
   if (isError) {
      out.number(message.error);
   }
   out.number(static_cast<U16>(message.id));
   if (isError) {
      out.number(U32{0});
   } else {
      out.put(message.data);
   }
   return octets;
}

Sarn::String errorText(U16 error) {
   switch (error) {
      case 1:
         return "RESPONSE_TOO_BIG";
      case 2:
         return "NO_SUCH_ID";
      case 3:
         return "WRONG_LENGTH";
      case 4:
         return "WRONG_VALUE";
      case 5:
         return "NOT_SETABLE";
      case 6:
         return "NOT_SUPPORTED";
      case 0xFFFE:
         return "GENERAL_ERROR";
      default:
         break;
   }
   char text[16];
   std::snprintf(text, sizeof text, "error 0x%04x", error);
   return text;
}

}  // namespace Ptp4lAgent

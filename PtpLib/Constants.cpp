#include "PtpLib/Constants.h"

#include "Sarn/Util.h"

namespace Ptp {

namespace {

/// The MAC groups of one kind of message.
struct MacGroups {
   Dorn::EthAddr layer2;
   Dorn::EthAddr ipv4;
   Dorn::EthAddr ipv6;

   Dorn::EthAddr const& of(TransportMode transportMode) const {
      switch (transportMode) {
         case TransportMode::layer2:
            return layer2;
         case TransportMode::ipv4:
            return ipv4;
         default:
            return ipv6;
      }
   }
};

// IEEE 1588-2008, F.3; the MAC addresses of IP groups follow RFC 1112 and RFC 2464.
constexpr MacGroups generalMacs{Dorn::EthAddr("01:1b:19:00:00:00"),
                                Dorn::EthAddr("01:00:5e:00:01:81"),
                                Dorn::EthAddr("33:33:00:00:01:81")};
constexpr MacGroups pdelayMacs{Dorn::EthAddr("01:80:c2:00:00:0e"),
                               Dorn::EthAddr("01:00:5e:00:00:6b"),
                               Dorn::EthAddr("33:33:00:00:00:6b")};

}  // namespace

Dorn::IpGenAddr Constants::ptpMcastIpAddr(MessageTypeNumber messageType,
                                          TransportMode transportMode) {
   bool const pdelay = isPdelayMessage(messageType);
   if (transportMode == TransportMode::ipv4) {
      return Dorn::IpGenAddr(pdelay ? ptpPdelayIp4Addr() : ptpMcastIp4Addr());
   }
   if (transportMode != TransportMode::ipv6) {
      // Part of the interface: the message does not depend on the location of this code.
      Sarn::checkFailed("transportMode == ipv6()", "PtpLib/PtpStatusStatedbTypes", 34,
                        "static Dorn::IpGenAddr Ptp::Constants::ptpMcastIpAddr("
                        "Ptp::MessageTypeNumber, Ptp::TransportMode)");
   }
   return Dorn::IpGenAddr(pdelay ? ptpPdelayIp6Addr() : ptpMcastIp6Addr());
}

Dorn::EthAddr Constants::ptpMcastEthAddr(MessageTypeNumber messageType, TransportMode transportMode,
                                         PtpMode ptpMode) {
   if (isPdelayMessage(messageType)) {
      return pdelayMacs.of(transportMode);
   }
   if (ptpMode != PtpMode::ptpGeneralized) {
      return generalMacs.of(transportMode);
   }
   if (transportMode != TransportMode::layer2) {
      Sarn::checkFailed("ptpMode != ptpGeneralized_", "PtpLib/PtpStatusStatedbTypes", 81,
                        "static Dorn::EthAddr Ptp::Constants::ptpMcastEthAddr("
                        "Ptp::MessageTypeNumber, Ptp::TransportMode, Ptp::PtpMode)");
   }
   return pdelayMacs.layer2;
}

bool Constants::isPtpMcastIpAddr(Dorn::IpGenAddr const& address) noexcept {
   return address.v4() == ptpMcastIp4Addr() || address.v4() == ptpPdelayIp4Addr() ||
          address.v6() == ptpMcastIp6Addr() || address.v6() == ptpPdelayIp6Addr();
}

bool Constants::isPtpL2McastEthAddr(Dorn::EthAddr const& mac) noexcept {
   return mac == generalMacs.layer2 || mac == pdelayMacs.layer2;
}

bool Constants::isPtpL3McastEthAddr(Dorn::EthAddr const& mac) noexcept {
   return mac == generalMacs.ipv4 || mac == pdelayMacs.ipv4 || mac == generalMacs.ipv6 ||
          mac == pdelayMacs.ipv6;
}

bool Constants::isPtpMcastEthAddr(Dorn::EthAddr const& mac) noexcept {
   return isPtpL2McastEthAddr(mac) || isPtpL3McastEthAddr(mac);
}

}  // namespace Ptp

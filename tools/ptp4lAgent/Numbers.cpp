#include "tools/ptp4lAgent/Numbers.h"

#include "tools/ptp4lAgent/PortDataSets.h"

namespace Ptp4lAgent {

std::optional<Ptp::PortState> portStateOf(U8 number) noexcept {
   // linuxptp has a tenth, GRAND_MASTER, which is a master here.
   constexpr U8 grandMaster = 10;
   if (number == grandMaster) {
      return Ptp::PortState::master;
   }
   bool const known = number >= static_cast<U8>(Ptp::PortState::initializing) &&
                      number <= static_cast<U8>(Ptp::PortState::slave);
   return known ? std::optional(static_cast<Ptp::PortState>(number)) : std::nullopt;
}

std::optional<Ptp::DelayMechanism> delayMechanismOf(U8 number) noexcept {
   switch (static_cast<Ptp::DelayMechanism>(number)) {
      case Ptp::DelayMechanism::e2e:
      case Ptp::DelayMechanism::p2p:
      case Ptp::DelayMechanism::commonP2p:
      case Ptp::DelayMechanism::special:
      case Ptp::DelayMechanism::disabled:
         return static_cast<Ptp::DelayMechanism>(number);
   }
   return std::nullopt;
}

std::optional<Ptp::TransportMode> transportModeOf(U16 networkProtocol) noexcept {
   switch (networkProtocol) {
      case 1:
         return Ptp::TransportMode::ipv4;
      case 2:
         return Ptp::TransportMode::ipv6;
      case 3:
         return Ptp::TransportMode::layer2;
      default:
         return std::nullopt;
   }
}

std::optional<Ptp::TimeStampingMode> timeStampingModeOf(U8 timestamping) noexcept {
   switch (timestamping) {
      case PortPropertiesNp::software:
         return Ptp::TimeStampingMode::software;
      case PortPropertiesNp::hardware:
      case PortPropertiesNp::legacyHardware:
         return Ptp::TimeStampingMode::hardware;
      case PortPropertiesNp::oneStep:
         return Ptp::TimeStampingMode::oneStep;
      case PortPropertiesNp::p2pOneStep:
         return Ptp::TimeStampingMode::p2pOneStep;
      default:
         return std::nullopt;
   }
}

Dorn::IpGenAddr ipAddressOf(Octets octets) noexcept {
   OctetReader in(octets);
   if (octets.size() == 4) {
      return Dorn::IpGenAddr(Dorn::IpAddr(in.number<U32>()));
   }
   if (octets.size() == 16) {
      U64 const high = in.number<U64>();
      return Dorn::IpGenAddr(Dorn::Ip6Addr(high, in.number<U64>()));
   }
   return {};
}

}  // namespace Ptp4lAgent

#include "tools/ptpsnmp/Cell.h"

#include <limits>

namespace Ptpsnmp {

namespace {

void append(std::string& octets, U64 number, int size) {
   for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
      octets += static_cast<char>(number >> shift & 0xFF);
   }
}

/// An identity of the MIB, such as a transport.
Cell known(U32 group, U32 number) {
   Oid oid = mibObjects;
   oid.add(2);
   oid.add(group);
   oid.add(number);
   return Value(oid);
}

bool isGiven(Dorn::IpGenAddr const& address) {
   return (address.isV4() && address.v4().value() != 0) ||
          (address.isV6() && (address.v6().high() != 0 || address.v6().low() != 0));
}

}  // namespace

std::string timeInterval(S64 nanoseconds) {
   constexpr S64 most = std::numeric_limits<S64>::max();
   S64 const scaled = nanoseconds > most >> 16      ? most
                      : nanoseconds < -(most >> 16) ? -most - 1
                                                    : nanoseconds * 65536;
   std::string text;
   for (int shift = 60; shift >= 0; shift -= 4) {
      text += "0123456789ABCDEF"[static_cast<U64>(scaled) >> shift & 15];
      if (shift % 16 == 0 && shift != 0) {
         text += ' ';
      }
   }
   return text;
}

Cell cell(Dorn::NetU16 number) {
   return cell(number.value());
}

Cell cell(PtpMib::ClockRoleType role) {
   return cell(static_cast<U32>(role) + 1);
}

Cell cell(PtpMib::RxTxMode mode) {
   return cell(static_cast<U32>(mode) + 1);
}

/// The numbers of these are those of the standard in the MIB, too.
Cell cell(Ptp::PortState state) {
   return cell(static_cast<U32>(state));
}

Cell cell(Ptp::ClockStateType state) {
   return cell(static_cast<U32>(state));
}

Cell cell(Ptp::DelayMechanism mechanism) {
   switch (mechanism) {
      case Ptp::DelayMechanism::e2e:
         return cell(1);
      case Ptp::DelayMechanism::p2p:
      case Ptp::DelayMechanism::commonP2p:  // peer delay, too
         return cell(2);
      case Ptp::DelayMechanism::disabled:
         return cell(254);
      case Ptp::DelayMechanism::special:
         break;
   }
   return nothing();
}

Cell cell(Ptp::ClockIdentity const& identity) {
   std::string octets;
   append(octets, identity.value(), 8);
   return Value(std::move(octets));
}

Cell cell(Ptp::PortIdentity const& identity) {
   std::string octets;
   append(octets, identity.clockIdentity().value(), 8);
   append(octets, identity.portNumber(), 2);
   return Value(std::move(octets));
}

Cell cell(Ptp::TransportMode transport) {
   switch (transport) {
      case Ptp::TransportMode::ipv4:
         return known(12, 1);
      case Ptp::TransportMode::ipv6:
         return known(12, 2);
      case Ptp::TransportMode::layer2:
         return known(12, 3);
   }
   return nothing();
}

Cell encapsulation(bool inVlan) {
   return known(13, inVlan ? 2 : 1);
}

Cell addressType(Associate const& peer) {
   if (isGiven(peer.ip)) {
      return cell(peer.ip.isV4() ? Ptp::TransportMode::ipv4 : Ptp::TransportMode::ipv6);
   }
   return peer.ethernet.value() != 0 ? cell(Ptp::TransportMode::layer2) : nothing();
}

Cell address(Associate const& peer) {
   std::string octets;
   if (!isGiven(peer.ip)) {
      if (peer.ethernet.value() == 0) {
         return nothing();
      }
      append(octets, peer.ethernet.value(), 6);
   } else if (peer.ip.isV4()) {
      append(octets, peer.ip.v4().value(), 4);
   } else {
      append(octets, peer.ip.v6().high(), 8);
      append(octets, peer.ip.v6().low(), 8);
   }
   return Value(std::move(octets));
}

}  // namespace Ptpsnmp

// Values in the form that the MIB gives them.
#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <variant>

#include "PtpLib/PtpMib.h"
#include "tools/ptpsnmp/Clock.h"
#include "tools/ptpsnmp/Oid.h"

namespace Ptpsnmp {

/// `ptpbaseMIBObjects`: all objects are below it.
inline constexpr Oid mibObjects{1, 3, 6, 1, 2, 1, 241, 1};

/// A number, negative ones as in two's complement; octets; or an object identifier.
using Value = std::variant<U64, std::string, Oid>;

/// What is in one column of one row; it may be nothing.
using Cell = std::optional<Value>;

/// A number of nanoseconds as a TimeInterval of IEEE 1588 in hexadecimal digits: 1 ns is
/// "0000 0000 0001 0000". Beyond the range, the nearest value in it.
std::string timeInterval(S64 nanoseconds);

inline Cell nothing() {
   return std::nullopt;
}

template <std::integral Number>
requires(!std::same_as<Number, bool>) Cell cell(Number number) {
   return Value(static_cast<U64>(number));
}

/// A TruthValue.
template <std::same_as<bool> Truth>
Cell cell(Truth truth) {
   return Value(U64{truth ? 1u : 2u});
}

Cell cell(Dorn::NetU16 number);
Cell cell(PtpMib::ClockRoleType role);
Cell cell(PtpMib::RxTxMode mode);
Cell cell(Ptp::PortState state);
Cell cell(Ptp::ClockStateType state);
/// Nothing for a mechanism that the MIB does not know.
Cell cell(Ptp::DelayMechanism mechanism);
/// 8 octets.
Cell cell(Ptp::ClockIdentity const& identity);
/// 10 octets.
Cell cell(Ptp::PortIdentity const& identity);
/// The identity of the MIB for the transport.
Cell cell(Ptp::TransportMode transport);
/// That of Ethernet, or of VLAN.
Cell encapsulation(bool inVlan);

/// The identity of the MIB for the transport over which a peer is heard; nothing if it has no
/// address.
Cell addressType(Associate const& peer);
/// Its address: 4, 16 or 6 octets.
Cell address(Associate const& peer);

}  // namespace Ptpsnmp

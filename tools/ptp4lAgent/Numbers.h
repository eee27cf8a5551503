// Numbers of messages that mean something else in the model.
#pragma once

#include <optional>

#include "Dorn/IpGenAddr.h"
#include "PtpPlatform/PtpConstants/TimeStampingMode.h"
#include "PtpPlatform/PtpConstants/TransportMode.h"
#include "PtpPlatform/PtpDataSetTypes/DelayMechanism.h"
#include "PtpPlatform/PtpDataSetTypes/PortState.h"
#include "tools/ptp4lAgent/Octets.h"

namespace Ptp4lAgent {

/// Whole nanoseconds of a TimeInterval (IEEE 1588-2008, 5.3.2), rounded down.
constexpr S64 wholeNanoseconds(S64 interval) noexcept {
   return interval >> 16;
}
/// The same with its fraction.
constexpr double nanoseconds(S64 interval) noexcept {
   return static_cast<double>(interval) / 65536.0;
}

// No value for a number that the model does not know.

std::optional<Ptp::PortState> portStateOf(U8 number) noexcept;
std::optional<Ptp::DelayMechanism> delayMechanismOf(U8 number) noexcept;
/// `networkProtocol`: 1 UDP over IPv4, 2 over IPv6, 3 Ethernet (IEEE 1588-2008, table 3).
std::optional<Ptp::TransportMode> transportModeOf(U16 networkProtocol) noexcept;
/// `timestamping` of PORT_PROPERTIES_NP.
std::optional<Ptp::TimeStampingMode> timeStampingModeOf(U8 timestamping) noexcept;
/// An address of 4 or 16 octets; unset for any other.
Dorn::IpGenAddr ipAddressOf(Octets octets) noexcept;

}  // namespace Ptp4lAgent

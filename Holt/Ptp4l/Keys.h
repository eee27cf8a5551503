// What each key of a ptp4l(8) configuration file sets: two tables, one row per key.
#pragma once

#include <string_view>

#include "Holt/Ptp4l/Conf.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"

namespace Holt {

/// Settings that the model combines: the daemon spreads over several keys what the model has in one
/// attribute.
struct Ptp4lClock {
   bool boundary = false;
   bool e2eTransparent = false;
   bool p2pTransparent = false;
   bool oneStep = false;
   bool slaveOnly = false;
   /// `transportSpecific` is 1: messages are those of IEEE 802.1AS.
   bool generalized = false;
   /// The data set comparison is that of ITU-T G.8275.
   bool telecom = false;
   bool overEthernet = false;
   bool qualityGiven = false;
   Ptp::ClockQuality quality{248, 254, Dorn::NetU16(65535)};

   /// `ports`: the number of ports of the clock. As for the daemon, an ordinary clock with more
   /// than one port is a boundary clock.
   Ptp::PtpMode ptpMode(std::size_t ports) const;
   Ptp::PtpProfile ptpProfile() const;
};

/// Applies one setting. Returns why the model has no place for that value, or null. Throws
/// `Kiv::Exception` for a value that is malformed or out of range.
using ApplyToClock = char const* (*)(Ptp::Config& config, Ptp4lClock& clock,
                                     Ptp4lSetting const& setting);
using ApplyToPort = char const* (*)(Ptp::IntfConfig& port, Ptp4lSetting const& setting);

/// How a key of the global section applies to the clock; null if it does not.
ApplyToClock findClockKey(std::string_view key);
/// How a key of a port section, or of the global section for all ports, applies to a port; null if
/// it does not.
ApplyToPort findPortKey(std::string_view key);
/// Whether a key of the global section is a default for all ports. Other port keys belong to the
/// clock when they occur in the global section.
bool isPortDefault(std::string_view key);

/// The setting's value as a number of type `T`. Throws Kiv::RangeException.
template <typename T>
T ptp4lNumber(Ptp4lSetting const& setting);

}  // namespace Holt

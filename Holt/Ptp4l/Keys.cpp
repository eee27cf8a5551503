#include "Holt/Ptp4l/Keys.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string>

namespace Holt {

namespace {

using Setting = Ptp4lSetting;
using Ptp::Config;
using Ptp::IntfConfig;

[[noreturn]] void refuse(Setting const& setting, std::string_view why) {
   Kiv::throwRangeException("\"" + setting.value + "\" " + std::string(why));
}

bool flag(Setting const& setting) {
   return ptp4lNumber<U8>(setting) != 0;
}

Ptp::ClockIdentity clockIdentity(Setting const& setting) {
   // The daemon writes three groups, 001122.fffe.334455; only the digits matter.
   std::string digits;
   for (char const c : setting.value) {
      if (c != '.') {
         digits += c;
      }
   }
   if (digits.size() != 16 || digits.find_first_not_of("0123456789abcdefABCDEF") != digits.npos) {
      refuse(setting, "is not a clock identity such as 001122.fffe.334455");
   }
   std::string text;
   for (std::size_t i = 0; i < digits.size(); i += 2) {
      text += (i == 0 ? "" : ":") + digits.substr(i, 2);
   }
   return Kiv::fromText<Ptp::ClockIdentity>(text);
}

char const* clockType(Ptp4lClock& clock, Setting const& setting) {
   clock.boundary = setting.value == "BC";
   clock.e2eTransparent = setting.value == "E2E_TC";
   clock.p2pTransparent = setting.value == "P2P_TC";
   if (!clock.boundary && !clock.e2eTransparent && !clock.p2pTransparent && setting.value != "OC") {
      refuse(setting, "is invalid: must be OC, BC, P2P_TC or E2E_TC");
   }
   return nullptr;
}

char const* datasetComparison(Ptp4lClock& clock, Setting const& setting) {
   clock.telecom = setting.value == "G.8275.x";
   if (!clock.telecom && setting.value != "ieee1588") {
      refuse(setting, "is invalid: must be ieee1588 or G.8275.x");
   }
   return nullptr;
}

char const* transportSpecific(Ptp4lClock& clock, Setting const& setting) {
   U8 const number = ptp4lNumber<U8>(setting);
   clock.generalized = number == 1;
   return number > 1 ? "the model supports only 0 (IEEE 1588) and 1 (IEEE 802.1AS)" : nullptr;
}

Ptp::TransportMode transportMode(Setting const& setting) {
   if (setting.value == "L2") {
      return Ptp::TransportMode::layer2;
   }
   if (setting.value == "UDPv4") {
      return Ptp::TransportMode::ipv4;
   }
   if (setting.value == "UDPv6") {
      return Ptp::TransportMode::ipv6;
   }
   refuse(setting, "is invalid: must be L2, UDPv4 or UDPv6");
}

char const* delayMechanism(IntfConfig& port, Setting const& setting) {
   if (setting.value == "Auto") {
      return "the model cannot choose the mechanism by listening; its own stays";
   }
   if (setting.value == "E2E") {
      port.delayMechanismIs(Ptp::DelayMechanism::e2e);
   } else if (setting.value == "P2P") {
      port.delayMechanismIs(Ptp::DelayMechanism::p2p);
   } else if (setting.value == "NONE") {
      port.delayMechanismIs(Ptp::DelayMechanism::disabled);
   } else {
      refuse(setting, "is invalid: must be Auto, E2E, P2P or NONE");
   }
   return nullptr;
}

char const* timeStamping(IntfConfig& port, Setting const& setting) {
   if (setting.value == "legacy") {
      return "the model has no legacy timestamping; its own mode stays";
   }
   if (setting.value == "hardware") {
      port.timeStampingModeIs(Ptp::TimeStampingMode::hardware);
   } else if (setting.value == "software") {
      port.timeStampingModeIs(Ptp::TimeStampingMode::software);
   } else if (setting.value == "onestep") {
      port.timeStampingModeIs(Ptp::TimeStampingMode::oneStep);
   } else if (setting.value == "p2p1step") {
      port.timeStampingModeIs(Ptp::TimeStampingMode::p2pOneStep);
   } else {
      refuse(setting, "is invalid: must be hardware, software, legacy, onestep or p2p1step");
   }
   return nullptr;
}

char const* syncReceiptTimeout(IntfConfig& port, Setting const& setting) {
   U8 const number = ptp4lNumber<U8>(setting);
   if (number == 0) {
      return "0: the model cannot be without a timeout; its own stays";
   }
   port.syncReceiptTimeoutIs(number);
   return nullptr;
}

char const* peerDelayMac(Setting const& setting) {
   // Peer delay messages go to the one group address that bridges never forward.
   return Dorn::EthAddr(setting.value) == Dorn::EthAddr("01:80:c2:00:00:0e")
                ? nullptr
                : "peer delay messages always go to 01:80:c2:00:00:0e";
}

char const* roleIs(IntfConfig& port, Setting const& setting, Ptp::Role role,
                   std::string_view other) {
   if (!flag(setting)) {
      if (port.role() == role) {
         port.roleIs(Ptp::Role::dynamic);
      }
   } else if (port.role() != Ptp::Role::dynamic && port.role() != role) {
      refuse(setting, "contradicts " + std::string(other));
   } else {
      port.roleIs(role);
   }
   return nullptr;
}

struct ClockKey {
   std::string_view key;
   ApplyToClock apply;
};

struct PortKey {
   std::string_view key;
   ApplyToPort apply;
   /// Also taken from the global section.
   bool isDefault = true;
};

// Rows that set an attribute to a number or a flag.
template <typename T, auto setter>
char const* clockNumber(Config& config, Ptp4lClock&, Setting const& setting) {
   (config.*setter)(ptp4lNumber<T>(setting));
   return nullptr;
}

template <auto setter>
char const* clockFlag(Config& config, Ptp4lClock&, Setting const& setting) {
   (config.*setter)(flag(setting));
   return nullptr;
}

template <typename T, auto setter>
char const* portNumber(IntfConfig& port, Setting const& setting) {
   (port.*setter)(ptp4lNumber<T>(setting));
   return nullptr;
}

template <auto change>
char const* clockPart(Config&, Ptp4lClock& clock, Setting const& setting) {
   return change(clock, setting);
}

template <auto change>
char const* quality(Config&, Ptp4lClock& clock, Setting const& setting) {
   change(clock.quality, setting);
   clock.qualityGiven = true;
   return nullptr;
}

constexpr auto clockClass = [](Ptp::ClockQuality& q, Setting const& setting) {
   q.clockClassIs(ptp4lNumber<U8>(setting));
};
constexpr auto clockAccuracy = [](Ptp::ClockQuality& q, Setting const& setting) {
   q.clockAccuracyIs(ptp4lNumber<U8>(setting));
};
constexpr auto clockVariance = [](Ptp::ClockQuality& q, Setting const& setting) {
   q.offsetScaledLogVarianceIs(Dorn::NetU16(ptp4lNumber<U16>(setting)));
};
constexpr auto twoStep = [](Ptp4lClock& clock, Setting const& setting) -> char const* {
   clock.oneStep = !flag(setting);
   return nullptr;
};
constexpr auto slaveOnly = [](Ptp4lClock& clock, Setting const& setting) -> char const* {
   clock.slaveOnly = flag(setting);
   return nullptr;
};
constexpr auto transport = [](Ptp4lClock& clock, Setting const& setting) -> char const* {
   clock.overEthernet = transportMode(setting) == Ptp::TransportMode::layer2;
   return nullptr;
};

char const* identity(Config& config, Ptp4lClock&, Setting const& setting) {
   auto const id = clockIdentity(setting);
   // All zero asks for an identity made from a MAC address.
   config.clockIdentityIs(id);
   config.clockIdentityConfiguredIs(!(id == Ptp::ClockIdentity()));
   return nullptr;
}

char const* unicastListen(Config& config, Ptp4lClock&, Setting const& setting) {
   if (flag(setting)) {
      config.unicastNegotiationIs(true);
   }
   return nullptr;
}

constexpr ClockKey clockKeys[] = {
      {"G.8275.defaultDS.localPriority", clockNumber<U8, &Config::localPriorityIs>},
      {"clientOnly", clockPart<slaveOnly>},
      {"clockAccuracy", quality<clockAccuracy>},
      {"clockClass", quality<clockClass>},
      {"clockIdentity", identity},
      {"clock_type", clockPart<clockType>},
      {"dataset_comparison", clockPart<datasetComparison>},
      {"domainNumber", clockNumber<U8, &Config::domainNumberIs>},
      {"dscp_event", clockNumber<U8, &Config::globalDscpEventIs>},
      {"dscp_general", clockNumber<U8, &Config::globalDscpGeneralIs>},
      {"net_sync_monitor", clockFlag<&Config::netSyncMonitorIs>},
      {"network_transport", clockPart<transport>},
      {"offsetScaledLogVariance", quality<clockVariance>},
      {"priority1", clockNumber<U8, &Config::priority1Is>},
      {"priority2", clockNumber<U8, &Config::priority2Is>},
      {"slaveOnly", clockPart<slaveOnly>},
      {"transportSpecific", clockPart<transportSpecific>},
      {"twoStepFlag", clockPart<twoStep>},
      {"udp_ttl", clockNumber<U8, &Config::ttlIs>},
      {"unicast_listen", unicastListen},
};

char const* slaveRole(IntfConfig& port, Setting const& setting) {
   return roleIs(port, setting, Ptp::Role::slaveOnly, "masterOnly");
}

char const* masterRole(IntfConfig& port, Setting const& setting) {
   return roleIs(port, setting, Ptp::Role::masterOnly, "slaveOnly");
}

char const* dscpEvent(IntfConfig& port, Setting const& setting) {
   port.dscpEventIs(ptp4lNumber<U8>(setting));
   port.dscpEventConfiguredIs(true);
   return nullptr;
}

char const* dscpGeneral(IntfConfig& port, Setting const& setting) {
   port.dscpGeneralIs(ptp4lNumber<U8>(setting));
   port.dscpGeneralConfiguredIs(true);
   return nullptr;
}

char const* portTransport(IntfConfig& port, Setting const& setting) {
   port.transportModeIs(transportMode(setting));
   return nullptr;
}

char const* multicastMac(IntfConfig& port, Setting const& setting) {
   port.pktTxMacAddressIs(Dorn::EthAddr(setting.value));
   return nullptr;
}

char const* peerMac(IntfConfig&, Setting const& setting) {
   return peerDelayMac(setting);
}

constexpr PortKey portKeys[] = {
      {"G.8275.portDS.localPriority", portNumber<U8, &IntfConfig::localPriorityIs>},
      {"announceReceiptTimeout", portNumber<U8, &IntfConfig::announceReceiptTimeoutIs>},
      {"clientOnly", slaveRole},
      {"delay_mechanism", delayMechanism},
      {"domainNumber", portNumber<U8, &IntfConfig::domainNumberIs>},
      {"dscp_event", dscpEvent, false},
      {"dscp_general", dscpGeneral, false},
      {"logAnnounceInterval", portNumber<S8, &IntfConfig::logAnnounceIntervalIs>},
      {"logMinDelayReqInterval", portNumber<S16, &IntfConfig::logMinDelayReqIntervalIs>},
      {"logMinPdelayReqInterval", portNumber<S8, &IntfConfig::logMinPdelayReqIntervalIs>},
      {"logSyncInterval", portNumber<S16, &IntfConfig::logSyncIntervalIs>},
      {"masterOnly", masterRole},
      {"neighborPropDelayThresh", portNumber<U64, &IntfConfig::linkDelayThresholdIs>},
      {"network_transport", portTransport},
      {"p2p_dst_mac", peerMac},
      {"priority1", portNumber<U8, &IntfConfig::priority1Is>},
      {"priority2", portNumber<U8, &IntfConfig::priority2Is>},
      {"ptp_dst_mac", multicastMac},
      {"serverOnly", masterRole},
      {"slaveOnly", slaveRole},
      {"syncReceiptTimeout", syncReceiptTimeout},
      {"time_stamping", timeStamping},
      {"udp_ttl", portNumber<U8, &IntfConfig::ttlIs>},
};

template <typename Table>
auto find(Table const& table, std::string_view key) {
   return std::find_if(std::begin(table), std::end(table),
                       [key](auto const& row) { return row.key == key; });
}

}  // namespace

Ptp::PtpMode Ptp4lClock::ptpMode(std::size_t ports) const {
   if (generalized) {
      return Ptp::PtpMode::ptpGeneralized;
   }
   if (e2eTransparent) {
      return oneStep ? Ptp::PtpMode::oneStepE2eTransparent : Ptp::PtpMode::e2eTransparent;
   }
   if (p2pTransparent) {
      return Ptp::PtpMode::p2pTransparent;
   }
   if (boundary || ports > 1) {
      return oneStep ? Ptp::PtpMode::oneStepBoundary : Ptp::PtpMode::boundary;
   }
   return Ptp::PtpMode::ordinary;
}

Ptp::PtpProfile Ptp4lClock::ptpProfile() const {
   if (generalized) {
      return Ptp::PtpProfile::gptp;
   }
   if (telecom) {
      return overEthernet ? Ptp::PtpProfile::g8275_1 : Ptp::PtpProfile::g8275_2;
   }
   return Ptp::PtpProfile::ptpDefault;
}

ApplyToClock findClockKey(std::string_view key) {
   auto const* row = find(clockKeys, key);
   return row == std::end(clockKeys) ? nullptr : row->apply;
}

ApplyToPort findPortKey(std::string_view key) {
   auto const* row = find(portKeys, key);
   return row == std::end(portKeys) ? nullptr : row->apply;
}

bool isPortDefault(std::string_view key) {
   auto const* row = find(portKeys, key);
   return row != std::end(portKeys) && row->isDefault;
}

template <typename T>
T ptp4lNumber(Ptp4lSetting const& setting) {
   S64 number = 0;
   if (!parsePtp4lNumber(setting.value, number)) {
      refuse(setting, "is not a whole number");
   }
   using Limits = std::numeric_limits<T>;
   // An unsigned 64-bit attribute takes every number that the daemon can read.
   S64 const greatest = sizeof(T) == sizeof(S64) ? std::numeric_limits<S64>::max()
                                                 : static_cast<S64>(Limits::max());
   if (number < static_cast<S64>(Limits::min()) || number > greatest) {
      refuse(setting,
             "is not from " + std::to_string(Limits::min()) + " to " + std::to_string(greatest));
   }
   return static_cast<T>(number);
}

template U8 ptp4lNumber<U8>(Ptp4lSetting const& setting);
template U32 ptp4lNumber<U32>(Ptp4lSetting const& setting);

}  // namespace Holt

// What is written to a configuration file of ptp4l(8) as a number: two tables, one row per key.
#pragma once

#include <algorithm>
#include <limits>
#include <string_view>
#include <type_traits>

#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"

namespace Holt::Ptp4lRows {

using Ptp::Config;
using Ptp::IntfConfig;

/// A setting that is one attribute, a number or a flag.
template <class Entity>
struct NumberRow {
   std::string_view key;
   std::string_view attribute;
   S64 (*read)(Entity const& entity);
   /// What ptp4l takes.
   S64 least;
   S64 greatest;
};

template <class Entity, auto attribute>
S64 number(Entity const& entity) {
   auto const value = (entity.*attribute)();
   if constexpr (std::is_same_v<decltype(value), U64 const>) {
      return static_cast<S64>(std::min(value, static_cast<U64>(std::numeric_limits<S64>::max())));
   } else {
      return static_cast<S64>(value);
   }
}

inline constexpr NumberRow<Config> clockRows[] = {
      {"domainNumber", "domainNumber", number<Config, &Config::domainNumber>, 0, 127},
      {"priority1", "priority1", number<Config, &Config::priority1>, 0, 255},
      {"priority2", "priority2", number<Config, &Config::priority2>, 0, 255},
      {"G.8275.defaultDS.localPriority", "localPriority", number<Config, &Config::localPriority>, 1,
       255},
      {"dscp_event", "globalDscpEvent", number<Config, &Config::globalDscpEvent>, 0, 63},
      {"dscp_general", "globalDscpGeneral", number<Config, &Config::globalDscpGeneral>, 0, 63},
      {"udp_ttl", "ttl", number<Config, &Config::ttl>, 1, 255},
      {"net_sync_monitor", "netSyncMonitor", number<Config, &Config::netSyncMonitor>, 0, 1},
};

inline constexpr NumberRow<IntfConfig> portRows[] = {
      {"logAnnounceInterval", "logAnnounceInterval",
       number<IntfConfig, &IntfConfig::logAnnounceInterval>, -128, 127},
      {"logSyncInterval", "logSyncInterval", number<IntfConfig, &IntfConfig::logSyncInterval>, -128,
       127},
      {"logMinDelayReqInterval", "logMinDelayReqInterval",
       number<IntfConfig, &IntfConfig::logMinDelayReqInterval>, -128, 127},
      {"logMinPdelayReqInterval", "logMinPdelayReqInterval",
       number<IntfConfig, &IntfConfig::logMinPdelayReqInterval>, -128, 127},
      {"announceReceiptTimeout", "announceReceiptTimeout",
       number<IntfConfig, &IntfConfig::announceReceiptTimeout>, 2, 255},
      {"syncReceiptTimeout", "syncReceiptTimeout",
       number<IntfConfig, &IntfConfig::syncReceiptTimeout>, 0, 255},
      {"G.8275.portDS.localPriority", "localPriority",
       number<IntfConfig, &IntfConfig::localPriority>, 1, 255},
      {"neighborPropDelayThresh", "linkDelayThreshold",
       number<IntfConfig, &IntfConfig::linkDelayThreshold>, 0, std::numeric_limits<S32>::max()},
      {"udp_ttl", "ttl", number<IntfConfig, &IntfConfig::ttl>, 1, 255},
};

}  // namespace Holt::Ptp4lRows

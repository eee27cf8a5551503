// A configuration that is changed step by step, and what it must be after each step.
#pragma once

#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"
#include "tools/statedb/Database.h"
#include "tools/statedb/Recorder.h"
#include "tools/statedb/Snapshot.h"

namespace Statedb {

constexpr char const* workloadRoot = "ptp/config";
/// The name of the database on a `FaultDisk`.
constexpr char const* file = "/state.db";

/// A row for each value and each entity.
inline std::vector<std::string> textOf(RootRows const& rows) {
   std::vector<std::string> lines;
   for (EntityRow const& row : rows.entities) {
      lines.push_back(row.path + " : " + row.name);
   }
   for (ValueRow const& row : rows.values) {
      lines.push_back(row.entity + "." + row.attribute + "[" + row.key + "] = " + row.value);
   }
   std::sort(lines.begin(), lines.end());
   return lines;
}

inline std::vector<std::string> textOf(Kiv::NamedEntity const& root) {
   return textOf(rowsOf(root));
}

/// One step: several changes that belong together.
inline void makeStep(Ptp::Config& config, int step) {
   config.priority1Is(static_cast<U8>(step));
   config.priority2Is(static_cast<U8>(255 - step));
   Dorn::IntfId const interface("Ethernet" + std::to_string(step % 4));
   if (step % 7 == 6) {
      config.intfConfigDel(interface);
   } else {
      auto const port = config.intfConfigIs(interface, step % 2 == 0, false);
      port->logSyncIntervalIs(static_cast<S8>(-(step % 4)));
      port->enabledIs(step % 3 == 0);
   }
}

}  // namespace Statedb

#pragma once

#include <string>

#include "Fleet/Publisher.h"
#include "tools/cli/Command.h"
#include "tools/fleet/NatsOptions.h"

namespace Ptpfleet {

/// What `ptpfleet publish` was told.
struct PublishOptions {
   Tools::NatsOptions nats;
   std::string switchName;
   std::string socket;
   std::string stream = "PTP";
   std::string storage = "file";
   U32 replicas = 1;
   /// In seconds.
   double interval = 0;
   double heartbeat = 2;
};

/// Adds the options of `ptpfleet publish`.
void addPublishOptions(Tools::Command const& command, PublishOptions& options);

/// Publishes until the program is told to end.
void publish(PublishOptions const& options);

}  // namespace Ptpfleet

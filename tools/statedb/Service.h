// The program: roots that are served and kept.
#pragma once

#include "tools/shared/Serving.h"
#include "tools/statedb/Database.h"

namespace Statedb {

struct ServiceOptions : Tools::ServingOptions {
   std::string database;
   std::string sync = "always";
   /// In seconds.
   double interval = 1;
   /// Roots that are kept though they are no configuration: "TYPE=NAME", or the name alone.
   std::vector<std::string> keep;
   std::vector<std::string> modules;
   bool recover = false;
};

/// "always", "interval" or "never". Throws `Tools::UsageError`.
Sync syncOf(std::string const& text);

/// Whether roots of a type are kept without being asked for: its name ends in "Config".
bool isConfiguration(Kiv::TypeImpl const& type);

/// Restores, serves and keeps until a signal ends it. Throws `Holt::Failure`.
void runService(ServiceOptions const& options);

}  // namespace Statedb

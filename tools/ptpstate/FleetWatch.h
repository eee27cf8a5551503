#pragma once

#include "Holt/Failure.h"
#include "tools/ptpstate/Reader.h"

namespace Ptpstate {

/// What `ptpstate watch` was told.
struct WatchOptions : ReaderOptions {
   std::vector<std::string> paths;
   U64 count = 0;
   /// 0: without limit.
   double seconds = 0;
   std::string dump;
   bool json = false;
   bool noReconnect = false;
};

/// Prints a line for each change of switches of a fleet, until it is interrupted or enough. Throws
/// `Holt::Failure`.
Holt::Exit watchFleet(WatchOptions const& options);

}  // namespace Ptpstate

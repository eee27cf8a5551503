// Instead of what is in `fleet`, in a build without the library of NATS.
#include "Holt/Failure.h"
#include "tools/ptpexport/FleetExport.h"

namespace Ptpexport {

void addFleetOptions(Tools::Command const& command, FleetOptions& options) {
   command.option("--fleet", options.nats.urls, "Not in this build: it has no library of NATS")
         .placeholder("URL");
}

std::unique_ptr<FleetExport> FleetExport::make(FleetOptions const&) {
   throw Holt::Failure(
         "this ptpexport was built without the client library of NATS, and cannot read a fleet; "
         "build it with Debian's libnats-dev installed",
         Holt::Exit::usage);
}

}  // namespace Ptpexport

// From what a daemon tells to the instance of the OpenConfig model.
#pragma once

#include "PtpLib/PtpOpenConfig/Instance.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace Ptp4lAgent {

/// Copies what the OpenConfig model has room for from a status that is kept up to date. A data set
/// is absent as long as the status has none. The clock's identity is written as in the status.
void fillInstance(Openconfig::Ptp::Instance& instance, Ptp::Status const& status);

}  // namespace Ptp4lAgent

// Why a port does not work as it should.
#pragma once

#include <string>
#include <vector>

#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace Tools {

/// Why the port is disabled, in the order of the reasons.
std::vector<Ptp::PortDisabledReason> disabledReasons(Ptp::PortDS const& port);
/// Whether MPASS is enabled for the interface, and inactive. `intf`: may be null.
bool isMpassInactive(Ptp::IntfStatus const* intf);

/// "fault, ...": what the port itself says about it, separated by commas; empty if nothing.
std::string portRemarks(Ptp::PortDS const& port, Ptp::IntfStatus const* intf);

}  // namespace Tools

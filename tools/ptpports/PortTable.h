// The ports of a clock as a table for people.
#pragma once

#include <ostream>

#include "Holt/State/Json.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace Ptpports {

/// Writes the name of the status, the clock and its master, a row for each port in the order of
/// their names, and the number of ports in each state:
///
///     status  ptp/status
///     clock   02:00:11:ff:fe:00:00:01  domain 24  ports 3
///     follows 02:00:11:ff:fe:00:00:aa  class 6  steps 2  offset -3 ns  delay 212 ns
///
///     port       vlan  state   role        offset  delay  masters  sync-rx  lost  discards  grants
///     Ethernet1        slave   slaveOnly       -3    212        2     8192     0         0       0
///     Ethernet2    10  faulty  masterOnly       -      -        0        0     3        17       0
///     ...
///
/// For the port that the clock follows, offset and delay are the clock's own; other ports have no
/// offset, and their link delay if they measure it. Times are in nanoseconds. Discards and grants
/// are sums over their reasons and directions. A last column, `remarks`, says why a port does not
/// work as it should. Data sets that do not exist are left out.
void printPorts(std::ostream& out, Ptp::Status const& status);

/// The same as an object with "status", "clock", "follows" and "ports". "clock" and "follows" are
/// null if their data sets do not exist, and so is what a port does not have.
Holt::Json portsJson(Ptp::Status const& status);

}  // namespace Ptpports

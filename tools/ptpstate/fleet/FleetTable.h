// All switches of a fleet as a table.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "Fleet/Mirror.h"
#include "Holt/State/Json.h"

namespace Ptpstate {

/// What the rows are sorted by.
enum class FleetOrder : U8 {
   /// In natural order: edge-2 before edge-10.
   name,
   /// The largest offset first, whatever its sign.
   offset,
   /// Most ports that do not work as they should first.
   ports,
   /// Those first that are not current, for the longest time.
   age
};

/// Writes what there is to say of the whole, and a row for each clock:
///
///     2 switches, 1 current; worst offset 40 ns at edge-2; 1 port not as it should be
///
///     switch  grandmaster              class  steps  offset  ports  not as they should be  state
///     edge-1  02:00:11:ff:fe:00:00:aa      6      2      -3      4  Ethernet2 faulty       current
///     ...
///
/// A switch with several clocks has a row for each, "edge-1:ptp/other"; one without has a row, too.
/// Offsets are in nanoseconds, as the clock itself states them.
void printFleet(std::ostream& out, Fleet::Mirror const& mirror, FleetOrder order);

/// The same as an array with an object for each row, with all ports that are not as they should be.
Holt::Json fleetJson(Fleet::Mirror const& mirror, FleetOrder order);

}  // namespace Ptpstate

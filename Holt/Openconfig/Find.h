// What is at a path in a document of the model openconfig-ptp, as a RESTCONF server answers it.
#pragma once

#include <string_view>

#include "Holt/State/Json.h"

namespace Holt {

/// Looks up a path of RFC 8040, such as "openconfig-ptp:ptp/instances/instance=0/current-ds", in a
/// document that `openconfigJson` has written. An empty path is the whole document. Slashes at
/// either end do not count; %XX is decoded. A name without a module has that of its parent; leaves
/// of our own module need theirs.
///
/// Returns an object with one member, which has the qualified name of the last node:
/// `{"openconfig-ptp:current-ds": {...}}`. An entry of a list is in an array, and a list without a
/// key is all its entries. Returns null if nothing is there now.
///
/// Throws `Failure` if the model has no such path, with the name that may have been meant.
Json openconfigAt(Json const& document, std::string_view path);

}  // namespace Holt

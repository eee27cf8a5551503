// Writes the entities of the module `PtpOpenConfig` as data of the model openconfig-ptp: JSON as
// RFC 7951 defines it.
//
//     {
//        "openconfig-ptp:ptp": {
//           "instances": {
//              "instance": [{"id": 0, "config": {"id": 0}, "state": {"id": 0}, ...}]
//           },
//           "transparent-clock-default-ds": {...}
//        }
//     }
#pragma once

#include <vector>

#include "Holt/State/Json.h"
#include "Kiv/Entity.h"

namespace Holt {

/// Whether `openconfigJson` writes roots of this type: `Openconfig::Ptp::Instance` and
/// `TransparentClockDefaultDS`.
bool isInOpenconfig(Kiv::TypeImpl const& type) noexcept;

/// A document with all roots of these types; it ignores others. Instances are in the order of their
/// ids. A container that is absent in a root is absent in the document. What the model cannot
/// express is in leaves of the module ptplib-openconfig-ptp: reading the document gives the same
/// values.
///
/// Throws `Failure` if two instances have the same id, which is their key in the model, or if there
/// are two transparent clocks, since it has one.
Json openconfigJson(std::vector<Kiv::NamedEntity const*> const& roots);

/// The same as text: indented, with a newline at the end.
std::string openconfigText(Json const& document);

}  // namespace Holt

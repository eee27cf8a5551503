// Loads configuration files of the linuxptp daemon ptp4l(8) into a `Ptp::Config`.
//
// `docs/ptp4l.md` has the table of keys.
#pragma once

#include <string>
#include <vector>

#include "Holt/Ptp4l/Conf.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"

namespace Holt {

/// The result of loading a configuration file.
struct Ptp4lOutcome {
   /// Why nothing was loaded, in the order of lines; empty if the file was loaded.
   std::vector<Ptp4lRemark> errors;
   /// Settings that the model has no place for, one note per key, in the order of lines.
   std::vector<Ptp4lRemark> notes;
};

/// Loads `conf` into `config`, and enables PTP on the switch and on every interface that has a
/// section. Everything else that the file does not mention stays as it is.
///
/// All or nothing: if the file has any error, parse errors included, `config` is left untouched and
/// every error is reported. A value that a setter refuses is reported with the message of its
/// `Kiv::RangeException`.
Ptp4lOutcome loadPtp4lConf(Ptp4lConf const& conf, Ptp::Config& config);

}  // namespace Holt

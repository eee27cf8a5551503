// What the configuration files of the linuxptp daemon ptp4l(8) mean for a `Ptp::Config`.
//
// `docs/ptp4l.md` has the table of keys.
#pragma once

#include <string>
#include <vector>

#include "Holt/Ptp4l/Conf.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"

namespace Holt {

/// What came of loading a configuration file.
struct Ptp4lOutcome {
   /// Why nothing was loaded, by line; empty if the file was loaded.
   std::vector<Ptp4lRemark> errors;
   /// What the model has no place for, one a key, by line.
   std::vector<Ptp4lRemark> notes;
};

/// Loads `conf` into `config`. What the file does not mention stays as it is, but that PTP is
/// enabled on the switch and on every interface that has a section.
///
/// All or nothing: with any error in the file, those of reading it included, `config` is left
/// untouched and every error is reported. A value that a setter refuses is reported in the words
/// of its `Kiv::RangeException`.
Ptp4lOutcome loadPtp4lConf(Ptp4lConf const& conf, Ptp::Config& config);

}  // namespace Holt

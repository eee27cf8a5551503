// Writes a `Ptp::Config` as a configuration file of the linuxptp daemon ptp4l(8): the reverse of
// `Load.h`.
#pragma once

#include <string>
#include <vector>

#include "Holt/Ptp4l/Conf.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"

namespace Holt {

/// A configuration file, written.
struct Ptp4lText {
   /// Accepted by ptp4l 3.1.1 unless a note says otherwise. Begins with the notes, as comments.
   std::string text;
   /// What the file does not say, or says in another way: "ATTRIBUTE = VALUE: why", a printable
   /// line each.
   std::vector<std::string> notes;
};

/// Writes all that ptp4l has a setting for, whether or not it differs from ptp4l's default, so that
/// the file means the same to every release. Interfaces are sections in natural order of their
/// names; those on which PTP does not run are left out. Attributes without a setting are noted if
/// they differ from their default.
///
/// Loading the text gives the same configuration, up to what the notes say.
///
/// `base`: a file, usually the one that was loaded. Of its `[global]` section, and of its ports
/// that are written, the settings that the model has no place for are copied; null for none.
Ptp4lText writePtp4lConf(Ptp::Config const& config, Ptp4lConf const* base = nullptr);

}  // namespace Holt

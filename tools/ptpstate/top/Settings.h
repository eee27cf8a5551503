// The columns that a person has chosen, remembered between runs.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Sarn/String.h"

namespace Ptpstate {

/// $XDG_CONFIG_HOME/ptpstate/top, or $HOME/.config/ptpstate/top; empty if there is neither. Each
/// line is a type and its columns: "Ptp::PortDS portState,role".
std::string topSettingsFile();

/// The columns remembered for a type; none if there are none, or if the file cannot be read.
std::optional<std::vector<Sarn::String>> rememberedColumns(Sarn::String const& type);

/// Remembers columns for a type. Returns false if they cannot be written.
bool rememberColumns(Sarn::String const& type, std::vector<Sarn::String> const& columns);

}  // namespace Ptpstate

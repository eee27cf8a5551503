// Tokens to a model.
#pragma once

#include <memory>
#include <string>

#include "Kivc/Diagnostics.h"
#include "Kivc/Model.h"

namespace Kivc {

/// Parses one file. After a mistake it goes on behind the next `;` or at the closing `}`, so that
/// one run reports several; the model holds what could be read. The grammar is in
/// docs/language.md.
std::unique_ptr<Module> parse(std::unique_ptr<Source> source, Diagnostics& diagnostics);

}  // namespace Kivc

// Completes an unfinished command line for a shell.
#pragma once

#include <string>
#include <vector>

#include "tools/cli/Command.h"

namespace Ptpstate {

/// A command line up to the cursor, split as a shell does, without quotes. The last word is the one
/// being typed.
struct ShellWords {
   std::vector<std::string> words;
   /// The last word as it was typed.
   std::string raw;
   /// The quote that is open at its end, or 0.
   char quote = 0;
};
ShellWords shellWords(std::string const& line);

/// A word as it must be typed after an open quote (0: none).
std::string shellQuoted(std::string const& word, char quote);

/// Candidates for the last word of a line, as whole words without quotes. Those that end with a
/// blank are complete. Options and commands come from `program`, paths from the server that the
/// line or the environment names, types from the modules; files are left to the shell. After an
/// error there are no candidates.
std::vector<std::string> candidates(Tools::Command const& program, ShellWords const& line);

}  // namespace Ptpstate

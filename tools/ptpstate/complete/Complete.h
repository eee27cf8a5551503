// What a shell can offer for a command line that is not finished.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Ptpstate {

/// A command line up to the cursor, cut as a shell does: words without their quotes; the last one
/// is being written.
struct ShellWords {
   std::vector<std::string> words;
   /// The last word as it was typed.
   std::string raw;
   /// The quote that is open at its end, or 0.
   char quote = 0;
};
ShellWords shellWords(std::string const& line);

/// A word as it must be typed behind an open quote, or none (0).
std::string shellQuoted(std::string const& word, char quote);

/// Candidates for the last word of a line, whole and plain. Those that end with a blank are
/// complete words. Options and commands come from `app`, paths from the server that the line or the
/// environment names, types from the modules; files are left to the shell. What goes wrong gives
/// no candidates.
std::vector<std::string> candidates(CLI::App const& app, ShellWords const& line);

}  // namespace Ptpstate

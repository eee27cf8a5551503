// How the programs show their help.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace Tools {

/// Lays out what `--help` prints for a terminal of 80 columns: usage, description, commands by
/// their first sentence, options, and the footer as it stands. All of it is what was said to CLI11
/// where the command or option was declared. help2man(1) reads this layout, and makes the manual
/// pages of it.
///
/// Commands that are added later have it, too. In a description, an empty line begins a new
/// paragraph, and a line that begins with a blank stays as it is.
void helpLayoutIs(CLI::App& app);

/// Words in lines of 79 characters at most, each beginning with `indent` blanks.
std::string wrapped(std::string const& text, std::size_t indent);

}  // namespace Tools

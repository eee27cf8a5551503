// How the programs show their help.
#pragma once

namespace CLI {
class App;
}

namespace Tools {

/// Lays out the output of `--help` for a terminal of 80 columns: usage, description, the first
/// sentence of each command, options, and the footer as it is. All texts come from the declarations
/// of commands and options. help2man(1) makes the manual pages from this layout.
///
/// It also applies to commands that are added later. In a description, an empty line begins a new
/// paragraph, and a line that begins with a blank is kept as it is.
void helpLayoutIs(CLI::App& app);

}  // namespace Tools

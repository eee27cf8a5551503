// The program's manual: docs/ptpstate.md, which the build puts into the program. From this one text
// come that page, what --help prints, and the man page.
//
// Every command has a section "### NAME ARGUMENTS" there: what it does, its options in a table of
// two columns, and an example in a block behind the line "Example:".
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace Ptpstate {

/// docs/ptpstate.md.
extern char const* const manualText;

struct ManualBlock {
   enum Kind { heading, paragraph, bullet, table, code } kind;
   /// Of a heading: 1 to 4.
   int level = 0;
   /// A paragraph or bullet in one line, code with its lines; with its markup.
   std::string text;
   /// Of a table, without its head.
   std::vector<std::pair<std::string, std::string>> rows;
};

/// The blocks of a page in the part of Markdown that the manual keeps to. A row of a table has two
/// cells.
std::vector<ManualBlock> manualBlocks(std::string const& markdown);

/// The section of a command, without its heading; empty if it has none.
std::vector<ManualBlock> commandSection(std::string const& command);

/// What `--help` prints of a command, or of the program as a whole.
std::string helpText(CLI::App const& command);
std::string overviewText(CLI::App const& app);

/// The page for man(1).
std::string manPage();

/// Puts these texts where CLI11 wants them. Commands that are added later have them, too.
void manualIs(CLI::App& app);

}  // namespace Ptpstate

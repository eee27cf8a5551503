// The manual is one text: it tells of exactly the commands and options that there are, and what is
// made of it is what is checked in.
#include "tools/ptpstate/Manual.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <set>
#include <sstream>

#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

bool isCommon(std::string const& option) {
   return option == "--help" || option == "--socket" || option == "--timeout";
}

/// "--json", "--count N" of every option of a command but those that others have, too.
std::set<std::string> optionsOf(CLI::App const& command) {
   std::set<std::string> options;
   for (CLI::Option const* const option : command.get_options()) {
      std::string const name = option->get_lnames().empty() ? "" : "--" + option->get_lnames()[0];
      if (option->get_positional() || isCommon(name)) {
         continue;
      }
      std::string const value = option->get_type_name();
      options.insert(
            option->get_expected_max() == 0 ? name : name + " " + value.substr(0, value.find(':')));
   }
   return options;
}

std::set<std::string> optionsInManual(std::string const& command) {
   std::set<std::string> options;
   for (ManualBlock const& block : commandSection(command)) {
      for (auto const& [left, right] : block.rows) {
         if (left.starts_with("`--") &&
             !isCommon(left.substr(1, left.find_first_of(" `", 1) - 1))) {
            options.insert(left.substr(1, left.size() - 2));
         }
      }
   }
   return options;
}

/// "PATH [ARG...]"
std::string argumentsOf(CLI::App const& command) {
   std::string arguments;
   for (CLI::Option const* const option : command.get_options()) {
      if (option->get_positional()) {
         std::string name = option->get_type_name();
         name += option->get_expected_max() > 1 ? "..." : "";
         arguments += " " + (option->get_required() ? name : "[" + name + "]");
      }
   }
   return arguments;
}

class Manual : public testing::Test {
protected:
   Manual() { addCommands(app, command); }
   std::vector<CLI::App*> commands() {
      return app.get_subcommands([](CLI::App* each) { return !each->get_group().empty(); });
   }

   CLI::App app;
   Ptpstate::Run command;
};

TEST_F(Manual, TellsOfEveryCommandWithItsArgumentsAndOptions) {
   EXPECT_GT(commands().size(), 10U);
   for (CLI::App const* const each : commands()) {
      EXPECT_EQ(optionsInManual(each->get_name()), optionsOf(*each)) << each->get_name();
      EXPECT_THAT(manualText, HasSubstr("\n### " + each->get_name() + argumentsOf(*each) + "\n"));
   }
}

TEST_F(Manual, TellsOfNoCommandThatDoesNotExist) {
   std::set<std::string> names;
   for (CLI::App const* const each : commands()) {
      names.insert(each->get_name());
   }
   for (ManualBlock const& block : manualBlocks(manualText)) {
      if (block.kind == ManualBlock::heading && block.level == 3) {
         EXPECT_EQ(names.count(block.text.substr(0, block.text.find(' '))), 1U) << block.text;
      }
   }
}

TEST_F(Manual, HelpOfEveryCommandShowsAnExample) {
   for (CLI::App const* const each : commands()) {
      Outcome const help = run({each->get_name(), "--help"});
      EXPECT_EQ(help.status, 0);
      std::size_t const example = help.out.find("\nExample:\n  ptpstate ");
      ASSERT_NE(example, std::string::npos) << help.out;
      EXPECT_THAT(help.out.substr(example), HasSubstr("\n  ptpstate " + each->get_name()));
      EXPECT_THAT(help.out, HasSubstr("\n  --help "));
      std::istringstream lines(help.out);
      for (std::string line; std::getline(lines, line);) {
         EXPECT_TRUE(line.size() < 80 || line.starts_with("  ")) << line;  // but for examples
      }
   }
}

TEST_F(Manual, HelpListsCommandsAndExitStatuses) {
   Outcome const help = run({"--help"});
   EXPECT_EQ(help.status, 0);
   for (CLI::App const* const each : commands()) {
      EXPECT_THAT(help.out, HasSubstr("\n  " + each->get_name()));
   }
   EXPECT_THAT(help.out, HasSubstr("\nExit status:\n  0  "));
   EXPECT_EQ(help.out.find('`'), std::string::npos);
}

TEST_F(Manual, TheManPageIsCurrent) {
   EXPECT_EQ(run({"manual"}).out, readFile(PTPLIB_SOURCE_DIR "/docs/ptpstate.1"))
         << "./dev docs writes it anew";
}

TEST(ManualBlocks, AreWhatThePageHas) {
   std::vector<ManualBlock> const blocks = manualBlocks(
         "# Title\n\nOne\ntwo.\n\n- a\n  b\n- c\n\n```\ncode\n\n# code\n```\n| x | y |\n|---|---|\n"
         "| `--a B` | tells, of `c` |\n");
   ASSERT_EQ(blocks.size(), 6U);
   EXPECT_EQ(blocks[0].level, 1);
   EXPECT_EQ(blocks[0].text, "Title");
   EXPECT_EQ(blocks[1].text, "One two.");
   EXPECT_EQ(blocks[2].text, "a b");
   EXPECT_EQ(blocks[3].text, "c");
   EXPECT_EQ(blocks[4].text, "code\n\n# code\n");
   EXPECT_THAT(blocks[5].rows,
               ElementsAre(std::pair<std::string, std::string>("`--a B`", "tells, of `c`")));
}

}  // namespace
}  // namespace Ptpstate

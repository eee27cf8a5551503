// The output of `--help` is complete: every command has a description, options and examples.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class Help : public testing::Test {
protected:
   Help() { addCommands(program.command(), command); }
   std::vector<Command> commands() {
      std::vector<Command> shown = program.command().commands();
      std::erase_if(shown, [](Command const& each) { return !each.isShown(); });
      return shown;
   }

   Tools::Program program{"ptpstate", "Under test."};
   Ptpstate::Run command;
};

TEST_F(Help, EveryCommandAndOptionIsDescribed) {
   EXPECT_GT(commands().size(), 10U);
   for (Command const& each : commands()) {
      EXPECT_FALSE(each.description().empty()) << each.name();
      for (Option const& option : each.options()) {
         EXPECT_TRUE(option.isArgument() || !option.description().empty())
               << each.name() << ' ' << option.name();
      }
   }
}

TEST_F(Help, OfACommandHasUsageOptionsAndExamples) {
   for (Command const& each : commands()) {
      Outcome const help = run({each.name(), "--help"});
      EXPECT_EQ(help.status, 0);
      EXPECT_THAT(help.out, StartsWith("Usage: ptpstate " + each.name() + " [OPTION...]"));
      std::size_t const examples = help.out.find("\nExamples:\n  $ ptpstate ");
      ASSERT_NE(examples, std::string::npos) << help.out;
      EXPECT_THAT(help.out.substr(examples), HasSubstr("\n  $ ptpstate " + each.name()));
      EXPECT_THAT(help.out, HasSubstr("\nOptions:\n"));
      EXPECT_THAT(help.out, HasSubstr("\n  --help "));
      std::istringstream lines(help.out.substr(0, examples));
      for (std::string line; std::getline(lines, line);) {
         EXPECT_LT(line.size(), 80U) << line;
      }
   }
}

TEST_F(Help, ShowsTheArgumentsOfACommand) {
   EXPECT_THAT(run({"watch", "--help"}).out,
               StartsWith("Usage: ptpstate watch [OPTION...] [PATH...]\n"));
   EXPECT_THAT(run({"set", "--help"}).out,
               StartsWith("Usage: ptpstate set [OPTION...] PATH [VALUE...]\n"));
   EXPECT_THAT(run({"diff", "--help"}).out,
               StartsWith("Usage: ptpstate diff [OPTION...] FILE [FILE]\n"));
   EXPECT_THAT(run({"record", "--help"}).out,
               StartsWith("Usage: ptpstate record [OPTION...] FILE [ROOT...]\n"));
   EXPECT_THAT(run({"watch", "--help"}).out,
               HasSubstr("\n  --for SECONDS         End after this time\n"));
}

TEST_F(Help, ListsCommandsAndExitStatuses) {
   Outcome const help = run({"--help"});
   EXPECT_EQ(help.status, 0);
   for (Command const& each : commands()) {
      EXPECT_THAT(help.out, HasSubstr("\n  " + each.name()));
   }
   EXPECT_THAT(help.out,
               HasSubstr("\n  del       Removes a child with all below it, an element, or "
                         "the front of a\n            queue\n"));
   EXPECT_THAT(help.out, HasSubstr("\nExit status:\n  0  "));
   EXPECT_EQ(help.out.find("complete "), std::string::npos) << "that is for the shell";
}

}  // namespace
}  // namespace Ptpstate

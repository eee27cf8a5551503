// The output of `--help` is complete: every command has a description, options and examples.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <sstream>

#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class Help : public testing::Test {
protected:
   Help() { addCommands(app, command); }
   std::vector<CLI::App*> commands() {
      return app.get_subcommands([](CLI::App* each) { return !each->get_group().empty(); });
   }

   CLI::App app;
   Ptpstate::Run command;
};

TEST_F(Help, EveryCommandAndOptionIsDescribed) {
   EXPECT_GT(commands().size(), 10U);
   for (CLI::App const* const each : commands()) {
      EXPECT_FALSE(each->get_description().empty()) << each->get_name();
      for (CLI::Option const* const option : each->get_options()) {
         EXPECT_TRUE(option->get_positional() || !option->get_description().empty())
               << each->get_name() << ' ' << option->get_name();
      }
   }
}

TEST_F(Help, OfACommandHasUsageOptionsAndExamples) {
   for (CLI::App const* const each : commands()) {
      Outcome const help = run({each->get_name(), "--help"});
      EXPECT_EQ(help.status, 0);
      EXPECT_THAT(help.out, StartsWith("Usage: ptpstate " + each->get_name() + " [OPTION...]"));
      std::size_t const examples = help.out.find("\nExamples:\n  $ ptpstate ");
      ASSERT_NE(examples, std::string::npos) << help.out;
      EXPECT_THAT(help.out.substr(examples), HasSubstr("\n  $ ptpstate " + each->get_name()));
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
               StartsWith("Usage: ptpstate watch [OPTION...] [PATH]\n"));
   EXPECT_THAT(run({"set", "--help"}).out,
               StartsWith("Usage: ptpstate set [OPTION...] PATH VALUE\n"));
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
   for (CLI::App const* const each : commands()) {
      EXPECT_THAT(help.out, HasSubstr("\n  " + each->get_name()));
   }
   EXPECT_THAT(help.out,
               HasSubstr("\n  del       Removes a child with all below it, an element, or "
                         "the front of a\n            queue\n"));
   EXPECT_THAT(help.out, HasSubstr("\nExit status:\n  0  "));
   EXPECT_EQ(help.out.find("complete "), std::string::npos) << "that is for the shell";
}

}  // namespace
}  // namespace Ptpstate

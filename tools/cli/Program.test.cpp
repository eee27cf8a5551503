#include "tools/cli/Program.h"

#include <gtest/gtest.h>

namespace Tools {
namespace {

using Words = std::vector<std::string>;

/// A program with a command of each shape of option.
class ProgramTest : public testing::Test {
protected:
   ProgramTest() {
      program.command().requireCommand();
      program.command().footerIs("Exit status:\n  0  done");
      Command const get = program.command().command("get", "Prints a value. It waits for it.");
      get.option("path", path).placeholder("PATH").required();
      get.option("--root", roots, "A root; repeatable").placeholder("NAME");
      get.option("-I", included, "A folder").placeholder("DIR").separatedBy(',');
      get.option("--count", count, "How many").placeholder("N").range(U64{1}, U64{9});
      get.option("--size", size, "How long").placeholder("BYTES").bytes();
      get.flag("--json", json, "Print JSON");
      get.onChosen([this] { ++chosen; });
      program.command().command("complete").option("words", words);
   }
   /// The message of the error that the words lead to.
   std::string refused(Words const& arguments) {
      try {
         program.parse(arguments);
      } catch (UsageError const& error) {
         return error.what();
      }
      return "accepted";
   }

   std::string path;
   Words roots, included, words;
   U64 count = 0;
   U64 size = 0;
   bool json = false;
   int chosen = 0;
   Program program{"tool", "Does what is asked."};
};

TEST_F(ProgramTest, StoresTheValuesAndCallsTheChosenCommand) {
   program.parse({"get", "--root", "a", "--root", "b", "-I", "x,y", "there", "--count", "9",
                  "--size", "2k", "--json"});
   EXPECT_EQ(path, "there") << "an option takes one value each time";
   EXPECT_EQ(roots, (Words{"a", "b"}));
   EXPECT_EQ(included, (Words{"x", "y"}));
   EXPECT_EQ(count, 9u);
   EXPECT_EQ(size, 2048u);
   EXPECT_TRUE(json);
   EXPECT_EQ(chosen, 1);
   EXPECT_EQ(program.chosen(), "tool get");
}

TEST_F(ProgramTest, TakesTheOptionsOfACommandBeforeItToo) {
   program.parse({"--count", "3", "--json", "--size=1k", "get", "there", "--root", "a"});
   EXPECT_EQ(program.chosen(), "tool get");
   EXPECT_EQ(path, "there");
   EXPECT_EQ(count, 3u);
   EXPECT_EQ(size, 1024u);
   EXPECT_TRUE(json);
   EXPECT_EQ(roots, Words{"a"});
   program.parse({"--root", "get", "get", "x"});
   EXPECT_EQ(roots, Words{"get"}) << "the value of an option is not the command";
   EXPECT_EQ(path, "x");
}

TEST_F(ProgramTest, SaysWhatIsWrongAndCallsNothing) {
   EXPECT_EQ(refused({"get"}), "path is required");
   EXPECT_EQ(program.chosen(), "tool get");
   EXPECT_EQ(refused({"get", "x", "--count", "10"}), "--count: Value 10 not in range 1 to 9");
   EXPECT_EQ(refused({"get", "x", "--bogus"}), "The following argument was not expected: --bogus");
   EXPECT_EQ(refused({"--count", "10", "get", "x"}), "--count: Value 10 not in range 1 to 9");
   EXPECT_EQ(refused({"help", "bogus"}), "there is no command 'bogus'");
   EXPECT_EQ(refused({"gte"}), "there is no command 'gte'");
   EXPECT_EQ(refused({}), "missing command");
   EXPECT_EQ(refused({"--bogus"}), "A subcommand is required");
   EXPECT_EQ(program.chosen(), "tool");
   EXPECT_EQ(chosen, 0);
}

TEST_F(ProgramTest, ShowsHelpOfTheProgramAndOfACommand) {
   auto const help = [this](Words const& arguments) -> std::string {
      try {
         program.parse(arguments);
      } catch (HelpAsked const& text) {
         return text.what();
      }
      return "none";
   };
   EXPECT_EQ(help({"--help"}),
             "Usage: tool COMMAND [OPTION...] [ARGUMENT...]\n"
             "\n"
             "Does what is asked.\n"
             "\n"
             "Commands:\n"
             "  get       Prints a value\n"
             "\n"
             "Options:\n"
             "  --help                Print this help\n"
             "  --version             Print the version\n"
             "\n"
             "Exit status:\n"
             "  0  done\n");
   EXPECT_EQ(help({"get", "--help"}),
             "Usage: tool get [OPTION...] PATH\n"
             "\n"
             "Prints a value. It waits for it.\n"
             "\n"
             "Options:\n"
             "  --help                Print this help\n"
             "  --root NAME           A root; repeatable\n"
             "  -I DIR                A folder\n"
             "  --count N             How many\n"
             "  --size BYTES          How long\n"
             "  --json                Print JSON\n"
             "\n"
             "Exit status:\n"
             "  0  done\n")
         << "the footer of the program, since the command has none";
   EXPECT_EQ(help({"help"}), help({"--help"}));
   EXPECT_EQ(help({"help", "get"}), help({"get", "--help"}));
   EXPECT_EQ(help({"--version"}), "tool " PTPLIB_VERSION "\n");
}

TEST_F(ProgramTest, DescribesItsCommandsAndOptions) {
   std::vector<Command> const commands = program.command().commands();
   ASSERT_EQ(commands.size(), 2u);
   EXPECT_EQ(commands[0].name(), "get");
   EXPECT_TRUE(commands[0].isShown());
   EXPECT_FALSE(commands[1].isShown()) << "it has no description";
   std::string all;
   for (Option const& option : commands[0].options()) {
      all += option.name() + "=" + (option.takesValue() ? option.placeholder() : "") +
             (option.isArgument() ? " argument" : "") + (option.isRequired() ? " required" : "") +
             (option.repeats() ? " repeats" : "") + "\n";
   }
   EXPECT_EQ(all,
             "--help=\n"
             "path=PATH argument required\n"
             "--root=NAME repeats\n"
             "-I=DIR repeats\n"
             "--count=N\n"
             "--size=BYTES\n"
             "--json=\n");
   EXPECT_TRUE(commands[0].options()[2].isNamed("--root"));
   EXPECT_FALSE(commands[0].options()[1].isNamed("path")) << "that is a value";
}

}  // namespace
}  // namespace Tools

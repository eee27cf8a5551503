// The command line of a program as a whole.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/cli/Command.h"

namespace Tools {

/// A command line that asks for help or for the version: the text is the answer.
class HelpAsked : public std::runtime_error {
public:
   using std::runtime_error::runtime_error;
};

/// A command line that is wrong. The message may contain what the user typed, as it is.
class UsageError : public std::runtime_error {
public:
   using std::runtime_error::runtime_error;
};

/// Owns all that is declared of a command line, with an option `--help` for each command and
/// `--version` for the program.
///
/// Options of a command may also come before it: "tool --socket S get PATH". "tool help get" is
/// "tool get --help".
class Program {
public:
   Program(std::string const& name, std::string const& description);
   Program(Program const&) = delete;
   Program& operator=(Program const&) = delete;
   ~Program();

   Command const& command() const noexcept { return command_; }

   /// Stores the values, then calls what `onChosen` was given. Throws `HelpAsked` or `UsageError`,
   /// and passes on what is thrown by a function that it calls.
   void parse(std::vector<std::string> const& arguments);
   void parse(int argc, char const* const* argv);

   /// The program's name and that of the command that was parsed, if one was: "ptpstate get".
   std::string chosen() const;

private:
   std::vector<std::string> commandFirst(std::vector<std::string> const& arguments) const;
   bool takesValue(std::string const& option) const;
   bool isCommand(std::string const& word) const;

   std::unique_ptr<CLI::App> app_;
   Command command_;
};

}  // namespace Tools

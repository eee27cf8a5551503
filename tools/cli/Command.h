// A command line: a program's own, or that of one of its commands.
//
// It stands on CLI11. That is all templates and inline functions: a source that includes it takes
// ten seconds to compile. So only this folder does.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/cli/Option.h"

namespace CLI {
class App;
}

namespace Tools {

/// A handle, valid as long as the program's command line.
class Command {
public:
   explicit Command(CLI::App& app) : app_(&app) {}

   /// Adds a command: the word that follows the program's name. One without a description is not
   /// shown in the help.
   Command command(std::string const& name, std::string const& description = {}) const;
   /// One of the commands must be given.
   void requireCommand() const;
   /// What `--help` ends with, also that of commands without a footer of their own.
   void footerIs(std::string const& text) const;
   /// Is called once the command line is known to be right, if it contains this command.
   void onChosen(std::function<void()> act) const;

   /// Adds an option "--name" or "-N", or an argument "name" in the order of these calls. Its value
   /// is stored in `value` when the command line is parsed. An option with a vector takes one value
   /// each time that it is given, an argument all that follow.
   /// `Value`: std::string, std::vector<std::string>, double, U32, U64.
   template <class Value>
   Option option(std::string const& name, Value& value, std::string const& description = {}) const;
   /// Adds an option without a value.
   Option flag(std::string const& name, bool& value, std::string const& description) const;

   std::string name() const;
   std::string description() const;
   bool isShown() const;
   /// All commands of this one, in the order in which they were added.
   std::vector<Command> commands() const;
   /// All options and arguments, in the order in which they were added.
   std::vector<Option> options() const;

private:
   CLI::App* app_;
};

}  // namespace Tools

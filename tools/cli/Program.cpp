#include "tools/cli/Program.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "tools/cli/Layout.h"

namespace Tools {

Program::Program(std::string const& name, std::string const& description)
      : app_(std::make_unique<CLI::App>(description, name)), command_(*app_) {
   helpLayoutIs(*app_);
   app_->set_version_flag("--version", name + " " PTPLIB_VERSION "\n", "Print the version");
}

Program::~Program() = default;

void Program::parse(std::vector<std::string> const& arguments) {
   try {
      std::vector<std::string> reversed = commandFirst(arguments);
      std::reverse(reversed.begin(), reversed.end());
      app_->parse(std::move(reversed));
   } catch (CLI::CallForHelp const&) {
      throw HelpAsked(app_->help());
   } catch (CLI::CallForVersion const& version) {
      throw HelpAsked(version.what());
   } catch (CLI::ParseError const& error) {
      throw UsageError(error.what());
   }
}

void Program::parse(int argc, char const* const* argv) {
   parse(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}

bool Program::isCommand(std::string const& word) const {
   std::vector<Command> const all = command_.commands();
   return std::any_of(all.begin(), all.end(),
                      [&word](Command const& each) { return each.name() == word; });
}

/// Whether a value follows the option, in any command that has it.
bool Program::takesValue(std::string const& option) const {
   for (Command const& each : command_.commands()) {
      for (Option const& declared : each.options()) {
         if (declared.isNamed(option)) {
            return declared.takesValue();
         }
      }
   }
   return false;
}

/// CLI11 reads what precedes a command as options of the program itself, which has none. Throws
/// `UsageError` if a command is missing or unknown.
std::vector<std::string> Program::commandFirst(std::vector<std::string> const& arguments) const {
   if (command_.commands().empty()) {
      return arguments;
   }
   if (arguments.empty()) {
      throw UsageError("missing command");
   }
   auto const noCommand = [](std::string const& word) {
      return UsageError("there is no command '" + word + "'");
   };
   if (arguments[0] == "help" && !isCommand("help")) {
      if (arguments.size() > 1 && !isCommand(arguments[1])) {
         throw noCommand(arguments[1]);
      }
      return arguments.size() == 1 ? std::vector<std::string>{"--help"}
                                   : std::vector<std::string>{arguments[1], "--help"};
   }
   std::size_t at = 0;
   while (at < arguments.size() && arguments[at].starts_with("-")) {
      bool const joined = arguments[at].find('=') != std::string::npos;
      at += !joined && takesValue(arguments[at]) ? 2 : 1;
   }
   std::vector<std::string> ordered = arguments;
   if (at < ordered.size()) {
      if (!isCommand(ordered[at])) {
         throw noCommand(ordered[at]);
      }
      auto const command = ordered.begin() + static_cast<std::ptrdiff_t>(at);
      std::rotate(ordered.begin(), command, command + 1);
   }
   return ordered;
}

std::string Program::chosen() const {
   std::string text = app_->get_name();
   for (CLI::App const* const each : app_->get_subcommands()) {
      text += " " + each->get_name();
   }
   return text;
}

}  // namespace Tools

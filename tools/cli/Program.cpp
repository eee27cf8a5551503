#include "tools/cli/Program.h"

#include <CLI/CLI.hpp>

#include "tools/cli/Layout.h"

namespace Tools {

Program::Program(std::string const& name, std::string const& description)
      : app_(std::make_unique<CLI::App>(description, name)), command_(*app_) {
   helpLayoutIs(*app_);
}

Program::~Program() = default;

void Program::parse(std::vector<std::string> const& arguments) {
   try {
      app_->parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
   } catch (CLI::CallForHelp const&) {
      throw HelpAsked(app_->help());
   } catch (CLI::ParseError const& error) {
      throw UsageError(error.what());
   }
}

void Program::parse(int argc, char const* const* argv) {
   parse(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}

std::string Program::chosen() const {
   std::string text = app_->get_name();
   for (CLI::App const* const each : app_->get_subcommands()) {
      text += " " + each->get_name();
   }
   return text;
}

bool Program::hasChosen() const {
   return !app_->get_subcommands().empty();
}

}  // namespace Tools

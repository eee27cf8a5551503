#include "tools/cli/Command.h"

#include <CLI/CLI.hpp>
#include <type_traits>

namespace Tools {

Command Command::command(std::string const& name, std::string const& description) const {
   CLI::App& added = *app_->add_subcommand(name, description);
   if (description.empty()) {
      added.group("");
   }
   return Command(added);
}

void Command::requireCommand() const {
   app_->require_subcommand(1);
}

void Command::footerIs(std::string const& text) const {
   app_->footer(text);
}

void Command::onChosen(std::function<void()> act) const {
   app_->callback(std::move(act));
}

template <class Value>
Option Command::option(std::string const& name, Value& value,
                       std::string const& description) const {
   CLI::Option& added = *app_->add_option(name, value, description);
   if (std::is_same_v<Value, std::vector<std::string>> && !added.get_positional()) {
      added.allow_extra_args(false);
   }
   return Option(added);
}

template Option Command::option(std::string const&, std::string&, std::string const&) const;
template Option Command::option(std::string const&, std::vector<std::string>&,
                                std::string const&) const;
template Option Command::option(std::string const&, double&, std::string const&) const;
template Option Command::option(std::string const&, U32&, std::string const&) const;
template Option Command::option(std::string const&, U64&, std::string const&) const;

Option Command::flag(std::string const& name, bool& value, std::string const& description) const {
   return Option(*app_->add_flag(name, value, description));
}

std::string Command::name() const {
   return app_->get_name();
}

std::string Command::description() const {
   return app_->get_description();
}

bool Command::isShown() const {
   return !app_->get_group().empty();
}

std::vector<Command> Command::commands() const {
   std::vector<Command> all;
   for (CLI::App* const each : app_->get_subcommands({})) {
      all.emplace_back(*each);
   }
   return all;
}

std::vector<Option> Command::options() const {
   std::vector<Option> all;
   for (CLI::Option* const each : app_->get_options()) {
      all.emplace_back(*each);
   }
   return all;
}

}  // namespace Tools

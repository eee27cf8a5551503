#include "tools/cli/Layout.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <sstream>

namespace Tools {

namespace {

/// The width of a terminal, less one.
constexpr std::size_t helpWidth = 79;
/// Where descriptions of options begin.
constexpr std::size_t helpColumn = 24;

/// Wraps words into lines, each indented by `indent` blanks.
std::string wrapped(std::string const& text, std::size_t indent) {
   std::string result;
   std::string line;
   std::istringstream words(text);
   for (std::string word; words >> word;) {
      if (!line.empty() && indent + line.size() + 1 + word.size() > helpWidth) {
         result += std::string(indent, ' ') + line + "\n";
         line.clear();
      }
      line += (line.empty() ? "" : " ") + word;
   }
   return result + std::string(indent, ' ') + line + "\n";
}

/// "NAME", indented, with its description beside or below it.
std::string row(std::string const& name, std::string const& description, std::size_t column) {
   std::string const left = "  " + name;
   std::string const text = wrapped(description, column);
   return left.size() + 2 > column ? left + "\n" + text
                                   : left + std::string(column - left.size(), ' ') +
                                           text.substr(std::min(column, text.size()));
}

std::string paragraphs(std::string const& text) {
   std::string result;
   std::string words;
   std::istringstream lines(text + "\n\n");
   for (std::string line; std::getline(lines, line);) {
      if (!line.empty() && line[0] != ' ') {
         words += line + " ";
         continue;
      }
      result += words.empty() ? "" : wrapped(words, 0);
      words.clear();
      if (!line.empty() || !result.ends_with("\n\n")) {
         result += line + "\n";
      }
   }
   return result;
}

std::string firstSentence(std::string const& text) {
   return text.substr(0, std::min({text.find(". "), text.find(".\n"), text.find(": "),
                                   text.size() - (text.ends_with('.') ? 1 : 0)}));
}

bool isShown(CLI::App const* command) {
   return !command->get_group().empty();
}

/// The placeholder of the value, without the bounds that CLI11 appends after a colon.
std::string valueName(CLI::Option const& option) {
   std::string const name = option.get_type_name();
   return name.substr(0, name.find(':'));
}

std::string optionName(CLI::Option const& option) {
   std::string const name = option.get_lnames().empty() ? "-" + option.get_snames().at(0)
                                                        : "--" + option.get_lnames().at(0);
   return option.get_expected_max() == 0 ? name : name + " " + valueName(option);
}

class Layout final : public CLI::Formatter {
public:
   std::string make_help(CLI::App const* app, std::string, CLI::AppFormatMode) const override {
      std::string help = "Usage: " + usage(*app) + "\n\n" + paragraphs(app->get_description());
      auto const commands = app->get_subcommands(isShown);
      if (!commands.empty()) {
         help += "Commands:\n";
         for (CLI::App const* const command : commands) {
            help += row(command->get_name(), firstSentence(command->get_description()), 12);
         }
         help += "\n";
      }
      help += "Options:\n";
      for (CLI::Option const* const option : app->get_options()) {
         if (option->nonpositional()) {
            help += row(optionName(*option), option->get_description(), helpColumn);
         }
      }
      return help + (app->get_footer().empty() ? "" : "\n" + app->get_footer() + "\n");
   }

private:
   static std::string usage(CLI::App const& app) {
      if (!app.get_subcommands(isShown).empty()) {
         return app.get_name() + " COMMAND [OPTION...] [ARGUMENT...]";
      }
      std::string text = (app.get_parent() != nullptr ? app.get_parent()->get_name() + " " : "") +
                         app.get_name() + " [OPTION...]";
      for (CLI::Option const* const option : app.get_options()) {
         if (option->get_positional()) {
            std::string const name =
                  valueName(*option) + (option->get_expected_max() > 1 ? "..." : "");
            text += " " + (option->get_required() ? name : "[" + name + "]");
         }
      }
      return text;
   }
};

}  // namespace

void helpLayoutIs(CLI::App& app) {
   app.formatter(std::make_shared<Layout>());
   app.set_help_flag("-h,--help", "Print this help");
}

}  // namespace Tools

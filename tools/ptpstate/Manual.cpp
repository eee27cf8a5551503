#include "tools/ptpstate/Manual.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <set>
#include <sstream>

namespace Ptpstate {
namespace {

/// The width of a terminal, less one.
constexpr std::size_t width = 79;
/// Where the second column of a table begins.
constexpr std::size_t secondColumn = 24;

/// Without backquotes, and of links their text.
std::string plain(std::string const& text) {
   std::string result;
   for (std::size_t i = 0; i != text.size(); ++i) {
      std::size_t const close = text[i] == '[' ? text.find("](", i) : std::string::npos;
      std::size_t const end =
            close != std::string::npos ? text.find(')', close) : std::string::npos;
      if (end != std::string::npos && text.find(']', i) == close) {
         result += plain(text.substr(i + 1, close - i - 1));
         i = end;
      } else if (text[i] != '`') {
         result += text[i];
      }
   }
   return result;
}

/// `first`, then the words, in lines that begin with `indent` blanks.
std::string wrapped(std::string first, std::string const& text, std::size_t indent) {
   std::string result;
   std::string line = std::move(first);
   line.resize(std::max(line.size(), indent), ' ');
   bool fresh = true;
   std::istringstream words(text);
   for (std::string word; words >> word; fresh = false) {
      if (!fresh && line.size() + 1 + word.size() > width) {
         result += line + "\n";
         line.assign(indent, ' ');
         fresh = true;
      }
      line += (fresh ? "" : " ") + word;
   }
   return result + line + "\n";
}

std::string tableText(std::vector<std::pair<std::string, std::string>> const& rows) {
   std::string result;
   for (auto const& [left, right] : rows) {
      std::string first = "  " + plain(left);
      if (first.size() + 2 > secondColumn) {
         result += first + "\n";
         first.clear();
      }
      result += wrapped(first, plain(right), secondColumn);
   }
   return result;
}

std::string blockText(ManualBlock const& block) {
   switch (block.kind) {
      case ManualBlock::heading:
      case ManualBlock::paragraph:
         return wrapped("", plain(block.text), 0);
      case ManualBlock::bullet:
         return wrapped("- ", plain(block.text), 2);
      case ManualBlock::table:
         return tableText(block.rows);
      case ManualBlock::code:
         break;
   }
   std::string result;
   std::istringstream lines(block.text);
   for (std::string line; std::getline(lines, line);) {
      result += line.empty() ? "\n" : "  " + line + "\n";
   }
   return result;
}

/// Blocks with an empty line between them, but for bullets, and for code behind what names it.
std::string blocksText(std::vector<ManualBlock> const& blocks) {
   std::string result;
   ManualBlock const* before = nullptr;
   for (ManualBlock const& block : blocks) {
      bool const together =
            before != nullptr &&
            ((before->kind == ManualBlock::bullet && block.kind == ManualBlock::bullet) ||
             before->text.ends_with("Example:"));
      result += before == nullptr || together ? "" : "\n";
      result += blockText(block);
      before = &block;
   }
   return result;
}

/// What stands below a heading, up to the next one of its level.
std::vector<ManualBlock> below(int level, std::string const& title, bool wholeTitle) {
   std::vector<ManualBlock> found;
   bool inside = false;
   for (ManualBlock& block : manualBlocks(manualText)) {
      if (block.kind == ManualBlock::heading && block.level <= level) {
         std::string const text =
               wholeTitle ? block.text : block.text.substr(0, block.text.find(' '));
         inside = block.level == level && text == title;
      } else if (inside) {
         found.push_back(std::move(block));
      }
   }
   return found;
}

std::string firstSentence(std::vector<ManualBlock> const& section) {
   std::string const text = section.empty() ? "" : plain(section[0].text);
   return text.substr(0, std::min({text.find(". "), text.find(", until"), text.find("; "),
                                   text.find(": "), text.size() - (text.ends_with('.') ? 1 : 0)}));
}

/// "--socket" of the row "`--socket PATH`".
std::string optionName(std::string const& cell) {
   std::string const text = plain(cell);
   return text.substr(0, text.find(' '));
}

/// The options that several commands have, as far as this one has them and tells nothing else of
/// them.
std::vector<std::pair<std::string, std::string>> commonOptions(CLI::App const& command) {
   std::set<std::string> own;
   for (ManualBlock const& block : commandSection(command.get_name())) {
      for (auto const& row : block.rows) {
         own.insert(optionName(row.first));
      }
   }
   std::vector<std::pair<std::string, std::string>> rows;
   for (ManualBlock const& block : below(2, "Commands", true)) {
      if (block.kind == ManualBlock::heading) {
         break;
      }
      for (auto const& row : block.rows) {
         std::string const name = optionName(row.first);
         auto const options = command.get_options(
               [&name](CLI::Option const* option) { return option->check_name(name); });
         if (!options.empty() && !own.contains(name)) {
            rows.push_back(row);
         }
      }
   }
   return rows;
}

/// The command's name and arguments, from the heading of its section.
std::string synopsis(std::string const& command) {
   for (ManualBlock const& block : manualBlocks(manualText)) {
      if (block.kind == ManualBlock::heading && block.level == 3 &&
          block.text.substr(0, block.text.find(' ')) == command) {
         return command + " [OPTION...]" + block.text.substr(command.size());
      }
   }
   return command;
}

class ManualFormatter final : public CLI::Formatter {
public:
   std::string make_help(CLI::App const* app, std::string, CLI::AppFormatMode) const override {
      return app->get_parent() == nullptr ? overviewText(*app) : helpText(*app);
   }
};

}  // namespace

std::vector<ManualBlock> manualBlocks(std::string const& markdown) {
   std::vector<ManualBlock> blocks;
   std::istringstream lines(markdown);
   bool open = false;  // the last block goes on with the next line
   for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("```")) {
         blocks.push_back({ManualBlock::code, 0, "", {}});
         while (std::getline(lines, line) && line != "```") {
            blocks.back().text += line + "\n";
         }
         open = false;
      } else if (line.empty()) {
         open = false;
      } else if (line.starts_with("#")) {
         std::size_t const level = line.find(' ');
         blocks.push_back(
               {ManualBlock::heading, static_cast<int>(level), line.substr(level + 1), {}});
         open = false;
      } else if (line.starts_with("|")) {
         bool const head = !open || blocks.back().kind != ManualBlock::table;
         if (head) {
            blocks.push_back({ManualBlock::table, 0, "", {}});
            open = true;
         } else if (!line.starts_with("|---")) {
            std::size_t const middle = line.find(" | ");
            blocks.back().rows.emplace_back(line.substr(2, middle - 2),
                                            line.substr(middle + 3, line.size() - middle - 5));
         }
      } else if (line.starts_with("- ")) {
         blocks.push_back({ManualBlock::bullet, 0, line.substr(2), {}});
         open = true;
      } else if (open) {
         blocks.back().text += " " + line.substr(line.find_first_not_of(' '));
      } else {
         blocks.push_back({ManualBlock::paragraph, 0, line, {}});
         open = true;
      }
   }
   return blocks;
}

std::vector<ManualBlock> commandSection(std::string const& command) {
   return below(3, command, false);
}

std::string helpText(CLI::App const& command) {
   std::string const common = tableText(commonOptions(command));
   return "Usage: ptpstate " + synopsis(command.get_name()) + "\n\n" +
          blocksText(commandSection(command.get_name())) +
          (common.empty() ? "" : "\nAs with other commands:\n" + common);
}

std::string overviewText(CLI::App const& app) {
   std::string text = "Usage: ptpstate COMMAND [OPTION...] [ARGUMENT...]\n\n";
   for (ManualBlock const& block : below(1, "ptpstate", true)) {
      text += blockText(block) + "\nCommands:\n";
      break;
   }
   for (CLI::App const* const command :
        app.get_subcommands([](CLI::App const* each) { return !each->get_group().empty(); })) {
      text += wrapped("  " + command->get_name(),
                      firstSentence(commandSection(command->get_name())), 12);
   }
   return text + "\nOptions of most commands:\n" + blocksText({below(2, "Commands", true)[1]}) +
          "\nExit status:\n" + blocksText(below(2, "Exit status", true)) +
          "\n'ptpstate COMMAND --help' has an example of each; ptpstate(1) tells of paths and "
          "values.\n";
}

void manualIs(CLI::App& app) {
   app.formatter(std::make_shared<ManualFormatter>());
}

}  // namespace Ptpstate

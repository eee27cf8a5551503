#include "tools/ptpstate/top/Settings.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>

#include "Holt/Failure.h"
#include "Holt/File.h"

namespace Ptpstate {

namespace {

/// The lines of the file, as type and columns.
std::vector<std::pair<Sarn::String, Sarn::String>> linesOf(std::string const& file) {
   std::vector<std::pair<Sarn::String, Sarn::String>> lines;
   std::ifstream in(file);
   for (std::string line; std::getline(in, line);) {
      std::size_t const blank = line.find(' ');
      if (blank != std::string::npos && line[0] != '#') {
         lines.emplace_back(line.substr(0, blank), line.substr(blank + 1));
      }
   }
   return lines;
}

}  // namespace

std::string topSettingsFile() {
   char const* const configuration = std::getenv("XDG_CONFIG_HOME");
   if (configuration != nullptr && configuration[0] == '/') {
      return std::string(configuration) + "/ptpstate/top";
   }
   char const* const home = std::getenv("HOME");
   return home != nullptr && home[0] == '/' ? std::string(home) + "/.config/ptpstate/top" : "";
}

std::optional<std::vector<Sarn::String>> rememberedColumns(Sarn::String const& type) {
   for (auto const& [of, columns] : linesOf(topSettingsFile())) {
      if (of != type) {
         continue;
      }
      std::vector<Sarn::String> names;
      for (std::size_t begin = 0; begin <= columns.size();) {
         std::size_t const end = std::min(columns.find(',', begin), columns.size());
         names.push_back(columns.substr(begin, end - begin));
         begin = end + 1;
      }
      return names;
   }
   return std::nullopt;
}

bool rememberColumns(Sarn::String const& type, std::vector<Sarn::String> const& columns) {
   std::string const file = topSettingsFile();
   if (file.empty() || columns.empty()) {
      return false;
   }
   auto lines = linesOf(file);
   std::erase_if(lines, [&type](auto const& line) { return line.first == type; });
   Sarn::String all;
   for (Sarn::String const& column : columns) {
      all += (all.empty() ? "" : ",") + column;
   }
   lines.emplace_back(type, all);
   try {
      std::error_code ignored;
      std::filesystem::create_directories(std::filesystem::path(file).parent_path(), ignored);
      Holt::writeWholeFile(file, [&lines](std::ostream& out) {
         out << "# The columns of 'ptpstate top', which its key c chooses.\n";
         for (auto const& [of, names] : lines) {
            out << of << ' ' << names << '\n';
         }
      });
   } catch (Holt::Failure const&) {
      return false;
   }
   return true;
}

}  // namespace Ptpstate

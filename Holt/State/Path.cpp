#include "Holt/State/Path.h"

#include <algorithm>

#include "Holt/Failure.h"
#include "Kiv/Printable.h"

namespace Holt {
namespace {

[[noreturn]] void fail(std::string_view text, std::size_t at, std::string_view what) {
   throw Failure("invalid path '" + Sarn::String(text) + "': " + Sarn::String(what) +
                 " at character " + std::to_string(at + 1));
}

bool isNameCharacter(char c) {
   return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

/// The end of the string in double quotes that begins at `at`.
std::size_t endOfQuotes(std::string_view text, std::size_t at) {
   std::size_t const begin = at++;
   for (; at < text.size(); ++at) {
      if (text[at] == '\\') {
         ++at;
      } else if (text[at] == '"') {
         return at + 1;
      }
   }
   fail(text, begin, "unterminated string");
}

std::vector<PathStep> parseStepsAt(std::string_view text, std::size_t at) {
   std::vector<PathStep> steps;
   while (at < text.size()) {
      if (text[at] != '.') {
         fail(text, at, "expected '.'");
      }
      std::size_t const name = ++at;
      while (at < text.size() && isNameCharacter(text[at])) {
         ++at;
      }
      if (at == name) {
         fail(text, at, "expected the name of an attribute");
      }
      PathStep step{Sarn::String(text.substr(name, at - name)), std::nullopt};
      if (at < text.size() && text[at] == '[') {
         std::size_t const close = closingBracket(text, at);
         step.key = text.substr(at + 1, close - at - 1);
         at = close + 1;
      }
      steps.push_back(std::move(step));
   }
   return steps;
}

bool beginsWith(std::string_view text, std::string_view root) {
   return text.starts_with(root) && (text.size() == root.size() || text[root.size()] == '.');
}

Sarn::String listOf(std::vector<OfferedRoot> const& roots) {
   Sarn::String list;
   for (OfferedRoot const& root : roots) {
      list += (list.empty() ? "" : ", ") + root.name;
   }
   return list;
}

}  // namespace

std::size_t closingBracket(std::string_view text, std::size_t begin) {
   std::size_t depth = 0;
   for (std::size_t at = begin; at < text.size();) {
      char const c = text[at];
      if (c == '"') {
         at = endOfQuotes(text, at);
         continue;
      }
      if (c == '[') {
         ++depth;
      } else if (c == ']' && --depth == 0) {
         return at;
      }
      ++at;
   }
   fail(text, begin, "unclosed bracket");
}

std::size_t findWildcard(std::string_view key, std::size_t from) {
   bool quoted = false;
   for (std::size_t at = 0; at < key.size(); ++at) {
      if (quoted && key[at] == '\\') {
         ++at;
      } else if (key[at] == '"') {
         quoted = !quoted;
      } else if (key[at] == '*' && !quoted && at >= from) {
         return at;
      }
   }
   return std::string_view::npos;
}

std::vector<PathStep> parseSteps(std::string_view text) {
   return parseStepsAt(text, 0);
}

Path parsePath(std::string_view text, std::vector<OfferedRoot> const& roots) {
   OfferedRoot const* found = nullptr;
   std::size_t length = 0;
   bool several = false;
   for (OfferedRoot const& root : roots) {
      Sarn::String const shown = Kiv::printable(root.name);  // as other commands print it
      for (Sarn::String const& name :
           {root.name, root.type + "=" + root.name, shown, root.type + "=" + shown}) {
         if (beginsWith(text, name) && name.size() >= length) {
            bool const better = found == nullptr || name.size() > length;
            several = !better && (several || found != &root);
            found = &root;
            length = name.size();
         }
      }
   }
   if (found == nullptr) {
      throw Failure("'" + Sarn::String(text) +
                    "' does not begin with the name of a root; the server has " +
                    (roots.empty() ? "none" : listOf(roots)));
   }
   if (several) {
      throw Failure("'" + Sarn::String(text) +
                    "': several roots have this name; put the type before it, such as " +
                    found->type + "=" + found->name);
   }
   return {*found, parseStepsAt(text, length)};
}

}  // namespace Holt

#include "Kivc/Template.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Kivc {

namespace {

bool isBlank(std::string_view text) {
   return text.find_first_not_of(" \t") == std::string_view::npos;
}

std::size_t leadingBlanks(std::string_view line) {
   auto const first = line.find_first_not_of(' ');
   return first == std::string_view::npos ? line.size() : first;
}

/// Calls `visit` for each line, without line ends; a last line break ends the last line.
template <typename Visit>
void forEachLine(std::string_view text, Visit visit) {
   while (!text.empty()) {
      auto const end = text.find('\n');
      visit(text.substr(0, end));
      text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
   }
}

/// The key, if the line is nothing but one hole and blanks around it.
std::string_view blockKey(std::string_view line) {
   line.remove_prefix(leadingBlanks(line));
   line = line.substr(0, line.find_last_not_of(' ') + 1);
   if (line.size() < 3 || line.front() != '@' || line.find('@', 1) != line.size() - 1) {
      return {};
   }
   return line.substr(1, line.size() - 2);
}

}  // namespace

Template& Template::set(std::string const& key, std::string value) {
   auto const [at, isNew] = entries_.try_emplace(key);
   if (!isNew && !at->second.isUsed) {
      throw TemplateError("key '" + key + "' is set again without having been used");
   }
   at->second = {std::move(value), false};
   return *this;
}

std::string const& Template::look(std::string const& key, std::string_view line) {
   for (auto* scope = this; scope != nullptr; scope = scope->outer_) {
      if (auto const at = scope->entries_.find(key); at != scope->entries_.end()) {
         at->second.isUsed = true;
         return at->second.value;
      }
   }
   throw TemplateError("unknown key '" + key +
                       "' in: " + std::string(line.substr(leadingBlanks(line))));
}

void Template::appendLine(std::string_view line) {
   if (auto const key = blockKey(line); !key.empty()) {
      std::string const indent(leadingBlanks(line), ' ');
      forEachLine(look(std::string(key), line), [&](std::string_view valueLine) {
         if (!isBlank(valueLine)) {
            result_.append(indent).append(valueLine);
         }
         result_ += '\n';
      });
      return;
   }
   for (auto rest = line; !rest.empty();) {
      auto const open = rest.find('@');
      result_.append(rest.substr(0, open));
      if (open == std::string_view::npos) {
         break;
      }
      auto const close = rest.find('@', open + 1);
      if (close == std::string_view::npos) {
         throw TemplateError("a hole is not closed in: " + std::string(line));
      }
      auto const key = rest.substr(open + 1, close - open - 1);
      result_ += key.empty() ? "@" : look(std::string(key), line);
      rest.remove_prefix(close + 1);
   }
   result_ += '\n';
}

Template& Template::append(std::string_view text) {
   if (text.starts_with('\n')) {
      text.remove_prefix(1);
   }
   // The blanks in front of the closing quotes of a raw string are no line.
   if (auto const end = text.rfind('\n');
       end != std::string_view::npos && isBlank(text.substr(end + 1))) {
      text = text.substr(0, end + 1);
   }
   auto shared = std::string_view::npos;
   forEachLine(text, [&](std::string_view line) {
      if (!isBlank(line)) {
         shared = std::min(shared, leadingBlanks(line));
      }
   });
   forEachLine(text, [&](std::string_view line) {
      appendLine(isBlank(line) ? std::string_view() : line.substr(shared));
   });
   return *this;
}

std::string Template::finish() {
   for (auto const& [key, entry] : entries_) {
      if (!entry.isUsed) {
         throw TemplateError("key '" + key + "' is set but not used");
      }
   }
   return std::exchange(result_, {});
}

}  // namespace Kivc

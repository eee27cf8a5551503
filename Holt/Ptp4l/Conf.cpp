#include "Holt/Ptp4l/Conf.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <iterator>
#include <limits>
#include <system_error>
#include <utility>

#include "Kiv/Printable.h"

namespace Holt {

namespace {

using Kind = Ptp4lSection::Kind;

constexpr std::string_view blanks = " \t\r\v\f";

std::string_view trimmed(std::string_view text) {
   auto const first = text.find_first_not_of(blanks);
   if (first == std::string_view::npos) {
      return {};
   }
   return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

char lower(char c) {
   return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool sameIgnoringCase(std::string_view a, std::string_view b) {
   return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                     [](char x, char y) { return lower(x) == lower(y); });
}

class ConfReader {
public:
   explicit ConfReader(Ptp4lConf& conf) : conf_(conf) {}

   void line(std::string_view raw) {
      ++line_;
      auto const text = trimmed(raw);
      if (text.empty() || text.front() == '#') {
         return;
      }
      if (text.front() == '[') {
         header(text);
      } else {
         setting(text);
      }
   }

private:
   void header(std::string_view text) {
      auto& section = conf_.sections.emplace_back();
      section.line = line_;
      auto const end = text.find(']');
      if (end == std::string_view::npos) {
         error({}, "the section's header has no ']'");
         return;
      }
      if (end + 1 != text.size()) {
         error({}, "text after the section's header");
         return;
      }
      auto const name = trimmed(text.substr(1, end - 1));
      if (name.empty()) {
         error({}, "the section has no name");
      } else if (name.find_first_of(blanks) != std::string_view::npos) {
         error({}, "the section's name contains a blank");
      } else if (sameIgnoringCase(name, "global")) {
         section.kind = Kind::global;
      } else if (sameIgnoringCase(name, "unicast_master_table")) {
         section.kind = Kind::unicastMasterTable;
      } else {
         section.kind = Kind::port;
         section.name = std::string(name);
      }
   }

   void setting(std::string_view text) {
      auto const keyEnd = std::min(text.find_first_of(blanks), text.size());
      std::string const key(text.substr(0, keyEnd));
      auto const value = trimmed(text.substr(keyEnd));
      if (conf_.sections.empty()) {
         error(key, "comes before the first section");
      } else if (value.empty()) {
         error(key, "has no value");
      } else {
         conf_.sections.back().settings.push_back({key, std::string(value), line_});
      }
   }

   void error(std::string key, std::string message) {
      conf_.errors.push_back({line_, std::move(key), std::move(message)});
   }

   Ptp4lConf& conf_;
   U32 line_ = 0;
};

}  // namespace

Ptp4lSetting const* Ptp4lSection::find(std::string_view key) const {
   auto const last = std::find_if(settings.rbegin(), settings.rend(),
                                  [key](Ptp4lSetting const& one) { return one.key == key; });
   return last == settings.rend() ? nullptr : &*last;
}

std::string remarkText(std::string const& file, Ptp4lRemark const& remark) {
   auto text = file + (remark.line != 0 ? ":" + std::to_string(remark.line) : "") + ": ";
   if (!remark.key.empty()) {
      text += remark.key + ": ";
   }
   return Kiv::printable(text + remark.message);
}

void addInterface(Ptp4lConf& conf, std::string const& name) {
   for (Ptp4lSection const& section : conf.sections) {
      if (section.kind == Kind::port && section.name == name) {
         return;
      }
   }
   Ptp4lSection& section = conf.sections.emplace_back();
   section.kind = Kind::port;
   section.name = name;
}

Ptp4lConf parsePtp4lConf(std::string_view text, std::string file) {
   Ptp4lConf conf;
   conf.file = std::move(file);
   ConfReader reader(conf);
   while (!text.empty()) {
      auto const end = std::min(text.find('\n'), text.size());
      reader.line(text.substr(0, end));
      text.remove_prefix(std::min(end + 1, text.size()));
   }
   return conf;
}

Ptp4lConf readPtp4lConf(std::string const& path) {
   errno = 0;
   std::ifstream in(path, std::ios::binary);
   std::string const text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
   if (!in) {
      throw std::system_error(errno != 0 ? errno : EIO, std::generic_category(), path);
   }
   return parsePtp4lConf(text, path);
}

bool parsePtp4lNumber(std::string_view text, S64& number) {
   bool const negative = !text.empty() && text.front() == '-';
   if (negative || (!text.empty() && text.front() == '+')) {
      text.remove_prefix(1);
   }
   int base = 10;
   if (text.size() > 2 && text[0] == '0' && lower(text[1]) == 'x') {
      base = 16;
      text.remove_prefix(2);
   } else if (text.size() > 1 && text[0] == '0') {
      base = 8;
   }
   U64 magnitude = 0;
   auto const [end, status] =
         std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
   if (text.empty() || status != std::errc() || end != text.data() + text.size()) {
      return false;
   }
   constexpr U64 limit = static_cast<U64>(std::numeric_limits<S64>::max());
   if (magnitude > limit + (negative ? 1 : 0)) {
      return false;
   }
   number = static_cast<S64>(negative ? 0 - magnitude : magnitude);
   return true;
}

}  // namespace Holt

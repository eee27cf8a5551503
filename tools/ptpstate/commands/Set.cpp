// set
#include <iostream>
#include <list>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "Holt/State/Load.h"
#include "Holt/State/Match.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

struct SetOptions : ClientOptions {
   std::string path;
   /// Its value, then further paths, each with its value.
   std::vector<std::string> rest;
   bool json = false;
};

struct Setting {
   std::string path;
   std::string value;
   /// Precedes messages about it: "line 3: ".
   std::string where;
};

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
   std::size_t const begin = text.find_first_not_of(blanks);
   return begin == std::string_view::npos
                ? std::string_view()
                : text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

/// The end of the path that begins a line: a blank outside brackets.
std::size_t endOfPath(std::string_view line) {
   for (std::size_t at = 0; at < line.size(); ++at) {
      if (line[at] == '[') {
         try {
            at = closingBracket(line, at);
         } catch (Failure const&) {
            continue;  // whoever reads the path says what is wrong with it
         }
      } else if (blanks.find(line[at]) != std::string_view::npos) {
         return at;
      }
   }
   return line.size();
}

/// Reads "PATH VALUE" or "PATH = VALUE" from each line.
std::vector<Setting> readSettings(std::istream& in) {
   std::vector<Setting> settings;
   std::string line;
   for (U64 number = 1; std::getline(in, line); ++number) {
      std::string_view const text = trimmed(line);
      if (text.empty() || text.front() == '#') {
         continue;
      }
      std::size_t const end = endOfPath(text);
      std::string_view value = trimmed(text.substr(end));
      if (value == "=" || value.starts_with("= ")) {
         value = trimmed(value.substr(1));
      }
      std::string const where = "line " + std::to_string(number) + ": ";
      if (value.empty()) {
         throw Failure(where + "expected PATH VALUE; an empty string is \"\"");
      }
      settings.push_back({std::string(text.substr(0, end)), std::string(value), where});
   }
   if (in.bad()) {
      throw Failure("standard input cannot be read");
   }
   return settings;
}

std::vector<Setting> settingsOf(SetOptions const& options) {
   if (options.path == "-") {
      if (!options.rest.empty()) {
         throw Tools::UsageError("- reads paths and values from standard input; give no others");
      }
      return readSettings(std::cin);
   }
   if (options.rest.size() % 2 == 0) {
      throw Tools::UsageError("value is required");
   }
   std::vector<Setting> settings;
   for (std::size_t i = 0; i < options.rest.size(); i += 2) {
      settings.push_back(
            {i == 0 ? options.path : options.rest[i - 1], plainArgument(options.rest[i]), ""});
   }
   return settings;
}

/// A root to be changed, with a copy on which everything is tried first.
struct Tried {
   OfferedRoot offered;
   Mount* mount;
   Sarn::Ptr<Kiv::NamedEntity> copy;
};

/// Sets a value that is written as `get --json` prints it.
void setJson(Sarn::Ptr<Kiv::Entity> const& root, Path const& path, std::string const& text) {
   DocErrors errors;
   DocPlace const doc = readStateAt(parseJson(text, "the value"), path, errors);
   if (doc.entity != nullptr || doc.member != nullptr) {
      throw Failure(doc.text + ": is not a single value; use 'load --at' instead");
   }
   if (errors.empty()) {
      loadPlace(root, doc, errors);
   }
   if (!errors.empty()) {
      throw Failure(errors.front());
   }
}

class Batch {
public:
   /// `json`: values are JSON.
   Batch(Client& client, std::vector<Setting> const& settings, bool json)
         : client_(client), settings_(settings), json_(json) {}

   void run() {
      for (Setting const& setting : settings_) {
         paths_.emplace_back();
         checked(setting,
                 [&] { paths_.back() = parsePath(plainArgument(setting.path), client_.roots()); });
      }
      for (std::optional<Path> const& path : paths_) {
         if (path) {
            mount(path->root);
         }
      }
      // One setting without a pattern is refused whole by its setter.
      if (settings_.size() != 1 || !paths_.front() || isPattern(*paths_.front())) {
         for (Tried& tried : roots_) {
            tried.copy = copyOfRoot(tried.mount->root());
         }
         apply([](Tried const& tried) { return tried.copy; });
         refuseIfWrong();
      }
      client_.asOne([this] {
         apply([](Tried const& tried) {
            return Sarn::Ptr<Kiv::NamedEntity>(&tried.mount->root());
         });
      });
      refuseIfWrong();
   }

private:
   template <class Do>
   void checked(Setting const& setting, Do&& doIt) {
      try {
         doIt();
      } catch (Failure const& error) {
         if (error.status() != Exit::refused) {
            throw;
         }
         errors_.emplace(&setting, setting.where + error.what());
      }
   }

   void refuseIfWrong() const {
      if (errors_.empty()) {
         return;
      }
      if (errors_.size() == 1 && settings_.front().where.empty()) {
         throw Failure(errors_.begin()->second);
      }
      for (auto const& [setting, error] : errors_) {
         std::cerr << "ptpstate: " << Kiv::printable(error) << '\n';
      }
      throw Failure("nothing was changed; correct the errors above");
   }

   Tried* find(OfferedRoot const& root) {
      for (Tried& tried : roots_) {
         if (isSame(tried.offered, root)) {
            return &tried;
         }
      }
      return nullptr;
   }

   void mount(OfferedRoot const& root) {
      if (find(root) == nullptr) {
         roots_.push_back({root, &client_.mountIs(root, MountMode::writer), {}});
         client_.waitComplete(*roots_.back().mount);
      }
   }

   template <class RootOf>
   void apply(RootOf&& rootOf) {
      for (std::size_t i = 0; i != settings_.size(); ++i) {
         if (!paths_[i]) {
            continue;  // what is wrong with it is known
         }
         checked(settings_[i], [&] {
            Sarn::Ptr<Kiv::Entity> const root(rootOf(*find(paths_[i]->root)).get());
            for (Path const& path : matchesOf(root, *paths_[i])) {
               if (json_) {
                  setJson(root, path, settings_[i].value);
               } else {
                  Place(root, path.root.name, path.steps).set(settings_[i].value);
               }
            }
         });
      }
   }

   Client& client_;
   std::vector<Setting> const& settings_;
   bool const json_;
   /// Without a value where the path is wrong.
   std::vector<std::optional<Path>> paths_;
   std::list<Tried> roots_;
   /// At most one for each setting, in their order.
   std::map<Setting const*, Sarn::String> errors_;
};

Exit set(SetOptions const& options) {
   std::vector<Setting> const settings = settingsOf(options);
   if (settings.empty()) {
      return Exit::ok;
   }
   Client client(options.socket, options.patience());
   Tools::showWaiting(client);
   Batch(client, settings, options.json).run();
   return Exit::ok;
}

}  // namespace

void addSet(Command const& program, Run& run) {
   auto const options = std::make_shared<SetOptions>();
   Command const command = program.command(
         "set",
         "Sets attributes, fields within them, or elements of maps. A new element is "
         "inserted. If a key contains *, all elements that fit are set. After the value, further "
         "paths may follow, each with its value.\n"
         "\n"
         "The values are first set in a local mirror: one that is out of range is refused at "
         "once, and nothing is sent. Of several, all are checked first, and all errors are "
         "printed. They are one transaction: the server applies either all of them or none, and "
         "nobody sees a part. The command ends when the server has applied them.\n"
         "\n"
         "With - for PATH, reads lines PATH VALUE from standard input, and applies either all "
         "of them or none. PATH = VALUE, as dump prints it, is also accepted. Empty lines and "
         "those that begin with # are ignored.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate set --socket /tmp/ptp ptp/config.priority1 100\n"
         "  $ ptpstate set --socket /tmp/ptp ptp/config.intfConfig[Ethernet1].logSyncInterval -4\n"
         "  $ ptpstate set --socket /tmp/ptp 'ptp/config.intfConfig[*].enabled' false\n"
         "  $ ptpstate set --socket /tmp/ptp - <settings.txt");
   addClientOptions(command, *options);
   command.option("path", options->path).placeholder("PATH").required();
   command.option("value", options->rest).placeholder("VALUE");
   command.flag("--json", options->json, "Read values as JSON, as get --json prints them");
   command.onChosen([options, &run] { run = [options] { return set(*options); }; });
}

}  // namespace Ptpstate

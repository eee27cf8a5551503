#include "tools/ptpstate/complete/Complete.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "Holt/State/Key.h"
#include "Holt/State/Place.h"
#include "Kiv/Module.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/types/Catalog.h"
#include "tools/shared/Socket.h"

namespace Ptpstate {

using namespace Holt;

using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeImpl;
using Tools::Command;
using Tools::Option;

namespace {

/// How long the user waits after pressing the key.
constexpr std::chrono::milliseconds patience(2000);

/// Collects what begins with the word so far.
class Candidates {
public:
   explicit Candidates(std::string word) : word_(std::move(word)) {}
   void add(std::string const& candidate) {
      if (candidate.starts_with(word_)) {
         all_.push_back(candidate);
      }
   }
   std::string const& word() const { return word_; }
   std::vector<std::string> take() { return std::move(all_); }

private:
   std::string word_;
   std::vector<std::string> all_;
};

/// Where a path is cut: after the last whole step, and whether a key is being typed there.
struct Cut {
   std::size_t at = 0;
   bool inKey = false;
};

Cut cutOf(std::string_view text) {
   Cut cut;
   int depth = 0;
   bool quoted = false;
   for (std::size_t i = 0; i != text.size(); ++i) {
      char const c = text[i];
      if (quoted) {
         i += c == '\\' && i + 1 != text.size() ? 1 : 0;
         quoted = c != '"';
      } else if (c == '"') {
         quoted = depth != 0;
      } else if (c == '[') {
         cut = depth++ == 0 ? Cut{i, true} : cut;
      } else if (c == ']' && depth != 0) {
         cut.inKey = --depth != 0;
      } else if (c == '.' && depth == 0) {
         cut = {i, false};
      }
   }
   return cut;
}

/// A member's name and what follows it: a key, a member of a child, or the end of the word.
std::string memberCandidate(FieldDescriptor const& field) {
   char const* const behind = field.kind == MemberKind::child ? "."
                              : field.keyType != nullptr      ? "["
                                                              : " ";
   return std::string(field.name) + behind;
}

void addMembers(Candidates& candidates, TypeImpl const& type, std::string const& before) {
   forEachField(type, [&](FieldDescriptor const& field) {
      if (field.kind != MemberKind::operation) {
         candidates.add(before + memberCandidate(field));
      }
   });
}

void addKeys(Candidates& candidates, Place const& place, std::string const& before) {
   FieldDescriptor const* const field = place.field();
   if (field == nullptr || field->keyType == nullptr) {
      return;
   }
   std::vector<std::string> keys;
   if (field->kind == MemberKind::queue) {
      U32 const front = field->ops->queue->frontSequence(place.owner());
      keys.push_back(std::to_string(front));
   } else {
      for (Kiv::CollectionCursor at(place.owner(), *field); at->valid(); at->next()) {
         keys.push_back(keyText({*field->keyType, at->key()}));
      }
      std::sort(keys.begin(), keys.end(), naturallyLess);
   }
   for (std::string const& key : keys) {
      candidates.add(before + key + "]");
   }
}

/// The root whose name, plain or printable, and a dot begin the text; or null.
OfferedRoot const* rootOf(std::string const& text, std::vector<OfferedRoot> const& roots,
                          std::size_t& length) {
   OfferedRoot const* found = nullptr;
   for (OfferedRoot const& root : roots) {
      std::string const shown = Kiv::printable(root.name);
      for (std::string const& name :
           {root.name, root.type + "=" + root.name, shown, root.type + "=" + shown}) {
         if (text.starts_with(name + ".") && name.size() >= length) {
            found = &root;
            length = name.size();
         }
      }
   }
   return found;
}

void addRoots(Candidates& candidates, std::vector<OfferedRoot> const& roots) {
   for (OfferedRoot const& offered : roots) {
      auto const same = std::count_if(roots.begin(), roots.end(), [&](OfferedRoot const& other) {
         return other.name == offered.name;
      });
      std::string const shown = Kiv::printable(offered.name);
      candidates.add(same > 1 ? offered.type + "=" + shown : shown);
   }
}

void addPaths(Candidates& candidates, std::string const& socket) {
   if (socket.empty()) {
      return;
   }
   Client client(socket, patience);
   std::string const& text = candidates.word();
   std::vector<OfferedRoot> const& roots = client.roots();
   std::size_t length = 0;
   OfferedRoot const* const root = rootOf(text, roots, length);
   if (root == nullptr) {
      addRoots(candidates, roots);
      return;
   }
   std::string const steps = text.substr(length);
   Cut const cut = cutOf(steps);
   std::string const before = text.substr(0, length + cut.at + 1);
   Mount& mount = client.mountIs(*root, MountMode::reader);
   client.waitComplete(mount);
   Path const path{*root, parseSteps(steps.substr(0, cut.at))};
   Place const place(Sarn::Ptr<Kiv::Entity>(&mount.root()), root->name, path.steps);
   if (cut.inKey) {
      addKeys(candidates, place, before);
   } else if (Kiv::Entity const* const entity = place.entity()) {
      addMembers(candidates, entity->kivType(), before);
   } else {
      addMembers(candidates, *destinationOf(mount.root().kivType(), path).type, before);
   }
}

/// Adds the possible values of a bool or an enumeration.
void addValues(Candidates& candidates, std::string const& socket, std::string const& text) {
   if (socket.empty()) {
      return;
   }
   Client client(socket, patience);
   Path const path = parsePath(text, client.roots());
   TypeImpl const* const root = Kiv::typeByName(path.root.type);
   if (root == nullptr) {
      return;
   }
   TypeImpl const& type = *destinationOf(*root, path).type;
   for (Enumerator const& each : enumeratorsOf(type)) {
      candidates.add(each.name + " ");
   }
   if (type.kind == Kiv::TypeKind::boolean) {
      candidates.add("false ");
      candidates.add("true ");
   }
}

void addTypes(Candidates& candidates, bool roots) {
   for (Kiv::KivModule const* module = Kiv::firstModule(); module != nullptr;
        module = module->data->next) {
      if (!roots) {
         candidates.add(std::string(module->name()) + " ");
      }
      for (U32 i = 0; i != module->typeCount; ++i) {
         TypeImpl const& type = *module->data->types[i];
         if (!roots) {
            candidates.add(std::string(type.name) + " ");
         } else if (type.kind == Kiv::TypeKind::entity && type.named) {
            candidates.add(std::string(type.name) + "=");
         }
      }
   }
}

std::optional<Command> commandOf(Command const& program, std::string const& name) {
   for (Command const& each : program.commands()) {
      if (each.name() == name) {
         return each;
      }
   }
   return std::nullopt;
}

std::optional<Option> optionOf(Command const& command, std::string const& word) {
   std::string const name = word.substr(0, word.find('='));
   for (Option const& option : command.options()) {
      if (option.isNamed(name)) {
         return option;
      }
   }
   return std::nullopt;
}

/// What precedes the word being typed.
struct Before {
   /// The option whose value is being typed, if one is.
   std::optional<Option> option;
   std::vector<std::string> arguments;
   std::string socket;
};

Before readBefore(Command const& command, std::vector<std::string> const& words) {
   Before before;
   char const* const socket = std::getenv("PTPSTATE_SOCKET");
   before.socket = socket != nullptr ? socket : Tools::usualSocketOfServer();
   for (std::size_t i = 2; i + 1 < words.size(); ++i) {
      std::string const& word = words[i];
      std::optional<Option> option;
      if (word.starts_with("--") && word.size() > 2) {
         option = optionOf(command, word);
      }
      if (!option) {
         before.arguments.push_back(word);
      } else if (word.starts_with("--socket=")) {
         before.socket = word.substr(9);
      } else if (option->takesValue() && word.find('=') == std::string::npos) {
         if (i + 2 == words.size()) {
            before.option = option;
         } else if (word == "--socket") {
            before.socket = words[i + 1];
         }
         ++i;
      }
   }
   return before;
}

/// The placeholder of the argument that comes after `count` others; empty if there is none. After
/// the last one, which may repeat, those of a path and its value take turns.
std::string argumentAfter(Command const& command, std::size_t count) {
   std::vector<std::string> placeholders;
   bool repeats = false;
   for (Option const& option : command.options()) {
      if (option.isArgument()) {
         placeholders.push_back(option.placeholder());
         repeats = option.repeats();
      }
   }
   if (count < placeholders.size()) {
      return placeholders[count];
   }
   if (!repeats) {
      return {};
   }
   return placeholders.back() == "VALUE" ? placeholders[count % placeholders.size()]
                                         : placeholders.back();
}

void addCommands(Candidates& candidates, Command const& program) {
   for (Command const& command : program.commands()) {
      if (command.isShown()) {
         candidates.add(command.name() + " ");
      }
   }
}

void addOptions(Candidates& candidates, Command const& command) {
   for (Option const& option : command.options()) {
      if (!option.isArgument()) {
         candidates.add(option.name() + " ");
      }
   }
}

void addForArgument(Candidates& candidates, Command const& command, Before const& before) {
   std::string const kind = argumentAfter(command, before.arguments.size());
   if (kind == "PATH") {
      addPaths(candidates, before.socket);
   } else if (kind == "ROOT" && !before.socket.empty()) {
      addRoots(candidates, Client(before.socket, patience).roots());
   } else if (kind == "NAME") {
      addTypes(candidates, false);
   } else if (kind == "FORMAT") {
      candidates.add("openconfig ");
      candidates.add("ptp4l-conf ");
   } else if (kind == "VALUE") {
      addValues(candidates, before.socket, before.arguments.back());
   }
}

}  // namespace

ShellWords shellWords(std::string const& line) {
   ShellWords result;
   bool inside = false;
   auto const begin = [&] {
      if (!inside) {
         result.words.emplace_back();
         result.raw.clear();
         inside = true;
      }
   };
   for (std::size_t i = 0; i != line.size(); ++i) {
      char const c = line[i];
      bool const blank = c == ' ' || c == '\t' || c == '\n';
      if (blank && result.quote == 0) {
         inside = false;
         continue;
      }
      begin();
      result.raw += c;
      if (result.quote == 0 && (c == '\'' || c == '"')) {
         result.quote = c;
      } else if (c == result.quote) {
         result.quote = 0;
      } else if (c == '\\' && result.quote != '\'' && i + 1 != line.size()) {
         result.raw += line[++i];
         result.words.back() += line[i];
      } else {
         result.words.back() += c;
      }
   }
   begin();  // a new word, if the last one is complete
   return result;
}

std::string shellQuoted(std::string const& word, char quote) {
   std::string_view const special = quote == '\''  ? ""
                                    : quote == '"' ? "\\\"$`"
                                                   : "\\\"'$` \t\n&;|<>()*?!#~{}";
   std::string quoted;
   for (std::size_t i = 0; i != word.size(); ++i) {
      bool const end = word[i] == ' ' && i + 1 == word.size();  // the word is complete
      if (special.find(word[i]) != std::string_view::npos && !end) {
         quoted += '\\';
      }
      quoted += word[i];
   }
   return quoted;
}

std::vector<std::string> candidates(Command const& program, ShellWords const& line) {
   Candidates found(line.words.back());
   try {
      if (line.words.size() < 3) {
         addCommands(found, program);
         return found.take();
      }
      std::optional<Command> const command = commandOf(program, line.words[1]);
      if (!command) {
         return {};
      }
      Before const before = readBefore(*command, line.words);
      if (before.option) {
         std::string const kind = before.option->placeholder();
         if (kind == "TYPE=NAME") {
            addTypes(found, true);
         } else if (kind == "PATH" && !before.option->isNamed("--socket")) {
            addPaths(found, before.socket);
         }
      } else if (found.word().starts_with("-")) {
         addOptions(found, *command);
      } else {
         addForArgument(found, *command, before);
      }
   } catch (Failure const&) {
      return {};  // no server, or an invalid path
   }
   return found.take();
}

}  // namespace Ptpstate

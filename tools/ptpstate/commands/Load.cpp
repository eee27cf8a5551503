// load, diff
#include <algorithm>
#include <iostream>
#include <list>
#include <nlohmann/json.hpp>

#include "Holt/File.h"
#include "Holt/Openconfig/Read.h"
#include "Holt/State/Changes.h"
#include "Holt/State/Diff.h"
#include "Holt/State/Load.h"
#include "Kiv/Printable.h"
#include "PtpLib/PtpOpenConfig/Instance.h"
#include "tools/ptpstate/Commands.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

struct LoadOptions : ClientOptions {
   std::string file;
   std::string at;
   bool openconfig = false;
   bool notes = false;
   bool dryRun = false;
   bool oneByOne = false;
};

struct DiffOptions : ReaderOptions {
   std::string first;
   std::string second;
   bool json = false;
};

/// Prints the errors, one per line, and throws.
[[noreturn]] void refuse(std::string const& file, DocErrors const& errors, char const* outcome) {
   for (Sarn::String const& error : errors) {
      std::cerr << "ptpstate: " << error << '\n';
   }
   throw Failure(file + ": " + outcome + "; correct the errors above");
}

Failure noRoot(OfferedRoot const& root) {
   return Failure("the server has no root " + root.type + "=" + root.name +
                  "; start the server with it");
}

/// Mirrors of the roots in which a document has places.
class LoadedRoots {
public:
   LoadedRoots(Client& client, StateDoc const& doc, MountMode mode) {
      std::vector<OfferedRoot> const offered = client.roots();
      for (DocPlace const& place : doc.places) {
         if (find(place.path.root) == nullptr) {
            mounts_.emplace_back(place.path.root, nullptr);
            for (OfferedRoot const& root : offered) {
               if (root.type == place.path.root.type && root.name == place.path.root.name) {
                  mounts_.back().second = &client.mountIs(root, mode);
               }
            }
            if (mounts_.back().second == nullptr) {
               throw noRoot(place.path.root);
            }
         }
      }
      for (auto const& [root, mount] : mounts_) {
         client.waitComplete(*mount);
      }
   }

   Kiv::NamedEntity& of(DocPlace const& place) const { return (*find(place.path.root))->root(); }
   std::vector<Mount*> all() const {
      std::vector<Mount*> mounts;
      for (auto const& [root, mount] : mounts_) {
         mounts.push_back(mount);
      }
      return mounts;
   }

private:
   Mount* const* find(OfferedRoot const& root) const {
      for (auto const& [known, mount] : mounts_) {
         if (known.type == root.type && known.name == root.name) {
            return &mount;
         }
      }
      return nullptr;
   }

   std::list<std::pair<OfferedRoot, Mount*>> mounts_;
};

/// The roots of a type that a server offers, with their mirrors.
std::vector<std::pair<OfferedRoot, Mount*>> rootsOf(Client& client, std::string_view type) {
   std::vector<std::pair<OfferedRoot, Mount*>> found;
   for (OfferedRoot const& root : client.roots()) {
      if (root.type == type) {
         found.emplace_back(root, &client.mountIs(root, MountMode::reader));
      }
   }
   for (auto const& [root, mount] : found) {
      client.waitComplete(*mount);
   }
   return found;
}

/// The root that a part of a document is for: the instance with its id, or the only transparent
/// clock.
OfferedRoot rootFor(OpenconfigPart const& part, Client& client) {
   Sarn::String const type = part.state.path.root.type;
   auto const offered = rootsOf(client, type);
   std::vector<OfferedRoot> fitting;
   Sarn::String all;
   for (auto const& [root, mount] : offered) {
      Sarn::String id;
      if (part.id) {
         U32 const its = static_cast<Openconfig::Ptp::Instance const&>(mount->root()).id();
         id = " has " + std::to_string(its);
         if (its != *part.id) {
            all += (all.empty() ? "" : ", ") + ("'" + Kiv::printable(root.name) + "'" + id);
            continue;
         }
      }
      fitting.push_back(root);
   }
   if (fitting.size() == 1) {
      return fitting.front();
   }
   Sarn::String const what = part.id ? type + " with the id " + std::to_string(*part.id) : type;
   if (fitting.empty()) {
      throw Failure(part.at + ": the server offers no " + what +
                    (all.empty() ? "" : " (" + all + "); --at ROOT loads it into another"));
   }
   throw Failure(part.at + ": the server offers several " + what + ", such as '" + fitting[0].name +
                 "' and '" + fitting[1].name + "'; choose one with --at ROOT");
}

/// Reports the leaves that have no attribute: each, or only how many.
void tellNotes(LoadOptions const& options, std::vector<Sarn::String> const& notes) {
   std::string const start = "ptpstate: note: " + Kiv::printable(options.file) + ": ";
   if (options.notes) {
      for (Sarn::String const& note : notes) {
         std::cerr << start << note << '\n';
      }
   } else if (!notes.empty()) {
      std::cerr << start << notes.size()
                << (notes.size() == 1 ? " member is not loaded; --notes says which\n"
                                      : " members are not loaded; --notes lists them\n");
   }
}

StateDoc openconfigDoc(LoadOptions const& options, Json const& json, DocErrors& errors) {
   OpenconfigData data = readOpenconfig(json, options.file, errors);
   StateDoc doc;
   if (!errors.empty()) {
      return doc;
   }
   tellNotes(options, data.notes);
   // Another connection, since these mirrors only serve to find the roots.
   Client client(options.socket, options.patience());
   Tools::showWaiting(client);
   if (data.parts.empty()) {
      throw Failure(options.file + ": has no instance and no transparent clock");
   }
   if (!options.at.empty() && data.parts.size() != 1) {
      throw Failure(options.file + ": has " + std::to_string(data.parts.size()) +
                    " instances and transparent clocks; --at takes one");
   }
   for (OpenconfigPart& part : data.parts) {
      OfferedRoot root;
      if (options.at.empty()) {
         root = rootFor(part, client);
      } else {
         Path const path = parsePath(options.at, client.roots());
         if (!path.steps.empty() || path.root.type != part.state.path.root.type) {
            throw Failure("--at " + options.at + ": must be a root of type " +
                          part.state.path.root.type);
         }
         root = path.root;
      }
      part.state.path.root = root;
      part.state.text = root.name;
      doc.places.push_back(std::move(part.state));
   }
   return doc;
}

Exit load(LoadOptions const& options) {
   if (options.notes && !options.openconfig) {
      throw Failure("--notes: only with --openconfig", Exit::usage);
   }
   DocErrors errors;
   StateDoc doc;
   Json json;
   if (options.openconfig || !options.at.empty()) {
      json = parseJson(readWholeFile(options.file), options.file);
   } else {
      doc = readStateFile(options.file, errors);
   }
   if (options.openconfig) {
      doc = openconfigDoc(options, json, errors);
      if (!errors.empty()) {
         refuse(options.file, errors, "not loaded, nothing was changed");
      }
   }
   Client client(options.socket, options.patience());
   Tools::showWaiting(client);
   if (!options.at.empty() && !options.openconfig) {
      doc.places.push_back(readStateAt(json, parsePath(options.at, client.roots()), errors));
   }
   if (!errors.empty()) {
      refuse(options.file, errors, "not loaded, nothing was changed");
   }
   LoadedRoots const roots(client, doc, options.dryRun ? MountMode::reader : MountMode::writer);
   // Try everything on copies first, so that either everything is applied or nothing.
   std::vector<std::pair<Kiv::NamedEntity*, Sarn::Ptr<Kiv::NamedEntity>>> copies;
   std::list<ChangeObserver> observers;
   U64 changes = 0;
   for (Mount const* const mount : roots.all()) {
      copies.emplace_back(&mount->root(), copyOfRoot(mount->root()));
      observers.emplace_back(copies.back().second, mount->root().nameString(),
                             [&](ChangeText const& text) {
                                ++changes;
                                if (options.dryRun) {
                                   std::cout << Kiv::printable(text.path + text.what) << '\n';
                                }
                             });
   }
   for (DocPlace const& place : doc.places) {
      for (auto const& [root, copy] : copies) {
         if (root == &roots.of(place)) {
            loadPlace(copy, place, errors);
         }
      }
   }
   observers.clear();
   if (!errors.empty()) {
      refuse(options.file, errors, "not loaded, nothing was changed");
   }
   if (!options.dryRun) {
      auto const loadAll = [&] {
         for (DocPlace const& place : doc.places) {
            loadPlace(Sarn::Ptr<Kiv::Entity>(&roots.of(place)), place, errors);
         }
      };
      if (options.oneByOne) {
         loadAll();
         client.sync();
      } else {
         client.asOne(loadAll);
      }
   }
   std::cout << Kiv::printable(options.file) << ": " << changes
             << (changes == 1 ? " change" : " changes") << (options.dryRun ? ", not applied" : "")
             << '\n';
   return Exit::ok;
}

/// The same places of a live state; those that do not exist are left out.
StateDoc liveOf(DiffOptions const& options, StateDoc const& doc) {
   std::unique_ptr<RootSource> const opened = openState(options);
   RootSource& state = *opened;
   std::vector<OfferedRoot> const offered = state.roots();
   for (DocPlace const& place : doc.places) {
      auto const isIts = [&place](auto const& root) { return isSame(root, place.path.root); };
      if (std::none_of(offered.begin(), offered.end(), isIts)) {
         throw options.fleet.areGiven() ? Failure(options.fleet.switches + " has no root " +
                                                  place.path.root.type + "=" + place.path.root.name)
                                        : noRoot(place.path.root);
      }
      state.mirror(place.path.root);
   }
   state.waitComplete();
   StateDoc live;
   for (DocPlace const& place : doc.places) {
      try {
         Sarn::Ptr<Kiv::Entity> const root = state.mirror(place.path.root);
         live.places.push_back(
               docOf(Place(root, place.path.root.name, place.path.steps), place.path));
      } catch (Failure const&) {
         continue;  // nothing exists there
      }
   }
   return live;
}

StateDoc readWhole(std::string const& file) {
   DocErrors errors;
   StateDoc doc = readStateFile(file, errors);
   if (!errors.empty()) {
      refuse(file, errors, "not compared");
   }
   return doc;
}

void tellDifference(StateLine const* first, StateLine const* second) {
   StateLine const& line = first != nullptr ? *first : *second;
   if (first != nullptr && second != nullptr) {
      std::cout << "~ " << Kiv::printable(line.path + ": " + first->text + " -> " + second->text)
                << '\n';
   } else {
      std::cout << (first != nullptr ? "- " : "+ ")
                << Kiv::printable(line.path + (line.isEntity ? " : " : " = ") + line.text) << '\n';
   }
}

void tellJson(StateLine const* first, StateLine const* second) {
   Json json{{"path", (first != nullptr ? first : second)->path}};
   if (first != nullptr) {
      json["old"] = first->json();
   }
   if (second != nullptr) {
      json["new"] = second->json();
   }
   std::cout << jsonLine(json) << '\n';
}

Exit diff(DiffOptions const& options) {
   try {
      StateDoc const first = readWhole(options.first);
      StateDoc second;
      if (options.second.empty()) {
         if (options.socket.empty() && !options.fleet.areGiven()) {
            throw Failure("nothing to compare with; give a second dump, or a server with --socket");
         }
         second = liveOf(options, first);
      } else {
         second = readWhole(options.second);
      }
      U64 const count =
            compareLines(linesOf(first), linesOf(second), options.json ? tellJson : tellDifference);
      Tools::requireWritten(std::cout);
      return count == 0 ? Exit::ok : Exit::differs;
   } catch (Failure const& failure) {
      throw Failure(failure.what(), Exit::trouble);
   }
}

}  // namespace

void addLoad(Command const& program, Run& run) {
   auto const options = std::make_shared<LoadOptions>();
   Command const command = program.command(
         "load",
         "Changes a state to match a JSON dump. Only differences are changed; - is "
         "standard input.\n"
         "\n"
         "Everything is checked before anything is sent: if the setters refuse anything, "
         "nothing is changed, and all errors are printed. What the dump leaves out stays as "
         "it is, so a dump of a path, or a handwritten one with a few attributes, changes "
         "only these. If the dump has a collection, elements that it does not name are "
         "removed. A child whose constant arguments differ is replaced.\n"
         "\n"
         "The changes are one transaction: the server applies either all of them or none, and "
         "nobody sees a part. It refuses one that is too long; then use --no-transaction, which "
         "sends change by change: if the connection is lost meanwhile, some may have been "
         "applied, so load again.\n"
         "\n"
         "Computed attributes are not loaded: they follow from the "
         "others. A queue numbers its elements itself, so only their values are loaded.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate dump --socket /tmp/ptp --json >before.json\n"
         "  $ ptpstate load --socket /tmp/ptp before.json\n"
         "  $ ptpstate get --json ptp/config.intfConfig[Ethernet1] >port.json\n"
         "  $ ptpstate load --at ptp/config.intfConfig[Ethernet1] port.json\n"
         "  $ ptpstate load --openconfig ptp.json");
   addClientOptions(command, *options);
   command.option("file", options->file).placeholder("FILE").required();
   command
         .option("--at", options->at,
                 "Load what get --json has printed, and at this path, instead of a dump; with "
                 "--openconfig, load the only instance into this root, whatever its id")
         .placeholder("PATH");
   command.flag("--openconfig", options->openconfig,
                "Load data of the model openconfig-ptp, as 'export openconfig' writes it, instead "
                "of a dump. An instance goes to the Openconfig::Ptp::Instance with its id");
   command.flag("--notes", options->notes,
                "With --openconfig, list the members that are not loaded, since the state has no "
                "place for them, instead of only counting them");
   command.flag("--no-transaction", options->oneByOne,
                "Send change by change, which has no limit of length");
   command.flag("--dry-run", options->dryRun,
                "Print the changes that it would make, as watch does, and make none");
   command.onChosen([options, &run] { run = [options] { return load(*options); }; });
}

void addDiff(Command const& program, Run& run) {
   auto const options = std::make_shared<DiffOptions>();
   Command const command = program.command(
         "diff",
         "Compares two JSON dumps, or a dump with the state of a server or of a switch of a fleet. "
         "Of such a state, only the places in the dump are compared.\n"
         "\n"
         "Its exit status is that of diff(1): 0 no differences, 1 differences, 2 an error.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate diff before.json after.json\n"
         "  $ ptpstate diff --socket /tmp/ptp before.json\n"
         "  $ ptpstate diff --fleet nats://nats1 --switch edge-7 before.json");
   addReaderOptions(command, *options);
   command.option("file", options->first).placeholder("FILE").required();
   command.option("other", options->second).placeholder("FILE");
   command.flag("--json", options->json,
                "Print a JSON object per line, such as "
                "{\"path\":\"ptp/config.priority1\",\"old\":128,\"new\":7}");
   command.onChosen([options, &run] { run = [options] { return diff(*options); }; });
}

}  // namespace Ptpstate

// dump, get
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>

#include "Holt/State/Changed.h"
#include "Holt/State/Diff.h"
#include "Holt/State/Doc.h"
#include "Holt/State/Dump.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"

namespace Ptpstate {

using namespace Holt;

namespace {

struct ReadOptions : ReaderOptions {
   std::vector<std::string> paths;
   bool summary = false;
   bool json = false;
   bool changed = false;
};

StateDoc docOfPlaces(OpenedPlaces const& opened) {
   StateDoc doc;
   for (auto const& [path, place] : opened.places()) {
      doc.places.push_back(docOf(place, path));
   }
   return doc;
}

StateDoc docOfPaths(RootSource& state, std::vector<std::string> const& paths) {
   return docOfPlaces(OpenedPlaces(state, paths));
}

std::vector<Kiv::NamedEntity*> allRoots(RootSource& state) {
   std::vector<Kiv::NamedEntity*> roots;
   for (OfferedRoot const& root : state.roots()) {
      roots.push_back(&*state.mirror(root));
      state.waitComplete();
   }
   return roots;
}

StateDoc docOfAll(RootSource& state) {
   return docOf(allRoots(state));
}

/// Writes documents as one: that of a server or of a single switch as it is, those of a pattern
/// as `{"format": ..., "switches": {NAME: DOCUMENT}}`.
void writeJson(ReadOptions const& options, std::vector<NamedState> const& states,
               std::function<StateDoc(RootSource&)> const& read) {
   Json switches = Json::object();
   std::optional<Failure> failed;
   for (NamedState const& state : states) {
      try {
         StateDoc doc = read(*state.source);
         if (options.changed) {
            keepChanged(doc);
         }
         Json json = jsonOf(doc);
         if (!options.fleet.isPattern()) {
            std::cout << jsonText(json);
            return;
         }
         switches[Kiv::printable(state.name)] = std::move(json);
      } catch (Failure const& failure) {
         failed = failure;
      }
   }
   if (switches.empty() && failed) {
      throw Failure(*failed);
   }
   std::cout << jsonText(
         Json{{"format", "ptpstate fleet dump 1"}, {"switches", std::move(switches)}});
}

void writePlaces(OpenedPlaces const& opened, std::ostream& out) {
   Dump dump(out);
   for (auto const& [path, place] : opened.places()) {
      dump.place(place);
   }
}

Exit dump(ReadOptions const& options) {
   std::vector<NamedState> const states = openStates(options);
   auto const read = [&options](RootSource& state) {
      return options.paths.empty() ? docOfAll(state) : docOfPaths(state, options.paths);
   };
   if (options.json) {
      writeJson(options, states, read);
      return Exit::ok;
   }
   Dump summary;
   printStates(states, options.fleet.isPattern(), [&](RootSource& state, std::ostream& out) {
      if (options.changed) {
         StateDoc doc = read(state);
         keepChanged(doc);
         writeLines(out, linesOf(doc));
      } else if (!options.paths.empty()) {
         OpenedPlaces const opened(state, options.paths);
         if (!options.summary) {
            writePlaces(opened, out);
            return;
         }
         for (auto const& [path, place] : opened.places()) {
            summary.place(place);
         }
      } else if (!options.summary) {
         dumpRoots(out, allRoots(state));
      } else {
         for (Kiv::NamedEntity const* const root : allRoots(state)) {
            summary.entity(*root, root->nameString());
         }
      }
   });
   if (options.summary) {
      printSummary(std::cout, summary);
   }
   return Exit::ok;
}

/// Writes what paths lead to: a single value without its path.
void writeGot(OpenedPlaces const& opened, std::ostream& out) {
   auto const& [path, place] = opened.places().front();
   if (!opened.isSingle() || place.isCollection() || place.entity() != nullptr) {
      writePlaces(opened, out);
   } else {
      out << Kiv::printable(place.text()) << '\n';
   }
}

Exit get(ReadOptions const& options) {
   std::vector<NamedState> const states = openStates(options);
   bool const several = options.fleet.isPattern();
   if (!options.json) {
      printStates(states, several, [&](RootSource& state, std::ostream& out) {
         OpenedPlaces const opened(state, options.paths);
         several ? writePlaces(opened, out) : writeGot(opened, out);
      });
      return Exit::ok;
   }
   if (!several) {
      OpenedPlaces const opened(*states.front().source, options.paths);
      if (opened.isSingle()) {
         auto const& [path, place] = opened.places().front();
         std::cout << jsonText(jsonOf(docOf(place, path)));
         return Exit::ok;
      }
   }
   writeJson(options, states,
             [&options](RootSource& state) { return docOfPaths(state, options.paths); });
   return Exit::ok;
}

}  // namespace

void addDump(Command const& program, Run& run) {
   auto const options = std::make_shared<ReadOptions>();
   Command const command = program.command(
         "dump",
         "Prints every entity and attribute, or those at paths and below. A * in a key stands for "
         "any characters.\n"
         "\n"
         "The order is that of the declarations, with keys in natural order (Ethernet2 "
         "before Ethernet10). So dumps can be compared with diff(1), and the dump of a "
         "complete mirror is identical to that of its source. Attributes that are not "
         "streamed are left out: only the serving process knows them. A queue that has "
         "been used shows the number of its next element.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate dump --socket /tmp/ptp\n"
         "  $ ptpstate dump --socket /tmp/ptp ptp/config.intfConfig[Ethernet1]\n"
         "  $ ptpstate dump --socket /tmp/ptp --changed\n"
         "  $ ptpstate dump --socket /tmp/ptp --json >state.json\n"
         "  $ ptpstate dump --fleet nats://nats1 --switch edge-7 >edge-7.txt");
   addReaderOptions(command, *options);
   command.option("path", options->paths).placeholder("PATH");
   Option const summary = command.flag("--summary", options->summary,
                                       "Count entities and attributes by type instead");
   command.flag("--json", options->json, "Print JSON, which load and diff read").excludes(summary);
   command
         .flag("--changed", options->changed,
               "Print only what differs from the defaults: attributes with other values, elements, "
               "and children")
         .excludes(summary);
   command.onChosen([options, &run] { run = [options] { return dump(*options); }; });
}

void addGet(Command const& program, Run& run) {
   auto const options = std::make_shared<ReadOptions>();
   Command const command = program.command(
         "get",
         "Prints a value on a line by itself; for an entity or a collection, everything "
         "below it, as dump does. Several paths, and a * in a key, which stands for any "
         "characters, give lines PATH = VALUE; with --json, a dump that load and diff read.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate get --socket /tmp/ptp ptp/config.priority1\n"
         "  $ ptpstate get --socket /tmp/ptp ptp/config.clockQuality.clockClass\n"
         "  $ ptpstate get --socket /tmp/ptp 'ptp/status.portDS[*].portState'\n"
         "  $ ptpstate get --fleet nats://nats1 --switch 'edge-*' "
         "ptp/status.currentDS.offsetFromMaster");
   addReaderOptions(command, *options);
   command.option("path", options->paths).placeholder("PATH").required();
   command.flag("--json", options->json, "Print the value as JSON");
   command.onChosen([options, &run] { run = [options] { return get(*options); }; });
}

}  // namespace Ptpstate

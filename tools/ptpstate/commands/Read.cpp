// dump, get
#include <iostream>
#include <nlohmann/json.hpp>

#include "Holt/State/Changed.h"
#include "Holt/State/Diff.h"
#include "Holt/State/Doc.h"
#include "Holt/State/Dump.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

struct ReadOptions : ClientOptions {
   std::vector<std::string> paths;
   bool summary = false;
   bool json = false;
   bool changed = false;
};

/// Writes what differs from the defaults.
void writeChanged(StateDoc doc, bool json) {
   keepChanged(doc);
   if (json) {
      std::cout << jsonText(jsonOf(doc));
   } else {
      writeLines(std::cout, linesOf(doc));
   }
}

StateDoc docOfPlaces(OpenedPlaces const& opened) {
   StateDoc doc;
   for (auto const& [path, place] : opened.places()) {
      doc.places.push_back(docOf(place, path));
   }
   return doc;
}

Exit dumpPaths(ReadOptions const& options) {
   OpenedPlaces const opened(options, options.paths);
   if (options.changed) {
      writeChanged(docOfPlaces(opened), options.json);
      return Exit::ok;
   }
   if (options.json) {
      std::cout << jsonText(jsonOf(docOfPlaces(opened)));
      return Exit::ok;
   }
   Dump dump = options.summary ? Dump() : Dump(std::cout);
   for (auto const& [path, place] : opened.places()) {
      dump.place(place);
   }
   if (options.summary) {
      printSummary(std::cout, dump);
   }
   return Exit::ok;
}

Exit dumpAll(ReadOptions const& options) {
   Client client(options.socket, options.patience());
   Tools::showWaiting(client);
   std::vector<Kiv::NamedEntity*> roots;
   for (OfferedRoot const& root : client.roots()) {
      Mount& mount = client.mountIs(root, MountMode::reader);
      client.waitComplete(mount);
      roots.push_back(&mount.root());
   }
   if (options.changed) {
      writeChanged(docOf(roots), options.json);
      return Exit::ok;
   }
   if (options.json) {
      std::cout << jsonText(jsonOf(docOf(roots)));
      return Exit::ok;
   }
   if (!options.summary) {
      dumpRoots(std::cout, roots);
      return Exit::ok;
   }
   Dump dump;
   for (Kiv::NamedEntity const* const root : roots) {
      dump.entity(*root, root->nameString());
   }
   printSummary(std::cout, dump);
   return Exit::ok;
}

Exit get(ReadOptions const& options) {
   OpenedPlaces const opened(options, options.paths);
   if (!opened.isSingle()) {
      if (options.json) {
         std::cout << jsonText(jsonOf(docOfPlaces(opened)));
      } else {
         Dump dump(std::cout);
         for (auto const& [path, place] : opened.places()) {
            dump.place(place);
         }
      }
      return Exit::ok;
   }
   auto const& [path, place] = opened.places().front();
   if (options.json) {
      std::cout << jsonText(jsonOf(docOf(place, path)));
   } else if (place.isCollection() || place.entity() != nullptr) {
      Dump(std::cout).place(place);
   } else {
      std::cout << Kiv::printable(place.text()) << '\n';
   }
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
         "  $ ptpstate dump --socket /tmp/ptp --json >state.json");
   addClientOptions(command, *options);
   command.option("path", options->paths).placeholder("PATH");
   Option const summary = command.flag("--summary", options->summary,
                                       "Count entities and attributes by type instead");
   command.flag("--json", options->json, "Print JSON, which load and diff read").excludes(summary);
   command
         .flag("--changed", options->changed,
               "Print only what differs from the defaults: attributes with other values, elements, "
               "and children")
         .excludes(summary);
   command.onChosen([options, &run] {
      run = [options] { return options->paths.empty() ? dumpAll(*options) : dumpPaths(*options); };
   });
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
         "  $ ptpstate get --socket /tmp/ptp 'ptp/status.portDS[*].portState'");
   addClientOptions(command, *options);
   command.option("path", options->paths).placeholder("PATH").required();
   command.flag("--json", options->json, "Print the value as JSON");
   command.onChosen([options, &run] { run = [options] { return get(*options); }; });
}

}  // namespace Ptpstate

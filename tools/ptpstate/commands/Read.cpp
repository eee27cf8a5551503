// dump, get
#include <iostream>
#include <nlohmann/json.hpp>

#include "Holt/State/Doc.h"
#include "Holt/State/Dump.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

struct ReadOptions : ClientOptions {
   std::string path;
   bool summary = false;
   bool json = false;
};

Exit dumpPath(ReadOptions const& options) {
   Opened opened(options, options.path, MountMode::reader);
   Place const place(Sarn::Ptr<Kiv::Entity>(&opened.mount->root()), opened.path.root.name,
                     opened.path.steps);
   if (!place.isCollection() && place.entity() == nullptr) {
      place.text();  // throws before anything is written if there is no such value
   }
   if (options.json) {
      StateDoc doc;
      doc.places.push_back(docOf(place, opened.path));
      std::cout << jsonText(jsonOf(doc));
      return Exit::ok;
   }
   Dump dump = options.summary ? Dump() : Dump(std::cout);
   dump.place(place);
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
   if (options.json) {
      StateDoc doc;
      for (Kiv::NamedEntity const* const root : roots) {
         doc.places.emplace_back();
         doc.places.back().path.root = {root->kivType().name, root->nameString()};
         doc.places.back().text = root->nameString();
         doc.places.back().entity = docOf(*root);
      }
      std::cout << jsonText(jsonOf(doc));
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
   Opened opened(options, options.path, MountMode::reader);
   Place const place(Sarn::Ptr<Kiv::Entity>(&opened.mount->root()), opened.path.root.name,
                     opened.path.steps);
   if (options.json) {
      std::cout << jsonText(jsonOf(docOf(place, opened.path)));
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
         "Prints every entity and attribute, or those at a path and below.\n"
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
         "  $ ptpstate dump --socket /tmp/ptp --json >state.json");
   addClientOptions(command, *options);
   command.option("path", options->path).placeholder("PATH");
   Option const summary = command.flag("--summary", options->summary,
                                       "Count entities and attributes by type instead");
   command.flag("--json", options->json, "Print JSON, which load and diff read").excludes(summary);
   command.onChosen([options, &run] {
      run = [options] { return options->path.empty() ? dumpAll(*options) : dumpPath(*options); };
   });
}

void addGet(Command const& program, Run& run) {
   auto const options = std::make_shared<ReadOptions>();
   Command const command = program.command(
         "get",
         "Prints a value on a line by itself; for an entity or a collection, everything "
         "below it, as dump does.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate get --socket /tmp/ptp ptp/config.priority1\n"
         "  $ ptpstate get --socket /tmp/ptp ptp/config.clockQuality.clockClass");
   addClientOptions(command, *options);
   command.option("path", options->path).placeholder("PATH").required();
   command.flag("--json", options->json, "Print the value as JSON");
   command.onChosen([options, &run] { run = [options] { return get(*options); }; });
}

}  // namespace Ptpstate

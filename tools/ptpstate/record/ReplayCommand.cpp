// replay
#include <CLI/CLI.hpp>
#include <iostream>

#include "Holt/State/Doc.h"
#include "Holt/Times.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/record/Replay.h"

namespace Ptpstate {

using namespace Holt;

namespace {

void writeState(std::ostream& out, ReplayOptions const& options, Replay const& replay) {
   if (!options.json) {
      dumpRoots(out, replay.roots());
      if (replay.sourceIsLost()) {
         out << "# the recorder had lost the server; this is the last that it knew\n";
      }
      if (replay.endsBefore()) {
         out << "# the recording ends before that, at " << dateText(replay.wall()) << '\n';
      }
      return;
   }
   StateDoc doc;
   for (Kiv::NamedEntity const* const root : replay.roots()) {
      doc.places.emplace_back();
      doc.places.back().path.root = {root->kivType().name, root->nameString()};
      doc.places.back().text = root->nameString();
      doc.places.back().entity = docOf(*root);
   }
   out << jsonText(jsonOf(doc));
}

Exit replay(ReplayOptions const& options) {
   if (options.info) {
      printRecordingInfo(std::cout, options.files);
      return Exit::ok;
   }
   Replay replay(options);
   replay.run();
   bool const shown = !options.showsChanges() && (options.into.empty() || !options.dump.empty());
   if (shown) {
      writeFile(options.dump.empty() ? "-" : options.dump,
                [&](std::ostream& out) { writeState(out, options, replay); });
   }
   std::cout.flush();
   if (!replay.damage().empty()) {
      throw Failure(replay.damage());
   }
   return Exit::ok;
}

}  // namespace

void addReplay(CLI::App& app, Run& run) {
   auto const options = std::make_shared<ReplayOptions>();
   CLI::App& command = *app.add_subcommand("replay");
   command.add_option("files", options->files)->type_name("FILE")->required();
   CLI::Option* const at = command.add_option("--at", options->at)
                                 ->type_name("TIME")
                                 ->check([](std::string const& text) {
                                    return text.empty() ? std::string("is empty") : std::string();
                                 });
   command.add_option("--speed", options->speed)->type_name("X")->check(CLI::Range(0.001, 1e9));
   // Not --socket, which the environment may give: what is served is overwritten only where that is
   // said.
   CLI::Option* const into = command.add_option("--into", options->into)->type_name("PATH");
   command.add_option("--timeout", options->timeout)
         ->type_name("SECONDS")
         ->check(CLI::Range(0.001, 1e6));
   command.add_flag("--claim", options->claim)->needs(into);
   CLI::Option* const dump = command.add_option("--dump", options->dump)->type_name("FILE");
   command.add_flag("--json", options->json);
   command.add_flag("--info", options->info)->excludes(at)->excludes(into)->excludes(dump);
   command.callback([options, &run] { run = [options] { return replay(*options); }; });
}

}  // namespace Ptpstate

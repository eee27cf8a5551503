// replay
#include <iostream>

#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/Replay.h"
#include "tools/ptpstate/StateDoc.h"
#include "tools/ptpstate/Times.h"

namespace Ptpstate {
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
   bool const shown = !options.showsChanges() && (options.socket.empty() || !options.dump.empty());
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
   CLI::App& command = *app.add_subcommand(
         "replay", "Print what a recording has, or play it into a dump or a server");
   command.add_option("files", options->files, "Recordings, or names of rings, in their order")
         ->type_name("FILE")
         ->required();
   CLI::Option* const at =
         command
               .add_option(
                     "--at", options->at,
                     "The state at a time: HH:MM:SS, 'YYYY-MM-DD HH:MM:SS', +SECONDS from the "
                     "beginning, @SECONDS since 1970")
               ->type_name("TIME")
               ->check([](std::string const& text) { return text.empty() ? "is empty" : ""; });
   command.add_option("--speed", options->speed, "So many times as fast as it happened (at once)")
         ->type_name("X")
         ->check(CLI::Range(0.001, 1e9));
   CLI::Option* const socket =
         command
               .add_option("--socket", options->socket,
                           "Play into the server there, whose roots become what was recorded")
               ->type_name("PATH");
   command
         .add_option("--timeout", options->timeout,
                     "Give up when the server is silent for so many seconds (10)")
         ->type_name("SECONDS")
         ->check(CLI::Range(0.001, 1e6));
   command.add_flag("--claim", options->claim, "Let nobody else write the roots meanwhile")
         ->needs(socket);
   CLI::Option* const dump = command
                                   .add_option("--dump", options->dump,
                                               "Write the state at the end; - for standard output")
                                   ->type_name("FILE");
   command.add_flag("--json", options->json, "The state as JSON, which 'load' and 'diff' read");
   command
         .add_flag("--info", options->info,
                   "Only tell what the files have, and whether all is well")
         ->excludes(at)
         ->excludes(socket)
         ->excludes(dump);
   command.footer(
         "Without --at, --dump and --socket it prints every change, as 'watch' does.\n\n"
         "Example:\n"
         "  ptpstate replay monday.rec\n"
         "  ptpstate replay --at 14:03:59 monday.rec\n"
         "  ptpstate replay --speed 10 --socket /tmp/ptp monday.rec\n"
         "  ptpstate replay --at +3600 --json --dump then.json /var/log/ptp/flight");
   command.callback([options, &run] { run = [options] { return replay(*options); }; });
}

}  // namespace Ptpstate

// replay
#include <iostream>
#include <nlohmann/json.hpp>

#include "Holt/File.h"
#include "Holt/State/Doc.h"
#include "Holt/State/Dump.h"
#include "Holt/Times.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/record/Replay.h"

namespace Ptpstate {

using namespace Holt;

namespace {

/// Prints what `watch` would have printed.
class Lines final : public ReplayView {
public:
   explicit Lines(bool json) : json_(json) {}

   void complete(U64 wall, Kiv::NamedEntity& root, bool before) override {
      if (before) {
         return;
      }
      Dump dump;
      dump.entity(root, root.nameString());
      tell(wall, "-- " + root.nameString() + " is complete: " + tallyText(dump.total()),
           {{"event", "complete"},
            {"root", jsonOf(root.nameString())},
            {"entities", dump.total().entities},
            {"attributes", dump.total().attributes}});
   }
   void change(U64 wall, ChangeText const& text) override {
      tell(wall, text.path + text.what, json_ ? changeJson(text) : Json());
   }
   void lost(U64 wall) override {
      tell(wall, "-- the recorder lost the server", {{"event", "lost"}});
   }
   void back(U64 wall) override {
      tell(wall, "-- the recorder has the server again", {{"event", "connected"}});
   }

private:
   /// Prints a line, or as JSON its time and the members of `json`.
   void tell(U64 wall, Sarn::String const& line, Json const& json) const {
      if (json_) {
         Json timed{{"time", timeText(wall, TimeForm::universal)}};
         timed.update(json);
         std::cout << jsonLine(timed) << '\n';
      } else {
         std::cout << timeText(wall) << ' ' << Kiv::printable(line) << '\n';
      }
   }

   bool json_;
};

void writeState(std::ostream& out, ReplayOptions const& options, Replay const& replay) {
   if (!options.json) {
      dumpRoots(out, replay.roots());
      if (replay.sourceIsLost()) {
         out << "# the recorder had lost the server; this is the last state that it knew\n";
      }
      if (replay.endsBefore()) {
         out << "# the recording ends before that, at " << timeText(replay.wall()) << '\n';
      }
      return;
   }
   out << jsonText(jsonOf(docOf(replay.roots())));
}

Exit replay(ReplayOptions const& options) {
   if (options.info) {
      printRecordingInfo(std::cout, options.files);
      return Exit::ok;
   }
   if (!options.dump.empty()) {
      checkWritable(options.dump);
   }
   Lines lines(options.json);
   Replay replay(options, options.showsChanges() ? &lines : nullptr);
   replay.run();
   bool const shown = !options.showsChanges() && (options.into.empty() || !options.dump.empty());
   if (shown) {
      writeWholeFile(options.dump.empty() ? "-" : options.dump,
                     [&](std::ostream& out) { writeState(out, options, replay); });
   }
   std::cout.flush();
   if (!replay.damage().empty()) {
      throw Failure(replay.damage());
   }
   return Exit::ok;
}

}  // namespace

void addReplay(Command const& program, Run& run) {
   auto const options = std::make_shared<ReplayOptions>();
   Command const command = program.command(
         "replay",
         "Prints the changes in a recording as watch would have, with the times at which "
         "they were recorded. For a ring of files, give the name without the number. Several "
         "files are played one after the other.\n"
         "\n"
         "A time is HH:MM, HH:MM:SS or HH:MM:SS.FFF, the first after the beginning of the "
         "recording; 'YYYY-MM-DD HH:MM:SS'; +SECONDS from the beginning; or @SECONDS since "
         "1970.\n"
         "\n"
         "A truncated or damaged file is played up to the damage. The message then gives the "
         "byte, what is wrong, and the time reached, and the status is 1.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate replay monday.rec\n"
         "  $ ptpstate replay --at 14:03:59 monday.rec\n"
         "  $ ptpstate replay --since 14:00 --until 14:05 --path ptp/status.portDS monday.rec\n"
         "  $ ptpstate replay --speed 10 --into /tmp/ptp monday.rec\n"
         "  $ ptpstate replay --at +3600 --json --dump then.json /var/log/ptp/flight");
   command.option("files", options->files).placeholder("FILE").required();
   Option const at =
         command.option("--at", options->at, "Print the state at that time, as dump does")
               .placeholder("TIME")
               .notEmpty();
   Option const since = command
                              .option("--since", options->since,
                                      "Print only changes after that time; what was before is "
                                      "read, but not printed")
                              .placeholder("TIME")
                              .notEmpty()
                              .excludes(at);
   Option const until = command.option("--until", options->until, "End at that time")
                              .placeholder("TIME")
                              .notEmpty()
                              .excludes(at);
   Option const path =
         command
               .option("--path", options->paths,
                       "Print only changes there and below; may be repeated. A * in a key stands "
                       "for any characters")
               .placeholder("PATH")
               .excludes(at);
   command
         .option("--speed", options->speed,
                 "Play X times as fast as recorded; by default, as fast as possible")
         .placeholder("X")
         .range(0.001, 1e9);
   // Not --socket, which the environment may set: overwriting a served state must be asked for.
   Option const into = command
                             .option("--into", options->into,
                                     "Play into the server at that socket: its roots of "
                                     "the same names take the recorded state")
                             .placeholder("PATH")
                             .excludes(since)
                             .excludes(path);
   command
         .option("--timeout", options->timeout,
                 "How long to wait for each answer of the server of --into; 10 by default")
         .placeholder("SECONDS")
         .range(0.001, 1e6);
   command.flag("--claim", options->claim, "Let nobody else write to these roots during the replay")
         .needs(into);
   Option const dump =
         command
               .option("--dump", options->dump,
                       "Write the state at the end, or at the time of --at; - for standard output")
               .placeholder("FILE")
               .excludes(since)
               .excludes(path);
   command.flag("--json", options->json,
                "Write the state as JSON, which load and diff read; without --at, --dump and "
                "--into, print the changes as watch --json does");
   command
         .flag("--info", options->info,
               "Only print what the files contain, and whether replay would stop with an error")
         .excludes(at)
         .excludes(since)
         .excludes(until)
         .excludes(path)
         .excludes(into)
         .excludes(dump);
   command.onChosen([options, &run] { run = [options] { return replay(*options); }; });
}

}  // namespace Ptpstate

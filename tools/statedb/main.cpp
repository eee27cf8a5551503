// statedb: serves roots, and keeps them on disk.
#include <unistd.h>

#include <cstdlib>

#include "tools/shared/CommandLine.h"
#include "tools/statedb/Service.h"

namespace {

using Statedb::ServiceOptions;

/// Where the unit of systemd keeps states, or "statedb.db" in the directory of the user's own.
std::string usualDatabase() {
   if (char const* const given = std::getenv("STATE_DIRECTORY"); given != nullptr) {
      return std::string(given) + "/state.db";
   }
   char const* const home = std::getenv("HOME");
   if (::geteuid() == 0 || home == nullptr) {
      return "/var/lib/statedb/state.db";
   }
   return std::string(home) + "/.local/state/statedb.db";
}

void addOptions(Tools::Command const& command, ServiceOptions& options) {
   options.database = usualDatabase();
   Tools::addListenOption(command, options.socket);
   command
         .option(
               "--database", options.database,
               "The file to keep roots in; by default state.db in the service's directory, "
               "/var/lib/statedb/state.db, or ~/.local/state/statedb.db for other users than root")
         .placeholder("FILE");
   command
         .option("--sync", options.sync,
                 "When changes must have reached the disk: always, before they are confirmed; "
                 "interval, once in --interval; never, when the system writes them. By default "
                 "always")
         .placeholder("WHEN");
   command
         .option("--interval", options.interval,
                 "With --sync interval or never: the time between two transactions; 1 by default")
         .placeholder("SECONDS")
         .range(0.001, 3600.0);
   command
         .option("--keep", options.keep,
                 "Keep this root, too, though its type is no configuration; repeatable")
         .placeholder("ROOT");
   command
         .option("--module", options.modules,
                 "Load a library of modules that kivc has compiled; repeatable")
         .placeholder("LIBRARY");
   command.flag("--recover", options.recover,
                "If the database is damaged, move it aside and begin anew, instead of refusing it");
   Tools::addRootOptions(command, options,
                         "those of the database and of --load, or Ptp::Config=ptp/config");
   Tools::addAccessOptions(command, options);
   command.footerIs(
         "Examples:\n"
         "  $ statedb --socket /tmp/ptp.sock --database /tmp/ptp.db &\n"
         "  $ ptpstate set --socket /tmp/ptp.sock ptp/config.priority1 100\n"
         "  $ sqlite3 -readonly /tmp/ptp.db 'SELECT * FROM state'\n"
         "  $ statedb --module ./libMine.so --root Mine::Config=mine --root Mine::Status=status "
         "--keep status\n"
         "\n"
         "Exit status:\n"
         "  0  it was told to end, and everything is written\n"
         "  1  the database, a root, a library or a file cannot be used, or the last changes could "
         "not be written\n"
         "  2  the command line is wrong\n"
         "  3  the socket cannot be created");
}

}  // namespace

int main(int argc, char** argv) {
   Tools::Program program(
         "statedb",
         "Serves roots to many processes, and keeps them on disk.\n"
         "\n"
         "Others mirror the roots, and a change made anywhere reaches all of them. Configurations "
         "(roots whose type ends in Config) are kept in an SQLite database, others on request. "
         "With --sync always, whoever asks whether a change has arrived, as 'ptpstate set' does, "
         "gets the answer when it is on disk: no crash loses it. While the disk fails, the state "
         "is served on, and such a request ends with an error.\n"
         "\n"
         "At start, the roots are restored, and a line for each says what was found. --load and "
         "--ptp4l-conf give the first state of a root that is not in the database yet.\n"
         "\n"
         "It takes its socket from systemd, if it is started by its socket unit, and reports "
         "readiness and signs of life. SIGINT, SIGTERM and SIGHUP end it.");
   ServiceOptions options;
   addOptions(program.command(), options);
   return Tools::runProgram(program, argc, argv, [&options] { Statedb::runService(options); });
}

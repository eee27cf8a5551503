// serve: the only command that depends on a type of the model, to load a daemon's configuration.
#include <unistd.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "Holt/File.h"
#include "Holt/StopSignals.h"
#include "tools/ptpstate/Commands.h"
#include "tools/shared/Serving.h"

namespace Ptpstate {

using namespace Holt;

namespace {

struct ServeOptions : Tools::ServingOptions {
   std::string dump;
};

Exit serve(ServeOptions const& options) {
   std::signal(SIGPIPE, SIG_IGN);  // the server outlives the reader of its log
   if (!options.dump.empty()) {
      checkWritable(options.dump);
   }
   StateDoc const loaded = Tools::readLoad(options, "ptpstate");
   Tools::ServedRoots const roots = Tools::rootsOf(options, loaded);
   std::vector<Kiv::NamedEntity*> plain;
   for (auto const& root : roots) {
      plain.push_back(root.get());
   }
   {
      StopSignals stop;
      LogOutput log(STDOUT_FILENO);
      Tools::loadConf(options, roots, log, "ptpstate");
      Tools::loadState(options, loaded, roots, log, "ptpstate");
      Server server(options.server(log));
      for (auto const& root : roots) {
         try {
            server.rootIs(root);
         } catch (Kiv::Exception const& error) {
            throw Failure(error.what());
         }
         log.line("serving " + root->nameString() + " (" + root->kivType().name + ") at " +
                  options.socket);
      }
      server.run(stop.fd());
      server.closeAll("the server has ended");
   }
   // From here on, a signal ends the process: the dump may go to a pipe that nobody reads.
   if (!options.dump.empty()) {
      writeWholeFile(options.dump,
                     [&](std::ostream& out) { out << jsonText(jsonOf(docOf(plain))); });
   }
   return Exit::ok;
}

}  // namespace

void addServe(Command const& program, Run& run) {
   auto const options = std::make_shared<ServeOptions>();
   Command const command = program.command(
         "serve",
         "Serves roots until it is interrupted. Others mirror them, and a change made "
         "anywhere reaches all of them.\n"
         "\n"
         "It prints a line for each root, how many settings of the configuration file the model "
         "cannot hold, and a line for each connection that is opened, refused or lost, "
         "with time, peer and reason. If nobody reads these lines, it keeps 256 KiB of them "
         "and counts the rest; the server never waits.\n"
         "\n"
         "Anybody who may write to the socket's file may connect and read. A user may have "
         "256 connections. A peer has a minute to greet, and a minute to finish each "
         "message that it begins. All connections together use at most 64 MiB of memory, "
         "plus 4 KiB each.\n"
         "\n"
         "SIGINT, SIGTERM and SIGHUP end it: it removes its socket and writes the file of --dump. "
         "A SIGHUP that is ignored, as with nohup(1), does not end it.\n"
         "\n"
         "A stale socket file is replaced. A socket on which a process listens, and a file "
         "that is not a socket, are left alone.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate serve --socket /tmp/ptp --ptp4l-conf /etc/linuxptp/ptp4l.conf\n"
         "  $ ptpstate serve --ptp4l-conf ptp4l.conf --interface eth0 --interface eth1\n"
         "  $ ptpstate serve --socket /tmp/ptp --root Ptp::Config=ptp/config --root "
         "Ptp::Status=ptp/status\n"
         "  $ ptpstate serve --load state.json --dump state.json\n"
         "  $ ptpstate serve --socket /run/ptp --mode 0666 --writers root,:ptp");
   Tools::addListenOption(command, options->socket);
   Tools::addRootOptions(command, *options, "those of --load, or Ptp::Config=ptp/config");
   command
         .option("--dump", options->dump,
                 "At the end, write all roots as JSON, which --load and the command load read; - "
                 "for standard output")
         .placeholder("FILE");
   Tools::addAccessOptions(command, *options);
   command.onChosen([options, &run] { run = [options] { return serve(*options); }; });
}

}  // namespace Ptpstate

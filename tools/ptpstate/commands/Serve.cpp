// serve: the only command that depends on a type of the model, to load a daemon's configuration.
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <system_error>

#include "Holt/Client.h"
#include "Holt/Ptp4l/Load.h"
#include "Holt/Server.h"
#include "Holt/State/Dump.h"
#include "Holt/StopSignals.h"
#include "tools/ptpstate/Commands.h"

namespace Ptpstate {

using namespace Holt;

namespace {

struct ServeOptions {
   std::string socket;
   std::vector<std::string> roots;
   std::string ptp4lConf;
   std::string dump;
   bool quiet = false;
   std::string mode;
   std::string owner;
   std::vector<std::string> writers;

   Server::Options server(LogOutput& log) const;
};

Server::Options ServeOptions::server(LogOutput& log) const {
   Server::Options server;
   server.socket = socket;
   if (!mode.empty()) {
      server.mode = parseMode(mode);
   }
   if (!owner.empty()) {
      server.owner = parseOwner(owner);
   }
   if (!writers.empty()) {
      server.writers = Writers({writers.begin(), writers.end()});
   }
   server.log = quiet ? nullptr : &log;
   return server;
}

Sarn::Ptr<Kiv::NamedEntity> rootOf(std::string const& text) {
   std::size_t const equals = text.find('=');
   if (equals == std::string::npos || equals + 1 == text.size()) {
      throw Failure("--root " + text + ": expected TYPE=NAME, such as Ptp::Config=ptp/config");
   }
   return newRoot(text.substr(0, equals), text.substr(equals + 1));
}

/// Loads the file into the first root of type `Ptp::Config`.
void loadConf(std::string const& file, std::vector<Kiv::NamedEntity*> const& roots,
              LogOutput& log) {
   Ptp::Config* config = nullptr;
   for (Kiv::NamedEntity* const root : roots) {
      if (config == nullptr && root->kivType().isA(Ptp::Config::kivTypeImpl)) {
         config = static_cast<Ptp::Config*>(root);
      }
   }
   if (config == nullptr) {
      throw Failure(file + ": there is no root to load it into; add --root Ptp::Config=NAME");
   }
   Ptp4lConf conf;
   try {
      conf = readPtp4lConf(file);
   } catch (std::system_error const& error) {
      throw Failure(error.what());
   }
   Ptp4lOutcome const outcome = loadPtp4lConf(conf, *config);
   for (Ptp4lRemark const& note : outcome.notes) {
      log.line("note: " + remarkText(conf.file, note));
   }
   if (outcome.errors.empty()) {
      log.line("loaded " + conf.file);
      return;
   }
   for (Ptp4lRemark const& error : outcome.errors) {
      std::cerr << "ptpstate: " << remarkText(conf.file, error) << std::endl;
   }
   throw Failure(conf.file + ": not loaded, and nothing is served; correct the " +
                 (outcome.errors.size() == 1 ? "line" : "lines") + " above");
}

Exit serve(ServeOptions const& options) {
   std::signal(SIGPIPE, SIG_IGN);  // the server outlives the reader of its log
   std::vector<Sarn::Ptr<Kiv::NamedEntity>> roots;
   std::vector<Kiv::NamedEntity*> plain;
   for (std::string const& root : options.roots) {
      roots.push_back(rootOf(root));
      plain.push_back(roots.back().get());
   }
   {
      StopSignals stop;
      LogOutput log(STDOUT_FILENO);
      if (!options.ptp4lConf.empty()) {
         loadConf(options.ptp4lConf, plain, log);
      }
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
      writeFile(options.dump, [&](std::ostream& out) { dumpRoots(out, plain); });
   }
   return Exit::ok;
}

}  // namespace

void addServe(Command const& program, Run& run) {
   auto const options = std::make_shared<ServeOptions>();
   options->roots = {"Ptp::Config=ptp/config"};
   Command const command = program.command(
         "serve",
         "Serves roots until it is interrupted. Others mirror them, and a change made "
         "anywhere reaches all of them.\n"
         "\n"
         "It prints a line for each root, for each setting of the configuration file that "
         "the model cannot hold, and for each connection that is opened, refused or lost, "
         "with time, peer and reason. If nobody reads these lines, it keeps 256 KiB of them "
         "and counts the rest; the server never waits.\n"
         "\n"
         "Anybody who may write to the socket's file may connect and read. A user may have "
         "256 connections. A peer has a minute to greet, and a minute to finish each "
         "message that it begins. All connections together use at most 64 MiB of memory, "
         "plus 4 KiB each.\n"
         "\n"
         "A stale socket file is replaced. A socket on which a process listens, and a file "
         "that is not a socket, are left alone.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate serve --socket /tmp/ptp --ptp4l-conf /etc/linuxptp/ptp4l.conf\n"
         "  $ ptpstate serve --socket /tmp/ptp --root Ptp::Config=ptp/config --root "
         "Ptp::Status=ptp/status\n"
         "  $ ptpstate serve --socket /run/ptp --mode 0666 --writers root,:ptp");
   Tools::addListenOption(command, options->socket);
   command
         .option("--root", options->roots,
                 "A root to serve; repeatable; by default Ptp::Config=ptp/config")
         .placeholder("TYPE=NAME");
   command
         .option("--ptp4l-conf", options->ptp4lConf,
                 "Load a ptp4l(8) configuration file into the first root that is a Ptp::Config; "
                 "if the file has an error, nothing is served")
         .placeholder("FILE");
   command
         .option("--dump", options->dump,
                 "At the end, write a dump of all roots; - for standard output")
         .placeholder("FILE");
   command
         .option("--mode", options->mode,
                 "Permissions of the socket, in octal; by default, the umask decides")
         .placeholder("MODE");
   command.option("--owner", options->owner, "Give the socket to USER, :GROUP or USER:GROUP")
         .placeholder("OWNER");
   command
         .option("--writers", options->writers,
                 "Who may make changes: users, and groups with a leading colon; by default, "
                 "everybody who may connect")
         .placeholder("WHO,...")
         .separatedBy(',');
   command.flag("--quiet", options->quiet, "Do not report connections");
   command.onChosen([options, &run] { run = [options] { return serve(*options); }; });
}

}  // namespace Ptpstate

// serve: the one command that knows a type of the model, to load a daemon's configuration into it.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <system_error>

#include "Holt/Client.h"
#include "Holt/Ptp4l/Load.h"
#include "Holt/Server.h"
#include "Holt/StopSignals.h"
#include "Kiv/Printable.h"
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
      throw Failure("--root " + text + ": TYPE=NAME is wanted, such as Ptp::Config=ptp/config");
   }
   return newRoot(text.substr(0, equals), text.substr(equals + 1));
}

/// Loads the file into the first root of the type that it belongs into.
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
      std::cerr << "ptpstate: " << Kiv::printable(remarkText(conf.file, error)) << std::endl;
   }
   throw Failure(conf.file + ": not loaded, and nothing is served; correct the " +
                 (outcome.errors.size() == 1 ? "line" : "lines") + " above");
}

Exit serve(ServeOptions const& options) {
   std::signal(SIGPIPE, SIG_IGN);  // a server outlives who reads its log
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
   // From here on a signal ends the process: the dump may go to a pipe that nobody reads.
   if (!options.dump.empty()) {
      writeFile(options.dump, [&](std::ostream& out) { dumpRoots(out, plain); });
   }
   return Exit::ok;
}

}  // namespace

void addServe(CLI::App& app, Run& run) {
   auto const options = std::make_shared<ServeOptions>();
   options->roots = {"Ptp::Config=ptp/config"};
   CLI::App& command = *app.add_subcommand("serve");
   addSocketOption(command, options->socket);
   command.add_option("--root", options->roots)->type_name("TYPE=NAME")->allow_extra_args(false);
   command.add_option("--ptp4l-conf", options->ptp4lConf)->type_name("FILE");
   command.add_option("--dump", options->dump)->type_name("FILE");
   command.add_option("--mode", options->mode)->type_name("MODE");
   command.add_option("--owner", options->owner)->type_name("OWNER");
   command.add_option("--writers", options->writers)
         ->type_name("WHO,...")
         ->delimiter(',')
         ->allow_extra_args(false);
   command.add_flag("--quiet", options->quiet);
   command.callback([options, &run] { run = [options] { return serve(*options); }; });
}

}  // namespace Ptpstate

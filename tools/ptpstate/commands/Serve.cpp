// serve: the only command that depends on a type of the model, to load a daemon's configuration.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "Holt/Client.h"
#include "Holt/File.h"
#include "Holt/Ptp4l/Load.h"
#include "Holt/Server.h"
#include "Holt/State/Load.h"
#include "Holt/StopSignals.h"
#include "tools/ptpstate/Commands.h"

namespace Ptpstate {

using namespace Holt;

namespace {

struct ServeOptions {
   std::string socket;
   std::vector<std::string> roots;
   std::string ptp4lConf;
   std::vector<std::string> interfaces;
   bool notes = false;
   std::string load;
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

/// Reports the settings that the model has no place for: each, or only how many.
void logNotes(Ptp4lConf const& conf, std::vector<Ptp4lRemark> const& notes, bool each,
              LogOutput& log) {
   bool const anyPort = std::any_of(conf.sections.begin(), conf.sections.end(), [](auto const& s) {
      return s.kind == Ptp4lSection::Kind::port;
   });
   if (each) {
      for (Ptp4lRemark const& note : notes) {
         log.line("note: " + remarkText(conf.file, note));
      }
   } else if (!notes.empty()) {
      log.line("note: " + conf.file + ": " + std::to_string(notes.size()) +
               (notes.size() == 1 ? " setting is" : " settings are") +
               " not loaded; --notes lists " + (notes.size() == 1 ? "it" : "them"));
   }
   if (!anyPort) {
      log.line("note: " + conf.file +
               ": has no interface; name those of ptp4l -i with --interface");
   }
}

/// Loads the file into the first root of type `Ptp::Config`.
void loadConf(ServeOptions const& options, std::vector<Kiv::NamedEntity*> const& roots,
              LogOutput& log) {
   std::string const& file = options.ptp4lConf;
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
      throw Failure(file + ": " + error.code().message() + "; give the name of a file of ptp4l(8)");
   }
   for (std::string const& interface : options.interfaces) {
      addInterface(conf, interface);
   }
   Ptp4lOutcome const outcome = loadPtp4lConf(conf, *config);
   logNotes(conf, outcome.notes, options.notes, log);
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

/// The roots that the options name; if they name none, those of the file that is loaded.
std::vector<Sarn::Ptr<Kiv::NamedEntity>> rootsOf(ServeOptions const& options, StateDoc const& doc) {
   std::vector<Sarn::Ptr<Kiv::NamedEntity>> roots;
   for (std::string const& root : options.roots) {
      roots.push_back(rootOf(root));
   }
   if (!options.roots.empty()) {
      return roots;
   }
   for (DocPlace const& place : doc.places) {
      OfferedRoot const& of = place.path.root;
      bool const known = std::any_of(roots.begin(), roots.end(), [&of](auto const& root) {
         return root->kivType().name == of.type && root->nameString() == of.name;
      });
      if (!known) {
         roots.push_back(newRoot(of.type, of.name));
      }
   }
   if (roots.empty()) {
      roots.push_back(rootOf("Ptp::Config=ptp/config"));
   }
   return roots;
}

/// Prints the errors, one per line, and throws.
[[noreturn]] void refuseState(std::string const& file, DocErrors const& errors) {
   for (Sarn::String const& error : errors) {
      std::cerr << "ptpstate: " << error << '\n';
   }
   throw Failure(file + ": not loaded, and nothing is served; correct the errors above");
}

/// Loads a dump into the roots.
void loadState(std::string const& file, StateDoc const& doc,
               std::vector<Kiv::NamedEntity*> const& roots, LogOutput& log) {
   DocErrors errors;
   for (DocPlace const& place : doc.places) {
      OfferedRoot const& of = place.path.root;
      auto const root = std::find_if(roots.begin(), roots.end(), [&of](auto const* each) {
         return each->kivType().name == of.type && each->nameString() == of.name;
      });
      if (root == roots.end()) {
         throw Failure(file + ": has " + of.type + "=" + of.name +
                       ", which is not served; add --root " + of.type + "=" + of.name);
      }
      loadPlace(Sarn::Ptr<Kiv::Entity>(*root), place, errors);
   }
   if (!errors.empty()) {
      refuseState(file, errors);
   }
   log.line("loaded " + file);
}

Exit serve(ServeOptions const& options) {
   std::signal(SIGPIPE, SIG_IGN);  // the server outlives the reader of its log
   if (!options.dump.empty()) {
      checkWritable(options.dump);
   }
   StateDoc loaded;
   if (!options.load.empty()) {
      DocErrors errors;
      loaded = readStateFile(options.load, errors);
      if (!errors.empty()) {
         refuseState(options.load, errors);
      }
   }
   std::vector<Sarn::Ptr<Kiv::NamedEntity>> const roots = rootsOf(options, loaded);
   std::vector<Kiv::NamedEntity*> plain;
   for (auto const& root : roots) {
      plain.push_back(root.get());
   }
   {
      StopSignals stop;
      LogOutput log(STDOUT_FILENO);
      if (!options.ptp4lConf.empty()) {
         loadConf(options, plain, log);
      }
      if (!options.load.empty()) {
         loadState(options.load, loaded, plain, log);
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
   command
         .option(
               "--root", options->roots,
               "A root to serve; repeatable; by default those of --load, or Ptp::Config=ptp/config")
         .placeholder("TYPE=NAME");
   Option const conf = command
                             .option("--ptp4l-conf", options->ptp4lConf,
                                     "Load a ptp4l(8) configuration file into the first root that "
                                     "is a Ptp::Config; "
                                     "if the file has an error, nothing is served")
                             .placeholder("FILE");
   command
         .option("--interface", options->interfaces,
                 "With --ptp4l-conf: also an interface of ptp4l, as with its option -i; repeatable")
         .placeholder("NAME")
         .notEmpty()
         .needs(conf);
   command
         .flag("--notes", options->notes,
               "With --ptp4l-conf: list the settings that the model has no place for, instead of "
               "counting them")
         .needs(conf);
   command
         .option("--load", options->load,
                 "Load a JSON dump, such as --dump writes; if it has an error, nothing is served")
         .placeholder("FILE");
   command
         .option("--dump", options->dump,
                 "At the end, write all roots as JSON, which --load and the command load read; - "
                 "for standard output")
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

#include "tools/shared/Serving.h"

#include <algorithm>
#include <iostream>
#include <system_error>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "Holt/Ptp4l/Load.h"
#include "Holt/State/Load.h"

namespace Tools {

using namespace Holt;

namespace {

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

/// Prints the errors, one per line, and throws.
[[noreturn]] void refuseState(std::string const& file, DocErrors const& errors,
                              char const* program) {
   for (Sarn::String const& error : errors) {
      std::cerr << program << ": " << error << '\n';
   }
   throw Failure(file + ": not loaded, and nothing is served; correct the errors above");
}

}  // namespace

Server::Options ServingOptions::server(LogOutput& log) const {
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

void loadConf(ServingOptions const& options, ServedRoots const& roots, LogOutput& log,
              char const* program) {
   std::string const& file = options.ptp4lConf;
   if (file.empty()) {
      return;
   }
   Ptp::Config* config = nullptr;
   for (auto const& root : roots) {
      if (config == nullptr && root->kivType().isA(Ptp::Config::kivTypeImpl)) {
         config = static_cast<Ptp::Config*>(root.get());
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
      std::cerr << program << ": " << remarkText(conf.file, error) << std::endl;
   }
   throw Failure(conf.file + ": not loaded, and nothing is served; correct the " +
                 (outcome.errors.size() == 1 ? "line" : "lines") + " above");
}

ServedRoots rootsOf(ServingOptions const& options, StateDoc const& doc) {
   ServedRoots roots;
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

StateDoc readLoad(ServingOptions const& options, char const* program) {
   StateDoc doc;
   if (!options.load.empty()) {
      DocErrors errors;
      doc = readStateFile(options.load, errors);
      if (!errors.empty()) {
         refuseState(options.load, errors, program);
      }
   }
   return doc;
}

void loadState(ServingOptions const& options, StateDoc const& doc, ServedRoots const& roots,
               LogOutput& log, char const* program) {
   std::string const& file = options.load;
   if (file.empty()) {
      return;
   }
   DocErrors errors;
   for (DocPlace const& place : doc.places) {
      OfferedRoot const& of = place.path.root;
      auto const root = std::find_if(roots.begin(), roots.end(), [&of](auto const& each) {
         return each->kivType().name == of.type && each->nameString() == of.name;
      });
      if (root == roots.end()) {
         throw Failure(file + ": has " + of.type + "=" + of.name +
                       ", which is not served; add --root " + of.type + "=" + of.name);
      }
      loadPlace(Sarn::Ptr<Kiv::Entity>(root->get()), place, errors);
   }
   if (!errors.empty()) {
      refuseState(file, errors, program);
   }
   log.line("loaded " + file);
}

void addRootOptions(Command const& command, ServingOptions& options, std::string const& otherwise) {
   command.option("--root", options.roots, "A root to serve; repeatable; by default " + otherwise)
         .placeholder("TYPE=NAME");
   Option const conf = command
                             .option("--ptp4l-conf", options.ptp4lConf,
                                     "Load a ptp4l(8) configuration file into the first root that "
                                     "is a Ptp::Config; "
                                     "if the file has an error, nothing is served")
                             .placeholder("FILE");
   command
         .option("--interface", options.interfaces,
                 "With --ptp4l-conf: also an interface of ptp4l, as with its option -i; repeatable")
         .placeholder("NAME")
         .notEmpty()
         .needs(conf);
   command
         .flag("--notes", options.notes,
               "With --ptp4l-conf: list the settings that the model has no place for, instead of "
               "counting them")
         .needs(conf);
   command
         .option("--load", options.load,
                 "Load a JSON dump, such as --dump writes; if it has an error, nothing is served")
         .placeholder("FILE");
}

void addAccessOptions(Command const& command, ServingOptions& options) {
   command
         .option("--mode", options.mode,
                 "Permissions of the socket, in octal; by default, the umask decides")
         .placeholder("MODE");
   command.option("--owner", options.owner, "Give the socket to USER, :GROUP or USER:GROUP")
         .placeholder("OWNER");
   command
         .option("--writers", options.writers,
                 "Who may make changes: users, and groups with a leading colon; by default, "
                 "everybody who may connect")
         .placeholder("WHO,...")
         .separatedBy(',');
   command.flag("--quiet", options.quiet, "Do not report connections");
}

}  // namespace Tools

// What the programs that serve roots share: where, to whom, and which roots with what in them.
#pragma once

#include "Holt/Server.h"
#include "Holt/State/Doc.h"
#include "tools/cli/Command.h"

namespace Tools {

struct ServingOptions {
   std::string socket;
   std::vector<std::string> roots;
   std::string ptp4lConf;
   std::vector<std::string> interfaces;
   bool notes = false;
   std::string load;
   bool quiet = false;
   std::string mode;
   std::string owner;
   std::vector<std::string> writers;

   /// `log`: of the connections, unless `quiet`.
   Holt::Server::Options server(Holt::LogOutput& log) const;
};

using ServedRoots = std::vector<Sarn::Ptr<Kiv::NamedEntity>>;

/// Adds the options that say which roots are served, and what is loaded into them. `otherwise`:
/// what is served if neither --root nor --load says so.
void addRootOptions(Command const& command, ServingOptions& options, std::string const& otherwise);
/// Adds the options that say who may connect and write.
void addAccessOptions(Command const& command, ServingOptions& options);

/// The file of --load; empty without the option. If it has errors, prints them as `program`, and
/// throws `Holt::Failure`.
Holt::StateDoc readLoad(ServingOptions const& options, char const* program);
/// A new root "TYPE=NAME". Throws `Holt::Failure`.
Sarn::Ptr<Kiv::NamedEntity> rootOf(std::string const& text);
/// New roots, as --root names them, or else those of the file that is loaded.
ServedRoots rootsOf(ServingOptions const& options, Holt::StateDoc const& doc);
/// Loads the file of --ptp4l-conf, if there is one, into the first root of type `Ptp::Config`. If
/// it has errors, prints them as `program`, and throws `Holt::Failure`.
void loadConf(ServingOptions const& options, ServedRoots const& roots, Holt::LogOutput& log,
              char const* program);
/// Loads a dump, the file of --load, into the roots; otherwise as above.
void loadState(ServingOptions const& options, Holt::StateDoc const& doc, ServedRoots const& roots,
               Holt::LogOutput& log, char const* program);

}  // namespace Tools

// export
#include <iostream>

#include "Holt/File.h"
#include "Holt/Ptp4l/Write.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

struct ExportOptions : ClientOptions {
   std::string format;
   std::string root;
   std::string base;
   std::string output = "-";
};

/// Mirrors the root of a type that has the name, or the only one if there is none.
Kiv::NamedEntity& mirrored(Client& client, Kiv::TypeImpl const& type, std::string const& name) {
   OfferedRoot const* found = nullptr;
   for (OfferedRoot const& root : client.roots()) {
      if (root.type == type.name && (name.empty() || root.name == name)) {
         if (found != nullptr) {
            throw Failure("there are several " + Sarn::String(type.name) + ", such as '" +
                          Kiv::printable(found->name) + "' and '" + Kiv::printable(root.name) +
                          "'; name one");
         }
         found = &root;
      }
   }
   if (found == nullptr) {
      throw Failure("the server offers no " + Sarn::String(type.name) +
                    (name.empty() ? "" : " named '" + Kiv::printable(name) + "'") +
                    "; 'ptpstate dump' shows what it offers");
   }
   Mount& mount = client.mountIs(*found, MountMode::reader);
   client.waitComplete(mount);
   return mount.root();
}

std::string ptp4lConf(Client& client, ExportOptions const& options) {
   std::optional<Ptp4lConf> base;
   if (!options.base.empty()) {
      try {
         base = readPtp4lConf(options.base);
      } catch (std::system_error const& error) {
         throw Failure(error.what());
      }
      if (!base->errors.empty()) {
         throw Failure(remarkText(base->file, base->errors.front()));
      }
   }
   auto const& config =
         static_cast<Ptp::Config const&>(mirrored(client, Ptp::Config::kivTypeImpl, options.root));
   return writePtp4lConf(config, base ? &*base : nullptr).text;
}

Exit exportState(ExportOptions const& options) {
   if (options.format != "ptp4l-conf") {
      throw Failure("'" + Kiv::printable(options.format) + "': unknown format; must be ptp4l-conf",
                    Exit::usage);
   }
   Client client(options.socket, options.patience());
   Tools::showWaiting(client);
   std::string const text = ptp4lConf(client, options);
   writeWholeFile(options.output, [&text](std::ostream& out) { out << text; });
   return Exit::ok;
}

}  // namespace

void addExport(Command const& program, Run& run) {
   auto const options = std::make_shared<ExportOptions>();
   Command const command = program.command(
         "export",
         "Writes a root in a format of other programs. FORMAT is:\n"
         "\n"
         "ptp4l-conf: a Ptp::Config as a configuration file of ptp4l(8), the reverse of 'serve "
         "--ptp4l-conf'. The file begins with what ptp4l has no setting for.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate export ptp4l-conf\n"
         "  $ ptpstate export ptp4l-conf ptp/config --base old.conf --output new.conf");
   addClientOptions(command, *options);
   command.option("format", options->format).placeholder("FORMAT").required();
   command.option("root", options->root).placeholder("ROOT");
   command
         .option("--base", options->base,
                 "A file whose settings are copied if the model has no place for them")
         .placeholder("FILE");
   command.option("--output", options->output, "Write this file instead of standard output")
         .placeholder("FILE");
   command.onChosen([options, &run] { run = [options] { return exportState(*options); }; });
}

}  // namespace Ptpstate

// export
#include <iostream>

#include <nlohmann/json.hpp>

#include "Holt/File.h"
#include "Holt/Openconfig/Write.h"
#include "Holt/Ptp4l/Write.h"
#include "Kiv/Module.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

struct ExportOptions : ClientOptions {
   std::string format;
   std::vector<std::string> roots;
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
   if (options.roots.size() > 1) {
      throw Failure("ptp4l-conf: a file has one Ptp::Config; name one root", Exit::usage);
   }
   auto const& config = static_cast<Ptp::Config const&>(
         mirrored(client, Ptp::Config::kivTypeImpl,
                  options.roots.empty() ? std::string() : options.roots.front()));
   return writePtp4lConf(config, base ? &*base : nullptr).text;
}

bool isExportedToOpenconfig(OfferedRoot const& root) {
   Kiv::TypeImpl const* const type = Kiv::typeByName(root.type);
   return type != nullptr && isInOpenconfig(*type);
}

std::string openconfig(Client& client, ExportOptions const& options) {
   if (!options.base.empty()) {
      throw Failure("openconfig: takes no --base", Exit::usage);
   }
   std::vector<OfferedRoot> chosen;
   for (OfferedRoot const& root : client.roots()) {
      if (options.roots.empty() && isExportedToOpenconfig(root)) {
         chosen.push_back(root);
      }
   }
   for (std::string const& name : options.roots) {
      Path const path = parsePath(name, client.roots());
      if (!path.steps.empty() || !isExportedToOpenconfig(path.root)) {
         throw Failure("'" + Kiv::printable(name) +
                       "': must be a root of type Openconfig::Ptp::Instance or "
                       "Openconfig::Ptp::TransparentClockDefaultDS");
      }
      auto const same = [&](OfferedRoot const& other) { return isSame(path.root, other); };
      if (std::none_of(chosen.begin(), chosen.end(), same)) {
         chosen.push_back(path.root);
      }
   }
   if (chosen.empty()) {
      throw Failure(
            "the server offers no Openconfig::Ptp::Instance and no "
            "Openconfig::Ptp::TransparentClockDefaultDS; 'ptpstate dump' shows what it offers");
   }
   std::vector<Mount*> mounts;
   for (OfferedRoot const& root : chosen) {
      mounts.push_back(&client.mountIs(root, MountMode::reader));
   }
   std::vector<Kiv::NamedEntity const*> roots;
   for (Mount* const mount : mounts) {
      client.waitComplete(*mount);
      roots.push_back(&mount->root());
   }
   return openconfigText(openconfigJson(roots));
}

/// A format, and what writes it.
struct Format {
   std::string_view name;
   std::string (*text)(Client& client, ExportOptions const& options);
};

constexpr Format formats[] = {{"ptp4l-conf", ptp4lConf}, {"openconfig", openconfig}};

Format const& formatOf(ExportOptions const& options) {
   for (Format const& format : formats) {
      if (format.name == options.format) {
         return format;
      }
   }
   throw Failure("'" + Kiv::printable(options.format) +
                       "': unknown format; must be ptp4l-conf or openconfig",
                 Exit::usage);
}

Exit exportState(ExportOptions const& options) {
   Format const& format = formatOf(options);
   Client client(options.socket, options.patience());
   Tools::showWaiting(client);
   std::string const text = format.text(client, options);
   writeWholeFile(options.output, [&text](std::ostream& out) { out << text; });
   return Exit::ok;
}

}  // namespace

void addExport(Command const& program, Run& run) {
   auto const options = std::make_shared<ExportOptions>();
   Command const command = program.command(
         "export",
         "Writes roots in a format of other programs. FORMAT is:\n"
         "\n"
         "ptp4l-conf: a Ptp::Config as a configuration file of ptp4l(8), the reverse of 'serve "
         "--ptp4l-conf'. The file begins with what ptp4l has no setting for.\n"
         "\n"
         "openconfig: the Openconfig::Ptp::Instance roots, and the TransparentClockDefaultDS, as "
         "data of the model openconfig-ptp in JSON (RFC 7951), the reverse of 'load --openconfig'. "
         "Without ROOT, all that the server offers.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate export ptp4l-conf\n"
         "  $ ptpstate export ptp4l-conf ptp/config --base old.conf --output new.conf\n"
         "  $ ptpstate export openconfig --output ptp.json");
   addClientOptions(command, *options);
   command.option("format", options->format).placeholder("FORMAT").required();
   command.option("root", options->roots).placeholder("ROOT");
   command
         .option("--base", options->base,
                 "For ptp4l-conf, a file whose settings are copied if the model has no place for "
                 "them")
         .placeholder("FILE");
   command.option("--output", options->output, "Write this file instead of standard output")
         .placeholder("FILE");
   command.onChosen([options, &run] { run = [options] { return exportState(*options); }; });
}

}  // namespace Ptpstate

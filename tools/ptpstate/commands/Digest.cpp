// digest
#include <iostream>

#include "Kiv/Digest.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/ServerRoots.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using Kiv::NboAttrLog::Compared;

struct DigestOptions : ClientOptions {
   std::vector<std::string> paths;
};

/// Compares the mirror with the server; false if it was different, which is said on standard error.
bool check(Client& client, Mount& mount) {
   Compared const result = client.compare(mount);
   std::string const name = Kiv::printable(mount.root().nameString());
   if (result.leftOut != 0) {
      std::cerr << "ptpstate: " << name << ": " << result.leftOut
                << " of its entities have values that are too long to be sent; the digest does not "
                   "include them\n";
   }
   if (result.differing == 0) {
      return true;
   }
   std::cerr << "ptpstate: " << name << ": " << result.differing
             << " entities arrived differently from what the server has, and " << result.repaired
             << " of them were put right, beginning with " << Kiv::printable(result.paths.front())
             << '\n';
   return false;
}

void print(Kiv::Entity const& entity, Sarn::String const& path) {
   std::cout << Kiv::treeDigest(entity).text() << "  " << Kiv::printable(path) << '\n';
}

Exit digestAll(DigestOptions const& options) {
   Client client(options.socket, options.patience());
   Tools::showWaiting(client);
   bool equal = true;
   for (OfferedRoot const& root : client.roots()) {
      Mount& mount = client.mountIs(root, MountMode::reader);
      client.waitComplete(mount);
      equal = check(client, mount) && equal;
      print(mount.root(), mount.root().nameString());
   }
   return equal ? Exit::ok : Exit::refused;
}

Exit digestPaths(DigestOptions const& options) {
   ServerRoots state(options);
   OpenedPlaces const opened(state, options.paths);
   bool equal = true;
   for (Mount* const mount : state.mounts()) {
      equal = check(state.client(), *mount) && equal;
   }
   for (auto const& [path, place] : opened.places()) {
      if (place.entity() == nullptr) {
         throw Failure(place.path() + " is not an entity, so it has no digest");
      }
      print(*place.entity(), place.path());
   }
   return equal ? Exit::ok : Exit::refused;
}

}  // namespace

void addDigest(Command const& program, Run& run) {
   auto const options = std::make_shared<DigestOptions>();
   Command const command = program.command(
         "digest",
         "Prints a digest of everything below each path, or of each root: 32 hexadecimal digits, "
         "which are equal for equal state, on every machine and however the state has come about. "
         "So two servers are compared by their digests. A * in a key stands for any characters.\n"
         "\n"
         "Each mirror is first compared with its server, by digests that both compute. If an "
         "entity "
         "has arrived differently, it is put right, reported, and the exit status is 1.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate digest --socket /tmp/ptp\n"
         "  $ ptpstate digest --socket /tmp/ptp ptp/config 'ptp/status.portDS[*]'");
   addClientOptions(command, *options);
   command.option("path", options->paths).placeholder("PATH");
   command.onChosen([options, &run] {
      run = [options] {
         return options->paths.empty() ? digestAll(*options) : digestPaths(*options);
      };
   });
}

}  // namespace Ptpstate

// ptpports: mirrors a clock's status and prints a table of its ports.
#include <iostream>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "Holt/File.h"
#include "Holt/State/Dump.h"
#include "Holt/StopSignals.h"
#include "Kiv/Printable.h"
#include "tools/ptpports/PortTable.h"
#include "tools/shared/CommandLine.h"
#include "tools/shared/Progress.h"

namespace {

using namespace Holt;
using namespace Tools;

struct Options : ClientOptions {
   std::string root;
   std::string dump;
   bool atEnd = false;
};

Mount& mountStatus(Client& client, std::string const& name) {
   for (OfferedRoot const& root : client.roots()) {
      if (root.type == Ptp::Status::kivTypeName && (name.empty() || root.name == name)) {
         Mount& mount = client.mountIs(root, MountMode::reader);
         client.waitComplete(mount);
         return mount;
      }
   }
   throw Failure("the server offers no " + std::string(Ptp::Status::kivTypeName) +
                 (name.empty() ? "" : " named " + name) + "; 'ptpstate dump' shows what it offers");
}

void run(Options const& options) {
   if (!options.dump.empty()) {
      checkWritable(options.dump);
   }
   StopSignals stop;
   Client client(options.socket, options.patience());
   Tools::showWaiting(client);
   client.interruptFd = stop.fd();
   Mount const& mount = mountStatus(client, options.root);
   if (options.atEnd) {
      std::cout << "mirroring " << Kiv::printable(mount.root().nameString()) << std::endl;
      while (!client.over() && !client.turn(stop.fd(), std::chrono::hours(1))) {
      }
      if (client.over()) {
         throw Failure(options.socket + ": the connection is lost: " + client.closeReason(),
                       Exit::connection);
      }
      stop.taken();  // a second signal ends the wait, too
      client.beginAnew();
      client.sync();
   }
   Ptpports::printPorts(std::cout, static_cast<Ptp::Status const&>(mount.root()));
   if (!options.dump.empty()) {
      writeWholeFile(options.dump, [&mount](std::ostream& out) { dumpRoots(out, {&mount.root()}); });
   }
}

}  // namespace

int main(int argc, char** argv) {
   Program program("ptpports",
                   "Prints the ports of a PTP agent: states, offsets, delays, counters.");
   Command const& command = program.command();
   Options options;
   addClientOptions(command, options);
   command.option("--root", options.root, "Name of the status to show (the first that is offered)")
         .placeholder("NAME");
   command.flag("--at-end", options.atEnd,
                "Mirror the status until interrupted, then print the table");
   command.option("--dump", options.dump, "Also write a dump of the mirror; - for standard output")
         .placeholder("FILE");
   command.footerIs(
         "Examples:\n"
         "  $ ptpports --socket /tmp/ptp\n"
         "\n"
         "Exit status:\n"
         "  0  done\n"
         "  1  there is no such status\n"
         "  2  the command line is wrong\n"
         "  3  no server, or the connection was lost");
   return runProgram(program, argc, argv, [&options] { run(options); });
}

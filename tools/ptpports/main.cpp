// ptpports: mirrors a clock's status and prints a table of its ports.
#include <unistd.h>

#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "Holt/File.h"
#include "Holt/State/Dump.h"
#include "Holt/StopSignals.h"
#include "Holt/Times.h"
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
   bool json = false;
   bool watch = false;
   double interval = 1;
};

Mount& mountStatus(Client& client, std::string const& name) {
   for (OfferedRoot const& root : client.roots()) {
      if (root.type == Ptp::Status::kivTypeName && (name.empty() || root.name == name)) {
         Mount& mount = client.mountIs(root, MountMode::reader);
         client.waitComplete(mount);
         return mount;
      }
   }
   std::string others;
   for (OfferedRoot const& root : client.roots()) {
      if (root.type == Ptp::Status::kivTypeName) {
         others += (others.empty() ? "" : ", ") + root.name;
      }
   }
   throw Failure("the server offers no " + std::string(Ptp::Status::kivTypeName) +
                 (name.empty() ? "" : " named " + name) + "; " +
                 (others.empty() ? "'ptpstate dump' shows what it offers" : "it has " + others));
}

std::string shown(Options const& options, Ptp::Status const& status) {
   if (options.json) {
      return jsonLine(Ptpports::portsJson(status), options.watch ? -1 : 3) + "\n";
   }
   std::ostringstream out;
   Ptpports::printPorts(out, status);
   return out.str();
}

void print(std::string const& text) {
   std::cout << text << std::flush;
   requireWritten(std::cout);
}

/// Shows the ports whenever they have changed, at most once per interval, until interrupted: on a
/// terminal in place of what was there, else one after the other.
void watchPorts(Options const& options, Client& client, Ptp::Status const& status, int stopFd) {
   bool const inPlace = !options.json && ::isatty(STDOUT_FILENO) == 1;
   auto const interval = std::chrono::milliseconds(static_cast<S64>(options.interval * 1000));
   std::string last;
   Clock::time_point next = Clock::now();
   for (;;) {
      if (Clock::now() >= next) {
         std::string text = shown(options, status);
         if (text != last) {
            bool const first = last.empty();
            last = std::move(text);
            print((inPlace ? "\033[H\033[2J" : first || options.json ? "" : "\n") + last);
         }
         next = Clock::now() + interval;
      }
      auto const left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
      if (client.turn(stopFd, std::max(left, std::chrono::milliseconds(0)))) {
         return;
      }
      if (client.over()) {
         throw Failure(options.socket + ": the connection is lost: " + client.closeReason(),
                       Exit::connection);
      }
   }
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
   auto const& status = static_cast<Ptp::Status const&>(mount.root());
   if (options.watch) {
      watchPorts(options, client, status, stop.fd());
      return;
   }
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
   print(shown(options, status));
   if (!options.dump.empty()) {
      writeWholeFile(options.dump,
                     [&mount](std::ostream& out) { dumpRoots(out, {&mount.root()}); });
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
   command.flag("--json", options.json, "Print JSON; with --watch, an object per line");
   Option const watch =
         command.flag("--watch", options.watch,
                      "Show the ports again whenever they have changed, until interrupted");
   command.option("--interval", options.interval, "With --watch, at most so often; 1 by default")
         .placeholder("SECONDS")
         .range(0.05, 3600.0)
         .needs(watch);
   command
         .flag("--at-end", options.atEnd,
               "Mirror the status until interrupted, then print the table")
         .excludes(watch);
   command.option("--dump", options.dump, "Also write a dump of the mirror; - for standard output")
         .placeholder("FILE")
         .excludes(watch);
   command.footerIs(
         "Examples:\n"
         "  $ ptpports --socket /tmp/ptp\n"
         "  $ ptpports --root ptp/status --watch\n"
         "  $ ptpports --json | jq '.ports[] | select(.portState == \"slave\")'\n"
         "\n"
         "Exit status:\n"
         "  0  done\n"
         "  1  there is no such status\n"
         "  2  the command line is wrong\n"
         "  3  no server, or the connection was lost");
   return runProgram(program, argc, argv, [&options] { run(options); });
}

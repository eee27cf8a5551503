// ptpsnmp: the PTP MIB of a PTP agent, for an SNMP agent.
#include <unistd.h>

#include <csignal>

#include "Holt/Loop.h"
#include "Holt/StopSignals.h"
#include "tools/ptpsnmp/Agent.h"
#include "tools/ptpsnmp/Mib.h"
#include "tools/ptpsnmp/Statuses.h"
#include "tools/shared/CommandLine.h"
#include "tools/shared/Socket.h"

namespace {

using namespace Ptpsnmp;

struct Options {
   std::string socket;
   std::vector<std::string> roots;
   std::string agentx = "unix:/var/agentx/master";
};

void run(Options const& options) {
   std::signal(SIGPIPE, SIG_IGN);  // the program outlives the reader of its log, and the agent
   Holt::StopSignals const stop;
   Holt::LogOutput log(STDOUT_FILENO);
   Mib mib;
   Statuses statuses({.socket = options.socket, .roots = options.roots, .log = &log});
   statuses.onStatuses = [&mib](Statuses::All const& all) { mib.statusesAre(all); };
   Agent agent(options.agentx, mib, log);
   Holt::Loop loop;
   loop.add(statuses);
   loop.add(agent);
   loop.run(stop.fd());
   mib.statusesAre({});
}

}  // namespace

int main(int argc, char** argv) {
   Tools::Program program(
         "ptpsnmp",
         "Gives the status of a PTP agent to an SNMP agent as the PTP MIB of RFC 8173.\n"
         "\n"
         "It is a subagent by AgentX, for snmpd(8) with 'master agentx' in its configuration. It "
         "mirrors each Ptp::Status that the PTP agent offers, and answers from the mirror; it "
         "writes nothing. Both agents may be started later, end, or be restarted: without the PTP "
         "agent, the MIB has no instances.");
   Options options;
   Tools::Command const& command = program.command();
   Tools::addSocketOption(command, options.socket, false);
   command
         .option("--root", options.roots,
                 "Name of a status; by default, all that are offered. Repeatable; they are the "
                 "instances 1, 2, ... of the MIB, in this order, or else in that of their names")
         .placeholder("NAME");
   command
         .option("--agentx", options.agentx,
                 "The socket of the SNMP agent, such as tcp:localhost:705; by default "
                 "unix:/var/agentx/master")
         .placeholder("SOCKET")
         .notEmpty();
   command.footerIs(
         "Examples:\n"
         "  $ ptpsnmp --socket /run/ptpstate.sock\n"
         "  $ ptpsnmp --agentx tcp:localhost:705 --root a/status --root b/status\n"
         "  $ snmpbulkwalk -v2c -c public localhost 1.3.6.1.2.1.241\n"
         "\n"
         "Exit status:\n"
         "  0  it was told to end\n"
         "  1  net-snmp cannot be started\n"
         "  2  the command line is wrong");
   return Tools::runProgram(program, argc, argv, [&options] {
      if (options.socket.empty()) {
         options.socket = Tools::usualSockets().back();  // where the PTP agent may come to be
      }
      run(options);
   });
}

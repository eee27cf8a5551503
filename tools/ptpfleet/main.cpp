// ptpfleet: the states of many switches in a NATS cluster.
#include "tools/ptpfleet/Publish.h"
#include "tools/shared/CommandLine.h"

int main(int argc, char** argv) {
   Tools::Program program("ptpfleet",
                          "Publishes the state of a PTP agent to a fleet in NATS.\n"
                          "\n"
                          "NATS with JetStream keeps the last value of each entity of each switch; "
                          "whoever may read it sees all of them, and when each was last known.");
   Ptpfleet::PublishOptions options;
   Tools::Command const publish = program.command().command(
         "publish",
         "Mirrors every root that the server at a socket offers, such as ptp4lAgent, and keeps the "
         "switch's last values in the fleet equal to them. The server and the cluster may be "
         "started later, end, or be restarted: then only differences are sent.");
   program.command().requireCommand();
   Ptpfleet::addPublishOptions(publish, options);
   publish.footerIs(
         "Examples:\n"
         "  $ ptpfleet publish --switch edge-7\n"
         "  $ ptpfleet publish --nats tls://nats1 --nats tls://nats2 --creds ptp.creds --replicas "
         "3\n"
         "\n"
         "Exit status:\n"
         "  0  it was told to end\n"
         "  1  a file cannot be read\n"
         "  2  the command line is wrong");
   return Tools::runProgram(program, argc, argv, [&options] { Ptpfleet::publish(options); });
}

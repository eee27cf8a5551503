// ptpexport: mirrors the state of a PTP agent, and shows it over HTTP.
#include <csignal>
#include <iostream>

#include "Holt/Failure.h"
#include "Holt/LogOutput.h"
#include "Holt/Loop.h"
#include "Holt/StopSignals.h"
#include "tools/ptpexport/Events.h"
#include "tools/ptpexport/FleetExport.h"
#include "tools/ptpexport/Health.h"
#include "tools/ptpexport/HistoryReply.h"
#include "tools/ptpexport/Http/HttpServer.h"
#include "tools/ptpexport/Metrics/MetricsReply.h"
#include "tools/ptpexport/OpenconfigReply.h"
#include "tools/ptpexport/Page.h"
#include "tools/ptpexport/State.h"
#include "tools/shared/CommandLine.h"
#include "tools/shared/Feed.h"

namespace {

using namespace Ptpexport;

struct CommandLine {
   std::string socket;
   FleetOptions fleet;
   std::vector<std::string> listen;
   std::string certificate;
   std::string key;
   U32 clients = 64;
   double requestTime = 10;
   double answerTime = 60;
};

U64 nanoseconds(double seconds) {
   return static_cast<U64>(seconds * 1e9);
}

HttpServer::Options serverOptions(CommandLine const& line) {
   if (line.certificate.empty() != line.key.empty()) {
      throw Holt::Failure("TLS needs both --tls-cert and --tls-key", Holt::Exit::usage);
   }
   HttpServer::Options options;
   options.listen = line.listen;
   if (options.listen.empty()) {
      options.listen.emplace_back("127.0.0.1:9979");
   }
   options.certificate = Tools::fileOf("--tls-cert", line.certificate);
   options.key = Tools::fileOf("--tls-key", line.key);
   options.clients = line.clients;
   options.request = nanoseconds(line.requestTime);
   options.answer = nanoseconds(line.answerTime);
   return options;
}

void logAddresses(HttpServer const& server, Holt::LogOutput& log) {
   for (std::string const& address : server.addresses()) {
      log.line(std::string("listening at http") + (server.isTls() ? "s" : "") + "://" + address +
               "/");
   }
}

void runFleet(CommandLine const& line, int stopFd, Holt::LogOutput& log) {
   std::unique_ptr<FleetExport> const fleet = FleetExport::make(line.fleet);
   HttpServer server(serverOptions(line));
   fleet->answersAt(server);
   logAddresses(server, log);
   Holt::Loop loop;
   fleet->joins(loop);
   loop.add(server);
   loop.run(stopFd);
}

void run(CommandLine const& line) {
   std::signal(SIGPIPE, SIG_IGN);  // a reader of the log, or a client, may leave
   Holt::StopSignals const stop;
   Holt::LogOutput log(STDOUT_FILENO);
   if (line.fleet.areGiven()) {
      runFleet(line, stop.fd(), log);
      return;
   }
   if (line.socket.empty()) {
      throw Tools::UsageError("--socket is required");
   }
   Feed feed(line.socket);
   Events events(feed);
   History history(feed);
   Counters counters;
   HttpServer server(serverOptions(line));
   server.routeIs("/healthz",
                  [&feed](Request const& request) { return healthReply(feed, request); });
   server.routeIs("/events", [&events](Request const& request) { return events.reply(request); });
   server.routeIs("/history/",
                  [&history](Request const& request) { return historyReply(history, request); });
   server.routeIs("/metrics", [&feed, &counters](Request const& request) {
      return metricsReply(feed, counters, request);
   });
   server.routeIs("/openconfig/",
                  [&feed](Request const& request) { return openconfigReply(feed, request); });
   server.routeIs("/state/", [&feed](Request const& request) { return stateReply(feed, request); });
   server.routeIs("/", &pageReply);
   logAddresses(server, log);
   Holt::Loop loop;
   loop.add(feed);
   loop.add(history);
   loop.add(events);
   loop.add(server);  // last: what the others have for its clients is sent in the same turn
   loop.run(stop.fd());
}

void addOptions(Tools::Command const& command, CommandLine& line) {
   Tools::addSocketOption(command, line.socket, false);
   addFleetOptions(command, line.fleet);
   command
         .option("--listen", line.listen,
                 "Where to listen; 127.0.0.1:9979 by default, which only this machine reaches. "
                 "Repeatable. With port 0, the system chooses one, which is printed")
         .placeholder("ADDRESS:PORT");
   command
         .option("--tls-cert", line.certificate,
                 "Serve HTTPS with this certificate, followed by those of its issuers, as PEM")
         .placeholder("FILE");
   command.option("--tls-key", line.key, "The private key of the certificate, as PEM")
         .placeholder("FILE");
   command
         .option("--clients", line.clients,
                 "Most connections at a time; 64 by default. For one more, that one is closed "
                 "whose time for a request is over first; if all are being answered, the new one "
                 "gets 503")
         .placeholder("NUMBER")
         .range(U64{1}, U64{4096});
   command
         .option("--request-time", line.requestTime,
                 "In which a client must have finished its first request; 10 by default")
         .placeholder("SECONDS")
         .range(0.1, 3600.0);
   command
         .option("--answer-time", line.answerTime,
                 "In which a client must have taken an answer; 60 by default. Events have no such "
                 "limit")
         .placeholder("SECONDS")
         .range(0.1, 86400.0);
   command.footerIs(
         "Examples:\n"
         "  $ ptpexport &\n"
         "  $ xdg-open http://127.0.0.1:9979/\n"
         "  $ curl http://127.0.0.1:9979/healthz\n"
         "  $ curl http://127.0.0.1:9979/metrics\n"
         "  $ curl http://127.0.0.1:9979/state/ptp/status.currentDS\n"
         "  $ curl -gN 'http://127.0.0.1:9979/events?path=ptp/status.portDS[*].portState'\n"
         "  $ ptpexport --fleet nats://nats1 --switch 'edge-*'\n"
         "  $ ptpexport --listen '[::]:9979' --tls-cert cert.pem --tls-key key.pem\n"
         "\n"
         "Exit status:\n"
         "  0  it was told to end\n"
         "  1  the certificate or its key cannot be used\n"
         "  2  the command line is wrong\n"
         "  3  it cannot listen there");
}

}  // namespace

int main(int argc, char** argv) {
   Tools::Program program("ptpexport",
                          "Shows the state of a PTP agent over HTTP, for programs and people.\n"
                          "\n"
                          "It mirrors every root that the server at a socket offers, such as "
                          "ptp4lAgent, and follows it through restarts. Nothing can be changed "
                          "through it. There is no authentication: whoever reaches the address "
                          "reads the state.\n"
                          "\n"
                          "With --fleet, it shows the switches of a fleet instead: /metrics with a "
                          "label 'switch', /state/SWITCH/PATH, and /healthz.");
   CommandLine line;
   addOptions(program.command(), line);
   return Tools::runProgram(program, argc, argv, [&line] { run(line); });
}

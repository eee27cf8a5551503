// ptpgnmi: mirrors the state of a PTP agent, and offers it over gNMI.
#include <unistd.h>

#include <csignal>

#include "Holt/Failure.h"
#include "Holt/LogOutput.h"
#include "Holt/Loop.h"
#include "Holt/StopSignals.h"
#include "tools/ptpgnmi/GrpcServer.h"
#include "tools/shared/CommandLine.h"
#include "tools/shared/Feed.h"

namespace {

using namespace Ptpgnmi;
using Tools::Feed;

struct CommandLine {
   std::string socket;
   std::string listen = "127.0.0.1:9339";
   std::string certificate;
   std::string key;
   std::string clientAuthorities;
   bool insecure = false;
   U32 subscribers = 256;
   U32 paths = 128;
   double gather = 0.01;
};

Listening listeningOf(CommandLine const& line) {
   if (line.insecure) {
      if (!line.certificate.empty() || !line.key.empty() || !line.clientAuthorities.empty()) {
         throw Holt::Failure("--insecure excludes the options of TLS", Holt::Exit::usage);
      }
   } else if (line.certificate.empty() || line.key.empty()) {
      throw Holt::Failure(
            "TLS needs --tls-cert and --tls-key; --insecure is for a connection without TLS",
            Holt::Exit::usage);
   }
   return {line.listen, line.insecure, Tools::fileOf("--tls-cert", line.certificate),
           Tools::fileOf("--tls-key", line.key),
           Tools::fileOf("--tls-client-ca", line.clientAuthorities)};
}

/// Tells the engine what the feed has.
class Follows final : public Feed::Listener {
public:
   Follows(Feed& feed, Engine& engine, Holt::LogOutput& log)
         : feed_(feed), engine_(engine), log_(log) {
      feed_.listenerAdd(*this);
   }
   ~Follows() { feed_.listenerDel(*this); }
   Follows(Follows const&) = delete;
   Follows& operator=(Follows const&) = delete;

   void onStatus(Feed::Status const& status) override {
      log_.line(status.current ? "the state is current" : "the state is old: " + status.reason);
      // What is old is better than nothing, but nothing is not a state.
      reached_ = reached_ || status.current;
      engine_.readyIs(reached_, "the source has not been reached yet: " + status.reason);
   }
   void onRoot(Sarn::Ptr<Kiv::NamedEntity> const& root) override { engine_.rootIs(root); }
   void onRootGone(Kiv::NamedEntity& root) override { engine_.rootDel(root); }

private:
   Feed& feed_;
   Engine& engine_;
   Holt::LogOutput& log_;
   bool reached_ = false;
};

void run(CommandLine const& line) {
   std::signal(SIGPIPE, SIG_IGN);
   Listening const listening = listeningOf(line);
   Limits limits;
   limits.subscribers = line.subscribers;
   limits.paths = line.paths;
   limits.gather = static_cast<U64>(line.gather * 1e9);
   Holt::StopSignals const stop;
   Holt::LogOutput log(STDOUT_FILENO);
   Engine engine(limits);
   Feed feed(line.socket);
   Follows const follows(feed, engine, log);
   Mailbox mailbox;
   Holt::Loop loop;
   loop.add(feed);
   loop.add(mailbox);
   loop.add(engine);
   GrpcServer const server(engine, mailbox, limits, listening);
   std::string const address = line.listen.substr(0, line.listen.rfind(':'));
   log.line("listening at " + address + ":" + std::to_string(server.port()) +
            (line.insecure                    ? " without TLS"
             : line.clientAuthorities.empty() ? ""
                                              : ", for clients with a certificate"));
   loop.run(stop.fd());
}

void addOptions(Tools::Command const& command, CommandLine& line) {
   Tools::addSocketOption(command, line.socket);
   command
         .option("--listen", line.listen,
                 "Where to listen; 127.0.0.1:9339 by default, which only this machine reaches. "
                 "With port 0, the system chooses one, which is printed")
         .placeholder("ADDRESS:PORT");
   command
         .option("--tls-cert", line.certificate,
                 "The server's certificate, followed by those of its issuers, as PEM")
         .placeholder("FILE");
   command.option("--tls-key", line.key, "The private key of the certificate, as PEM")
         .placeholder("FILE");
   command
         .option("--tls-client-ca", line.clientAuthorities,
                 "Serve only clients with a certificate from one of these authorities, as PEM")
         .placeholder("FILE");
   command.flag("--insecure", line.insecure, "Serve without TLS");
   command
         .option("--subscribers", line.subscribers,
                 "Most Subscribe calls at a time; 256 by default")
         .placeholder("NUMBER")
         .range(U64{1}, U64{4096});
   command.option("--paths", line.paths, "Most paths of a subscription or a Get; 128 by default")
         .placeholder("NUMBER")
         .range(U64{1}, U64{4096});
   command
         .option("--gather", line.gather,
                 "Shortest time between two messages of changes to a subscriber; 0.01 by default. "
                 "Changes that come sooner go into one message")
         .placeholder("SECONDS")
         .range(0.0, 10.0);
   command.footerIs(
         "Examples:\n"
         "  $ ptpgnmi --insecure &\n"
         "  $ ptpgnmi --listen '[::]:9339' --tls-cert cert.pem --tls-key key.pem \\\n"
         "       --tls-client-ca clients.pem\n"
         "\n"
         "Exit status:\n"
         "  0  it was told to end\n"
         "  1  the certificate or its key cannot be used\n"
         "  2  the command line is wrong\n"
         "  3  it cannot listen there");
}

}  // namespace

int main(int argc, char** argv) {
   Tools::Program program("ptpgnmi",
                          "Offers the state of a PTP agent over gNMI.\n"
                          "\n"
                          "It mirrors every root that the server at a socket offers, such as "
                          "ptp4lAgent, and follows it through restarts. Paths of origin "
                          "\"openconfig\", the default, are those of openconfig-ptp; origin "
                          "\"ptplib\" has everything. Set is refused.");
   CommandLine line;
   addOptions(program.command(), line);
   return Tools::runProgram(program, argc, argv, [&line] { run(line); });
}

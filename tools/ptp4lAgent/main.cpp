// ptp4lAgent: keeps running ptp4l(8) daemons in trees, and serves them.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <list>
#include <map>
#include <optional>
#include <system_error>

#include "Holt/Failure.h"
#include "Holt/Loop.h"
#include "Holt/Ptp4l/Load.h"
#include "Holt/Server.h"
#include "Holt/StopSignals.h"
#include "tools/ptp4lAgent/Clock.h"
#include "tools/ptp4lAgent/ConfFile.h"
#include "tools/ptp4lAgent/HardwareFill.h"
#include "tools/ptp4lAgent/Links.h"
#include "tools/shared/CommandLine.h"
#include "tools/shared/Contribution.h"
#include "tools/shared/Readiness.h"

namespace {

using namespace Ptp4lAgent;
using Holt::Failure;

/// Of a number on the command line.
constexpr U32 notGiven = ~U32{0};

struct CommandLine {
   std::string socket;
   std::vector<std::string> daemons = {"/var/run/ptp4l"};
   std::string conf;
   std::string writeConf;
   std::string reload;
   std::string statedb;
   U32 domain = notGiven;
   U32 transportSpecific = notGiven;
   std::string mode;
   std::string owner;
   std::vector<std::string> writers;
   bool quiet = false;
};

/// "NAME=PATH", or a path, whose name is "ptp" if it is the only one, and else that of the file.
struct Named {
   std::string name;
   std::string path;
};

std::vector<Named> named(std::vector<std::string> const& daemons) {
   std::vector<Named> all;
   for (std::string const& text : daemons) {
      std::size_t const equals = text.find('=');
      Named one{"ptp", text.substr(equals == std::string::npos ? 0 : equals + 1)};
      if (equals != std::string::npos) {
         one.name = text.substr(0, equals);
      } else if (daemons.size() > 1) {
         one.name = text.substr(text.rfind('/') + 1);
      }
      if (one.name.empty() || one.path.empty()) {
         throw Failure("--ptp4l " + text + ": expected a path, or NAME=PATH", Holt::Exit::usage);
      }
      for (Named const& other : all) {
         if (other.name == one.name) {
            throw Failure("--ptp4l " + text + ": " + other.path + " is named '" + other.name +
                                "', too; name each, as in NAME=PATH",
                          Holt::Exit::usage);
         }
      }
      all.push_back(std::move(one));
   }
   return all;
}

Holt::Ptp4lConf readConf(std::string const& file) {
   try {
      return Holt::readPtp4lConf(file);
   } catch (std::system_error const& error) {
      throw Failure(error.what());
   }
}

/// The configuration that a daemon was started with.
void load(std::string const& file, Ptp::Config& config) {
   Holt::Ptp4lConf const conf = readConf(file);
   Holt::Ptp4lOutcome const outcome = Holt::loadPtp4lConf(conf, config);
   for (Holt::Ptp4lRemark const& error : outcome.errors) {
      std::cerr << "ptp4lAgent: " << Holt::remarkText(conf.file, error) << std::endl;
   }
   if (!outcome.errors.empty()) {
      throw Failure(conf.file + ": not loaded; correct the " +
                    (outcome.errors.size() == 1 ? "line" : "lines") + " above");
   }
}

Holt::Server::Options serverOptions(CommandLine const& line, Holt::LogOutput& log) {
   Holt::Server::Options options;
   options.socket = line.socket;
   if (!line.mode.empty()) {
      options.mode = Holt::parseMode(line.mode);
   }
   if (!line.owner.empty()) {
      options.owner = Holt::parseOwner(line.owner);
   }
   options.writers = Holt::Writers::nobody("the agent's own");
   options.log = line.quiet ? nullptr : &log;
   return options;
}

/// Who may change the configuration: those that are named, or root and the agent's own user.
Holt::Writers writersOf(CommandLine const& line) {
   if (!line.writers.empty()) {
      return Holt::Writers({line.writers.begin(), line.writers.end()});
   }
   std::vector<Sarn::String> own{"0"};
   if (::geteuid() != 0) {
      own.push_back(std::to_string(::geteuid()));
   }
   return Holt::Writers(own);
}

/// Has a peer that changes the configuration wait until the daemon has taken the change.
void waitForDaemon(ConfigFill& config, Holt::Server& server) {
   struct Open {
      std::size_t count = 0;
      Sarn::String refusal;
   };
   // A transaction may contain several changes: its peer waits for all of them.
   config.onAsked = [&server, open = std::make_shared<std::map<U64, Open>>()] {
      U64 const asker = server.asker();
      ++(*open)[asker].count;
      return [&server, open, asker](Sarn::String const& refusal) {
         Open& own = (*open)[asker];
         own.refusal = own.refusal.empty() ? refusal : own.refusal;
         if (--own.count == 0) {
            Sarn::String const first = own.refusal;
            open->erase(asker);
            server.decided(asker, first);
         }
      };
   };
   config.onUndecided = [&server] {
      if (server.asker() != 0) {
         throw Holt::Server::Undecided{};
      }
   };
}

std::optional<U8> given(U32 number) {
   return number != notGiven ? std::optional(static_cast<U8>(number)) : std::nullopt;
}

/// Keeps a root at the server of --statedb, too.
void contribute(CommandLine const& line, Holt::LogOutput& log,
                std::list<Tools::Contribution>& contributions, Kiv::NamedEntity& root) {
   Tools::Contribution& one =
         contributions.emplace_back(line.statedb, Sarn::Ptr<Kiv::NamedEntity>(&root));
   if (!line.quiet) {
      one.onStatus = [&log](Tools::Contribution const& told) {
         Sarn::String const& name = told.own().nameString();
         log.line(Holt::timeText(Holt::wallNow()) + " " +
                  (told.current() ? name + " is kept by the server of --statedb" : told.reason()));
      };
   }
}

void run(CommandLine const& line) {
   std::signal(SIGPIPE, SIG_IGN);  // the agent outlives the reader of its log
   Holt::StopSignals const stop;
   Holt::LogOutput log(STDOUT_FILENO);
   Holt::Loop loop;
   std::list<Clock> clocks;
   std::size_t number = 0;
   for (Named const& one : named(line.daemons)) {
      Clock::Options options;
      options.name = one.name;
      options.instanceId = static_cast<U32>(number);
      options.daemon.path = one.path;
      options.daemon.own = pathBeside(one.path, ++number);
      options.daemon.log = &log;
      options.daemon.domain = given(line.domain);
      options.daemon.transportSpecific = given(line.transportSpecific);
      options.config = Ptp::configFactory(one.name + "/config");
      if (!line.conf.empty()) {
         options.conf = Ptp::configFactory(one.name + "/conf");  // not served
         load(line.conf, *options.conf);
         load(line.conf, *options.config);
      }
      clocks.emplace_back(std::move(options));
   }
   Holt::Server server(serverOptions(line, log));
   Links links([&clocks](std::string const& interface, bool up) {
      for (Clock& clock : clocks) {
         clock.linkIs(interface, up);
      }
   });
   loop.add(links);
   std::optional<ConfFile> confFile;
   if (!line.writeConf.empty()) {
      if (clocks.size() > 1) {
         throw Failure("--write-conf: there are several ptp4l; run an agent for each",
                       Holt::Exit::usage);
      }
      ConfFile::Options options{.path = line.writeConf, .reload = line.reload, .log = &log};
      if (!line.conf.empty()) {
         options.base = readConf(line.conf);
      }
      ConfigFill& config = clocks.front().config();
      confFile.emplace(Sarn::Ptr<Ptp::Config>(&config.config()), std::move(options));
      config.onChanged = [&confFile] { confFile->changed(); };
      loop.add(*confFile);
   } else if (!line.reload.empty()) {
      throw Failure("--reload needs --write-conf", Holt::Exit::usage);
   }
   std::list<HardwareFill> hardware;
   for (Clock& clock : clocks) {
      HardwareFill& fill = hardware.emplace_back(Ptp::hwStatusFactory(clock.name() + "/hwStatus"),
                                                 Ptp::hwTimeFactory(clock.name() + "/hwTime"));
      clock.onPorts = [&clock, &fill] { fill.take(clock.ports(), clock.isTwoStep()); };
      server.rootIs(Sarn::Ptr<Kiv::NamedEntity>(&fill.status()));
      server.rootIs(Sarn::Ptr<Kiv::NamedEntity>(&fill.time()));
      loop.add(fill);
      server.rootIs(Sarn::Ptr<Kiv::NamedEntity>(&clock.status()));
      server.rootIs(Sarn::Ptr<Kiv::NamedEntity>(&clock.config().config()), writersOf(line));
      server.rootIs(Sarn::Ptr<Kiv::NamedEntity>(&clock.instance()));
      waitForDaemon(clock.config(), server);
      loop.add(clock.daemon());
   }
   std::list<Tools::Contribution> contributions;
   if (!line.statedb.empty()) {
      for (Kiv::NamedEntity* const root : server.roots()) {
         if (&root->kivType() != &Ptp::Config::kivTypeImpl) {
            contribute(line, log, contributions, *root);
            loop.add(contributions.back());
         }
      }
   }
   loop.add(server);
   Tools::Readiness readiness([&clocks] {
      return std::ranges::all_of(clocks, [](Clock& clock) { return clock.daemon().hasTold(); });
   });
   loop.add(readiness);
   loop.run(stop.fd());
   server.closeAll("the agent has ended");
}

void addOptions(Tools::Command const& command, CommandLine& line) {
   Tools::addListenOption(command, line.socket);
   command
         .option("--ptp4l", line.daemons,
                 "The socket of a running ptp4l (uds_address), or its read-only socket; by default "
                 "/var/run/ptp4l. Repeatable; the roots of each begin with its NAME, which is ptp "
                 "by default, or the name of the file if there are several")
         .placeholder("[NAME=]PATH");
   command
         .option("--conf", line.conf,
                 "The configuration file that ptp4l was started with: gives what ptp4l does not "
                 "tell. If it has an error, the agent does not start")
         .placeholder("FILE");
   command
         .option("--write-conf", line.writeConf,
                 "Write the configuration to this file, half a second after somebody has changed "
                 "it. It may be the file of --conf; settings of that file which the model has no "
                 "place for are kept")
         .placeholder("FILE");
   command
         .option("--reload", line.reload,
                 "Run this shell command after the file has been written, such as 'systemctl "
                 "restart ptp4l@eth0'")
         .placeholder("COMMAND");
   command
         .option("--statedb", line.statedb,
                 "Keep the roots at this server, too, except the configuration: it must offer "
                 "roots of their types and names. The agent claims them, and tries again for as "
                 "long as the server is away or refuses")
         .placeholder("SOCKET");
   command.option("--domain", line.domain, "The clock's domain; by default, all are tried")
         .placeholder("NUMBER")
         .range(U64{0}, U64{255});
   command
         .option("--transport-specific", line.transportSpecific,
                 "The clock's transportSpecific; by default, 0 and 1 are tried")
         .placeholder("NUMBER")
         .range(U64{0}, U64{15});
   command
         .option("--mode", line.mode,
                 "Permissions of the agent's socket, in octal; by default, the umask decides")
         .placeholder("MODE");
   command.option("--owner", line.owner, "Give the agent's socket to USER, :GROUP or USER:GROUP")
         .placeholder("OWNER");
   command
         .option("--writers", line.writers,
                 "Who may change the configuration: users, and groups with a leading colon; by "
                 "default, root and the user of the agent")
         .placeholder("WHO,...")
         .separatedBy(',');
   command.flag("--quiet", line.quiet, "Do not report connections");
   command.footerIs(
         "Examples:\n"
         "  $ ptp4lAgent &\n"
         "  $ ptpports\n"
         "  $ ptpstate set ptp/config.priority1 100\n"
         "  $ ptp4lAgent --socket /run/ptp.sock --ptp4l a=/run/ptp4l-a --ptp4l b=/run/ptp4l-b\n"
         "\n"
         "Exit status:\n"
         "  0  it was told to end\n"
         "  1  the configuration file cannot be loaded\n"
         "  2  the command line is wrong\n"
         "  3  the socket cannot be created");
}

}  // namespace

int main(int argc, char** argv) {
   Tools::Program program(
         "ptp4lAgent",
         "Shows running ptp4l(8) daemons as the status and the configuration of a PTP agent, and "
         "serves these.\n"
         "\n"
         "The agent asks ptp4l through its management socket, and follows whatever becomes of it: "
         "it may be started later, end, or be restarted. The roots are ptp/status, ptp/config, "
         "ptp/hwStatus, ptp/hwTime and ptp/instance. All but the configuration can only be read. "
         "priority1, priority2, clockQuality with clockQualityConfigured, and linkDelayThreshold "
         "of an interface are written to ptp4l; if it refuses, whoever has made the change loses "
         "the connection with ptp4l's reason.");
   CommandLine line;
   addOptions(program.command(), line);
   return Tools::runProgram(program, argc, argv, [&line] { run(line); });
}

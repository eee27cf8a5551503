#include "tools/ptpfleet/Publish.h"

#include <unistd.h>

#include <csignal>

#include "Holt/Failure.h"
#include "Holt/LogOutput.h"
#include "Holt/StopSignals.h"
#include "tools/shared/CommandLine.h"
#include "tools/shared/Feed.h"

namespace Ptpfleet {

using Tools::Feed;

namespace {

/// Hands over what a feed mirrors.
class Relay final : Feed::Listener {
public:
   Relay(Feed& feed, Fleet::Publisher& publisher, Holt::LogOutput& log)
         : feed_(feed), publisher_(publisher), log_(log) {
      feed_.listenerAdd(*this);
      onStatus(feed_.status());
   }
   ~Relay() { feed_.listenerDel(*this); }
   Relay(Relay const&) = delete;
   Relay& operator=(Relay const&) = delete;

private:
   void onStatus(Feed::Status const& status) override {
      publisher_.sourceIs(status.current, status.since, status.reason);
   }
   void onRoot(Sarn::Ptr<Kiv::NamedEntity> const& root) override {
      try {
         publisher_.rootAdd(root);
      } catch (Holt::Failure const& failure) {
         log_.line(failure.what());
      }
   }
   void onRootGone(Kiv::NamedEntity& root) override { publisher_.rootDel(root); }

   Feed& feed_;
   Fleet::Publisher& publisher_;
   Holt::LogOutput& log_;
};

/// Logs what becomes different.
class Report final : public Holt::Source {
public:
   Report(Feed const& feed, Fleet::Connection const& connection, Fleet::Publisher const& publisher,
          Holt::LogOutput& log)
         : feed_(feed), connection_(connection), publisher_(publisher), log_(log) {}

   void appendTo(std::vector<pollfd>&) override {
      Feed::Status const& source = feed_.status();
      say(source_,
          source.current ? "source: " + feed_.options().socket : "source: " + source.reason);
      Fleet::Connection::Status const& status = connection_.status();
      say(server_,
          status.connected ? "NATS: connected to " + status.url : "NATS: " + status.reason);
      Fleet::Publisher::Status const fleet = publisher_.status();
      if (status.connected) {
         say(fleet_, fleet.reason.empty() ? "fleet: publishing" : "fleet: " + fleet.reason);
      }
      if (fleet.leftOut != 0) {
         say(leftOut_, "fleet: " + std::to_string(fleet.leftOut) +
                             " entities are not published: their names or values are too long");
      }
   }
   void onTurn(std::span<pollfd const>) override {}

private:
   void say(std::string& last, std::string const& line) {
      if (line != last) {
         last = line;
         log_.line(line);
      }
   }

   Feed const& feed_;
   Fleet::Connection const& connection_;
   Fleet::Publisher const& publisher_;
   Holt::LogOutput& log_;
   std::string source_;
   std::string server_;
   std::string fleet_;
   std::string leftOut_;
};

U64 nanoseconds(double seconds) {
   return static_cast<U64>(seconds * 1e9);
}

}  // namespace

void addPublishOptions(Tools::Command const& command, PublishOptions& options) {
   Tools::addNatsOptions(command, options.nats);
   command
         .option("--switch", options.switchName,
                 "Name of the switch in the fleet; by default, the machine's host name")
         .placeholder("NAME");
   Tools::addSocketOption(command, options.socket);
   command
         .option("--stream", options.stream,
                 "Name of the JetStream stream, which is created if there is none; PTP by default")
         .placeholder("NAME")
         .notEmpty();
   command
         .option("--replicas", options.replicas,
                 "Copies of the stream in the cluster, if it is created; 1 by default")
         .placeholder("NUMBER")
         .range(U64{1}, U64{5});
   command
         .option("--storage", options.storage,
                 "Where the servers keep the stream, if it is created: file (the default) or "
                 "memory")
         .placeholder("WHERE");
   command
         .option("--interval", options.interval,
                 "Shortest time between two messages of one entity; 0 by default")
         .placeholder("SECONDS")
         .range(0.0, 3600.0);
   command
         .option(
               "--heartbeat", options.heartbeat,
               "Time between two heartbeats; 2 by default. A reader that misses three regards the "
               "switch as silent")
         .placeholder("SECONDS")
         .range(0.1, 3600.0);
}

void publish(PublishOptions const& options) {
   if (options.storage != "file" && options.storage != "memory") {
      throw Holt::Failure("--storage: '" + options.storage + "' is neither file nor memory",
                          Holt::Exit::usage);
   }
   Fleet::Publisher::Options fleet;
   fleet.switchName = options.switchName;
   if (fleet.switchName.empty()) {
      char name[256] = "";
      (void)::gethostname(name, sizeof name - 1);
      fleet.switchName = name;
   }
   fleet.stream = {options.stream, options.replicas, options.storage == "memory"};
   fleet.interval = nanoseconds(options.interval);
   fleet.heartbeat = nanoseconds(options.heartbeat);
   std::signal(SIGPIPE, SIG_IGN);
   Holt::StopSignals const stop;
   Holt::LogOutput log(STDOUT_FILENO);
   Feed feed(options.socket);
   Fleet::Connection connection(
         Tools::connectionOptions(options.nats, "ptpfleet " + fleet.switchName));
   Fleet::Publisher publisher(connection, fleet);
   Relay const relay(feed, publisher, log);
   Report report(feed, connection, publisher, log);
   log.line("switch: " + fleet.switchName);
   Holt::Loop loop;
   loop.add(feed);
   loop.add(connection);
   loop.add(publisher);
   loop.add(report);
   loop.run(stop.fd());
   publisher.end();
}

}  // namespace Ptpfleet

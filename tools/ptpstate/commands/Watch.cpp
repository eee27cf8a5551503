// watch
#include <poll.h>
#include <nlohmann/json.hpp>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ctime>
#include <iostream>
#include <list>
#include <optional>

#include "Holt/State/Changes.h"
#include "Holt/State/Dump.h"
#include "Holt/StopSignals.h"
#include "Holt/Times.h"
#include "Kiv/Module.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using std::chrono::milliseconds;

struct WatchOptions : ClientOptions {
   std::string path;
   U64 count = 0;
   double seconds = 0;
   std::string dump;
   bool json = false;
   bool noReconnect = false;
};

/// A root, its mirror, and who tells of changes there. The mirror outlives connections.
struct Watched {
   OfferedRoot root;
   Sarn::Ptr<Kiv::NamedEntity> mirror;
   /// Tells once the mirror has been complete: before that, what comes is no change.
   std::optional<ChangeObserver> observer;
};

class Watch {
public:
   explicit Watch(WatchOptions const& options) : options_(options) {}

   Exit run();

private:
   void connect();
   void choose();
   void rootIs(OfferedRoot const& root, Sarn::String const& below);
   void onState(Mount const& mount);
   void onChange(ChangeText const& text);
   void onSessions(std::vector<Kiv::NboAttrLog::SessionStatus> const& sessions);
   void askForGaps();
   bool follow();
   bool reconnect();
   bool pause(milliseconds time) const;
   void finish();
   void dump() const;
   bool enough() const { return options_.count != 0 && told_ >= options_.count; }
   bool timeIsOver() const { return end_ && Clock::now() >= *end_; }
   /// How long to wait at most; negative for ever.
   milliseconds left() const;
   void event(Sarn::String const& text, Json const& json) const;

   WatchOptions const& options_;
   StopSignals stop_;
   std::list<Watched> watched_;
   std::unique_ptr<Client> client_;
   std::optional<Clock::time_point> end_;
   U64 told_ = 0;
   // Changes that this connection's server coalesced, as far as we have told of it.
   U64 coalesced_ = 0;
   U64 toldWhenAsked_ = 0;
   Clock::time_point askAgain_;
};

void Watch::event(Sarn::String const& text, Json const& json) const {
   std::cout << (options_.json
                       ? jsonLine(json)
                       : timeText(wallNow(), TimeForm::time) + " -- " + Kiv::printable(text))
             << '\n';
}

/// An event as an object that begins with its time and its name.
Json eventJson(char const* name) {
   return Json{{"time", timeText(wallNow(), TimeForm::universal)}, {"event", name}};
}

void Watch::connect() {
   client_.reset();
   client_ = std::make_unique<Client>(options_.socket, options_.patience());
   client_->interruptFd = stop_.fd();
   client_->onMountState = [this](Mount& mount) { onState(mount); };
   client_->onSessionsTold = [this](auto const& sessions) { onSessions(sessions); };
   coalesced_ = 0;
   toldWhenAsked_ = told_;
}

/// The roots that are watched, or the one that the path leads to.
void Watch::choose() {
   if (!options_.path.empty()) {
      Path const path = parsePath(options_.path, client_->roots());
      Sarn::Ptr<Kiv::NamedEntity> const probe = newRoot(path.root.type, path.root.name);
      rootIs(path.root, canonicalPath(probe->kivType(), path));
      return;
   }
   for (OfferedRoot const& root : client_->roots()) {
      if (Kiv::typeByName(root.type) == nullptr) {
         std::cerr << "ptpstate: "
                   << Kiv::printable(root.name + " is left out: its type " + root.type +
                                     " is not known here; load the module that has it")
                   << std::endl;
         continue;
      }
      rootIs(root, root.name);
   }
}

void Watch::rootIs(OfferedRoot const& root, Sarn::String const& below) {
   Watched& watched = watched_.emplace_back();
   watched.root = root;
   watched.mirror = newRoot(root.type, root.name);
   watched.observer.emplace(watched.mirror, below,
                            [this](ChangeText const& text) { onChange(text); });
   watched.observer->tellingIs(false);
}

void Watch::onState(Mount const& mount) {
   Sarn::String const& name = mount.root().nameString();
   switch (mount.state()) {
      case Mount::State::complete: {
         for (Watched& watched : watched_) {
            if (watched.mirror.get() == &mount.root()) {
               watched.observer->tellingIs(true);
            }
         }
         Dump dump;
         dump.entity(mount.root(), name);
         Json json = eventJson("complete");
         json["root"] = name;
         json["entities"] = dump.total().entities;
         json["attributes"] = dump.total().attributes;
         event(name + " is complete: " + tallyText(dump.total()), json);
         break;
      }
      case Mount::State::refused:
         throw Failure(name + ": the server refuses a mirror: " + mount.reason(), Exit::connection);
      case Mount::State::gone: {
         Json json = eventJson("gone");
         json["root"] = name;
         event(name + " is gone: the server has given it up", json);
         break;
      }
      default:
         break;
   }
}

void Watch::onChange(ChangeText const& text) {
   if (enough()) {
      return;
   }
   ++told_;
   if (options_.json) {
      Json json{{"time", timeText(wallNow(), TimeForm::universal)}};
      json.update(changeJson(text));
      std::cout << jsonLine(json) << '\n';
   } else {
      std::cout << timeText(wallNow(), TimeForm::time) << ' '
                << Kiv::printable(text.path + text.what) << '\n';
   }
}

/// The server knows what it has left out for this connection.
void Watch::onSessions(std::vector<Kiv::NboAttrLog::SessionStatus> const& sessions) {
   for (Kiv::NboAttrLog::SessionStatus const& session : sessions) {
      U64 const now = session.stats.changesCoalesced;
      if (session.asking && now > coalesced_) {
         U64 const missed = now - coalesced_;
         coalesced_ = now;
         Json json = eventJson("coalesced");
         json["changes"] = missed;
         event(std::to_string(missed) + (missed == 1 ? " change was" : " changes were") +
                     " coalesced: they came faster than they were read, and only later values "
                     "are told",
               json);
      }
   }
   // The answer is as long as there are connections; with many of them it is asked for less often.
   askAgain_ = Clock::now() +
               std::max(milliseconds(1000), milliseconds(10 * static_cast<S64>(sessions.size())));
}

/// Asks whether there was a gap, when changes have come since it was last asked.
void Watch::askForGaps() {
   if (told_ != toldWhenAsked_ && Clock::now() >= askAgain_ && !client_->over()) {
      toldWhenAsked_ = told_;
      askAgain_ = Clock::time_point::max();  // until the answer is here
      client_->sessionsAsk();
   }
}

milliseconds Watch::left() const {
   std::optional<Clock::time_point> until = end_;
   if (told_ != toldWhenAsked_ && askAgain_ != Clock::time_point::max()) {
      until = until ? std::min(*until, askAgain_) : askAgain_;
   }
   if (!until) {
      return milliseconds(-1);
   }
   auto const left = std::chrono::duration_cast<milliseconds>(*until - Clock::now());
   return std::max(left + milliseconds(1), milliseconds::zero());
}

/// Until it is told to stop, has told enough, or the connection is over. Whether to stop.
bool Watch::follow() {
   while (!enough() && !timeIsOver()) {
      if (client_->over()) {
         return false;
      }
      std::cout.flush();
      if (client_->turn(stop_.fd(), left())) {
         return true;
      }
      askForGaps();
   }
   return true;
}

/// Waits for so long, or until a signal comes, or the time is over. Whether to go on.
bool Watch::pause(milliseconds time) const {
   Clock::time_point const until =
         end_ ? std::min(*end_, Clock::now() + time) : Clock::now() + time;
   auto const left = std::chrono::duration_cast<milliseconds>(until - Clock::now());
   pollfd polled{stop_.fd(), POLLIN, 0};
   return ::poll(&polled, 1, static_cast<int>(left.count()) + 1) <= 0 && !timeIsOver();
}

/// Tries until there is a server again. Whether there is one.
bool Watch::reconnect() {
   milliseconds wait(100);
   for (;;) {
      std::cout.flush();
      if (!pause(wait)) {
         return false;
      }
      wait = std::min(wait * 2, milliseconds(2000));
      try {
         connect();
         break;
      } catch (Failure const&) {
         continue;  // it is not there yet
      }
   }
   event("connection made again; what has changed meanwhile is told now", eventJson("connected"));
   for (Watched const& watched : watched_) {
      client_->mountIs(watched.mirror, MountMode::reader);
   }
   return true;
}

void Watch::dump() const {
   writeFile(options_.dump, [this](std::ostream& out) {
      std::vector<Kiv::NamedEntity*> roots;
      for (Watched const& watched : watched_) {
         roots.push_back(watched.mirror.get());
      }
      dumpRoots(out, roots);
   });
}

/// Takes what the server has still to tell, so that nothing from before the end is missing.
void Watch::finish() {
   if (!client_->over()) {
      stop_.taken();  // a second signal ends the waiting, too
      client_->beginAnew();
      client_->sync();
      if (told_ != toldWhenAsked_) {
         client_->sessions();
      }
   }
}

Exit Watch::run() {
   if (options_.seconds > 0) {
      end_ = Clock::now() + milliseconds(static_cast<S64>(options_.seconds * 1000));
   }
   connect();
   choose();
   for (Watched const& watched : watched_) {
      client_->mountIs(watched.mirror, MountMode::reader);
   }
   bool lost = false;
   while (!follow()) {
      Json json = eventJson("lost");
      json["reason"] = client_->closeReason();
      event("connection lost: " + client_->closeReason(), json);
      lost = options_.noReconnect || !reconnect();
      if (lost) {
         break;
      }
   }
   if (!lost) {
      finish();
   }
   std::cout.flush();
   if (!options_.dump.empty()) {
      dump();
   }
   if (lost) {
      throw Failure(
            options_.socket + ": the connection is lost; watch again when the server is back",
            Exit::connection);
   }
   return Exit::ok;
}

}  // namespace

void addWatch(CLI::App& app, Run& run) {
   auto const options = std::make_shared<WatchOptions>();
   CLI::App& command = *app.add_subcommand(
         "watch",
         "Prints a line a change, until it is interrupted. With a path, only changes "
         "there and below.\n"
         "\n"
         "Changes that come faster than they are read are not queued without end: of an "
         "attribute that changed several times meanwhile, the last value is told, and a "
         "line says how many were left out. When the connection is lost, it tries again "
         "until the server is back, and then tells what has changed meanwhile.\n"
         "\n"
         "At its end it first takes what the server has still to tell, so that nothing is "
         "missing from before. A second interrupt ends that waiting, too.");
   command.footer(
         "Examples:\n"
         "  $ ptpstate watch --socket /tmp/ptp\n"
         "  $ ptpstate watch --socket /tmp/ptp ptp/config.intfConfig --for 60\n"
         "  $ ptpstate watch --socket /tmp/ptp --json --count 1 ptp/config.domainNumber");
   addClientOptions(command, *options);
   command.add_option("path", options->path)->type_name("PATH");
   command.add_option("--count", options->count, "End after so many changes")
         ->type_name("N")
         ->check(CLI::Range(U64{1}, ~U64{0}));
   command.add_option("--for", options->seconds, "End after so long")
         ->type_name("SECONDS")
         ->check(CLI::Range(0.001, 1e9));
   command
         .add_option("--dump", options->dump,
                     "At the end, write the mirror as it is in memory; - for standard output")
         ->type_name("FILE");
   command.add_flag(
         "--json", options->json,
         "An object a line: a change, \"set\", \"created\" or \"deleted\", or an event, "
         "\"complete\", \"coalesced\", \"lost\", \"connected\" or \"gone\"; times in UTC");
   command.add_flag("--no-reconnect", options->noReconnect,
                    "End when the connection is lost, with status 3");
   command.callback([options, &run] { run = [options] { return Watch(*options).run(); }; });
}

}  // namespace Ptpstate

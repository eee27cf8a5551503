// watch
#include <poll.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <ctime>
#include <iostream>
#include <list>
#include <optional>

#include "Holt/File.h"
#include "Holt/State/Changes.h"
#include "Holt/State/Doc.h"
#include "Holt/State/Dump.h"
#include "Holt/StopSignals.h"
#include "Holt/Times.h"
#include "Kiv/Module.h"
#include "Kiv/Printable.h"
#include "tools/ptpstate/Commands.h"
#include "tools/ptpstate/FleetWatch.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using std::chrono::milliseconds;

/// A root with its mirror and the observer of its changes. The mirror outlives connections.
struct Watched {
   OfferedRoot root;
   Sarn::Ptr<Kiv::NamedEntity> mirror;
   /// Reports only once the mirror has been complete: what comes before is not a change.
   std::optional<ChangeObserver> observer;
};

class Watch {
public:
   explicit Watch(WatchOptions const& options) : options_(options) {}

   Exit run();

private:
   void connect();
   void choose();
   void rootIs(OfferedRoot const& root, std::vector<Sarn::String> const& below);
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
   /// How long to wait at most; negative: without limit.
   milliseconds left() const;
   void event(Sarn::String const& text, Json const& json) const;

   WatchOptions const& options_;
   StopSignals stop_;
   std::list<Watched> watched_;
   std::unique_ptr<Client> client_;
   std::optional<Clock::time_point> end_;
   U64 told_ = 0;
   // Changes that the server has coalesced on this connection, as far as they have been reported.
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
   Tools::showWaiting(*client_);
   client_->interruptFd = stop_.fd();
   client_->onMountState = [this](Mount& mount) { onState(mount); };
   client_->onSessionsTold = [this](auto const& sessions) { onSessions(sessions); };
   coalesced_ = 0;
   toldWhenAsked_ = told_;
}

/// Chooses the roots to watch: all, or those that the paths begin with.
void Watch::choose() {
   if (!options_.paths.empty()) {
      std::vector<std::pair<OfferedRoot, std::vector<Sarn::String>>> roots;
      for (std::string const& text : options_.paths) {
         Path const path = parsePath(plainArgument(text), client_->roots());
         auto at = std::find_if(roots.begin(), roots.end(), [&path](auto const& root) {
            return isSame(root.first, path.root);
         });
         if (at == roots.end()) {
            at = roots.insert(at, {path.root, {}});
         }
         Sarn::Ptr<Kiv::NamedEntity> const probe = newRoot(path.root.type, path.root.name);
         at->second.push_back(canonicalPath(probe->kivType(), path));
      }
      for (auto const& [root, below] : roots) {
         rootIs(root, below);
      }
      return;
   }
   for (OfferedRoot const& root : client_->roots()) {
      if (Kiv::typeByName(root.type) == nullptr) {
         std::cerr << "ptpstate: "
                   << Kiv::printable(root.name + " is left out: its type " + root.type +
                                     " is not known here; load its module")
                   << std::endl;
         continue;
      }
      rootIs(root, {root.name});
   }
}

void Watch::rootIs(OfferedRoot const& root, std::vector<Sarn::String> const& below) {
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
         throw Failure(name + ": the server refused the mirror: " + mount.reason(),
                       Exit::connection);
      case Mount::State::gone: {
         Json json = eventJson("gone");
         json["root"] = name;
         event(name + " is gone: the server has withdrawn it", json);
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

/// Reports what the server has coalesced for this connection.
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
                     "are shown",
               json);
      }
   }
   // The answer grows with the number of connections, so ask less often if there are many.
   askAgain_ = Clock::now() +
               std::max(milliseconds(1000), milliseconds(10 * static_cast<S64>(sessions.size())));
}

/// Asks whether changes were coalesced, if any have come since it last asked.
void Watch::askForGaps() {
   if (told_ != toldWhenAsked_ && Clock::now() >= askAgain_ && !client_->over()) {
      toldWhenAsked_ = told_;
      askAgain_ = Clock::time_point::max();  // until the answer arrives
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

/// Reports changes until the command is done or the connection ends. Returns whether it is done.
bool Watch::follow() {
   while (!enough() && !timeIsOver()) {
      if (client_->over()) {
         return false;
      }
      Tools::requireWritten(std::cout);
      if (client_->turn(stop_.fd(), left())) {
         return true;
      }
      askForGaps();
   }
   return true;
}

/// Waits for `time`, a signal, or the end of the command. Returns whether to continue.
bool Watch::pause(milliseconds time) const {
   Clock::time_point const until =
         end_ ? std::min(*end_, Clock::now() + time) : Clock::now() + time;
   auto const left = std::chrono::duration_cast<milliseconds>(until - Clock::now());
   pollfd polled{stop_.fd(), POLLIN, 0};
   return ::poll(&polled, 1, static_cast<int>(left.count()) + 1) <= 0 && !timeIsOver();
}

/// Tries until it is connected again; returns false if the command ends before that.
bool Watch::reconnect() {
   milliseconds wait(100);
   for (;;) {
      Tools::requireWritten(std::cout);
      if (!pause(wait)) {
         return false;
      }
      wait = std::min(wait * 2, milliseconds(2000));
      try {
         connect();
         break;
      } catch (Failure const&) {
         continue;  // the server is not back yet
      }
   }
   event("connected again; changes made meanwhile follow", eventJson("connected"));
   for (Watched const& watched : watched_) {
      client_->mountIs(watched.mirror, MountMode::reader);
   }
   return true;
}

void Watch::dump() const {
   writeWholeFile(options_.dump, [this](std::ostream& out) {
      std::vector<Kiv::NamedEntity*> roots;
      for (Watched const& watched : watched_) {
         roots.push_back(watched.mirror.get());
      }
      out << jsonText(jsonOf(docOf(roots)));
   });
}

/// Receives what the server has yet to send, so that no change before the end is missing.
void Watch::finish() {
   if (!client_->over()) {
      stop_.taken();  // a second signal ends the wait, too
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
   if (!options_.dump.empty()) {
      checkWritable(options_.dump);
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
   Tools::requireWritten(std::cout);
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

Exit watch(WatchOptions const& options) {
   requireState(options);
   return options.fleet.areGiven() ? watchFleet(options) : Watch(options).run();
}

}  // namespace

void addWatch(Command const& program, Run& run) {
   auto const options = std::make_shared<WatchOptions>();
   Command const command = program.command(
         "watch",
         "Prints a line for each change until it is interrupted. With paths, only changes "
         "there and below. A * in a key stands for any characters.\n"
         "\n"
         "The server does not queue changes without limit for a slow reader: if an attribute "
         "changes several times before it is read, only the last value is shown, and a "
         "line says how many changes were left out. When the connection is lost, watch "
         "tries again until the server is back, and then shows what changed meanwhile.\n"
         "\n"
         "Of switches of a fleet, it shows what the fleet tells of: each change once, only the "
         "last "
         "of several within a moment, and an event whenever a switch becomes current or old.\n"
         "\n"
         "Before it ends, it receives what the server still has to send, so that no earlier "
         "change is missing. A second interrupt ends that wait, too.");
   command.footerIs(
         "Examples:\n"
         "  $ ptpstate watch --socket /tmp/ptp\n"
         "  $ ptpstate watch --socket /tmp/ptp ptp/config.intfConfig --for 60\n"
         "  $ ptpstate watch --socket /tmp/ptp 'ptp/status.portDS[*].portState'\n"
         "  $ ptpstate watch --socket /tmp/ptp --json --count 1 ptp/config.domainNumber\n"
         "  $ ptpstate watch --fleet nats://nats1 --switch '*' 'ptp/status.portDS[*].portState'");
   addReaderOptions(command, *options);
   command.option("path", options->paths).placeholder("PATH");
   command.option("--count", options->count, "End after this many changes")
         .placeholder("N")
         .range(U64{1}, ~U64{0});
   command.option("--for", options->seconds, "End after this time")
         .placeholder("SECONDS")
         .range(0.001, 1e9);
   command
         .option("--dump", options->dump,
                 "At the end, write the mirror as JSON, which load and diff read; - for standard "
                 "output")
         .placeholder("FILE");
   command.flag(
         "--json", options->json,
         "Print a JSON object per line: a change, \"set\", \"created\" or \"deleted\", or an "
         "event, "
         "\"complete\", \"coalesced\", \"lost\", \"connected\" or \"gone\", of a fleet \"switch\", "
         "\"current\", \"old\" or \"gone\"; times in UTC");
   command.flag("--no-reconnect", options->noReconnect,
                "End when the connection is lost, with status 3");
   command.onChosen([options, &run] { run = [options] { return watch(*options); }; });
}

}  // namespace Ptpstate

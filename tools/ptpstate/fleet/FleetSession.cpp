#include "tools/ptpstate/fleet/FleetSession.h"

#include <algorithm>

#include "Holt/Failure.h"
#include "Holt/State/Values.h"
#include "Holt/Times.h"
#include "Kiv/Printable.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using std::chrono::milliseconds;

constexpr milliseconds step{250};

/// Whether a heartbeat that is yet to come may say that the switch is current.
bool mayBecomeCurrent(Fleet::Switch const& its) {
   Fleet::Meta const& meta = its.meta();
   U64 const now = wallNow();
   U64 const heard = std::min(its.status().heartbeat, now);
   return !its.status().current && !meta.session.empty() && !meta.ended && meta.current &&
          now - heard <= 3 * meta.every;
}

}  // namespace

FleetSession::FleetSession(FleetOptions const& options, std::string const& switches,
                           milliseconds patience, int interruptFd)
      : switches_(switches),
        stream_(options.stream),
        deadline_(Clock::now() + patience),
        timeout_(std::chrono::duration<double>(patience).count()),
        interruptFd_(interruptFd),
        connection_(Tools::connectionOptions(options.nats, "ptpstate")),
        mirror_(connection_, {.switches = switches, .stream = options.stream}) {
   loop_.add(connection_);
   loop_.add(mirror_);
}

FleetSession::~FleetSession() = default;

void FleetSession::waitFor(char const* what, std::function<bool()> const& done) {
   Tools::Progress progress;
   Clock::time_point const quiet = Clock::now() + std::chrono::seconds(1);
   while (!done() && Clock::now() < deadline_) {
      auto const left = std::chrono::ceil<milliseconds>(deadline_ - Clock::now());
      if (loop_.turn(interruptFd_, std::min(left, step))) {
         throw Failure("interrupted", Exit::connection);
      }
      if (progress.on() && Clock::now() >= quiet && progress.due()) {
         progress.say(std::string(what) + ": " + std::to_string(mirror_.status().messages) +
                      " messages; " + mirror_.status().reason);
      }
   }
   progress.clear();
}

void FleetSession::wait() {
   waitFor("reading the fleet", [this] { return mirror_.status().current; });
   if (!mirror_.status().current) {
      Fleet::Connection::Status const& status = connection_.status();
      std::string reason = status.connected ? mirror_.status().reason : status.reason;
      if (reason.empty()) {
         reason = "not connected yet";
      }
      std::string seconds = std::to_string(timeout_);
      seconds.erase(seconds.find_last_not_of('0') + 1);
      seconds.erase(seconds.find_last_not_of('.') + 1);
      throw Failure("the fleet does not answer within " + seconds + " s: " + reason,
                    Exit::connection);
   }
   if (mirror_.switches().empty()) {
      throw Failure("the fleet has no switch " +
                          (switches_.find('*') == std::string::npos
                                 ? "'" + switches_ + "'; 'ptpstate fleet' lists those that it has"
                                 : "that fits '" + switches_ + "'"),
                    Exit::noSwitch);
   }
   waitFor("waiting for heartbeats", [this] {
      return std::none_of(mirror_.switches().begin(), mirror_.switches().end(),
                          [](auto const& each) { return mayBecomeCurrent(*each.second); });
   });
}

std::vector<std::string> FleetSession::names() const {
   std::vector<std::string> names;
   for (auto const& [name, its] : mirror_.switches()) {
      names.push_back(name);
   }
   std::sort(names.begin(), names.end(), naturallyLess);
   return names;
}

std::string troubleOf(Fleet::Switch const* its) {
   if (its == nullptr) {
      return "gone from the fleet";
   }
   Fleet::Switch::Status const& status = its->status();
   return status.current ? "" : "since " + timeText(status.since) + ": " + status.reason;
}

}  // namespace Ptpstate

#pragma once

#include <set>
#include <string>

#include "Fleet/Mirror.h"
#include "Holt/Client.h"
#include "Holt/Loop.h"
#include "tools/ptpstate/FleetStates.h"

namespace Ptpstate {

/// A mirror of the switches that a command asks for.
class FleetSession {
public:
   /// `switches`: a name or a pattern. `interruptFd`: ends all waiting once it is readable; -1 for
   /// none. Throws `Holt::Failure` for options that cannot be right.
   FleetSession(FleetOptions const& options, std::string const& switches,
                std::chrono::milliseconds patience, int interruptFd);
   ~FleetSession();
   FleetSession(FleetSession const&) = delete;
   FleetSession& operator=(FleetSession const&) = delete;

   Fleet::Mirror& mirror() noexcept { return mirror_; }
   Fleet::Connection const& connection() const noexcept { return connection_; }

   /// Waits until everything has been read, and until each switch is either known to be current or
   /// known not to become so soon: a heartbeat says which. Throws `Holt::Failure` with
   /// `Exit::connection` if the fleet does not answer in time, with `Exit::noSwitch` if it has no
   /// such switch.
   void wait();
   /// Takes a turn, see `RootSource::turn`.
   bool turn(int otherFd, std::chrono::milliseconds timeout) {
      return loop_.turn(otherFd, timeout);
   }

   /// The names of all switches, in natural order: edge-2 before edge-10.
   std::vector<std::string> names() const;

private:
   void waitFor(char const* what, std::function<bool()> const& done);

   std::string switches_;
   std::string stream_;
   Holt::Clock::time_point deadline_;
   double timeout_;
   int interruptFd_;
   Fleet::Connection connection_;
   Fleet::Mirror mirror_;
   Holt::Loop loop_;
};

/// "since 2026-11-21 14:03:59.120: no heartbeat", why a switch is not current; empty if it is.
std::string troubleOf(Fleet::Switch const* its);

}  // namespace Ptpstate

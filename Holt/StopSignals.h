#pragma once

#include <csignal>

namespace Holt {

/// Turns SIGINT, SIGTERM and SIGHUP into a descriptor that a loop polls, so that a command stops at
/// a well-defined place. A SIGHUP that is ignored, as nohup(1) does, stays ignored. REQUIRES: one
/// object at a time.
class StopSignals {
public:
   StopSignals();
   ~StopSignals();
   StopSignals(StopSignals const&) = delete;
   StopSignals& operator=(StopSignals const&) = delete;

   /// Readable once a signal has come.
   int fd() const noexcept { return fd_; }
   /// Takes the signals that have arrived; returns whether there were any.
   bool taken();

private:
   sigset_t before_;
   int fd_;
};

}  // namespace Holt

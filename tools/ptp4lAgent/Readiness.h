// Tells whoever started the agent that its roots can be read.
#pragma once

#include <functional>

#include "Holt/Loop.h"

namespace Ptp4lAgent {

/// Reports readiness to systemd once, as sd_notify(3) does, if the environment variable
/// NOTIFY_SOCKET asks for it: as soon as `settled` holds, or after `patience` at the latest, since
/// a daemon may be started later than the agent. Whoever starts the service and asks for its ports
/// thus finds them. Unsets the variable.
///
/// Threads: belongs to the thread of its loop.
class Readiness final : public Holt::Source {
public:
   static constexpr U64 patience = 2'000'000'000;  // nanoseconds

   explicit Readiness(std::function<bool()> settled);
   Readiness(Readiness const&) = delete;
   Readiness& operator=(Readiness const&) = delete;

   // `Source`:
   void appendTo(std::vector<pollfd>&) override {}
   /// 0 once it has reported.
   U64 deadline() const override { return deadline_; }
   void onTurn(std::span<pollfd const>) override;

private:
   std::function<bool()> settled_;
   /// Where to report.
   std::string path_;
   U64 deadline_ = 0;
};

}  // namespace Ptp4lAgent

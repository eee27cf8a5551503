// From the ports of a daemon and the kernel to `Ptp::HwStatus` and `Ptp::HwTime`.
#pragma once

#include <algorithm>
#include <functional>
#include <memory>

#include "Holt/Loop.h"
#include "PtpLib/PtpStatusStatedbTypes/HwStatus.h"
#include "PtpLib/PtpStatusStatedbTypes/HwTime.h"
#include "tools/ptp4lAgent/Hardware.h"
#include "tools/ptp4lAgent/Ports.h"

namespace Ptp4lAgent {

/// Shows how each port timestamps, and reads the hardware clock of the first port that has one,
/// once a second.
///
/// Threads: belongs to the thread of its loop.
class HardwareFill final : public Holt::Source {
public:
   /// Asks the kernel about an interface; a test has an answer of its own.
   using Ask = std::function<std::optional<Timestamping>(std::string const& interface)>;

   HardwareFill(Sarn::Ptr<Ptp::HwStatus> status, Sarn::Ptr<Ptp::HwTime> time,
                Ask ask = &timestampingOf, U64 (*clock)() noexcept = &Holt::steadyNow);

   Ptp::HwStatus& status() const noexcept { return *status_; }
   Ptp::HwTime& time() const noexcept { return *time_; }

   /// The ports are these. `twoStep`: whether the daemon sends Follow_Up messages.
   void take(Ports const& ports, bool twoStep);

   // `Source`:
   void appendTo(std::vector<pollfd>&) override {}
   U64 deadline() const override { return clock_ != nullptr ? std::max<U64>(next_, 1) : 0; }
   void onTurn(std::span<pollfd const> polled) override;

private:
   void clockIs(S32 index);

   Sarn::Ptr<Ptp::HwStatus> status_;
   Sarn::Ptr<Ptp::HwTime> time_;
   Ask ask_;
   U64 (*now_)() noexcept;
   /// What the kernel has said, by interface; asked when a port appears.
   std::map<std::string, Timestamping> known_;
   S32 index_ = -1;
   std::unique_ptr<HardwareClock> clock_;
   U64 next_ = 0;
};

}  // namespace Ptp4lAgent

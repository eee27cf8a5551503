// What the kernel tells of an interface's timestamping hardware and its clock.
#pragma once

#include <optional>
#include <string>

#include "Sarn/Types.h"

namespace Ptp4lAgent {

/// What an interface can timestamp (ETHTOOL_GET_TS_INFO).
struct Timestamping {
   /// Messages that are sent and received, in hardware.
   bool hardware = false;
   /// One-step Sync; that, and one-step Pdelay_Resp.
   bool oneStep = false;
   bool oneStepP2p = false;
   /// N of /dev/ptpN; -1 for none.
   S32 phcIndex = -1;
};

/// No value if there is no such interface in the agent's network namespace, or if its driver does
/// not tell.
std::optional<Timestamping> timestampingOf(std::string const& interface);

/// A reading of two clocks, in nanoseconds. The hardware clock's time scale is its own; the system
/// clock's is that of CLOCK_REALTIME.
struct PairedReading {
   U64 hardware = 0;
   U64 system = 0;
};

/// A hardware clock. Reads it together with the system clock by the most precise way that the
/// driver has: PTP_SYS_OFFSET_PRECISE, PTP_SYS_OFFSET_EXTENDED or PTP_SYS_OFFSET. It never sets or
/// steers the clock.
class HardwareClock {
public:
   /// `path`: such as /dev/ptp0. If it cannot be opened, there are no readings.
   explicit HardwareClock(std::string const& path);
   ~HardwareClock();
   HardwareClock(HardwareClock const&) = delete;
   HardwareClock& operator=(HardwareClock const&) = delete;

   /// No value if the clock cannot be read.
   std::optional<PairedReading> read();

private:
   enum class Way : U8 { precise, extended, plain, none };

   bool readBy(Way way, PairedReading& reading) const;

   int fd_;
   Way way_ = Way::precise;
};

}  // namespace Ptp4lAgent

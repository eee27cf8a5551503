#include "tools/ptp4lAgent/Hardware.h"

#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/if.h>
#include <linux/net_tstamp.h>
#include <linux/ptp_clock.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace Ptp4lAgent {

namespace {

/// Of a measurement in a row, the narrowest counts.
constexpr unsigned samples = 5;

U64 nanoseconds(ptp_clock_time const& time) {
   return static_cast<U64>(time.sec) * 1'000'000'000 + time.nsec;
}

/// The hardware's time with the middle of the system's times around it.
PairedReading between(ptp_clock_time const& before, ptp_clock_time const& hardware,
                      ptp_clock_time const& after) {
   U64 const begin = nanoseconds(before);
   return {nanoseconds(hardware), begin + (nanoseconds(after) - begin) / 2};
}

}  // namespace

std::optional<Timestamping> timestampingOf(std::string const& interface) {
   ifreq request{};
   if (interface.empty() || interface.size() >= sizeof request.ifr_name) {
      return std::nullopt;
   }
   std::memcpy(request.ifr_name, interface.data(), interface.size());
   ethtool_ts_info info{};
   info.cmd = ETHTOOL_GET_TS_INFO;
   request.ifr_data = reinterpret_cast<char*>(&info);
   int const fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
   if (fd < 0) {
      return std::nullopt;
   }
   int const result = ::ioctl(fd, SIOCETHTOOL, &request);
   ::close(fd);
   if (result != 0) {
      return std::nullopt;
   }
   constexpr U32 wanted = SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_RX_HARDWARE |
                          SOF_TIMESTAMPING_RAW_HARDWARE;
   Timestamping can;
   can.hardware = (info.so_timestamping & wanted) == wanted;
   can.oneStep = (info.tx_types & (1u << HWTSTAMP_TX_ONESTEP_SYNC)) != 0;
   can.oneStepP2p = (info.tx_types & (1u << HWTSTAMP_TX_ONESTEP_P2P)) != 0;
   can.phcIndex = info.phc_index;
   return can;
}

HardwareClock::HardwareClock(std::string const& path)
      : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}

HardwareClock::~HardwareClock() {
   if (fd_ >= 0) {
      ::close(fd_);
   }
}

std::optional<PairedReading> HardwareClock::read() {
   PairedReading reading;
   while (fd_ >= 0 && way_ != Way::none) {
      if (readBy(way_, reading)) {
         return reading;
      }
      way_ = static_cast<Way>(static_cast<U8>(way_) + 1);  // the driver does not have it
   }
   return std::nullopt;
}

bool HardwareClock::readBy(Way way, PairedReading& reading) const {
   if (way == Way::precise) {
      ptp_sys_offset_precise precise{};
      if (::ioctl(fd_, PTP_SYS_OFFSET_PRECISE, &precise) != 0) {
         return false;
      }
      reading = {nanoseconds(precise.device), nanoseconds(precise.sys_realtime)};
      return true;
   }
   U64 narrowest = ~U64{0};
   auto const consider = [&](ptp_clock_time const& before, ptp_clock_time const& hardware,
                             ptp_clock_time const& after) {
      U64 const width = nanoseconds(after) - nanoseconds(before);
      if (width < narrowest) {
         narrowest = width;
         reading = between(before, hardware, after);
      }
   };
   if (way == Way::extended) {
      ptp_sys_offset_extended extended{};
      extended.n_samples = samples;
      if (::ioctl(fd_, PTP_SYS_OFFSET_EXTENDED, &extended) != 0) {
         return false;
      }
      for (unsigned i = 0; i != samples; ++i) {
         consider(extended.ts[i][0], extended.ts[i][1], extended.ts[i][2]);
      }
      return true;
   }
   ptp_sys_offset plain{};
   plain.n_samples = samples;
   if (::ioctl(fd_, PTP_SYS_OFFSET, &plain) != 0) {
      return false;
   }
   for (std::size_t i = 0; i != samples; ++i) {
      consider(plain.ts[2 * i], plain.ts[2 * i + 1], plain.ts[2 * i + 2]);
   }
   return true;
}

}  // namespace Ptp4lAgent

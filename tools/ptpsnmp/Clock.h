// One clock of the MIB: a status, with its ports in the order of the MIB.
#pragma once

#include <span>
#include <vector>

#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace Ptpsnmp {

/// The MIB's kinds of clocks, by its numbers.
enum class ClockType : U8 {
   /// No clock: PTP is disabled, or the status has no default data set.
   none = 0,
   ordinary = 1,
   boundary = 2,
   transparent = 3,
};

/// A peer of a port. Addresses that are not known are all zero.
struct Associate {
   Ptp::PortIdentity identity;
   Dorn::IpGenAddr ip;
   Dorn::EthAddr ethernet;
};

/// A mirrored status as the MIB sees it. Everything is read when it is asked for; only the order of
/// the ports is kept, and built anew at the first question after ports have come, gone or been
/// numbered differently.
///
/// Threads: belongs to the thread of its status.
class Clock final : Kiv::Observer {
public:
   struct Port {
      U16 number;
      Ptp::PortDS const* data;
   };

   /// `instance`: from 1.
   Clock(Sarn::Ptr<Ptp::Status> status, U32 instance);
   ~Clock();
   Clock(Clock const&) = delete;
   Clock& operator=(Clock const&) = delete;

   Ptp::Status const& status() const noexcept { return *status_; }
   U32 instance() const noexcept { return instance_; }
   /// 0 without a default data set.
   U32 domainNumber() const;
   ClockType type() const;
   /// By number. Ports with the numbers 0 and 65535, which name no port, are left out; of ports
   /// with the same number, that with the lowest key is here. Valid until the next change.
   std::span<Port const> ports() const;
   /// Null if there is none with this number.
   Ptp::PortDS const* port(U32 number) const;

   /// Whether the clock follows a master on this port, or is about to.
   bool follows(Ptp::PortDS const& port) const;
   /// Whose messages the clock follows on this port; null identity and addresses if it does not.
   Associate parentOn(Ptp::PortDS const& port) const;
   /// The masters that a port in state SLAVE or UNCALIBRATED could follow, its parent included, in
   /// the order of their identities; none in other states.
   std::vector<Associate> associates(Ptp::PortDS const& port) const;

private:
   void onChange(Kiv::Change const& change) override;

   Sarn::Ptr<Ptp::Status> status_;
   U32 instance_;
   mutable std::vector<Port> ports_;
   mutable bool ordered_ = false;
};

}  // namespace Ptpsnmp

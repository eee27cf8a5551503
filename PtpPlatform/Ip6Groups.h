#pragma once

#include "Dorn/Ip6Addr.h"

/// The IPv6 groups of PTP (IEEE 1588-2008, Annex E).
namespace Ptp {

/// The group of all messages but those of the peer delay mechanism: ff0e::181. Of the scopes that
/// Annex E leaves to choose from it is the global one, as is usual, so that routers may pass the
/// messages on; how far they go is up to the hop limit.
constexpr Dorn::Ip6Addr ptpMcastIp6Addr() noexcept {
   return {0xff0e'0000'0000'0000, 0x181};
}

/// The group of the peer delay mechanism, which never leaves the link: ff02::6b.
constexpr Dorn::Ip6Addr ptpPdelayIp6Addr() noexcept {
   return {0xff02'0000'0000'0000, 0x6b};
}

}  // namespace Ptp

#pragma once

#include "Dorn/Ip6Addr.h"

/// The IPv6 groups of PTP (IEEE 1588-2008, Annex E).
namespace Ptp {

/// The group for all messages except those of the peer delay mechanism: ff0e::181. Of the scopes
/// that Annex E allows, this is the global one, as usual, so that routers may forward the messages;
/// the hop limit decides how far they go.
constexpr Dorn::Ip6Addr ptpMcastIp6Addr() noexcept {
   return {0xff0e'0000'0000'0000, 0x181};
}

/// The group for the peer delay mechanism, whose messages never leave the link: ff02::6b.
constexpr Dorn::Ip6Addr ptpPdelayIp6Addr() noexcept {
   return {0xff02'0000'0000'0000, 0x6b};
}

}  // namespace Ptp

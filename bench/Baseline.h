#pragma once

#include <cstring>
#include <vector>

#include "Sarn/Types.h"

/// The baselines of the benchmarks: hand-written code that does the bare minimum of the same work
/// and produces the same bytes.
namespace Baseline {

inline void put16(U8* at, U16 v) {
   v = __builtin_bswap16(v);
   std::memcpy(at, &v, sizeof v);
}
inline void put32(U8* at, U32 v) {
   v = __builtin_bswap32(v);
   std::memcpy(at, &v, sizeof v);
}
inline void put64(U8* at, U64 v) {
   v = __builtin_bswap64(v);
   std::memcpy(at, &v, sizeof v);
}
inline U16 get16(U8 const* at) {
   U16 v;
   std::memcpy(&v, at, sizeof v);
   return __builtin_bswap16(v);
}
inline U32 get32(U8 const* at) {
   U32 v;
   std::memcpy(&v, at, sizeof v);
   return __builtin_bswap32(v);
}
inline U64 get64(U8 const* at) {
   U64 v;
   std::memcpy(&v, at, sizeof v);
   return __builtin_bswap64(v);
}

/// The attribute log's record of a change: opcode and body length, handle, attribute, value.
inline constexpr std::size_t headerSize = 10;

inline std::size_t putRecord64(U8* at, U32 handle, U16 attribute, U64 v) {
   put32(at, U32(8) << 24 | 8);
   put32(at + 4, handle);
   put16(at + 8, attribute);
   put64(at + headerSize, v);
   return headerSize + 8;
}

/// An interface's configuration as a plain struct, members packed by size.
struct Intf {
   U64 intf = 0;
   U64 linkDelayThreshold = 100000;
   double clearCountersRequestTime = 0;
   U64 loopbackSourceIntf = 0;
   void* isolatedSlaveVlanId = nullptr;
   void* vlanConfig = nullptr;
   void* vlanIds = nullptr;
   void* ucastNegGrantorIpToProfileMap = nullptr;
   void* ucastNegGranteeIpToProfileMap = nullptr;
   void* txMessageToIntfMap = nullptr;
   S16 logSyncInterval = 0;
   S16 logMinDelayReqInterval = 5;
   U8 pktTxMacAddress[6] = {0x01, 0x80, 0xc2, 0, 0, 0x0e};
   bool enabled = false;
   bool mpassEnabled = false;
   bool syncIntervalUseDeprecatedCmd = false;
   U8 syncReceiptTimeout = 3;
   S8 logAnnounceInterval = 1;
   U8 announceReceiptTimeout = 3;
   U8 role = 0;
   bool syncTestEnabled = false;
   bool isolatedSlaveEnabled = false;
   bool disableManagementMessageForwarding = false;
   bool disableManagementMessageMulticastForwardingBC = false;
   S8 logMinPdelayReqInterval = 0;
   U8 localPriority = 128;
   U8 delayMechanism = 1;
   U8 transportMode = 1;
   U8 timeStampingMode = 0;
   U8 dscpEvent = 21;
   bool dscpEventConfigured = false;
   U8 dscpGeneral = 0;
   bool dscpGeneralConfigured = false;
   U8 domainNumber = 0;
   U8 priority1 = 128;
   U8 priority2 = 128;
   U8 ttl = 1;
};

/// The simplest way to notify others: functions in an array.
using Listener = void (*)(void* context, U16 attribute, void const* oldValue);
struct Listeners {
   struct Entry {
      Listener call;
      void* context;
   };
   std::vector<Entry> entries;
   void tell(U16 attribute, void const* oldValue) const {
      for (Entry const& entry : entries) {
         entry.call(entry.context, attribute, oldValue);
      }
   }
};

}  // namespace Baseline

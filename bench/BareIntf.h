#pragma once

#include "bench/Baseline.h"

/// The records of one interface in the attribute log, written and read by hand.
namespace Baseline {

inline constexpr U8 setRecord = 8;
inline constexpr U8 eraseRecord = 10;
inline constexpr U8 createRecord = 11;
/// The log's handle of the interface `index`, when the configuration is its first entity.
inline constexpr U32 handleOf(U32 index) {
   return 0x01000001 + index;
}
inline constexpr U32 rootHandle = 0x01000000;
inline constexpr U16 intfConfigId = 283;

inline U8* putHeader(U8* at, U8 opcode, U32 size, U32 handle, U16 attribute) {
   put32(at, U32(opcode) << 24 | size);
   put32(at + 4, handle);
   put16(at + 8, attribute);
   return at + headerSize;
}

/// An enumeration: a byte in memory, four on the wire.
struct Enum {
   U8& value;
};

template <class T>
U8* putSet(U8* at, U32 handle, U16 attribute, T const& v) {
   if constexpr (std::is_same_v<T, Enum>) {
      at = putHeader(at, setRecord, 4, handle, attribute);
      put32(at, v.value);
      return at + 4;
   } else {
      at = putHeader(at, setRecord, sizeof v, handle, attribute);
      if constexpr (sizeof v == 8) {
         U64 bits;
         std::memcpy(&bits, &v, sizeof bits);
         put64(at, bits);
      } else if constexpr (sizeof v == 2) {
         put16(at, static_cast<U16>(v));
      } else {
         std::memcpy(at, &v, sizeof v);
      }
      return at + sizeof v;
   }
}

/// What the log sends for an interface, in its order: `value(id, member)` for each value,
/// `empty(id)` for each empty collection or optional.
template <class Value, class Empty>
void forEachRecord(Intf& intf, Value&& value, Empty&& empty) {
   value(259, intf.enabled);
   value(260, intf.mpassEnabled);
   value(263, intf.logSyncInterval);
   value(264, intf.syncIntervalUseDeprecatedCmd);
   value(265, intf.syncReceiptTimeout);
   value(266, intf.logMinDelayReqInterval);
   value(269, intf.logAnnounceInterval);
   value(270, intf.announceReceiptTimeout);
   value(271, Enum{intf.role});
   value(272, intf.syncTestEnabled);
   value(273, intf.isolatedSlaveEnabled);
   empty(274);
   value(275, intf.disableManagementMessageForwarding);
   value(276, intf.disableManagementMessageMulticastForwardingBC);
   value(279, intf.logMinPdelayReqInterval);
   value(280, intf.localPriority);
   value(281, Enum{intf.delayMechanism});
   value(282, Enum{intf.transportMode});
   value(283, Enum{intf.timeStampingMode});
   value(284, intf.linkDelayThreshold);
   value(285, intf.clearCountersRequestTime);
   value(286, intf.dscpEvent);
   value(287, intf.dscpEventConfigured);
   value(288, intf.dscpGeneral);
   value(289, intf.dscpGeneralConfigured);
   value(290, intf.pktTxMacAddress);
   empty(291);
   empty(292);
   empty(293);
   empty(294);
   empty(295);
   value(296, intf.domainNumber);
   value(297, intf.priority1);
   value(298, intf.priority2);
   value(299, intf.ttl);
   value(300, intf.loopbackSourceIntf);
}

/// Writes everything about one interface: its creation, then its attributes.
inline U8* putIntf(U8* at, U32 handle, Intf& intf) {
   at = putHeader(at, createRecord, 14, rootHandle, intfConfigId);
   put32(at, handle);
   put64(at + 4, intf.intf);
   at[12] = intf.enabled ? 1 : 0;
   at[13] = intf.mpassEnabled ? 1 : 0;
   at += 14;
   forEachRecord(
         intf, [&at, handle](U16 id, auto const& v) { at = putSet(at, handle, id, v); },
         [&at, handle](U16 id) { at = putHeader(at, eraseRecord, 0, handle, id); });
   return at;
}

template <class T>
void getSet(T& member, U8 const* body) {
   if constexpr (sizeof member == 8) {
      U64 const bits = get64(body);
      std::memcpy(&member, &bits, sizeof bits);
   } else if constexpr (sizeof member == 2) {
      member = static_cast<T>(get16(body));
   } else {
      std::memcpy(&member, body, sizeof member);
   }
}

/// Stores one value. False if the attribute does not exist or has another size.
inline bool getValue(Intf& intf, U16 attribute, U8 const* body, U32 size) {
   auto const sized = [body, size](auto& member) {
      if (size != sizeof member) {
         return false;
      }
      getSet(member, body);
      return true;
   };
   auto const ordinal = [body, size](U8& member) {
      member = static_cast<U8>(get32(body));
      return size == 4;
   };
   switch (attribute) {
      case 259:
         return sized(intf.enabled);
      case 260:
         return sized(intf.mpassEnabled);
      case 263:
         return sized(intf.logSyncInterval);
      case 264:
         return sized(intf.syncIntervalUseDeprecatedCmd);
      case 265:
         return sized(intf.syncReceiptTimeout);
      case 266:
         return sized(intf.logMinDelayReqInterval);
      case 269:
         return sized(intf.logAnnounceInterval);
      case 270:
         return sized(intf.announceReceiptTimeout);
      case 271:
         return ordinal(intf.role);
      case 272:
         return sized(intf.syncTestEnabled);
      case 273:
         return sized(intf.isolatedSlaveEnabled);
      case 275:
         return sized(intf.disableManagementMessageForwarding);
      case 276:
         return sized(intf.disableManagementMessageMulticastForwardingBC);
      case 279:
         return sized(intf.logMinPdelayReqInterval);
      case 280:
         return sized(intf.localPriority);
      case 281:
         return ordinal(intf.delayMechanism);
      case 282:
         return ordinal(intf.transportMode);
      case 283:
         return ordinal(intf.timeStampingMode);
      case 284:
         return sized(intf.linkDelayThreshold);
      case 285:
         return sized(intf.clearCountersRequestTime);
      case 286:
         return sized(intf.dscpEvent);
      case 287:
         return sized(intf.dscpEventConfigured);
      case 288:
         return sized(intf.dscpGeneral);
      case 289:
         return sized(intf.dscpGeneralConfigured);
      case 290:
         return sized(intf.pktTxMacAddress);
      case 296:
         return sized(intf.domainNumber);
      case 297:
         return sized(intf.priority1);
      case 298:
         return sized(intf.priority2);
      case 299:
         return sized(intf.ttl);
      case 300:
         return sized(intf.loopbackSourceIntf);
      default:
         return false;
   }
}

}  // namespace Baseline

#pragma once

#include "bench/BarePorts.h"

/// The records of a clock's ports in the attribute log: hand-written code that writes them from
/// structs and reads them into structs.
namespace BarePorts {

// Handles: a port takes six, in the order in which its entities are created.

inline constexpr U32 rootHandle = 0x01000000;
inline constexpr U32 handlesAPort = 2 + PortStatus::masterCount;
inline constexpr U32 statusHandle(U32 port) {
   return rootHandle + 1 + port * handlesAPort;
}
inline constexpr U32 masterHandle(U32 port, U32 master) {
   return statusHandle(port) + 1 + master;
}
inline constexpr U32 portHandle(U32 port) {
   return statusHandle(port) + handlesAPort - 1;
}

// Writing

enum : U8 { setRecord = 8, eraseRecord = 10, createRecord = 11, beginRecord = 14, endRecord = 15 };

inline U8* putHeader(U8* at, U8 opcode, U32 size, U32 handle, U16 attribute) {
   put32(at, U32(opcode) << 24 | size);
   put32(at + 4, handle);
   put16(at + 8, attribute);
   return at + headerSize;
}

template <class T>
inline constexpr U32 wireSize = std::is_same_v<T, Ordinal> ? 4 : sizeof(T);

template <class T>
U8* putSet(U8* at, U32 handle, U16 attribute, T const& v) {
   at = putHeader(at, setRecord, wireSize<T>, handle, attribute);
   if constexpr (std::is_same_v<T, Ordinal>) {
      put32(at, v.value);
   } else if constexpr (std::is_arithmetic_v<T> && sizeof(T) == 8) {
      U64 bits;
      std::memcpy(&bits, &v, sizeof bits);
      put64(at, bits);
   } else if constexpr (std::is_arithmetic_v<T> && sizeof(T) == 4) {
      U32 bits;
      std::memcpy(&bits, &v, sizeof bits);
      put32(at, bits);
   } else if constexpr (std::is_arithmetic_v<T> && sizeof(T) == 2) {
      put16(at, static_cast<U16>(v));
   } else {
      std::memcpy(at, &v, sizeof v);
   }
   return at + wireSize<T>;
}

inline U8* putCreate(U8* at, U32 owner, U16 attribute, U32 handle, Raw<10> const& key) {
   at = putHeader(at, createRecord, 14, owner, attribute);
   put32(at, handle);
   std::memcpy(at + 4, key.data(), key.size());
   return at + 14;
}

#define BARE_PUT(id, type, name, ...) at = putSet(at, handle, id, v.name);

inline U8* putMaster(U8* at, U32 owner, U32 handle, ForeignMaster const& v) {
   at = putCreate(at, owner, 259, handle, v.identity);
   BARE_FOREIGN_MASTER(BARE_PUT)
   return at;
}

inline U8* putStatus(U8* at, U32 port, PortStatus const& v) {
   U32 const handle = statusHandle(port);
   at = putCreate(at, rootHandle, 271, handle, v.key);
   at = putHeader(at, beginRecord, 0, handle, 259);
   for (U32 i = 0; i != PortStatus::masterCount; ++i) {
      at = putMaster(at, handle, masterHandle(port, i), v.masters[i]);
   }
   at = putHeader(at, endRecord, 0, handle, 259);
   BARE_PORT_STATUS(BARE_PUT)
   return at;
}

inline U8* putPort(U8* at, U32 port, Port const& v) {
   U32 const handle = portHandle(port);
   at = putHeader(at, createRecord, 24, rootHandle, 275);
   put32(at, handle);
   std::memcpy(at + 4, v.key.data(), v.key.size());
   std::memcpy(at + 14, v.portIdentity.data(), v.portIdentity.size());
   at += 24;
   BARE_PORT_BEFORE_CHILD(BARE_PUT)
   at = putHeader(at, eraseRecord, 0, handle, 276);
   BARE_PORT_BEFORE_QUEUE(BARE_PUT)
   at = putHeader(at, beginRecord, 4, handle, 301);
   put32(at, 1);
   at += 4;
   BARE_PORT_BEFORE_MAP(BARE_PUT)
   at = putHeader(at, eraseRecord, 0, handle, 330);
   return putSet(at, handle, 331, v.initialized);
}

#undef BARE_PUT

// Reading

template <class T>
bool getSet(T& member, U8 const* body, U32 size) {
   if (size != wireSize<T>) {
      return false;
   }
   if constexpr (std::is_same_v<T, Ordinal>) {
      member.value = static_cast<U8>(get32(body));
   } else if constexpr (std::is_arithmetic_v<T> && sizeof(T) == 8) {
      U64 const bits = get64(body);
      std::memcpy(&member, &bits, sizeof bits);
   } else if constexpr (std::is_arithmetic_v<T> && sizeof(T) == 4) {
      U32 const bits = get32(body);
      std::memcpy(&member, &bits, sizeof bits);
   } else if constexpr (std::is_arithmetic_v<T> && sizeof(T) == 2) {
      member = static_cast<T>(get16(body));
   } else {
      std::memcpy(&member, body, sizeof member);
   }
   return true;
}

#define BARE_GET(id, type, name, ...) \
   case id:                           \
      return getSet(v.name, body, size);

/// Stores one value. False if the attribute does not exist or has another size.
inline bool getValue(ForeignMaster& v, U16 attribute, U8 const* body, U32 size) {
   switch (attribute) {
      BARE_FOREIGN_MASTER(BARE_GET)
      default:
         return false;
   }
}
inline bool getValue(PortStatus& v, U16 attribute, U8 const* body, U32 size) {
   switch (attribute) {
      BARE_PORT_STATUS(BARE_GET)
      default:
         return false;
   }
}
inline bool getValue(Port& v, U16 attribute, U8 const* body, U32 size) {
   switch (attribute) {
      BARE_PORT_BEFORE_CHILD(BARE_GET)
      BARE_PORT_BEFORE_QUEUE(BARE_GET)
      BARE_PORT_BEFORE_MAP(BARE_GET)
      case 331:
         return getSet(v.initialized, body, size);
      default:
         return false;
   }
}

#undef BARE_GET
#undef BARE_FOREIGN_MASTER
#undef BARE_PORT_STATUS
#undef BARE_PORT_BEFORE_CHILD
#undef BARE_PORT_BEFORE_QUEUE
#undef BARE_PORT_BEFORE_MAP

}  // namespace BarePorts

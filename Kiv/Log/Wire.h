#pragma once

#include "Kiv/Log/Opcode.h"
#include "Kiv/NboAttrLog.h"

/// The attribute log's messages. `docs/attribute-log.md` has the grammar and worked bytes.
///
///      byte 0       1 .. 3        4 .. 7     8 .. 9        10 ..
///     | opcode | body length |   handle   | attribute |    body    |
///
/// A handle is the sender's number for an entity; 0 stands for none. Each end numbers the entities
/// that it introduces.
namespace Kiv::NboAttrLog {

inline constexpr U32 protocolVersion = 2;
/// What a peer or a recording may have sent: later versions have added messages, and changed none.
inline constexpr U32 oldestReadableVersion = 1;
inline constexpr std::size_t headerSize = 10;
/// The longest body that the length field can give, and the longest that parts can add up to. What
/// a connection allows is in `Limits`.
inline constexpr std::size_t longestEncodableBody = 0xffffff;
inline constexpr std::size_t longestEncodableValue = 0xffffffff;
/// An output buffer of this size has room for no message at all.
inline constexpr std::size_t smallestOutputBuffer = headerSize + 1;
inline constexpr char helloMagic[9] = "KivNboAL";
/// The most bytes in a root's type name or name, and in a module's name.
inline constexpr std::size_t longestName = 1024;

struct Header {
   Opcode opcode;
   U32 bodySize;
   U32 handle;
   AttributeId attribute;
};

/// A number as it is received.
template <class T>
T readNumber(U8 const* at) noexcept {
   T v;
   std::memcpy(&v, at, sizeof v);
   return byteSwapped(v);
}

/// The first word of a header: the opcode, above the size of the body.
inline U32 opcodeAndSize(Opcode opcode, U32 bodySize) noexcept {
   return static_cast<U32>(opcode) << 24 | bodySize;
}

/// The header of a message. REQUIRES: at least `headerSize` bytes at `at`.
inline Header readHeader(U8 const* at) noexcept {
   U32 const word = readNumber<U32>(at);
   return {static_cast<Opcode>(word >> 24), word & 0xffffff, readNumber<U32>(at + 4),
           readNumber<U16>(at + 8)};
}

inline void writeHeader(Out& out, Header const& header) {
   out.writeU32(opcodeAndSize(header.opcode, header.bodySize));
   out.writeU32(header.handle);
   out.writeU16(header.attribute);
}

}  // namespace Kiv::NboAttrLog

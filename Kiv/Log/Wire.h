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

inline constexpr U32 protocolVersion = 1;
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

/// The header of a message. REQUIRES: at least `headerSize` bytes at `at`.
inline Header readHeader(U8 const* at) noexcept {
   U32 word;
   U32 handle;
   U16 attribute;
   std::memcpy(&word, at, sizeof word);
   std::memcpy(&handle, at + 4, sizeof handle);
   std::memcpy(&attribute, at + 8, sizeof attribute);
   word = byteSwapped(word);
   return {static_cast<Opcode>(word >> 24), word & 0xffffff, byteSwapped(handle),
           byteSwapped(attribute)};
}

inline void writeHeader(Out& out, Header const& header) {
   out.writeU32(static_cast<U32>(header.opcode) << 24 | header.bodySize);
   out.writeU32(header.handle);
   out.writeU16(header.attribute);
}

}  // namespace Kiv::NboAttrLog

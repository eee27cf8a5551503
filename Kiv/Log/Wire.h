#pragma once

#include "Kiv/NboAttrLog.h"

/// The attribute log's messages. `docs/attribute-log.md` has the grammar and worked bytes.
///
///      byte 0       1 .. 3        4 .. 7     8 .. 9        10 ..
///     | opcode | body length |   handle   | attribute |    body    |
///
/// A handle is the sender's number for an entity. Both ends number the entities that they
/// introduce themselves; 0 is nobody.
namespace Kiv::NboAttrLog {

inline constexpr U32 protocolVersion = 1;
inline constexpr std::size_t headerSize = 10;
/// The most that the length field can say.
inline constexpr std::size_t longestBody = 0xffffff;
inline constexpr char helloMagic[9] = "KivNboAL";
/// The most bytes of a root's type name or name, and of a module's name.
inline constexpr std::size_t longestName = 1024;

enum class Opcode : U8 {
   hello = 1,    ///< magic, version, then each module's name and hash
   bye,          ///< the reason for closing
   mount,        ///< U32 mount, U8 mode, type name, root name
   refused,      ///< U32 mount, reason
   replayBegin,  ///< handle of the root; U32 mount
   replayEnd,    ///< U32 mount: the mirror is complete
   rootGone,     ///< U32 mount: the source has given the root up
   set,          ///< value
   element,      ///< key and value, or a value that contains its key
   erase,        ///< key; empty for a singleton child, or for all that is in a collection
   create,       ///< U32 handle of the child, then key and constructor arguments, or a child's name
   enqueue,      ///< U32 sequence, value
   front,        ///< U32 sequence of the first element that is left
   /// A collection's replay begins. Of a queue: all its elements are gone; U32 sequence of the
   /// next.
   collectionBegin,
   /// Keys that were not named since the beginning are gone. Of a queue: asks who serves it to
   /// replay it.
   collectionEnd,
   bind,          ///< U32: the receiver's handle for the entity that the sender calls `handle`
   ack,           ///< U32: changes received so far on this connection
   sync,          ///< U32 token, comes back as
   synced,        ///< U32 token
   listRoots,     ///< nothing; asks for
   roots,         ///< U32 count, then each offered root's type name and name
   listSessions,  ///< nothing; asks for
   sessions,      ///< U32 of all, U32 count, then each session's status
   part,          ///< of a longer message: U8 opcode, U32 size, U32 offset, bytes
   last_ = part,
};

/// Messages that both ends count, so that a writer can say what it had seen when it wrote.
inline bool isChange(Opcode opcode) noexcept {
   return opcode >= Opcode::set && opcode <= Opcode::collectionEnd;
}

struct Header {
   Opcode opcode;
   U32 bodySize;
   U32 handle;
   AttributeId attribute;
};

/// The header of a message of which at least `headerSize` bytes are here.
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

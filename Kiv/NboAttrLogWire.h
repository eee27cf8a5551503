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

/// What one connection may cost, and all of a hub together, on either side. Both ends of a
/// connection should agree on `longestMessage` and `longestValue`.
struct Limits {
   /// Bytes that wait to be sent, per connection. The memory for them is taken when it is used.
   std::size_t outputBuffer = std::size_t(1) << 20;
   /// The longest body of a message, sent or received.
   std::size_t longestMessage = std::size_t(1) << 18;
   /// The longest body of a message that travels in parts, sent or received: a session holds so
   /// much for one that is on its way out, and for one that is on its way in. A longer value is
   /// left out for the peer, see `SessionListener::onLeftOut`. At most 2^32 - 1.
   std::size_t longestValue = std::size_t(1) << 24;
   /// Entities that a peer may introduce, and that a hub may number.
   U32 entities = U32(1) << 20;
   /// Nested replays of collections.
   U32 nesting = 64;
   /// Changed keys of one collection that are remembered one by one for a peer that is behind; a
   /// quarter of the collection's size if that is more. Of more keys than that, the whole
   /// collection is replayed. A writer's own changes are always told key by key, and its session
   /// ends when more than `entities` keys of one collection wait.
   std::size_t dirtyKeys = 1024;
   /// Bytes that wait to be sent where neither end has mounted anything, but for one answer; and
   /// the longest body from a peer that has nothing to tell but what it asks for.
   std::size_t unmounted = std::size_t(1) << 14;
   /// Bytes that the buffers of all sessions of a hub hold, beyond the first 4 KiB of each. When
   /// they are exhausted, output counts as full earlier, and a session that needs more for a single
   /// message ends.
   std::size_t sessionBytes = std::size_t(1) << 26;
   /// Connections of one user, where the carrier knows who the peer is.
   U32 sessionsOfUid = 256;
   /// Nanoseconds by the hub's clock that a message may take from its first byte to its last, and
   /// that a session that is closed waits for its last bytes to be sent. See `Hub::expire`.
   U64 halfMessage = 60'000'000'000;
   /// Nanoseconds after which a session that neither sends nor receives gives its buffers back.
   U64 idle = 5'000'000'000;
};

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

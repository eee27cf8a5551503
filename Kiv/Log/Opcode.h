#pragma once

#include <string_view>

#include "Sarn/Types.h"

namespace Kiv::NboAttrLog {

/// The kind of a message, and what its body contains. A message may be about an entity and an
/// attribute, which its header names; those that are not have 0 there.
enum class Opcode : U8 {
   /// Magic, version, then each module's name and hash.
   hello = 1,
   /// The reason for closing.
   bye = 2,
   /// U32 mount, U8 mode, type name, root name.
   mount = 3,
   /// U32 mount, reason.
   refused = 4,
   /// Handle of the root; U32 mount.
   replayBegin = 5,
   /// U32 mount: the mirror is complete.
   replayEnd = 6,
   /// U32 mount: the source no longer offers the root.
   rootGone = 7,
   /// The value.
   set = 8,
   /// Key and value, or a value that contains its key.
   element = 9,
   /// The key; nothing for a singleton child, or to empty a collection.
   erase = 10,
   /// U32 handle of the child, then key and constructor arguments, or the child's name.
   create = 11,
   /// U32 sequence number, value.
   enqueue = 12,
   /// U32 sequence number of the first element that remains.
   front = 13,
   /// The replay of a collection begins. Of a queue: all its elements are gone; U32 sequence number
   /// of the next.
   collectionBegin = 14,
   /// Keys that the replay has not named are gone. Of a queue: asks the server to replay it.
   collectionEnd = 15,
   /// U32: the receiver's handle for the entity that the sender calls by the header's handle.
   bind = 16,
   /// U32: changes received so far on this connection.
   ack = 17,
   /// U32 token; `synced` returns it.
   sync = 18,
   /// U32 token.
   synced = 19,
   /// Nothing; asks for `roots`.
   listRoots = 20,
   /// U32 count, then type name and name of each offered root.
   roots = 21,
   /// Nothing; asks for `sessions`.
   listSessions = 22,
   /// U32 of all sessions, U32 count, then the status of each.
   sessions = 23,
   /// A part of a longer message: U8 opcode, U32 size, U32 offset, bytes.
   part = 24,
   /// One type of a module that the peer has with another hash: see `Schema.h`.
   types = 25,
   /// U8 depth (0: entities, 1: one tree), then U8 whose handle (0: the receiver's) and U32 handle
   /// of each entity; asks for `digests`.
   digestAsk = 26,
   /// U32: changes received so far on this connection; then U8 state and two U64, the digest, of
   /// each entity, in the order of the question. There may be fewer.
   digests = 27,
   /// U8 whose handle and U32 handle of each entity that is to be sent again.
   repair = 28,
   /// U32 token: what comes up to `commit` is applied at once, or not at all. Token 0 asks for no
   /// answer.
   begin = 29,
   /// U32 token, U8: 0 if everything of the batch has been sent; 1 if it did not fit, and the rest
   /// follows, up to a `commit` with 0.
   commit = 30,
   /// U32 token, reason: the batch was refused; applied, if the reason is empty.
   decided = 31,
   /// U32 mount, U8: 1 if it is stale, U64 since when, U32 count, then each writer: who writes the
   /// root.
   writers = 32,
   last_ = writers,
};

/// The name of an opcode as above, or "?" for a number that is none.
constexpr std::string_view opcodeName(Opcode opcode) noexcept {
   constexpr std::string_view names[] = {
         "?",
         "hello",
         "bye",
         "mount",
         "refused",
         "replayBegin",
         "replayEnd",
         "rootGone",
         "set",
         "element",
         "erase",
         "create",
         "enqueue",
         "front",
         "collectionBegin",
         "collectionEnd",
         "bind",
         "ack",
         "sync",
         "synced",
         "listRoots",
         "roots",
         "listSessions",
         "sessions",
         "part",
         "types",
         "digestAsk",
         "digests",
         "repair",
         "begin",
         "commit",
         "decided",
         "writers",
   };
   static_assert(std::size(names) == static_cast<std::size_t>(Opcode::last_) + 1);
   auto const number = static_cast<std::size_t>(opcode);
   return number < std::size(names) ? names[number] : names[0];
}

/// Whether both ends count the message, so that a writer can say what it had seen when it wrote.
constexpr bool isChange(Opcode opcode) noexcept {
   return opcode >= Opcode::set && opcode <= Opcode::collectionEnd;
}

}  // namespace Kiv::NboAttrLog

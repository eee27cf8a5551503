#pragma once

#include <cstddef>

#include "Sarn/Types.h"

namespace Kiv::NboAttrLog {

/// What one connection may cost, and all of a hub together, at either end. Both ends of a
/// connection should agree on `longestMessage` and `longestValue`. The `Hub` asserts the bounds
/// given with each limit.
struct Limits {
   /// Pending output per connection, in bytes, whether in its own buffer or in the ring that the
   /// hub's readers share; a reader that would have more falls behind. The memory is allocated on
   /// demand. More than 11; a message that does not fit ends the session.
   std::size_t outputBuffer = std::size_t(1) << 20;
   /// The longest body of a message, sent or received; at most 2^24 - 1. `Outbox` and `Inbound`
   /// enforce it.
   std::size_t longestMessage = std::size_t(1) << 18;
   /// The longest body of a message that travels in parts, sent or received. A session holds up to
   /// this many bytes for an outgoing message, and as many for an incoming one. A longer value is
   /// left out for the peer, see `SessionListener::onLeftOut`. At most 2^32 - 1.
   std::size_t longestValue = std::size_t(1) << 24;
   /// Bytes of a transaction, sent or received, as its messages count them. A longer one of a
   /// writer is refused. Readers get a longer one in pieces, see `Mount::torn`. The receiver keeps
   /// a batch until all of it has arrived.
   std::size_t transactionBytes = std::size_t(1) << 23;
   /// Entities that a peer may introduce, and that a hub may give handles; no more than 2^24 - 1.
   U32 entities = U32(1) << 20;
   /// Nested replays of collections.
   U32 nesting = 64;
   /// Changed keys of one collection that are remembered individually for a peer that is behind, or
   /// a quarter of the collection's size if that is more. With more changed keys, the whole
   /// collection is replayed. A writer's own changes are always sent key by key, and its session
   /// ends when more than `entities` keys of one collection are pending.
   std::size_t dirtyKeys = 1024;
   /// Pending output in bytes, apart from one answer, while neither end has mounted anything; and
   /// the longest body from a peer that has nothing to send but requests.
   std::size_t unmounted = std::size_t(1) << 14;
   /// Bytes that the buffers of all sessions of a hub may hold, beyond the first 4 KiB of each.
   /// When they are used up, output counts as full earlier, and a session that needs more for a
   /// single message ends.
   std::size_t sessionBytes = std::size_t(1) << 26;
   /// Connections of one user, if the carrier knows who the peer is.
   U32 sessionsOfUid = 256;
   /// The time, in nanoseconds by the hub's clock, in which a message must be complete after its
   /// first byte, parts or not; and for which a closed session waits until its last bytes are sent.
   /// See `Hub::expire`.
   U64 halfMessage = 60'000'000'000;
   /// Entities and elements of collections that one answer to a comparison looks at; one entity is
   /// always compared in full. A tree of more has no digest of its own: its entities are compared.
   U64 digestWork = 4096;
   /// The time in which the leader of a root answers when it is asked, if others wait to lead; a
   /// leader that has not been heard for longer loses the lead. See `MountMode::candidate`.
   U64 leaderSilence = 750'000'000;
   /// Nanoseconds after which a session that neither sends nor receives frees its buffers.
   U64 idle = 5'000'000'000;
};

}  // namespace Kiv::NboAttrLog

#pragma once

#include <cstddef>

#include "Sarn/Types.h"

namespace Kiv::NboAttrLog {

/// What one connection may cost, and all of a hub together, on either side. Both ends of a
/// connection should agree on `longestMessage` and `longestValue`. The `Hub` checks the bounds
/// that are given here for each.
struct Limits {
   /// Bytes that wait to be sent, per connection. The memory for them is taken when it is used.
   /// More than 11; a message that does not fit ends the session.
   std::size_t outputBuffer = std::size_t(1) << 20;
   /// The longest body of a message, sent or received; at most 2^24 - 1. `Outbox` and `Inbound`
   /// enforce it.
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

}  // namespace Kiv::NboAttrLog

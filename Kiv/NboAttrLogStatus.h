#pragma once

#include <vector>

#include "Kiv/NboAttrLogMount.h"

namespace Kiv::NboAttrLog {

/// Who ended a session.
enum class Ending : U8 {
   /// Nobody yet.
   open,
   /// This side: the peer broke a rule, or cannot be sent something.
   fault,
   /// The peer, which has said why.
   peer,
   /// `close`, or whoever carries the bytes.
   here,
};

/// Who is at the other end, as far as the carrier of the bytes knows.
struct PeerIdentity {
   static constexpr U32 unknown = ~U32(0);

   /// 0 if it is not known.
   U32 pid = 0;
   U32 uid = unknown;
   U32 gid = unknown;
   /// The name of the process; may be empty.
   Sarn::String program;

   bool operator==(PeerIdentity const&) const = default;
};

/// "pid 1234, uid 1000, gid 1000, ptpstate", or "an unknown peer".
Sarn::String peerText(PeerIdentity const& peer);

struct SessionStats {
   U64 messagesIn = 0;
   U64 messagesOut = 0;
   U64 bytesIn = 0;
   U64 bytesOut = 0;
   /// Changes that were deferred because the peer could not take them.
   U64 changesDeferred = 0;
   /// Deferred changes that the peer never saw, because a later one of the same attribute or key
   /// replaced them.
   U64 changesCoalesced = 0;
   /// Values not sent because they are longer than `Limits::longestValue`, or because the peer's
   /// version of the type does not take them.
   U64 valuesLeftOut = 0;
};

/// A root that one peer mirrors.
struct ServedRoot {
   OfferedRoot root;
   MountMode mode = MountMode::reader;
   /// Whether the peer has been sent all of it.
   bool complete = false;
   /// Whether it is the candidate that leads.
   bool leads = false;
};

/// One session of a hub, at one moment.
struct SessionStatus {
   /// Sessions are numbered from 1, in the order of their creation.
   U64 number = 0;
   PeerIdentity peer;
   /// Whether it is the session that asked.
   bool asking = false;
   /// Nanoseconds since it began; 0 if the hub has no clock.
   U64 age = 0;
   SessionStats stats;
   // What the peer has still to be sent.
   U64 dirtyEntities = 0;
   U64 dirtyAttributes = 0;
   /// Keys of collections; a collection that is to be replayed in full counts as one attribute
   /// instead.
   U64 dirtyKeys = 0;
   /// Pending bytes, and the most that may be pending.
   U64 waiting = 0;
   U64 capacity = 0;
   /// Nanoseconds since the peer last had everything; 0 if it has everything now, or if the hub has
   /// no clock.
   U64 behind = 0;
   std::vector<ServedRoot> roots;
   /// The latest values that were left out, each with entity, attribute, key and size.
   std::vector<Sarn::String> leftOut;
   /// How much the peer lacks of our types, and the first names: see `Session::lacking`.
   U64 lackingCount = 0;
   std::vector<Sarn::String> lacking;
};

/// The most names in `SessionStatus::lacking`.
inline constexpr std::size_t mostLackingNames = 32;

class In;
class Out;

/// The minimum size of one session in the answer, see `docs/attribute-log.md`: number, pid, uid,
/// gid, length of the program's name, flags, age, six counters, what is still to be sent, the
/// buffer, how long behind, how many roots.
inline constexpr std::size_t smallestStatusSize =
      8 + 3 * 4 + 4 + 1 + 8 + 6 * 8 + 3 * 8 + 2 * 8 + 8 + 4;
/// The size of one session in the answer.
std::size_t encodedSize(SessionStatus const& status);
void encode(Out& out, SessionStatus const& status);
/// Throws `FaultException`.
SessionStatus decodeSessionStatus(In& in);

}  // namespace Kiv::NboAttrLog

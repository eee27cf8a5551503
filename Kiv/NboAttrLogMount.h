#pragma once

#include <vector>

#include "Kiv/Entity.h"

namespace Kiv::NboAttrLog {

class Mounts;

/// What a peer may do to a root that it mounts.
enum class MountMode : U8 {
   /// A read-only mirror.
   reader = 0,
   /// A mirror whose changes go back to the source.
   writer = 1,
   /// A writer that has claimed the root: no other may write meanwhile.
   owner = 2,
   /// One of several that may claim the root: the source lets one of them lead, which is then as an
   /// owner; the others mirror the root, and what they change is undone. The lead goes to the
   /// smallest priority, then to who has come first; and it stays there until the leader's
   /// connection ends, or until the leader does not answer (`Limits::leaderSilence`).
   candidate = 3,
};

/// The priority of a candidate that is given none.
inline constexpr U32 usualPriority = 128;

/// Whether changes of a mirror mounted in this mode go to the source.
constexpr bool writesBack(MountMode mode) noexcept {
   return mode != MountMode::reader;
}

/// Whether a mount in this mode claims the root.
constexpr bool claims(MountMode mode) noexcept {
   return mode == MountMode::owner || mode == MountMode::candidate;
}

/// Whoever mounts a root to write it.
struct Writer {
   /// See `peerText`.
   Sarn::String peer;
   MountMode mode = MountMode::writer;
   /// Of a candidate.
   U32 priority = 0;
   /// Whether its changes are applied now: true except for a candidate that waits.
   bool leads = false;
   /// Whether it is this end.
   bool isSelf = false;
};

/// A root of the peer's that is mirrored here.
class Mount {
public:
   enum class State : U8 {
      /// The peer has not answered.
      asked,
      /// Between the beginning of the replay and its end.
      replaying,
      /// The mirror has all that the source had when the replay ended, and follows it.
      complete,
      /// See `reason()`.
      refused,
      /// The source has withdrawn the root; the mirror stays as it is.
      gone,
      /// The connection is closed; the mirror stays as it is.
      lost,
   };

   NamedEntity& root() const noexcept { return *root_; }
   MountMode mode() const noexcept { return mode_; }
   State state() const noexcept { return state_; }
   /// Whether the mirror is complete.
   bool complete() const noexcept { return state_ == State::complete; }
   /// Whether the mirror shows a part of a batch, because it was too long or too far behind to be
   /// sent at once; see `Limits::transactionBytes`. `SessionListener::onTorn` tells when it begins
   /// and ends.
   bool torn() const noexcept { return torn_; }
   /// Whether a root that was claimed once has nobody now who claims it: it shows what its last
   /// writer left. False for a root that nobody has ever claimed, such as one that the source
   /// itself changes. `SessionListener::onWriters` tells when this changes, and the next ones.
   bool stale() const noexcept { return stale_; }
   /// Since when it is stale: nanoseconds since 1970, by the source's clock; 0 if it is not known.
   U64 staleSince() const noexcept { return staleSince_; }
   /// Who writes the root, in the order of their coming, once it has been claimed.
   std::vector<Writer> const& writers() const noexcept { return writers_; }
   /// Whether this end claims the root, and what it changes is applied. False until the mirror is
   /// complete, so ask when it becomes that, too.
   bool leads() const noexcept;
   /// Of a candidate.
   U32 priority() const noexcept { return priority_; }
   /// Why it is refused or lost; printable, see `Kiv::printable`.
   Sarn::String const& reason() const noexcept { return reason_; }

private:
   friend class Mounts;
   Sarn::Ptr<NamedEntity> root_;
   MountMode mode_ = MountMode::reader;
   State state_ = State::asked;
   Sarn::String reason_;
   U32 id_ = 0;
   /// Whether the hub holds the root for this mount.
   bool adopted_ = false;
   bool torn_ = false;
   bool stale_ = false;
   U64 staleSince_ = 0;
   U32 priority_ = usualPriority;
   std::vector<Writer> writers_;
};

/// A root that a peer offers.
struct OfferedRoot {
   Sarn::String type;
   Sarn::String name;
   /// See `Mount::stale`.
   bool stale = false;
   U64 staleSince = 0;
};

}  // namespace Kiv::NboAttrLog

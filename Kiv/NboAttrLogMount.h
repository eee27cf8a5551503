#pragma once

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
};

/// Whether changes of a mirror mounted in this mode go to the source.
constexpr bool writesBack(MountMode mode) noexcept {
   return mode != MountMode::reader;
}

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
};

/// A root that a peer offers.
struct OfferedRoot {
   Sarn::String type;
   Sarn::String name;
};

}  // namespace Kiv::NboAttrLog

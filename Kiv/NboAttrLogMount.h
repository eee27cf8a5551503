#pragma once

#include "Kiv/Entity.h"

namespace Kiv::NboAttrLog {

class Mounts;

/// What a peer may do to a root that it mounts.
enum class MountMode : U8 {
   reader = 0,  ///< a read-only mirror
   writer = 1,  ///< a mirror whose changes go back to the source
   owner = 2,   ///< a writer that has claimed the root: no other may write meanwhile
};

/// Whether changes of a mirror mounted in this mode go to the source.
constexpr bool writesBack(MountMode mode) noexcept {
   return mode != MountMode::reader;
}

/// A root of the peer's that is mirrored here.
class Mount {
public:
   enum class State : U8 {
      asked,      ///< the peer has not answered
      replaying,  ///< between the beginning of the replay and its end
      complete,   ///< the mirror has all that the source had when the replay ended, and follows it
      refused,    ///< see `reason()`
      gone,       ///< the source has withdrawn the root; the mirror stays as it is
      lost,       ///< the connection is closed; the mirror stays as it is
   };

   NamedEntity& root() const noexcept { return *root_; }
   MountMode mode() const noexcept { return mode_; }
   State state() const noexcept { return state_; }
   /// Whether the mirror is complete.
   bool complete() const noexcept { return state_ == State::complete; }
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
};

/// A root that a peer offers.
struct OfferedRoot {
   Sarn::String type;
   Sarn::String name;
};

}  // namespace Kiv::NboAttrLog

// What happens in a state, a line a change.
#pragma once

#include <functional>

#include "Holt/State/Json.h"
#include "Holt/State/Path.h"
#include "Kiv/Entity.h"

namespace Holt {

/// A change as text, without its time:
///
///     ptp/config.priority1: 128 -> 100
///     ptp/config.intfConfig[Ethernet1] created: enabled=true, mpassEnabled=false
///     ptp/config.intfConfig[Ethernet1] deleted
///     ptp/config.missingSequenceThresholds[sync] created: 5
///     ptp/config.missingSequenceThresholds[sync] deleted: was 5
struct ChangeText {
   /// Of the attribute or element.
   Sarn::String path;
   /// What follows the path.
   Sarn::String what;
   /// As it is told; valid only during the call.
   Kiv::Change const& change;
};

/// REQUIRES: called from an observer, with the change that it is told.
ChangeText changeText(Kiv::Change const& change);

/// The same as an object with "path", "change" ("set", "created" or "deleted"), and "old" and "new"
/// where there is such a value: of a child that is created, what it was made with.
Json changeJson(ChangeText const& text);

/// Tells of every change below an entity, or below a path there.
class ChangeObserver final : public Kiv::Observer {
public:
   using Tell = std::function<void(ChangeText const&)>;

   /// `below`: a path as `canonicalPath` gives it; its own changes and those below it are told.
   ChangeObserver(Sarn::Ptr<Kiv::Entity> root, Sarn::String below, Tell tell);
   ~ChangeObserver();
   ChangeObserver(ChangeObserver const&) = delete;
   ChangeObserver& operator=(ChangeObserver const&) = delete;

   /// Whether it tells of what happens; it does from the beginning. What is not told costs nothing.
   void tellingIs(bool telling) noexcept { telling_ = telling; }

   void onChange(Kiv::Change const& change) override;

private:
   Sarn::Ptr<Kiv::Entity> root_;
   Sarn::String below_;
   Tell tell_;
   bool telling_ = true;
};

/// The path that changes at `path` are told with, whether or not there is anything now. Throws
/// `Failure` if the root's type has no such attribute, or a key cannot be read.
Sarn::String canonicalPath(Kiv::TypeImpl const& rootType, Path const& path);

}  // namespace Holt

// Changes of a state as text and JSON, one line per change.
#pragma once

#include <functional>

#include "Holt/State/Json.h"
#include "Holt/State/Path.h"
#include "Kiv/Entity.h"

namespace Holt {

/// A change as text, without its time. Not escaped: see `Kiv::printable`.
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
   /// The change itself; valid only during the call.
   Kiv::Change const& change;
};

/// REQUIRES: called by an observer with the change that it was given.
ChangeText changeText(Kiv::Change const& change);

/// The same as an object with "path", "change" ("set", "created" or "deleted"), and the "old" and
/// "new" values if there are any. The "new" value of a created child is its constructor arguments.
Json changeJson(ChangeText const& text);

/// Reports every change below an entity, or below paths there.
class ChangeObserver final : public Kiv::Observer {
public:
   using Tell = std::function<void(ChangeText const&)>;

   /// `below`: paths from `canonicalPath`; changes there and below are reported.
   ChangeObserver(Sarn::Ptr<Kiv::Entity> root, std::vector<Sarn::String> below, Tell tell);
   ChangeObserver(Sarn::Ptr<Kiv::Entity> root, Sarn::String below, Tell tell);
   ~ChangeObserver();
   ChangeObserver(ChangeObserver const&) = delete;
   ChangeObserver& operator=(ChangeObserver const&) = delete;

   /// Switches reporting, which is on at first. Changes that are not reported cost nothing.
   void tellingIs(bool telling) noexcept { telling_ = telling; }

   void onChange(Kiv::Change const& change) override;

private:
   Sarn::Ptr<Kiv::Entity> root_;
   std::vector<Sarn::String> below_;
   Tell tell_;
   bool telling_ = true;
};

/// The path with which changes at `path` are reported, whether or not anything exists there now.
/// Keys of `path` may be patterns; see `Match.h`.
/// Throws `Failure` if the root's type has no such attribute, or if a key cannot be read.
Sarn::String canonicalPath(Kiv::TypeImpl const& rootType, Path const& path);

}  // namespace Holt

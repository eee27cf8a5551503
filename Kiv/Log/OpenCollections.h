#pragma once

#include <memory>
#include <vector>

#include "Kiv/AttrOps.h"
#include "Kiv/NboAttrLog.h"

namespace Kiv::NboAttrLog {

/// The collections here that the peer is replaying, each with the keys named so far. At the end of
/// the replay, all other elements are removed.
///
///     begin ---- element, element, ... : seen ---- end: remove the elements not in `seen`
///
/// A key that is changed here during the replay counts as seen: the change is newer than the
/// replay.
///
/// Invariants:
/// - a collection is open at most once, and at most `nesting` are open;
/// - `seen` has only keys that are in the collection, so it is never larger than the collection.
class OpenCollections {
public:
   explicit OpenCollections(U32 nesting) noexcept : nesting_(nesting) {}

   /// The peer begins a replay. Throws `FaultException` if it has begun already or is nested too
   /// deep.
   void begin(Entity& entity, FieldDescriptor const& field, In const& in);
   /// The peer ends a replay: removes what it has not named. Throws `FaultException` if it has not
   /// begun.
   void end(Entity& entity, FieldDescriptor const& field, In const& in);
   /// The keys named so far, to which the next one is added. Null if the collection is not open, or
   /// was empty when the replay began.
   DirtyKeys* seen(Entity const& entity, FieldDescriptor const& field) noexcept;
   /// A key was changed here: if it exists now, it stays.
   void changed(Entity const& entity, FieldDescriptor const& field, void const* key) {
      if (!open_.empty()) [[unlikely]] {
         changedInReplay(entity, field, key);
      }
   }
   /// Forgets the replays of an entity that is gone or no longer the peer's.
   void abandon(Entity const& entity) noexcept;
   void clear() noexcept { open_.clear(); }

private:
   struct Open {
      Entity* entity;
      FieldDescriptor const* field;
      /// Null if the collection was empty when the replay began.
      std::shared_ptr<DirtyKeys> seen;
   };

   std::size_t find(Entity const& entity, FieldDescriptor const& field) const noexcept;
   void changedInReplay(Entity const& entity, FieldDescriptor const& field, void const* key);

   U32 nesting_;
   std::vector<Open> open_;
};

}  // namespace Kiv::NboAttrLog

#pragma once

#include <memory>
#include <vector>

#include "Kiv/AttrOps.h"
#include "Kiv/NboAttrLog.h"

namespace Kiv::NboAttrLog {

/// The collections of ours that the peer is replaying, each with the keys that were named so far:
/// at the replay's end, what was not named is removed.
///
///     begin ---- element, element, ... : seen ---- end: remove what is there and not in `seen`
///
/// A key that is changed here meanwhile counts as seen: it is newer than the replay.
///
/// Invariants:
/// - a collection is open once at most, and no more are than may be nested;
/// - `seen` has only keys that are in the collection, so that it is never larger than that.
class OpenCollections {
public:
   explicit OpenCollections(U32 nesting) noexcept : nesting_(nesting) {}

   /// The peer begins a replay. Faults if it has begun already, or nests too deep.
   void begin(Entity& entity, FieldDescriptor const& field, In const& in);
   /// The peer ends a replay: removes what it has not named. Faults if it has not begun.
   void end(Entity& entity, FieldDescriptor const& field, In const& in);
   /// The keys that were named, to be told of the next one; null if the collection is not open, or
   /// has nothing that could be left over.
   DirtyKeys* seen(Entity const& entity, FieldDescriptor const& field) noexcept;
   /// A key was changed here: if it is there now, it stays.
   void changed(Entity const& entity, FieldDescriptor const& field, void const* key) {
      if (!open_.empty()) [[unlikely]] {
         changedInReplay(entity, field, key);
      }
   }
   /// What is gone, or the peer's no longer, is not replayed to its end.
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

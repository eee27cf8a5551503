// Remembers what has changed in a root since it was last asked.
#pragma once

#include <memory>
#include <unordered_map>

#include "Kiv/AttrOps.h"
#include "tools/statedb/Rows.h"

namespace Statedb {

/// Watches a root. A change costs a flag or a key in a set; its value is read when `take` is
/// called, so that a place that changes many times is written once.
///
/// The memory is bounded by the size of the state: beyond that, keys are replaced by a flag for
/// their collection, and entities that have been removed are forgotten.
///
/// Threads: belongs to the thread of the root.
class Recorder final : Kiv::Observer {
public:
   /// `number`: of the root in the database.
   Recorder(Sarn::Ptr<Kiv::NamedEntity> root, S64 number);
   ~Recorder();
   Recorder(Recorder const&) = delete;
   Recorder& operator=(Recorder const&) = delete;

   Kiv::NamedEntity& root() const noexcept { return *root_; }
   bool hasChanges() const noexcept { return !entities_.empty(); }
   /// How many entities it remembers.
   std::size_t entities() const noexcept { return entities_.size(); }
   /// Appends the rows of everything that has changed, and forgets it.
   void take(Batch& batch);

private:
   struct Collection {
      /// Null: the collection as a whole.
      std::unique_ptr<Kiv::DirtyKeys> keys;
   };
   struct Changed {
      Sarn::Ptr<Kiv::Entity> entity;
      /// Of attributes, singleton children and queues, by id.
      std::vector<bool> members;
      std::unordered_map<Kiv::AttributeId, Collection> collections;
   };

   void onChange(Kiv::Change const& change) override;
   Changed& changed(Kiv::Entity& entity);
   void keyHasChanged(Changed& changed, Kiv::FieldDescriptor const& field, void const* key);
   bool isAttached(Kiv::Entity const& entity) const noexcept;
   void forgetRemoved();
   void take(Changed& changed, std::vector<RowChange>& out) const;

   Sarn::Ptr<Kiv::NamedEntity> root_;
   S64 number_;
   std::unordered_map<Kiv::Entity const*, Changed> entities_;
   /// What changed last: most changes are of the same entity.
   Changed* last_ = nullptr;
   /// `forgetRemoved` looks again beyond this many entities.
   std::size_t lookBeyond_ = 1024;
};

}  // namespace Statedb

#include "Kiv/Log/OpenCollections.h"

#include <algorithm>

namespace Kiv::NboAttrLog {

std::size_t OpenCollections::find(Entity const& entity,
                                  FieldDescriptor const& field) const noexcept {
   std::size_t at = 0;
   while (at != open_.size() && !(open_[at].entity == &entity && open_[at].field == &field)) {
      ++at;
   }
   return at;
}

DirtyKeys* OpenCollections::seen(Entity const& entity, FieldDescriptor const& field) noexcept {
   std::size_t const at = find(entity, field);
   return at != open_.size() ? open_[at].seen.get() : nullptr;
}

void OpenCollections::changedInReplay(Entity const& entity, FieldDescriptor const& field,
                                      void const* key) {
   DirtyKeys* const keys = seen(entity, field);
   if (keys == nullptr) {
      return;
   }
   if (field.ops->collection->find(entity, key) != nullptr) {
      keys->insert(key, false);
   } else {
      keys->remove(key);
   }
}

void OpenCollections::begin(Entity& entity, FieldDescriptor const& field, In const& in) {
   if (find(entity, field) != open_.size()) {
      in.fault("the collection's replay has begun already");
   }
   if (open_.size() >= nesting_) {
      in.fault("replays are nested deeper than " + std::to_string(nesting_));
   }
   // An empty collection has nothing that could be left over at the end.
   bool const empty = field.ops->collection->size(entity) == 0;
   open_.push_back(
         {&entity, &field,
          std::shared_ptr<DirtyKeys>(empty ? nullptr : field.ops->collection->newDirtyKeys())});
}

void OpenCollections::end(Entity& entity, FieldDescriptor const& field, In const& in) {
   std::size_t const at = find(entity, field);
   if (at == open_.size()) {
      in.fault("the collection's replay has not begun");
   }
   // It stays open while elements are removed, so that those that observers add are kept.
   if (std::shared_ptr<DirtyKeys> const seen = open_[at].seen) {
      struct Close {
         std::vector<Open>& open;
         DirtyKeys const* seen;
         ~Close() {
            std::erase_if(open, [this](Open const& o) { return o.seen.get() == seen; });
         }
      } const close{open_, seen.get()};
      field.ops->collection->delUnseen(entity, *seen);
   } else {
      open_.erase(open_.begin() + static_cast<std::ptrdiff_t>(at));
   }
}

void OpenCollections::abandon(Entity const& entity) noexcept {
   std::erase_if(open_, [&entity](Open const& open) { return open.entity == &entity; });
}

}  // namespace Kiv::NboAttrLog

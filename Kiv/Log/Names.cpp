#include "Kiv/Log/Names.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "Kiv/Log/Mounts.h"
#include "Kiv/Log/OpenCollections.h"

namespace Kiv::NboAttrLog {

void Names::introducedIs(U32 handle, bool introduced) {
   U32 const at = HandleTable::index(handle);
   if (at / 64 >= introduced_.size()) {
      if (!introduced) {
         return;
      }
      introduced_.resize(std::max<std::size_t>(at / 64 + 1, introduced_.size() * 2));
   }
   U64 const bit = U64(1) << at % 64;
   U64& word = introduced_[at / 64];
   word = introduced ? word | bit : word & ~bit;
}

bool Names::peerHas(Entity const& child) const noexcept {
   return child.streamHandle() != 0 &&
          (introduced(child.streamHandle()) || (known(child) && !mounts_.serves(child)));
}

void Names::checkHandle(U32 handle, In const& in) const {
   if (handle >> 24 == 0) {
      in.fault("the handle " + std::to_string(handle) + " is of turn 0, but turns begin at 1");
   }
   if (HandleTable::index(handle) >= limit_) {
      in.fault("the handle " + std::to_string(handle) + " exceeds the bound of " +
               std::to_string(limit_) + " entities");
   }
}

void Names::map(U32 handle, Entity* entity, bool writable, bool fresh) {
   U32 const at = HandleTable::index(handle);
   assert(at < limit_);
   if (at >= theirs_.size()) {
      std::size_t const wanted = std::max<std::size_t>(at + 1, theirs_.size() * 2);
      theirs_.resize(std::min<std::size_t>(wanted, limit_));
   }
   Theirs& entry = theirs_[at];
   if (entry.entity.get() == entity && entry.handle == handle) {
      return;
   }
   if (deferred_ && ((entity != nullptr && !fresh) || entry.entity)) {
      makeIndex();
   }
   if (entry.entity && entry.entity.get() != entity) {
      U64 const before = keyOf(*entry.entity);
      U32 const* const known = handles_.find(before);
      if (known != nullptr && *known == entry.handle) {
         handles_.erase(before);
         open_.abandon(*entry.entity);
      }
   }
   entry.handle = handle;
   entry.writable = writable;
   entry.entity = Sarn::Ptr<Entity>(entity);
   if (entity == nullptr || deferred_) {
      return;
   }
   auto const [known, added] = handles_.insert(keyOf(*entity), handle);
   if (added) {
      return;
   }
   if (*known != handle) {
      // The peer has replaced the child that it knew by the old handle. It will not finish the old
      // one's replays, and does not know the new one by our handle.
      open_.abandon(*entity);
      if (entity->streamHandle() != 0 && !mounts_.serves(*entity)) {
         introducedIs(entity->streamHandle(), false);
      }
   }
   *known = handle;
}

void Names::mapRoot(U32 handle, Entity& root) {
   map(handle, &root, true, deferred_ && scan(root) == nullptr);
}

/// Enters all of `theirs_` in the map. If there is no memory, nothing is changed.
void Names::makeIndex() const {
   auto const present = [](Theirs const& entry) { return entry.entity.get() != nullptr; };
   handles_.reserve(
         static_cast<std::size_t>(std::count_if(theirs_.begin(), theirs_.end(), present)));
   for (Theirs const& entry : theirs_) {
      if (present(entry)) {
         handles_.insert(keyOf(*entry.entity), entry.handle);
      }
   }
   deferred_ = false;
}

/// The first question makes the map. If there is no memory, the next one tries again.
U32 const* Names::findDeferred(Entity const& entity) const noexcept {
   if (theirs_.empty()) {
      return nullptr;
   }
   try {
      makeIndex();
   } catch (std::bad_alloc const&) {
      return scan(entity);
   }
   return handles_.find(keyOf(entity));
}

U32 const* Names::scan(Entity const& entity) const noexcept {
   auto const found = std::find_if(theirs_.begin(), theirs_.end(), [&](Theirs const& entry) {
      return entry.entity.get() == &entity;
   });
   return found != theirs_.end() ? &found->handle : nullptr;
}

void Names::childIsMade(Entity& child) {
   if (expected_ != 0) {
      map(std::exchange(expected_, 0), &child, true);
   }
}

void Names::unmap(Entity const& entity) noexcept {
   U64 const key = keyOf(entity);
   if (U32 const* const handle = theirHandle(entity)) {
      theirs_[HandleTable::index(*handle)].entity.reset();
      handles_.erase(key);
   }
}

void Names::forget(Entity& entity, U32 handle) {
   introducedIs(handle, false);
   open_.abandon(entity);
   unmap(entity);
}

void Names::unmapTree(Entity& entity) {
   unmap(entity);
   open_.abandon(entity);
   forEachChild(entity,
                [this](Entity& child, FieldDescriptor const&, void const*) { unmapTree(child); });
}

void Names::clear() noexcept {
   std::vector<U64>().swap(introduced_);  // `clear` would keep the memory
   std::vector<Theirs>().swap(theirs_);
   handles_.clear();
   deferred_ = true;
}

}  // namespace Kiv::NboAttrLog

#include "Kiv/Log/Handles.h"

#include <algorithm>
#include <cassert>

#include "Kiv/Log/ChildChange.h"
#include "Sarn/Publications.h"

namespace Kiv {

/// What only the log may do with an entity.
class EntityStreamAccess {
public:
   static void tagIs(Entity& entity, U32 handle) noexcept { entity.tag_ = handle; }
};

}  // namespace Kiv

namespace Kiv::NboAttrLog {

U32 HandleTable::add(Entity& entity) {
   if (freeCount_ > resting || (firstFree_ != none && entries_.size() >= limit_)) {
      U32 const at = firstFree_;
      Entry& entry = entries_[at];
      firstFree_ = entry.nextFree;
      if (firstFree_ == none) {
         lastFree_ = none;
      }
      --freeCount_;
      U32 const turn = (entry.handle >> 24) % 255 + 1;
      entry = {turn << 24 | at, none, &entity};
      return entry.handle;
   }
   if (entries_.size() >= limit_) {
      return 0;
   }
   auto const at = static_cast<U32>(entries_.size());
   entries_.push_back({U32(1) << 24 | at, none, &entity});
   return entries_.back().handle;
}

void HandleTable::remove(U32 handle) noexcept {
   U32 const at = index(handle);
   assert(find(handle) != nullptr);
   entries_[at].entity = nullptr;
   entries_[at].nextFree = none;
   (lastFree_ != none ? entries_[lastFree_].nextFree : firstFree_) = at;
   lastFree_ = at;
   ++freeCount_;
}

Handles::Handles(U32 limit, Listener& listener)
      : limit_(std::min(limit, HandleTable::indexMask)), table_(limit_), listener_(listener) {}

bool Handles::registerTree(Entity& entity) {
   struct Numbering {
      Handles& handles;
      Entity& entity;
      bool done = false;
      ~Numbering() {
         if (!done) {
            handles.unregisterTree(entity);
         }
      }
   } numbering{*this, entity};
   numbering.done = numberTree(entity);
   return numbering.done;
}

bool Handles::numberTree(Entity& entity) {
   if (entity.streamHandle() != 0) {
      return true;
   }
   U32 const handle = table_.add(entity);
   if (handle == 0) {
      return false;
   }
   EntityStreamAccess::tagIs(entity, handle);
   bool all = true;
   forEachChild(entity, [&](Entity& child, FieldDescriptor const&, void const*) {
      all = all && numberTree(child);
   });
   return all;
}

Sarn::String Handles::tooMany() const {
   return "more than " + std::to_string(limit_) + " entities cannot be streamed";
}

void Handles::unregisterTree(Entity& entity) {
   U32 const handle = entity.streamHandle();
   if (handle == 0) {
      return;
   }
   listener_.onGone(entity, handle);
   table_.remove(handle);
   EntityStreamAccess::tagIs(entity, 0);
   forEachChild(entity, [this](Entity& child, FieldDescriptor const&, void const*) {
      unregisterTree(child);
   });
}

void Handles::unregisterUntold() {
   struct Context {
      Handles& handles;
      bool any;
   } context{*this, true};
   while (context.any) {  // a child found here may have lost children, too
      context.any = false;
      Sarn::Publications::forEach(&context, [](void* c, Change const& change) {
         auto& [handles, any] = *static_cast<Context*>(c);
         Entity const& owner = entityOf(change);
         FieldDescriptor const* const field = owner.kivType().field(change.attributeId);
         if (field == nullptr || owner.streamHandle() != 0) {
            return;
         }
         if (Entity* const removed = removedChild(*field, change)) {
            any = any || removed->streamHandle() != 0;
            handles.unregisterTree(*removed);
         }
      });
   }
}

}  // namespace Kiv::NboAttrLog

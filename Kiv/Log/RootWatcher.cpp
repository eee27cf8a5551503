#include "Kiv/Log/RootWatcher.h"

#include <algorithm>

#include "Kiv/Log/Teller.h"
#include "Sarn/Publications.h"

namespace Kiv::NboAttrLog {

RootWatcher::RootWatcher(Handles& handles, Applying const& applying, Sarn::Ptr<NamedEntity> root)
      : handles_(handles), applying_(applying), root_(std::move(root)) {
   root_->observerAddFirst(*this);
}

RootWatcher::~RootWatcher() {
   root_->observerDel(*this, Scope::subtree);
}

void RootWatcher::unsubscribe(Teller const& teller) noexcept {
   std::erase(subscribers_, &teller);
}

bool RootWatcher::hasSubscriber(Teller const& teller) const noexcept {
   return std::find(subscribers_.begin(), subscribers_.end(), &teller) != subscribers_.end();
}

void RootWatcher::onChange(Change const& change) {
   Entity& entity = entityOf(change);
   if (entity.streamHandle() == 0) {
      return;
   }
   FieldDescriptor const* const field = entity.kivType().field(change.attributeId);
   if (field == nullptr || !field->has(FieldDescriptor::streamed)) {
      return;
   }
   Teller* const from = applying_.teller != nullptr ? madeBy(change) : nullptr;
   // Changes of a queue build on each other, so `Inbound` itself decides what it must send back.
   bool const skips =
         from != nullptr && (field->kind == MemberKind::queue || !from->mustEcho(*this));
   Teller* const skipped = skips ? from : nullptr;
   if (field->kind == MemberKind::single) {
      onValue(entity, *field, skipped);
   } else {
      onOther(entity, *field, change, from, skipped);
   }
}

Teller* RootWatcher::madeBy(Change const& change) const noexcept {
   bool const direct = Sarn::Publications::around(change) == applying_.inside;
   return direct ? applying_.teller : nullptr;
}

/// Encodes the value for the first session that is up to date, and copies it for the others.
void RootWatcher::onValue(Entity& entity, FieldDescriptor const& field, Teller const* skipped) {
   std::size_t const size = valueSize(entity, field);
   U8 const* encoded = nullptr;
   for (Teller* const teller : subscribers_) {
      if (!teller->closed() && teller != skipped) {
         teller->orFail([&] { encoded = teller->tellValue(entity, field, size, encoded); });
      }
   }
}

void RootWatcher::onOther(Entity& entity, FieldDescriptor const& field, Change const& change,
                          Teller* from, Teller* skipped) {
   Entity* const removed = removedChild(field, change);
   if (holdsEntities(field)) {
      Entity* const present = presentChild(entity, field, change.key);
      if (present != nullptr) {
         registerPresent(*present);
      }
      if (present != nullptr && skipped != nullptr) {
         skipped->orFail([&] { skipped->childIsMade(*present); });
      } else if (present == nullptr && from != nullptr && change.oldValue == nullptr) {
         from->orFail([&] { from->tellVanished(entity, field, change.key); });
      }
   }
   for (Teller* const teller : subscribers_) {
      if (!teller->closed() && teller != skipped) {
         teller->orFail([&] { teller->tellOther(entity, field, change.key, removed); });
      }
   }
   if (removed != nullptr) {
      handles_.unregisterTree(*removed);
      handles_.unregisterUntold();
   }
}

/// Gives a new child a handle. The setter has done its work, and a mirror without the child would
/// stay wrong: if there is no handle left, the sessions end.
void RootWatcher::registerPresent(Entity& child) noexcept {
   Sarn::String reason = outOfMemory();
   try {
      if (handles_.registerTree(child)) {
         return;
      }
      reason = handles_.tooMany();
   } catch (std::bad_alloc const&) {  // `reason` says so already
   }
   for (Teller* const teller : subscribers_) {
      teller->fail(copyOrOutOfMemory(reason));
   }
}

U8* RootWatcher::roomFor(Sarn::Publisher const& source, AttributeId id, std::size_t size) noexcept {
   if (subscribers_.size() != 1 || applying_.teller != nullptr) {
      return nullptr;
   }
   return subscribers_.front()->roomFor(static_cast<Entity const&>(source), id, size);
}

}  // namespace Kiv::NboAttrLog

#include "Kiv/Log/Teller.h"

namespace Kiv::NboAttrLog {
namespace {

/// Whether a child of another name has replaced `removed`: the peer also replaces it in one step,
/// when it gets the new one.
bool isReplaced(Entity const& owner, FieldDescriptor const& field, Entity const& removed) {
   Entity const* const present =
         field.has(FieldDescriptor::named) ? presentChild(owner, field, nullptr) : nullptr;
   return present != nullptr && *entityName(*present) != *entityName(removed);
}

}  // namespace

Teller::Teller(Session& session, Hub& hub, Limits const& limits, ByteBudget& budget,
               Clock const& clock, Handles& handles, Closing& closing, Mounts& mounts,
               OpenCollections& open)
      : closing_(closing),
        mounts_(mounts),
        open_(open),
        outbox_(limits, budget, clock, closing),
        names_(limits.entities, mounts, open),
        encoder_(limits, handles, closing, outbox_, names_, crossing_, leftOut_),
        backlog_(limits, handles, closing, outbox_, names_, mounts),
        replies_(session, hub, outbox_, backlog_, mounts),
        walk_(session, *this, handles, closing, outbox_, names_, encoder_, backlog_, replies_,
              mounts) {}

void Teller::tell(Entity& entity, FieldDescriptor const& field, Change const& change) {
   if (field.kind == MemberKind::single) {
      tellValue(entity, field, valueSize(entity, field), nullptr);
   } else {
      tellOther(entity, field, change.key, removedChild(field, change));
   }
}

void Teller::tellOther(Entity& entity, FieldDescriptor const& field, void const* key,
                       Entity* removed) {
   open_.changed(entity, field, key);
   bool const wasKnown =
         removed != nullptr && names_.known(*removed) && !isReplaced(entity, field, *removed);
   if (!live() || !reach(entity)) {
      backlog_.mark(entity, field, key, wasKnown);
      return;
   }
   bool told = false;
   bool erased = wasKnown;
   if (holdsEntities(field)) {
      told = tellChild(entity, field, key, erased);
   } else if (field.kind == MemberKind::queue) {
      told = tellQueue(entity, field, *static_cast<U32 const*>(key));
   } else {
      void const* const value = field.ops->collection->find(entity, key);
      told = value != nullptr ? encoder_.element(entity, field, key, value)
                              : encoder_.erase(entity, field, key);
   }
   if (!told) {
      backlog_.mark(entity, field, key, erased);
   }
}

/// `erased`: the peer still has a child there that was removed. False if not everything was sent.
bool Teller::tellChild(Entity& entity, FieldDescriptor const& field, void const* key,
                       bool& erased) {
   Entity* const present = presentChild(entity, field, key);
   // A replay may have sent the present child before this removal is published.
   if (present != nullptr && names_.peerHas(*present)) {
      return true;
   }
   if (erased) {
      if (!encoder_.erase(entity, field, key)) {
         return false;
      }
      erased = false;
   }
   if (present == nullptr) {
      return true;
   }
   if (!encoder_.create(entity, field, *present)) {
      return false;
   }
   if (walk_.descendInto(*present, true)) {
      walk_.fill();
   }
   return true;
}

bool Teller::tellQueue(Entity& entity, FieldDescriptor const& field, U32 sequence) {
   QueueOps const& queue = *field.ops->queue;
   if (void const* const value = queue.at(entity, sequence)) {
      return encoder_.enqueue(entity, field, sequence, value);
   }
   if (sequence == queue.nextSequence(entity)) {  // renumbered
      backlog_.markWhole(entity, field);
      walk_.fill();
      return true;
   }
   return encoder_.front(entity, field, queue.frontSequence(entity), false);
}

void Teller::tellVanished(Entity& entity, FieldDescriptor const& field, void const* key) {
   if (!live() || !reach(entity) || !encoder_.erase(entity, field, key)) {
      backlog_.mark(entity, field, key, true);
   }
}

void Teller::forget(Entity& entity, U32 handle) {
   backlog_.remove(handle);
   names_.forget(entity, handle);
}

void Teller::forgetTree(Entity& root) {
   walk_.leave(root);
   forgetBelow(root);
}

void Teller::forgetBelow(Entity& entity) {
   if (U32 const handle = entity.streamHandle()) {
      forget(entity, handle);
   }
   names_.unmapTree(entity);
   forEachChild(entity,
                [this](Entity& child, FieldDescriptor const&, void const*) { forgetBelow(child); });
}

void Teller::clear() noexcept {
   walk_.clear();
   backlog_.clear();
   names_.clear();
   replies_.clear();
}

}  // namespace Kiv::NboAttrLog

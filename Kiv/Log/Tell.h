#pragma once

#include "Kiv/Log/ChildChange.h"
#include "Kiv/Log/Encoder.h"

/// Which messages tell of a change, decided once for a single session and for all readers that
/// follow the hub's ring. `To` is who is told; everybody there knows the same entities:
///
///     to.encoder()                        writes the messages
///     to.has(child)                       whether this child need not be sent
///     to.introduce(entity, field, child)  sends it with all that it contains; false if it cannot
///     to.restart(entity, field)           has a queue sent anew; false if it cannot
namespace Kiv::NboAttrLog {

/// Whether a child of another name has replaced `removed`: the peer also replaces it in one step,
/// when it gets the new one.
inline bool isReplaced(Entity const& owner, FieldDescriptor const& field, Entity const& removed) {
   Entity* const present =
         field.has(FieldDescriptor::named) ? presentChild(owner, field, nullptr) : nullptr;
   return present != nullptr && *entityName(*present) != *entityName(removed);
}

/// `erased`: the peer still has a child there that was removed. False if not everything was sent.
template <class To>
bool tellChild(To&& to, Entity& entity, FieldDescriptor const& field, void const* key,
               bool& erased) {
   Entity* const present = presentChild(entity, field, key);
   // A replay may have sent the present child before this removal is published.
   if (present != nullptr && to.has(*present)) {
      return true;
   }
   if (erased) {
      if (!to.encoder().erase(entity, field, key)) {
         return false;
      }
      erased = false;
   }
   return present == nullptr || to.introduce(entity, field, *present);
}

template <class To>
bool tellQueue(To&& to, Entity& entity, FieldDescriptor const& field, U32 sequence) {
   QueueOps const& queue = *field.ops->queue;
   if (void const* const value = queue.at(entity, sequence)) {
      return to.encoder().enqueue(entity, field, sequence, value);
   }
   if (sequence == queue.nextSequence(entity)) {  // renumbered
      return to.restart(entity, field);
   }
   return to.encoder().front(entity, field, queue.frontSequence(entity), false);
}

/// A change of a child, a collection or a queue. `erased`: as for `tellChild`. False if not
/// everything was sent.
template <class To>
bool tellOther(To&& to, Entity& entity, FieldDescriptor const& field, void const* key,
               bool& erased) {
   if (holdsEntities(field)) {
      return tellChild(to, entity, field, key, erased);
   }
   if (field.kind == MemberKind::queue) {
      return tellQueue(to, entity, field, *static_cast<U32 const*>(key));
   }
   void const* const value = field.ops->collection->find(entity, key);
   return value != nullptr ? to.encoder().element(entity, field, key, value)
                           : to.encoder().erase(entity, field, key);
}

}  // namespace Kiv::NboAttrLog

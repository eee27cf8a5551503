#pragma once

#include "Kiv/Entity.h"
#include "Kiv/FirstException.h"
#include "Kiv/Glue/MembersKeyed.h"
#include "Sarn/RQueue.h"

/// Members that are sequence-numbered queues. See `Kiv/Glue/Members.h`.
namespace Kiv {

template <class T>
void queueEnq(Entity& owner, AttributeId id, Sarn::RQueue<T>& queue, T const& value) {
   U32 const sequence = queue.enq(value);
   owner.publishChangeRecursive(id, &sequence, nullptr, &keysEqual<U32>);
}

template <class T>
T queueDeq(Entity& owner, AttributeId id, Sarn::RQueue<T>& queue) {
   if (queue.empty()) {
      return T();
   }
   U32 const sequence = queue.frontSequence();
   T const value = queue.deq();
   owner.publishChangeRecursive(id, &sequence, nullptr, &keysEqual<U32>);
   return value;
}

template <class T>
void _memberDelAll(Sarn::RQueue<T>& queue) noexcept {
   queue.doClear();
}

/// *xDelAll()*: removes and publishes the present elements one by one. Whatever observers append
/// meanwhile stays. If observers throw, the first exception is rethrown at the end.
template <class T>
void queueDelAll(Entity& owner, AttributeId id, Sarn::RQueue<T>& queue) {
   if (!owner.watched()) {
      _memberDelAll(queue);
      return;
   }
   Sarn::Ptr<Entity> const alive(&owner);
   Sarn::RQueueSequence const end = queue.nextSequence();
   Impl::FirstException thrown;
   for (auto left = queue.size();
        left != 0 && !queue.empty() && static_cast<S32>(end - queue.frontSequence()) > 0; --left) {
      thrown.attempt([&] { queueDeq(owner, id, queue); });
   }
   thrown.rethrow();
}

}  // namespace Kiv

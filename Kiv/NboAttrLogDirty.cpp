// What a connection could not be told when it happened: flags and keys, entity by entity.
#include "Kiv/NboAttrLogSession.h"
#include "Kiv/Path.h"

namespace Kiv::NboAttrLog {

FlowOut& Session::flowOut(Entity& entity) {
   U32 const place = HandleTable::place(entity.streamHandle());
   if (place >= flowOuts_.size()) {
      flowOuts_.resize(hub_.handles_.places());
   }
   if (flowOuts_[place] == nullptr) {
      flowOuts_[place] = std::make_unique<FlowOut>(entity, false);
   }
   return *flowOuts_[place];
}

FlowOut* Session::flowOutOf(Entity const& entity) const noexcept {
   U32 const place = HandleTable::place(entity.streamHandle());
   bool const any = entity.streamHandle() != 0 && place < flowOuts_.size();
   return any ? flowOuts_[place].get() : nullptr;
}

bool Session::isDirtyKey(Entity const& entity, FieldDescriptor const& field, void const* key) {
   FlowOut* const flow = flowOutOf(entity);
   DirtyKeys const* const keys = flow != nullptr ? flow->dirtyKeys(field, false) : nullptr;
   return keys != nullptr && keys->has(key);
}

void Session::flowOutDel(U32 place) noexcept {
   if (place >= flowOuts_.size() || flowOuts_[place] == nullptr) {
      return;
   }
   FlowOut* const gone = flowOuts_[place].get();
   if (gone->queued) {
      (gone->previous != nullptr ? gone->previous->next : firstDirty_) = gone->next;
      (gone->next != nullptr ? gone->next->previous : lastDirty_) = gone->previous;
      --dirtyCount_;
   }
   flowOuts_[place].reset();
}

void Session::markDirty(Entity& entity, FieldDescriptor const& field, void const* key,
                        bool erased) {
   if (closed_) {
      return;
   }
   // An entity that the peer does not know yet is replayed whole when it is introduced.
   if (!known(entity)) {
      return;
   }
   ++stats_.changesDeferred;
   FlowOut& flow = flowOut(entity);
   bool const keyed = key != nullptr && field.kind != MemberKind::queue;
   DirtyKeys* const keys =
         keyed && !flow.wholeWillBegin(field.fieldId) ? flow.dirtyKeys(field, true) : nullptr;
   // Every element of a queue is told, unless it is gone by then.
   bool const waits = keys != nullptr ? keys->has(key) : flow.kivIsDirty(field.fieldId);
   stats_.changesCoalesced += waits && field.kind != MemberKind::queue ? 1 : 0;
   if (field.kind == MemberKind::queue) {
      QueueOps const& queue = *field.ops->queue;
      U32 const sequence = *static_cast<U32 const*>(key);
      U32& told = flow.toldSequence(field.fieldId, queue.nextSequence(entity));
      // An element that is here now is one that the reader misses. Others may be here already of
      // which nobody has been told yet, so the last number says nothing.
      if (queue.at(entity, sequence) != nullptr && static_cast<S32>(sequence - told) < 0) {
         told = sequence;
      } else if (sequence == queue.nextSequence(entity)) {  // numbered anew
         flow.wholeCollectionIs(field.fieldId, true);
      }
   } else if (field.kind == MemberKind::child) {
      flow.erasedIs(field.fieldId, flow.erased(field.fieldId) || erased);
   } else if (keys != nullptr) {
      keys->insert(key, erased);
      boundKeys(flow, field, keys->size());
   }
   flow.kivIsDirtyIs(field.fieldId, true);
   queueDirty(flow);
}

/// Beyond the bound the peer gets the whole collection, which costs nothing to remember. Only who
/// serves the root may do so: the replay of a writer would remove what it has not heard of yet.
void Session::boundKeys(FlowOut& flow, FieldDescriptor const& field, std::size_t count) {
   if (count <= hub_.limits_.dirtyKeys || count <= field.ops->collection->size(flow.entity()) / 4) {
      return;
   }
   if (serves(flow.entity())) {
      flow.replayWhole(field.fieldId);
   } else if (count > hub_.limits_.entities) {
      fail(entityPath(flow.entity()) + "." + field.name + " (" + std::to_string(field.fieldId) +
           "): more than " + std::to_string(hub_.limits_.entities) +
           " changed keys wait for a peer that does not take them");
   }
}

void Session::markWhole(Entity& entity, FieldDescriptor const& field) {
   if (closed_ || entity.streamHandle() == 0 || !known(entity)) {
      return;
   }
   FlowOut& flow = flowOut(entity);
   flow.wholeCollectionIs(field.fieldId, true);
   flow.kivIsDirtyIs(field.fieldId, true);
   queueDirty(flow);
}

void Session::markAll(Entity& entity) {
   FlowOut& flow = flowOut(entity);
   flow.reset(entity, true);
   queueDirty(flow);
}

void Session::queueDirty(FlowOut& flow) noexcept {
   if (!flow.queued) {
      fallBehind();
      flow.queued = true;
      flow.next = nullptr;
      flow.previous = lastDirty_;
      flow.sequence = ++dirtySequence_;
      (lastDirty_ != nullptr ? lastDirty_->next : firstDirty_) = &flow;
      lastDirty_ = &flow;
      ++dirtyCount_;
   }
}

}  // namespace Kiv::NboAttrLog

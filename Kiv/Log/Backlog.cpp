#include "Kiv/Log/Backlog.h"

#include "Kiv/Log/Mounts.h"
#include "Kiv/Path.h"

namespace Kiv::NboAttrLog {

FlowOut& Backlog::flowOut(Entity& entity) {
   U32 const at = HandleTable::index(entity.streamHandle());
   if (at >= flowOuts_.size()) {
      flowOuts_.resize(handles_.indexes());
   }
   if (flowOuts_[at] == nullptr) {
      flowOuts_[at] = std::make_unique<FlowOut>(entity, false);
   }
   return *flowOuts_[at];
}

FlowOut* Backlog::find(Entity const& entity) const noexcept {
   U32 const at = HandleTable::index(entity.streamHandle());
   bool const any = entity.streamHandle() != 0 && at < flowOuts_.size();
   return any ? flowOuts_[at].get() : nullptr;
}

bool Backlog::has(Entity const& entity, FieldDescriptor const& field, void const* key) const {
   FlowOut* const flow = find(entity);
   if (key == nullptr) {
      return flow != nullptr && flow->kivIsDirty(field.fieldId);
   }
   DirtyKeys const* const keys = flow != nullptr ? flow->dirtyKeys(field, false) : nullptr;
   return keys != nullptr && keys->has(key);
}

void Backlog::remove(U32 handle) noexcept {
   U32 const at = HandleTable::index(handle);
   if (at >= flowOuts_.size() || flowOuts_[at] == nullptr) {
      return;
   }
   FlowOut* const gone = flowOuts_[at].get();
   if (gone->queued) {
      (gone->previous != nullptr ? gone->previous->next : first_) = gone->next;
      (gone->next != nullptr ? gone->next->previous : last_) = gone->previous;
      --size_;
   }
   flowOuts_[at].reset();
}

void Backlog::clear() noexcept {
   std::vector<std::unique_ptr<FlowOut>>().swap(flowOuts_);  // `clear` would keep the memory
   first_ = last_ = nullptr;
   size_ = 0;
}

void Backlog::mark(Entity& entity, FieldDescriptor const& field, void const* key, bool erased) {
   // An entity that the peer does not know yet is replayed in full when it is introduced.
   if (closing_.closed() || !names_.known(entity)) {
      return;
   }
   ++deferred_;
   FlowOut& flow = flowOut(entity);
   bool const keyed = key != nullptr && field.kind != MemberKind::queue;
   DirtyKeys* const keys =
         keyed && !flow.wholeWillBegin(field.fieldId) ? flow.dirtyKeys(field, true) : nullptr;
   // Elements of a queue do not coalesce: each is sent, unless it is gone by then.
   bool const waits = keys != nullptr ? keys->has(key) : flow.kivIsDirty(field.fieldId);
   coalesced_ += waits && field.kind != MemberKind::queue ? 1 : 0;
   if (field.kind == MemberKind::queue) {
      markQueue(flow, field, *static_cast<U32 const*>(key));
   } else if (field.kind == MemberKind::child) {
      // A child that is replaced twice before it is sent may be back under the name of the one that
      // the peer has, which the peer would then keep.
      bool const again = waits && field.has(FieldDescriptor::named);
      flow.erasedIs(field.fieldId, flow.erased(field.fieldId) || erased || again);
   } else if (keys != nullptr) {
      keys->insert(key, erased);
      boundKeys(flow, field, keys->size());
   }
   flow.kivIsDirtyIs(field.fieldId, true);
   enlist(flow);
}

void Backlog::markQueue(FlowOut& flow, FieldDescriptor const& field, U32 sequence) {
   QueueOps const& queue = *field.ops->queue;
   Entity const& entity = flow.entity();
   U32& told = flow.toldSequence(field.fieldId, queue.nextSequence(entity));
   // If the element is still here, the reader misses it. The next number says nothing: there may be
   // elements whose changes are still to be published.
   if (queue.at(entity, sequence) != nullptr && static_cast<S32>(sequence - told) < 0) {
      told = sequence;
   } else if (sequence == queue.nextSequence(entity)) {  // renumbered
      flow.wholeCollectionIs(field.fieldId, true);
   }
}

/// Beyond the bound the peer gets the whole collection, which costs nothing to remember. Only the
/// serving end may do this: a writer's replay would remove what the writer has not heard of yet.
void Backlog::boundKeys(FlowOut& flow, FieldDescriptor const& field, std::size_t count) {
   if (count <= limits_.dirtyKeys || count <= field.ops->collection->size(flow.entity()) / 4) {
      return;
   }
   if (mounts_.serves(flow.entity())) {
      flow.replayWhole(field.fieldId);
   } else if (count > limits_.entities) {
      closing_.fail(entityPath(flow.entity()) + "." + field.name + " (" +
                    std::to_string(field.fieldId) + "): more than " +
                    std::to_string(limits_.entities) +
                    " changed keys wait for a peer that does not take them");
   }
}

void Backlog::markWhole(Entity& entity, FieldDescriptor const& field) {
   if (closing_.closed() || entity.streamHandle() == 0 || !names_.known(entity)) {
      return;
   }
   FlowOut& flow = flowOut(entity);
   flow.wholeCollectionIs(field.fieldId, true);
   flow.kivIsDirtyIs(field.fieldId, true);
   enlist(flow);
}

void Backlog::markAll(Entity& entity) {
   FlowOut& flow = flowOut(entity);
   flow.reset(entity, true);
   enlist(flow);
}

void Backlog::markCollection(Entity& entity, FieldDescriptor const& field) {
   if (field.kind == MemberKind::queue) {
      markWhole(entity, field);
   } else if (!closing_.closed() && names_.known(entity)) {
      FlowOut& flow = flowOut(entity);
      flow.replayWhole(field.fieldId);
      enlist(flow);
   }
}

void Backlog::enlist(FlowOut& flow) noexcept {
   ++marks_;
   if (!flow.queued) {
      outbox_.cursor().leave();
      outbox_.fallBehind();
      flow.queued = true;
      flow.next = nullptr;
      flow.previous = last_;
      flow.sequence = ++sequence_;
      (last_ != nullptr ? last_->next : first_) = &flow;
      last_ = &flow;
      ++size_;
   }
}

std::size_t Backlog::dirtyAttributes() const noexcept {
   std::size_t count = 0;
   for (FlowOut const* flow = first_; flow != nullptr; flow = flow->next) {
      count += flow->dirtyAttributes();
   }
   return count;
}

std::size_t Backlog::dirtyKeys() const noexcept {
   std::size_t count = 0;
   for (FlowOut const* flow = first_; flow != nullptr; flow = flow->next) {
      count += flow->dirtyCollKeys();
   }
   return count;
}

}  // namespace Kiv::NboAttrLog

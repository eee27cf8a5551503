#include "Kiv/NboAttrLogSa.h"

#include "Kiv/Path.h"

namespace Kiv::NboAttrLog {

void Sa::throwWriteUpdateFromReadOnlyProxyException(Entity const& entity, AttributeId id) {
   FieldDescriptor const* const field = entity.kivType().field(id);
   throw ReadOnlyProxyException(entityPath(entity) + "." + (field != nullptr ? field->name : "?") +
                                " (" + std::to_string(id) +
                                "): a read-only mirror must not change it");
}

void Sa::doBaseKivNboAttrLogSaMsg(Entity const& entity, AttributeId id, In const& in) {
   in.fault(Sarn::String(entity.kivType().name) + " streams no attribute " + std::to_string(id));
}

void Sa::onChange(FieldDescriptor const& field, Change const& change) {
   if (field.kind == MemberKind::single) {
      FlowOut flowOut(entity_, false);
      flowOut.kivIsDirtyIs(field.fieldId, true);
      if (session_.live() && session_.reach(entity_) &&
          flowOutOnAttributeForConnection(flowOut, field)) {
         return;
      }
      session_.markDirty(entity_, field, nullptr, false);
      return;
   }
   bool const holdsEntities = field.kind == MemberKind::child || field.kind == MemberKind::children;
   Entity* const removed = holdsEntities && change.oldValue != nullptr
                                 ? static_cast<Sarn::Ptr<Entity> const*>(change.oldValue)->get()
                                 : nullptr;
   session_.onChange(entity_, field, change.key, removed);
}

FlowOut* newFlowOut(Sa& adapter, bool replayAll, AttributeId from) {
   auto* const flowOut = new FlowOut(adapter.entity(), replayAll);
   if (from != 0) {
      flowOut->kivFlowOutBookmarkEnq(from);
   }
   return flowOut;
}

void doHandleAttrDeserialization(TypeImpl const& type, Sa& adapter, AttributeId id, bool erase,
                                 U32 count, In& in) {
   Entity& entity = adapter.entity();
   FieldDescriptor const* const field = type.field(id);
   if (field == nullptr || !field->has(FieldDescriptor::streamed)) {
      Sa::doBaseKivNboAttrLogSaMsg(entity, id, in);
   }
   switch (field->kind) {
      case MemberKind::single:
         field->ops->apply(entity, in);
         return;
      case MemberKind::child:
         in.expectEnd();
         field->ops->child->del(entity);
         return;
      case MemberKind::queue:
         if (erase) {
            in.expectEnd();
            field->ops->queue->applyFront(entity, count);
         } else {
            field->ops->queue->applyEnq(entity, count, in);
         }
         return;
      case MemberKind::children:
      case MemberKind::map:
      case MemberKind::ordered:
         if (erase) {
            field->ops->collection->applyDelete(entity, in);
         } else if (field->kind == MemberKind::children) {
            field->ops->collection->applyCreate(entity, in, nullptr, nullptr,
                                                [](void*, Entity&) {});
         } else {
            field->ops->collection->applyElement(entity, in, nullptr);
         }
         return;
      case MemberKind::none:
      case MemberKind::operation:
         Sa::doBaseKivNboAttrLogSaMsg(entity, id, in);
   }
}

U8 streamAdapterOnAttribute(TypeImpl const& type, Sa& adapter, AttributeId id, void const* change) {
   FieldDescriptor const* const field = type.field(id);
   if (field == nullptr) {
      return 0;
   }
   if (field->has(FieldDescriptor::streamed)) {
      adapter.onChange(*field, *static_cast<Change const*>(change));
   }
   return 1;
}

}  // namespace Kiv::NboAttrLog

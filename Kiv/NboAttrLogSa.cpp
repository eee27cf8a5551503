#include "Kiv/NboAttrLogSa.h"

#include "Kiv/Path.h"
#include "Sarn/Publications.h"

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

void Sa::apply(FieldDescriptor const& field, bool erase, U32 count, In& in) {
   U32 const* const handle = session_.incomingHandles_.find(reinterpret_cast<U64>(&entity_));
   if (handle == nullptr && !allowWriteFromReadOnlyRemote(field.fieldId)) {
      throwWriteUpdateFromReadOnlyProxyException(entity_, field.fieldId);
   }
   Opcode opcode = erase ? Opcode::erase : Opcode::element;
   if (field.kind == MemberKind::queue) {
      opcode = erase ? Opcode::front : Opcode::enqueue;
   } else if (field.kind == MemberKind::single) {
      opcode = Opcode::set;
   } else if (!erase && (field.kind == MemberKind::child || field.kind == MemberKind::children)) {
      opcode = Opcode::create;
   }
   session_.inside_ = Sarn::Publications::innermost();
   session_.applyToEntity({opcode, count, *handle, field.fieldId}, in);
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
   FieldDescriptor const* const field = type.field(id);
   if (field == nullptr || !field->has(FieldDescriptor::streamed)) {
      Sa::doBaseKivNboAttrLogSaMsg(adapter.entity(), id, in);
   }
   adapter.apply(*field, erase, count, in);
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

#include "Kiv/NboAttrLogSa.h"

#include "Kiv/Log/SessionImpl.h"
#include "Kiv/Path.h"
#include "Kiv/Printable.h"

namespace Kiv::NboAttrLog {

void Sa::throwWriteUpdateFromReadOnlyProxyException(Entity const& entity, AttributeId id) {
   FieldDescriptor const* const field = entity.kivType().field(id);
   throw ReadOnlyProxyException(printable(entityPath(entity)) + "." +
                                (field != nullptr ? field->name : "?") + " (" + std::to_string(id) +
                                "): a read-only mirror must not change it");
}

void Sa::doBaseKivNboAttrLogSaMsg(Entity const& entity, AttributeId id, In const& in) {
   in.fault(Sarn::String(entity.kivType().name) + " streams no attribute " + std::to_string(id));
}

bool Sa::flowOutOnAttributeForConnection(FlowOut& flowOut, FieldDescriptor const& field) {
   return session_.impl().teller().walk().tell(flowOut, field) == Walk::Write::done;
}

U16 Sa::flowOutShort(FlowOut& flowOut, TypeImpl const& type, U16 row) {
   return session_.impl().teller().walk().tellShort(flowOut, type, row);
}

void Sa::onChange(FieldDescriptor const& field, Change const& change) {
   Teller& teller = session_.impl().teller();
   teller.orFail([&] { teller.tell(entity_, field, change); });
}

void Sa::apply(FieldDescriptor const& field, bool erase, U32 count, In& in) {
   U32 const* const handle = session_.impl().teller().names().theirHandle(entity_);
   if (handle == nullptr && !allowWriteFromReadOnlyRemote(field.fieldId)) {
      throwWriteUpdateFromReadOnlyProxyException(entity_, field.fieldId);
   }
   Opcode opcode = erase ? Opcode::erase : Opcode::element;
   if (field.kind == MemberKind::queue) {
      opcode = erase ? Opcode::front : Opcode::enqueue;
   } else if (field.kind == MemberKind::single) {
      opcode = Opcode::set;
   } else if (!erase && holdsEntities(field)) {
      opcode = Opcode::create;
   }
   session_.impl().inbound().applyAlone({opcode, count, *handle, field.fieldId}, in);
}

FlowOut* newFlowOut(Sa& adapter, bool replayAll, AttributeId from) {
   auto* const flowOut = new FlowOut(adapter.entity(), replayAll);
   if (from != 0) {
      flowOut->kivFlowOutBookmarkEnq(from);
   }
   return flowOut;
}

namespace {

/// Sends in id order, inherited attributes first; stops at the first that cannot be written.
S32 tellFields(TypeImpl const& type, Walk& walk, AttributeId from, FlowOut& flowOut) {
   if (type.base != nullptr && from < type.firstId) {
      if (S32 const rest = tellFields(*type.base, walk, from, flowOut); rest != 0) {
         return rest;
      }
   }
   U16 i = from > type.firstId ? static_cast<U16>(from - type.firstId) : U16(0);
   while ((i = walk.tellShort(flowOut, type, i)) < type.rowCount) {
      FieldDescriptor const& field = type.rows[i++];
      if (field.kind != MemberKind::none && field.has(FieldDescriptor::streamed) &&
          flowOut.kivIsDirty(field.fieldId) && walk.tell(flowOut, field) != Walk::Write::done) {
         return field.fieldId;
      }
   }
   return 0;
}

}  // namespace

S32 handleAttrFlowOut(TypeImpl const& type, Sa& adapter, AttributeId from, FlowOut& flowOut) {
   if (from != 0 && type.field(from) == nullptr) {
      return -1;
   }
   return tellFields(type, adapter.session().impl().teller().walk(), from, flowOut);
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

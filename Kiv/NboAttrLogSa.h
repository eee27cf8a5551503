#pragma once

#include "Kiv/NboAttrLogFlow.h"
#include "Kiv/NboAttrLogSession.h"

namespace Kiv::NboAttrLog {

/// The stream adapter: one entity as one connection sees it, an argument of the functions in an
/// entity type's stream table. It costs nothing to make and owns nothing, so an entity that is
/// streamed to many peers needs no object for each.
class Sa {
public:
   Sa(Session& session, Entity& entity) noexcept : session_(session), entity_(entity) {}

   Entity& entity() const noexcept { return entity_; }
   Session& session() const noexcept { return session_; }

   /// Writes what `flowOut` has for one attribute. False, with nothing lost, if the output is full.
   bool flowOutOnAttributeForConnection(FlowOut& flowOut, FieldDescriptor const& field);
   /// Writes what is dirty from `row` on, up to the first that is neither a short value nor empty;
   /// nothing if there is no space for all rows. Returns the row to continue with.
   U16 flowOutShort(FlowOut& flowOut, TypeImpl const& type, U16 row);
   /// Whether a peer that only mirrors the entity may change this attribute nevertheless: never.
   static constexpr bool allowWriteFromReadOnlyRemote(AttributeId) noexcept { return false; }
   /// Throws a `ReadOnlyProxyException` that names entity and attribute.
   [[noreturn]] static void throwWriteUpdateFromReadOnlyProxyException(Entity const& entity,
                                                                       AttributeId id);
   /// Handles ids that the type does not have: they break the log's rules. Throws `FaultException`.
   [[noreturn]] static void doBaseKivNboAttrLogSaMsg(Entity const& entity, AttributeId id,
                                                     In const& in);

   /// Sends a change to this connection only, as the hub does to all.
   void onChange(FieldDescriptor const& field, Change const& change);
   /// Applies one change as the session applies a received message of it. Throws
   /// `ReadOnlyProxyException` if the peer only mirrors the entity, or does not know it.
   void apply(FieldDescriptor const& field, bool erase, U32 count, In& in);

private:
   Session& session_;
   Entity& entity_;
};

// The stream functions, for an entity of any type.

/// A `FlowOut` that replays from an attribute on. The caller owns it.
FlowOut* newFlowOut(Sa& adapter, bool replayAll, AttributeId from);

/// Writes what is dirty in id order, from the given id on; 0 means from the first. Returns 0 when
/// everything is written, the id to resume at when the output is full or something else comes
/// first, and -1 for an id that the type does not have.
S32 handleAttrFlowOut(TypeImpl const& type, Sa& adapter, AttributeId from, FlowOut& flowOut);

/// Applies one received change as the session applies messages: through the attribute's setter, and
/// not if the peer only mirrors the entity. `in` is the body of the message, of `count` bytes.
/// `erase`: the change removes a child, an element of a collection or the front of a queue.
void doHandleAttrDeserialization(TypeImpl const& type, Sa& adapter, AttributeId id, bool erase,
                                 U32 count, In& in);

/// Sends a `Sarn::Change` to the adapter's connection. Returns 1 if the id belongs to the type or
/// its base, streamed or not; otherwise 0.
U8 streamAdapterOnAttribute(TypeImpl const& type, Sa& adapter, AttributeId id, void const* change);

}  // namespace Kiv::NboAttrLog

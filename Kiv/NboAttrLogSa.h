#pragma once

#include "Kiv/NboAttrLogFlow.h"
#include "Kiv/NboAttrLogSession.h"

namespace Kiv::NboAttrLog {

/// The stream adapter: one entity as one connection sees it. The functions of an entity type's
/// stream table are given one. It costs nothing to make and holds nothing, so that an entity that
/// is streamed to many needs no object for each.
class Sa {
public:
   Sa(Session& session, Entity& entity) noexcept : session_(session), entity_(entity) {}

   Entity& entity() const noexcept { return entity_; }
   Session& session() const noexcept { return session_; }

   /// Writes what `flowOut` has of one attribute. Full: false, and nothing is lost.
   bool flowOutOnAttributeForConnection(FlowOut& flowOut, FieldDescriptor const& field);
   /// Writes the dirty values of a fixed size from a row of the type on, until one is something
   /// else or there is no room for all. Returns the row to go on with.
   U16 flowOutFixedSizes(FlowOut& flowOut, TypeImpl const& type, U16 row);
   /// Whether a peer that only mirrors the entity may all the same change this attribute: never.
   static constexpr bool allowWriteFromReadOnlyRemote(AttributeId) noexcept { return false; }
   /// Throws `ReadOnlyProxyException` that names entity and attribute.
   [[noreturn]] static void throwWriteUpdateFromReadOnlyProxyException(Entity const& entity,
                                                                       AttributeId id);
   /// What becomes of ids that are not the type's own: they break the log's rules.
   [[noreturn]] static void doBaseKivNboAttrLogSaMsg(Entity const& entity, AttributeId id,
                                                     In const& in);

   /// Tells this connection alone of a change, as the hub tells all of them.
   void onChange(FieldDescriptor const& field, Change const& change);
   /// Does with one change what the session does with a received message of it. Throws
   /// `ReadOnlyProxyException` for a peer that only mirrors the entity, or does not know it.
   void apply(FieldDescriptor const& field, bool erase, U32 count, In& in);

private:
   Session& session_;
   Entity& entity_;
};

// The stream functions, for an entity of any type.

/// A `FlowOut` that replays from an attribute on. The caller owns it.
FlowOut* newFlowOut(Sa& adapter, bool replayAll, AttributeId from);

/// Writes what is dirty, from the given id on, in id order; 0 means from the first. Returns 0 when
/// all is written, the id to go on with when the output is full or something else comes first,
/// and -1 for an id that the type does not have.
S32 handleAttrFlowOut(TypeImpl const& type, Sa& adapter, AttributeId from, FlowOut& flowOut);

/// Applies one received change as the session applies messages: through the attribute's setter, and
/// not if the peer only mirrors the entity. `in` is the body of the message, of `count` bytes.
/// `erase`: of a child, an element of a collection or the front of a queue, the change is that it
/// is gone.
void doHandleAttrDeserialization(TypeImpl const& type, Sa& adapter, AttributeId id, bool erase,
                                 U32 count, In& in);

/// Tells the adapter's connection of a `Sarn::Change`. 1 when the id is the type's own or its
/// base's, streamed or not; 0 otherwise.
U8 streamAdapterOnAttribute(TypeImpl const& type, Sa& adapter, AttributeId id, void const* change);

}  // namespace Kiv::NboAttrLog

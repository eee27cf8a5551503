#pragma once

#include <memory>
#include <vector>

#include "Kiv/Log/Names.h"
#include "Kiv/Log/Outbox.h"
#include "Kiv/NboAttrLogFlow.h"

namespace Kiv::NboAttrLog {

class Mounts;

/// What one session could not say when it happened: a `FlowOut` for each entity that has changed
/// since, in the order in which they first changed. Latest values are written later, from the
/// front.
///
///     by index of our handle    | - | FlowOut | - | - | FlowOut | ... |
///                                        |                |
///     oldest first              first() ----> next ----> ... ----> last
///
/// Invariants:
/// - an entity that is in the list is known to the peer: what it does not know yet is told whole
///   when it is introduced;
/// - `sequence()` grows with each entity that is listed, and the list is in the order of these
///   numbers: what was listed by then is told when the front's number is greater;
/// - of a collection whose root we serve, no more keys are kept than `Limits::dirtyKeys`, or a
///   quarter of it; of a collection that the peer serves, no more than `Limits::entities`.
class Backlog {
public:
   Backlog(Limits const& limits, Handles const& handles, Closing& closing, Outbox& outbox,
           Names const& names, Mounts const& mounts) noexcept
         : limits_(limits),
           handles_(handles),
           closing_(closing),
           outbox_(outbox),
           names_(names),
           mounts_(mounts) {}

   bool empty() const noexcept { return first_ == nullptr; }
   /// The oldest; null if there is none.
   FlowOut* first() const noexcept { return first_; }
   std::size_t size() const noexcept { return size_; }
   U64 sequence() const noexcept { return sequence_; }
   /// Whether all that was listed when `sequence()` was this is told.
   bool isToldUpTo(U64 sequence) const noexcept {
      return first_ == nullptr || first_->sequence > sequence;
   }
   /// What is kept of an entity; null if nothing is.
   FlowOut* find(Entity const& entity) const noexcept;
   /// Whether the key, or with null the attribute, is still to be told.
   bool has(Entity const& entity, FieldDescriptor const& field, void const* key) const;

   /// An attribute, a key or an element of a queue is to be told. `erased`: the peer has an element
   /// or a child there that is gone.
   void mark(Entity& entity, FieldDescriptor const& field, void const* key, bool erased);
   /// A queue is to be told from the beginning, or asked for where the peer serves it.
   void markWhole(Entity& entity, FieldDescriptor const& field);
   /// All of an entity is to be told.
   void markAll(Entity& entity);
   /// Nothing more is to be told of the entity with this handle.
   void remove(U32 handle) noexcept;
   void clear() noexcept;

   /// Changes that were left to later, and those of them that the peer never saw.
   U64 deferred() const noexcept { return deferred_; }
   U64 coalesced() const noexcept { return coalesced_; }
   std::size_t dirtyAttributes() const noexcept;
   std::size_t dirtyKeys() const noexcept;

private:
   FlowOut& flowOut(Entity& entity);
   void markQueue(FlowOut& flow, FieldDescriptor const& field, U32 sequence);
   void boundKeys(FlowOut& flow, FieldDescriptor const& field, std::size_t count);
   void enlist(FlowOut& flow) noexcept;

   std::vector<std::unique_ptr<FlowOut>> flowOuts_;
   FlowOut* first_ = nullptr;
   FlowOut* last_ = nullptr;
   std::size_t size_ = 0;
   U64 sequence_ = 0;
   U64 deferred_ = 0;
   U64 coalesced_ = 0;
   Limits const& limits_;
   Handles const& handles_;
   Closing& closing_;
   Outbox& outbox_;
   Names const& names_;
   Mounts const& mounts_;
};

}  // namespace Kiv::NboAttrLog

#pragma once

#include <memory>
#include <vector>

#include "Kiv/Log/Names.h"
#include "Kiv/Log/Outbox.h"
#include "Kiv/NboAttrLogFlow.h"

namespace Kiv::NboAttrLog {

class Mounts;

/// What one session could not send when it happened: a `FlowOut` for each entity that has changed
/// since, in the order of their first changes. The latest values are sent later, from the front.
///
///     by index of our handle    | - | FlowOut | - | - | FlowOut | ... |
///                                        |                |
///     oldest first              first() ----> next ----> ... ----> last
///
/// Invariants:
/// - a listed entity is known to the peer: an unknown one is sent in full when it is introduced;
/// - `sequence()` grows with each entity that is listed, and the list is ordered by these numbers:
///   once the front's number is greater than `n`, everything listed up to `n` has been sent;
/// - for a collection that we serve, at most `Limits::dirtyKeys` keys are kept, or a quarter of its
///   size if that is more; for one that the peer serves, at most `Limits::entities`.
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
   /// Grows with everything that is marked, listed already or not.
   U64 marks() const noexcept { return marks_; }
   /// Whether everything that was listed when `sequence()` had this value has been sent.
   bool isToldUpTo(U64 sequence) const noexcept {
      return first_ == nullptr || first_->sequence > sequence;
   }
   /// The entity's entry; null if it has none.
   FlowOut* find(Entity const& entity) const noexcept;
   /// Whether the key, or the attribute if `key` is null, is still to be sent.
   bool has(Entity const& entity, FieldDescriptor const& field, void const* key) const;

   /// An attribute, a key or an element of a queue is to be sent. `erased`: the peer still has an
   /// element or child there that was removed here.
   void mark(Entity& entity, FieldDescriptor const& field, void const* key, bool erased);
   /// A queue is to be sent from its first element, or requested if the peer serves it.
   void markWhole(Entity& entity, FieldDescriptor const& field);
   /// A collection is to be replayed in full, or a queue from its first element.
   void markCollection(Entity& entity, FieldDescriptor const& field);
   /// Everything in an entity is to be sent.
   void markAll(Entity& entity);
   /// Drops what is pending for the entity with this handle.
   void remove(U32 handle) noexcept;
   void clear() noexcept;

   /// Changes that were deferred, and how many of these the peer will never see.
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
   U64 marks_ = 0;
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

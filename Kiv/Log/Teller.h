#pragma once

#include "Kiv/Log/Comparison.h"
#include "Kiv/Log/Denied.h"
#include "Kiv/Log/OpenCollections.h"
#include "Kiv/Log/PeerTypes.h"
#include "Kiv/Log/Walk.h"

namespace Kiv::NboAttrLog {

/// Sends changes to one peer: at once if it is up to date and there is space, otherwise by way of
/// the backlog. It owns all of the sending half of a session.
///
///     change ---- up to date, and space? ---- yes ----> Encoder ----> Outbox
///                        | no                              ^
///                        v                                 |
///                     Backlog ---- space again ---------> Walk
///
/// Invariant: whatever the peer has still to be sent of the entities that it knows is in the
/// backlog, ahead of the walk, or in the message that travels in parts.
class Teller {
public:
   Teller(Session& session, Hub& hub, Limits const& limits, ByteBudget& budget, Clock const& clock,
          Ring& ring, Handles& handles, Closing& closing, Mounts& mounts, OpenCollections& open);

   /// Whether every change so far has been written into the output.
   bool upToDate() const noexcept { return walk_.idle() && backlog_.empty() && !outbox_.inParts(); }
   bool closed() const noexcept { return closing_.closed(); }
   void fail(Sarn::String reason) noexcept { closing_.fail(std::move(reason)); }
   template <class Work>
   void orFail(Work&& work) noexcept {
      closing_.orFail(std::forward<Work>(work));
   }

   /// Gets later changes through the hub's ring, if the peer only reads and is up to date.
   void follow() noexcept;

   // One change, passed on by the root's watcher, while the session does not follow the ring.

   /// A change of a single value of `size` bytes. `encoded`: the message already sent to another
   /// session, or null. Returns the message in its encoded form, or null if there is still none.
   U8 const* tellValue(Entity& entity, FieldDescriptor const& field, std::size_t size,
                       U8 const* encoded);
   /// A change of a child, a collection or a queue. `removed`: the child that was removed, or null.
   void tellOther(Entity& entity, FieldDescriptor const& field, void const* key, Entity* removed);
   /// A child that the peer has made was removed before any session was told of it.
   void tellVanished(Entity& entity, FieldDescriptor const& field, void const* key);
   /// `tellValue` or `tellOther`, by the kind of member.
   void tell(Entity& entity, FieldDescriptor const& field, Change const& change);
   /// Space for a value that is about to be set, after its header; null if the fast path does not
   /// apply.
   U8* roomFor(Entity const& entity, AttributeId id, std::size_t size) noexcept;
   /// Sends what a child contains that the peer has just been sent.
   void tellWithin(Entity& child);
   /// A child that the peer is making has been inserted.
   void childIsMade(Entity& child) { names_.childIsMade(child); }
   /// Whether the peer may not know yet what it overwrites. Then its own change is sent back to it,
   /// so that both ends apply the same change last. Only the serving end does this.
   bool mustEcho(RootWatcher const& watcher) const noexcept {
      return mounts_.find(watcher) != nullptr && crosses();
   }
   /// Whether there may be changes that the peer has not seen yet.
   bool crosses() const noexcept { return outbox_.changes() != crossing_.acked || !upToDate(); }

   // A peer with another version of a module of ours.

   /// What the peer's types have; null if its modules are the same as ours.
   PeerTypes const* peerTypes() const noexcept { return peerTypes_.get(); }
   /// The same, made on demand: from then on the peer is told one by one.
   PeerTypes& peerTypesIs();
   /// Writes our types. False if there is no space now.
   bool writeTypes() { return peerTypes_ == nullptr || peerTypes_->write(outbox_); }
   /// Whether a root may be replayed: the peer's types are known.
   bool mayReplay() const noexcept { return peerTypes_ == nullptr || !peerTypes_->waiting(); }
   /// Everything in an entity that the peer has is to be sent.
   void markAll(Entity& entity);

   /// The entity with this handle is gone.
   void forget(Entity& entity, U32 handle);
   /// Neither end mirrors the root any more: all handles below it are void.
   void forgetTree(Entity& root);
   void clear() noexcept;

   Outbox& outbox() noexcept { return outbox_; }
   Outbox const& outbox() const noexcept { return outbox_; }
   Names& names() noexcept { return names_; }
   Names const& names() const noexcept { return names_; }
   Cursor& cursor() noexcept { return outbox_.cursor(); }
   Cursor const& cursor() const noexcept { return outbox_.cursor(); }
   Crossing& crossing() noexcept { return crossing_; }
   LeftOut& leftOut() noexcept { return leftOut_; }
   LeftOut const& leftOut() const noexcept { return leftOut_; }
   Backlog& backlog() noexcept { return backlog_; }
   Backlog const& backlog() const noexcept { return backlog_; }
   Replies& replies() noexcept { return replies_; }
   Walk& walk() noexcept { return walk_; }
   DigestAnswers& digestAnswers() noexcept { return digestAnswers_; }
   Comparison& comparison() noexcept { return comparison_; }
   Walk const& walk() const noexcept { return walk_; }
   Denied& denied() noexcept { return denied_; }
   /// The peer has lost an entity that it knew, and everything below it: a later replay sends it
   /// as a new one.
   void peerLost(Entity& entity) { forgetBelow(entity); }

private:
   /// Whether a change may be sent at once: nothing waits, and no batch holds changes back.
   bool live() const noexcept {
      return walk_.quiet() && backlog_.empty() && !outbox_.inParts() && !closed();
   }
   /// Makes sure that the peer knows the entity by our handle, with a `bind` if the peer introduced
   /// it.
   bool reach(Entity& entity) { return encoder_.reach(entity); }
   /// Whether the peer lacks the attribute. For a writer, that the change is not sent is noted.
   bool isLacking(Entity const& entity, FieldDescriptor const& field) {
      return peerTypes_ != nullptr && notesLacking(entity, field);
   }
   bool notesLacking(Entity const& entity, FieldDescriptor const& field);
   void tellPartly(Entity& entity, FieldDescriptor const& field);
   class Alone;
   void forgetBelow(Entity& entity);

   Closing& closing_;
   Mounts const& mounts_;
   OpenCollections& open_;
   Outbox outbox_;
   Crossing crossing_;
   Names names_;
   LeftOut leftOut_;
   std::unique_ptr<PeerTypes> peerTypes_;
   Encoder encoder_;
   Backlog backlog_;
   Replies replies_;
   Walk walk_;
   DigestAnswers digestAnswers_;
   Comparison comparison_;
   Denied denied_;
};

inline U8 const* Teller::tellValue(Entity& entity, FieldDescriptor const& field, std::size_t size,
                                   U8 const* encoded) {
   if (peerTypes_ != nullptr) [[unlikely]] {
      tellPartly(entity, field);
      return encoded;
   }
   if (live() && reach(entity)) [[likely]] {
      if (size > outbox_.longestBody()) [[unlikely]] {
         if (encoder_.set(entity, field, entity.streamHandle())) {
            return encoded;
         }
      } else if (encoded != nullptr) {
         if (outbox_.copy(encoded, headerSize + size)) {
            return encoded;
         }
      } else if (U8* const at = outbox_.reserve(Opcode::set, size, entity.streamHandle(),
                                                field.fieldId)) [[likely]] {
         Out out(at + headerSize, size);
         field.ops->encode(entity, out);
         outbox_.commit(headerSize + size);
         return at;
      }
   }
   backlog_.mark(entity, field, nullptr, false);
   return encoded;
}

inline U8* Teller::roomFor(Entity const& entity, AttributeId id, std::size_t size) noexcept {
   U32 const handle = entity.streamHandle();
   if (handle == 0 || !live() || crossing_.writesBack || peerTypes_ != nullptr ||
       !names_.introduced(handle)) {
      return nullptr;
   }
   U8* const at = outbox_.reserve(Opcode::set, size, handle, id);
   if (at == nullptr) {
      return nullptr;
   }
   outbox_.commit(headerSize + size);
   return at + headerSize;
}

}  // namespace Kiv::NboAttrLog

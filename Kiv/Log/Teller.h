#pragma once

#include "Kiv/Log/OpenCollections.h"
#include "Kiv/Log/Walk.h"

namespace Kiv::NboAttrLog {

/// Tells one peer of changes: at once if it is up to date and there is room, else by the backlog.
/// It has all that goes out of a session.
///
///     change ---- up to date, and room? ---- yes ----> Encoder ----> Outbox
///                        | no                             ^
///                        v                                |
///                     Backlog ---- room again ---------> Walk
///
/// Invariant: what the peer knows and has not been told of lies in the backlog, ahead of the walk,
/// or in the part of the message that travels in parts.
class Teller {
public:
   Teller(Session& session, Hub& hub, Limits const& limits, ByteBudget& budget, Clock const& clock,
          Handles& handles, Closing& closing, Mounts& mounts, OpenCollections& open);

   /// Whether every change so far has been written into the output.
   bool upToDate() const noexcept { return walk_.idle() && backlog_.empty() && !outbox_.inParts(); }
   bool closed() const noexcept { return closing_.closed(); }
   void fail(Sarn::String reason) noexcept { closing_.fail(std::move(reason)); }
   template <class Work>
   void orFail(Work&& work) noexcept {
      closing_.orFail(std::forward<Work>(work));
   }

   // One change, as the watcher of its root passes it on.

   /// Of a single value of `size` bytes. `encoded` is the message that another session was told, or
   /// null. Returns the message, if there is one now.
   U8 const* tellValue(Entity& entity, FieldDescriptor const& field, std::size_t size,
                       U8 const* encoded);
   /// Of a child, a collection or a queue. `removed`: the child that was there before.
   void tellOther(Entity& entity, FieldDescriptor const& field, void const* key, Entity* removed);
   /// A child that the peer has made was removed before anybody was told of it.
   void tellVanished(Entity& entity, FieldDescriptor const& field, void const* key);
   /// Either of the first two, whatever the member is.
   void tell(Entity& entity, FieldDescriptor const& field, Change const& change);
   /// Room for a value that is about to be set, behind a header; null if it is not so easy.
   U8* roomFor(Entity const& entity, AttributeId id, std::size_t size) noexcept;
   /// A child that the peer is making is in place.
   void childIsMade(Entity& child) { names_.childIsMade(child); }
   /// Whether the peer may not know yet what it overwrites: then it is told of its own change as
   /// well, so that both ends have seen the same one last. Only who serves the root does so.
   bool mustEcho(RootWatcher const& watcher) const noexcept {
      return mounts_.find(watcher) != nullptr && crosses();
   }
   /// Whether changes that the peer has not seen may be under way to it.
   bool crosses() const noexcept { return outbox_.changes() != crossing_.acked || !upToDate(); }

   /// The entity with this handle is gone.
   void forget(Entity& entity, U32 handle);
   /// Neither end tells the other of the root any more: what either calls its entities is void.
   void forgetTree(Entity& root);
   void clear() noexcept;

   Outbox& outbox() noexcept { return outbox_; }
   Outbox const& outbox() const noexcept { return outbox_; }
   Names& names() noexcept { return names_; }
   Names const& names() const noexcept { return names_; }
   Crossing& crossing() noexcept { return crossing_; }
   LeftOut& leftOut() noexcept { return leftOut_; }
   LeftOut const& leftOut() const noexcept { return leftOut_; }
   Backlog& backlog() noexcept { return backlog_; }
   Backlog const& backlog() const noexcept { return backlog_; }
   Replies& replies() noexcept { return replies_; }
   Walk& walk() noexcept { return walk_; }

private:
   bool live() const noexcept { return upToDate() && !closed(); }
   /// Whether the peer knows the entity, after a `bind` if it introduced it itself.
   bool reach(Entity& entity) { return encoder_.reach(entity); }
   bool tellChild(Entity& entity, FieldDescriptor const& field, void const* key, bool& erased);
   bool tellQueue(Entity& entity, FieldDescriptor const& field, U32 sequence);
   void forgetBelow(Entity& entity);

   Closing& closing_;
   Mounts const& mounts_;
   OpenCollections& open_;
   Outbox outbox_;
   Crossing crossing_;
   Names names_;
   LeftOut leftOut_;
   Encoder encoder_;
   Backlog backlog_;
   Replies replies_;
   Walk walk_;
};

inline U8 const* Teller::tellValue(Entity& entity, FieldDescriptor const& field, std::size_t size,
                                   U8 const* encoded) {
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
   if (handle == 0 || !live() || crossing_.writesBack || !names_.introduced(handle)) {
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

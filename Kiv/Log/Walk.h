#pragma once

#include <bit>

#include "Kiv/Log/Bracket.h"
#include "Kiv/Log/Encoder.h"
#include "Kiv/Log/Replies.h"

namespace Kiv::NboAttrLog {

class Teller;

/// Brings a peer up to date, as far as there is space: continues the message that travels in parts,
/// walks the trees of served roots, and sends the backlog.
///
///     fill:  parts -> walk -> replayEnd -> next root's replayBegin -> replies -> backlog ->
///     digests
///                      ^                                                           |
///                      '---------------- a child that is sent for the first time --'
///
///     stack of the walk:  | root | port 3 | its clock |      a FlowOut each, everything dirty; the
///                                              ^              bookmark says where to resume
///                                             top
///
/// It stops when the outbox is full, and the next `fill` resumes there.
///
/// Invariants:
/// - each entity on the stack has been introduced, and everything before its bookmark has been
///   sent;
/// - a child is walked as soon as it is introduced, so only the backlog holds changes of entities
///   that the peer knows.
class Walk {
public:
   /// The outcome of writing one attribute.
   enum class Write : U8 { done, full, descend };

   Walk(Session& session, Teller& teller, Limits const& limits, Handles const& handles,
        Closing& closing, Outbox& outbox, Names& names, Encoder& encoder, Backlog& backlog,
        Replies& replies, Mounts& mounts) noexcept
         : session_(session),
           teller_(teller),
           handles_(handles),
           closing_(closing),
           outbox_(outbox),
           names_(names),
           encoder_(encoder),
           backlog_(backlog),
           replies_(replies),
           mounts_(mounts),
           bracket_(limits.transactionBytes, outbox, backlog) {}

   /// Whether no walk is in progress.
   bool idle() const noexcept { return progress_.depth == 0; }
   /// Whether it is idle and no batch holds changes back; one comparison, since every change asks.
   bool quiet() const noexcept { return std::bit_cast<U64>(progress_) == 0; }

   /// A batch begins: until `release`, changes are collected in the backlog. May be nested.
   void hold() noexcept;
   /// The batch ends: what it has changed is sent in one bracket. `token`: see `Bracket::want`.
   void release(U32 token) noexcept;
   bool held() const noexcept { return progress_.held != 0; }
   Bracket& bracket() noexcept { return bracket_; }
   Bracket const& bracket() const noexcept { return bracket_; }
   /// Writes what there is space for. Does nothing when called from inside itself.
   void fill() noexcept;
   /// Starts the walk of a child that the peer has just been sent. A `fresh` child has only the
   /// children that it was made with to send. False if there is nothing to walk, or if the child
   /// was left out.
   bool descendInto(Entity& entity, bool fresh);
   /// Abandons a walk below this root.
   void leave(Entity const& root) noexcept;
   void clear() noexcept;
   /// Frees memory that is not in use.
   void freeIdle() noexcept {
      if (idle()) {
         std::vector<std::unique_ptr<FlowOut>>().swap(stack_);
      }
   }

   // For the functions of an entity type's stream table: see `Kiv/NboAttrLogSa.h`.

   /// Writes what `flow` has for one attribute.
   Write tell(FlowOut& flow, FieldDescriptor const& field);
   /// A new reader is mostly sent short values, and that collections are empty. Writes what is
   /// dirty from `row` on up to the first that is neither; space is reserved for all of it at once.
   /// Returns the row to continue with.
   U16 tellShort(FlowOut& flow, TypeImpl const& type, U16 row);

private:
   void fillUp();
   bool run(FlowOut& flow);
   bool beginReplay(Served& served);
   bool endReplays();
   static U8* writeShort(U8* at, FlowOut const& flow, FieldDescriptor const* rows, U32 place,
                         U64& bits, U32& count);
   bool tellLeaf();
   Write tellChild(FlowOut& flow, FieldDescriptor const& field);
   Write tellWhole(FlowOut& flow, FieldDescriptor const& field);
   Write tellDirtyKeys(FlowOut& flow, FieldDescriptor const& field);
   DirtyKeyResult tellDirtyKey(FlowOut& flow, FieldDescriptor const& field, void const* key,
                               bool erased);
   Write tellQueue(FlowOut& flow, FieldDescriptor const& field);

   Session& session_;
   Teller& teller_;
   Handles const& handles_;
   Closing& closing_;
   Outbox& outbox_;
   Names& names_;
   Encoder& encoder_;
   Backlog& backlog_;
   Replies& replies_;
   Mounts& mounts_;
   Bracket bracket_;
   std::vector<std::unique_ptr<FlowOut>> stack_;
   /// How much of the stack is in use, and how many batches hold changes back.
   struct Progress {
      U32 depth = 0;
      U32 held = 0;
   } progress_;
   /// `Backlog::marks` when the outermost batch began.
   U64 marksBefore_ = 0;
   bool filling_ = false;
};

}  // namespace Kiv::NboAttrLog

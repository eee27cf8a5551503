#pragma once

#include "Kiv/Log/Encoder.h"
#include "Kiv/Log/Replies.h"

namespace Kiv::NboAttrLog {

class Teller;

/// Brings a peer up to date, as far as there is room: goes on with what travels in parts, walks the
/// trees of served roots, and writes what waits in the backlog.
///
///     fill:  parts -> walk -> replayEnd -> next root's replayBegin -> replies -> backlog -> done
///                      ^                                                           |
///                      '---------------- a child that is told for the first time --'
///
///     stack of the walk:  | root | port 3 | its clock |      a FlowOut each, everything dirty; the
///                                              ^              bookmark says where it goes on
///                                            on top
///
/// Where the outbox is full, all of it stops, and goes on there with the next `fill`.
///
/// Invariants:
/// - who is on the stack has been introduced, and all before its bookmark has been told;
/// - a child is walked when it is introduced, so that nothing known to the peer is told late but
///   what the backlog has.
class Walk {
public:
   /// What became of one attribute.
   enum class Write : U8 { done, full, descend };

   Walk(Session& session, Teller& teller, Handles const& handles, Closing& closing, Outbox& outbox,
        Names& names, Encoder& encoder, Backlog& backlog, Replies& replies, Mounts& mounts) noexcept
         : session_(session),
           teller_(teller),
           handles_(handles),
           closing_(closing),
           outbox_(outbox),
           names_(names),
           encoder_(encoder),
           backlog_(backlog),
           replies_(replies),
           mounts_(mounts) {}

   /// Whether no walk is under way.
   bool idle() const noexcept { return depth_ == 0; }
   /// Writes what there is room for. Harmless from inside itself.
   void fill() noexcept;
   /// Starts the walk of a child that the peer has just been told of. A fresh one has nothing to
   /// say but the children that it was made with. False if there is nothing to walk, or if the
   /// child was left out.
   bool descendInto(Entity& entity, bool fresh);
   /// Stops a walk below this root.
   void leave(Entity const& root) noexcept;
   void clear() noexcept;

   // For the functions of an entity type's stream table: see `Kiv/NboAttrLogSa.h`.

   /// Writes what `flow` has of one attribute.
   Write tell(FlowOut& flow, FieldDescriptor const& field);
   /// A new reader is told little else than values of a fixed size, one row after the other: room
   /// for all is taken at once. Returns the row to go on with.
   U16 tellFixedSizes(FlowOut& flow, TypeImpl const& type, U16 row);

private:
   void fillUp();
   bool run(FlowOut& flow);
   bool beginReplay(Served& served);
   bool endReplays();
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
   std::vector<std::unique_ptr<FlowOut>> stack_;
   std::size_t depth_ = 0;
   bool filling_ = false;
};

}  // namespace Kiv::NboAttrLog

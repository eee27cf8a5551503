// Catching up: what a connection was not told when it happened, and whole trees for new mirrors.
#include <cassert>

#include "Kiv/NboAttrLogSa.h"
#include "Kiv/NboAttrLogSession.h"

namespace Kiv::NboAttrLog {

FlowOut& Session::flowOut(Entity& entity) {
   U32 const place = HandleTable::place(entity.streamHandle());
   if (place >= flowOuts_.size()) {
      flowOuts_.resize(hub_.handles_.places());
   }
   if (flowOuts_[place] == nullptr) {
      flowOuts_[place] = std::make_unique<FlowOut>(entity, false);
   }
   return *flowOuts_[place];
}

void Session::flowOutDel(U32 place) noexcept {
   if (place >= flowOuts_.size() || flowOuts_[place] == nullptr) {
      return;
   }
   FlowOut* const gone = flowOuts_[place].get();
   if (gone->queued) {
      (gone->previous != nullptr ? gone->previous->next : firstDirty_) = gone->next;
      (gone->next != nullptr ? gone->next->previous : lastDirty_) = gone->previous;
      --dirtyCount_;
   }
   flowOuts_[place].reset();
}

void Session::markDirty(Entity& entity, FieldDescriptor const& field, void const* key,
                        bool erased) {
   if (closed_) {
      return;
   }
   // An entity that the peer does not know yet is replayed whole when it is introduced.
   if (!introduced(entity.streamHandle()) &&
       incomingHandles_.find(reinterpret_cast<U64>(&entity)) == nullptr) {
      return;
   }
   ++stats_.changesDeferred;
   FlowOut& flow = flowOut(entity);
   if (field.kind == MemberKind::queue && !flow.queueIsKnown(field.fieldId)) {
      QueueOps const& queue = *field.ops->queue;
      U32 const sequence = *static_cast<U32 const*>(key);
      U32 const next = queue.nextSequence(entity);
      // Up to this change the reader knows all: it misses this element, or nothing.
      bool const enqueued = sequence == next - 1 && queue.size(entity) != 0;
      flow.toldSequence(field.fieldId, enqueued ? sequence : next);
   } else if (field.kind == MemberKind::child) {
      flow.erasedIs(field.fieldId, flow.erased(field.fieldId) || erased);
   } else if (key != nullptr && field.kind != MemberKind::queue) {
      flow.dirtyKeys(field, true)->insert(key, erased);
   }
   flow.kivIsDirtyIs(field.fieldId, true);
   if (!flow.queued) {
      flow.queued = true;
      flow.next = nullptr;
      flow.previous = lastDirty_;
      flow.sequence = ++dirtySequence_;
      (lastDirty_ != nullptr ? lastDirty_->next : firstDirty_) = &flow;
      lastDirty_ = &flow;
      ++dirtyCount_;
   }
}

void Session::pump() {
   fill();
   if (closed_ && !told_) {
      close(closeReason_);
   }
}

void Session::fill() {
   if (filling_) {
      return;
   }
   filling_ = true;
   while (!closed_) {
      if (walkDepth_ != 0) {
         if (!runReplay(*walk_[walkDepth_ - 1])) {
            break;
         }
      } else if (!writeReplayEnds() || !writePending()) {
         break;
      } else if (firstDirty_ != nullptr) {
         if (!acknowledge() || !runReplay(*firstDirty_)) {
            break;
         }
      } else {
         break;
      }
   }
   filling_ = false;
}

/// False when the output is full.
bool Session::runReplay(FlowOut& flow) {
   std::size_t const depth = walkDepth_;
   bool const walking = depth != 0 && walk_[depth - 1].get() == &flow;
   S32 rest = 0;
   if (hub_.handles_.find(flow.handle) != nullptr) {
      Entity& entity = flow.entity();
      if (!walking && !reach(entity)) {
         return false;
      }
      Sa adapter(*this, entity);
      rest = entity.kivType().entity->stream->handleAttrFlowOut(adapter,
                                                                flow.kivFlowOutBookmarkDeq(), flow);
   }
   assert(rest >= 0);
   if (rest != 0) {
      flow.kivFlowOutBookmarkEnq(static_cast<AttributeId>(rest));
      return walkDepth_ > depth;
   }
   if (walking) {
      if (walkDepth_ == depth) {
         walk_[depth - 1]->freeResyncState();
         --walkDepth_;
      }
   } else if (!flow.dirty()) {  // a change may have come for an attribute before the bookmark
      flowOutDel(HandleTable::place(flow.handle));
   }
   return true;
}

bool Session::writeReplayEnds() {
   for (Served& served : served_) {
      if (!served.walked) {
         served.walked = true;
         served.endAfter = dirtySequence_;
      }
      if (!served.ended && (firstDirty_ == nullptr || firstDirty_->sequence > served.endAfter)) {
         U8* const at = reserve(Opcode::replayEnd, 4, served.root->entity().streamHandle(), 0);
         if (at == nullptr) {
            return false;
         }
         Out(at + headerSize, 4).writeU32(served.id);
         commit(headerSize + 4);
         served.ended = true;
      }
   }
   return true;
}

/// Starts the replay of a child that the peer has just been told of. A fresh one has nothing to
/// say but the children that it was made with. False if there is nothing to replay.
bool Session::descendInto(Entity& entity, bool fresh) {
   if (walkDepth_ == walk_.size()) {
      walk_.push_back(std::make_unique<FlowOut>(entity, !fresh));
   } else {
      walk_[walkDepth_]->reset(entity, !fresh);
   }
   FlowOut& flow = *walk_[walkDepth_];
   if (fresh) {
      forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
         bool const any =
               (field.kind == MemberKind::child && field.ops->child->get(entity) != nullptr) ||
               (field.kind == MemberKind::children && field.ops->collection->size(entity) != 0);
         if (any && field.has(FieldDescriptor::streamed)) {
            flow.kivIsDirtyIs(field.fieldId, true);
            flow.wholeCollectionIs(field.fieldId, true);
         }
      });
      if (!flow.dirty()) {
         return false;
      }
   }
   ++walkDepth_;
   return true;
}

Session::Write Session::flowOutOnAttributeForConnection(FlowOut& flow,
                                                        FieldDescriptor const& field) {
   Write result = Write::done;
   switch (field.kind) {
      case MemberKind::single:
         result = replaySingle(flow, field);
         break;
      case MemberKind::child:
         result = replayChild(flow, field);
         break;
      case MemberKind::queue:
         result = replayQueue(flow, field);
         break;
      case MemberKind::none:
      case MemberKind::operation:
         break;
      default:
         result = flow.wholeCollection(field.fieldId) ? replayCollection(flow, field)
                                                      : replayDirtyKeys(flow, field);
   }
   return result;
}

Session::Write Session::replaySingle(FlowOut& flow, FieldDescriptor const& field) {
   Entity const& entity = flow.entity();
   std::size_t const size = field.ops->encodedSize(entity);
   U8* const at = reserve(Opcode::set, size, flow.handle, field.fieldId);
   if (at == nullptr) {
      return Write::full;
   }
   Out out(at + headerSize, size);
   field.ops->encode(entity, out);
   commit(headerSize + size);
   flow.kivIsDirtyIs(field.fieldId, false);
   flow.kivHasSyncedIs(field.fieldId, true);
   return Write::done;
}

Session::Write Session::replayChild(FlowOut& flow, FieldDescriptor const& field) {
   Entity* const child = field.ops->child->get(flow.entity());
   bool const known = child != nullptr && introduced(child->streamHandle());
   // A whole replay says that there is none, too: the mirror may hold one from before.
   if ((child == nullptr || flow.erased(field.fieldId)) && !known) {
      if (writeErase(flow.entity(), field, nullptr) == Write::full) {
         return Write::full;
      }
      flow.erasedIs(field.fieldId, false);
   }
   bool descend = false;
   if (child != nullptr && !known) {
      if (writeCreate(flow.entity(), field, *child) == Write::full) {
         return Write::full;
      }
      descend = descendInto(*child, false);
   }
   flow.kivIsDirtyIs(field.fieldId, false);
   flow.kivHasSyncedIs(field.fieldId, true);
   return descend ? Write::descend : Write::done;
}

Session::Write Session::replayCollection(FlowOut& flow, FieldDescriptor const& field) {
   Entity& entity = flow.entity();
   CollectionIterator* at = flow.resyncIterator();
   if (at == nullptr) {
      if (reserveMarker(Opcode::collectionBegin, flow, field) == Write::full) {
         return Write::full;
      }
      at = flow.resyncIteratorIs(field);
   }
   for (; at->valid(); at->next()) {
      if (field.kind != MemberKind::children) {
         if (writeElement(entity, field, at->key(), at->value()) == Write::full) {
            return Write::full;
         }
         continue;
      }
      Entity& child = *at->child();
      if (introduced(child.streamHandle())) {
         // Known to the peer, which must not take it for gone at the collection's end.
         if (writeCreate(entity, field, child) == Write::full) {
            return Write::full;
         }
         continue;
      }
      if (writeCreate(entity, field, child) == Write::full) {
         return Write::full;
      }
      at->next();
      descendInto(child, false);
      return Write::descend;
   }
   if (reserveMarker(Opcode::collectionEnd, flow, field) == Write::full) {
      return Write::full;
   }
   flow.freeResyncState();
   flow.wholeCollectionIs(field.fieldId, false);
   flow.kivIsDirtyIs(field.fieldId, flow.hasDirtyCollKeys(field.fieldId));
   flow.kivHasSyncedIs(field.fieldId, true);
   return Write::done;
}

Session::Write Session::reserveMarker(Opcode opcode, FlowOut const& flow,
                                      FieldDescriptor const& field) {
   if (reserve(opcode, 0, flow.handle, field.fieldId) == nullptr) {
      return Write::full;
   }
   commit(headerSize);
   return Write::done;
}

Session::Write Session::replayDirtyKeys(FlowOut& flow, FieldDescriptor const& field) {
   struct Context {
      Session& session;
      FlowOut& flow;
      FieldDescriptor const& field;
   } context{*this, flow, field};
   DirtyKeys* const keys = flow.dirtyKeys(field, true);
   std::size_t const depth = walkDepth_;
   bool const all = keys->flush(&context, [](void* c, void const* key, bool erased) {
      auto& [session, flowOut, collection] = *static_cast<Context*>(c);
      return session.writeDirtyKey(flowOut, collection, key, erased);
   });
   if (all) {
      flow.kivIsDirtyIs(field.fieldId, false);
      flow.kivHasSyncedIs(field.fieldId, true);
   }
   if (walkDepth_ > depth) {
      return Write::descend;
   }
   return all ? Write::done : Write::full;
}

DirtyKeyResult Session::writeDirtyKey(FlowOut& flow, FieldDescriptor const& field, void const* key,
                                      bool erased) {
   Entity& entity = flow.entity();
   bool const children = field.kind == MemberKind::children;
   void const* const value = field.ops->collection->find(entity, key);
   Entity* const child = children ? field.ops->collection->findChild(entity, key) : nullptr;
   if (child != nullptr && introduced(child->streamHandle())) {
      return DirtyKeyResult::written;
   }
   if ((value == nullptr || erased) && writeErase(entity, field, key) == Write::full) {
      return DirtyKeyResult::full;
   }
   if (value == nullptr) {
      return DirtyKeyResult::written;
   }
   if (!children) {
      return writeElement(entity, field, key, value) == Write::full ? DirtyKeyResult::full
                                                                    : DirtyKeyResult::written;
   }
   if (writeCreate(entity, field, *child) == Write::full) {
      return DirtyKeyResult::full;
   }
   descendInto(*child, false);
   return DirtyKeyResult::writtenAndStop;
}

Session::Write Session::replayQueue(FlowOut& flow, FieldDescriptor const& field) {
   Entity& entity = flow.entity();
   QueueOps const& queue = *field.ops->queue;
   U32 const front = queue.frontSequence(entity);
   U32 const next = queue.nextSequence(entity);
   U32& told = flow.toldSequence(field.fieldId, front);
   if (!write(Opcode::front, 4, flow.handle, field.fieldId,
              [front](Out& out) { out.writeU32(front); })) {
      return Write::full;
   }
   if (static_cast<S32>(told - front) < 0) {
      told = front;
   }
   for (; told != next; ++told) {
      void const* const value = queue.at(entity, told);
      bool const written = write(Opcode::enqueue, 4 + queue.elementSize(value), flow.handle,
                                 field.fieldId, [&](Out& out) {
                                    out.writeU32(told);
                                    queue.encodeElement(out, value);
                                 });
      if (!written) {
         return Write::full;
      }
   }
   flow.kivIsDirtyIs(field.fieldId, false);
   flow.kivHasSyncedIs(field.fieldId, true);
   return Write::done;
}

}  // namespace Kiv::NboAttrLog

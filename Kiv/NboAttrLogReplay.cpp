// Catching up: what a connection was not told when it happened, and whole trees for new mirrors.
#include <cassert>

#include "Kiv/NboAttrLogSa.h"
#include "Kiv/NboAttrLogSession.h"

namespace Kiv::NboAttrLog {

void Session::pump() {
   fill();
   if (closed_ && !told_) {
      close(closeReason_);
   }
   if (leftOutUntold_ != 0) [[unlikely]] {
      tellLeftOut();
   }
}

void Session::fill() {
   if (filling_) {
      return;
   }
   filling_ = true;
   orFail([this] { fillUp(); });
   filling_ = false;
}

void Session::fillUp() {
   while (!closed_) {
      if (!writeParts()) {
         break;
      }
      if (walkDepth_ != 0) {
         if (!runReplay(*walk_[walkDepth_ - 1])) {
            break;
         }
      } else if (!writeReplayEnds()) {
         break;
      } else if (Served* const next = nextReplay()) {
         if (!beginReplay(*next)) {
            break;
         }
      } else if (!writePending()) {
         break;
      } else if (firstDirty_ != nullptr) {
         if (!acknowledge() || !runReplay(*firstDirty_)) {
            break;
         }
      } else {
         break;
      }
   }
}

/// False when the output is full.
bool Session::runReplay(FlowOut& flow) {
   std::size_t const depth = walkDepth_;
   bool const walking = depth != 0 && walk_[depth - 1].get() == &flow;
   S32 rest = 0;
   // What was removed from the tree while it was walked has nothing more to say.
   if (Entity* const there = hub_.handles_.find(flow.handle)) {
      Entity& entity = *there;
      if (!walking && !reach(entity)) {
         return false;
      }
      Sa adapter(*this, entity);
      rest = entity.kivType().entity->stream->handleAttrFlowOut(adapter,
                                                                flow.kivFlowOutBookmarkDeq(), flow);
   }
   assert(rest >= 0);
   if (closed_) {
      return false;
   }
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

Session::Served* Session::nextReplay() noexcept {
   for (Served& served : served_) {
      if (!served.begun) {
         return &served;
      }
   }
   return nullptr;
}

bool Session::beginReplay(Served& served) {
   Entity& root = served.root->entity();
   if (!write(Opcode::replayBegin, 4, root.streamHandle(), 0,
              [&served](Out& out) { out.writeU32(served.id); })) {
      return false;
   }
   served.begun = true;
   introducedIs(root.streamHandle(), true);
   served.root->subscribers.push_back(this);
   descendInto(root, false);
   return true;
}

bool Session::writeReplayEnds() {
   for (Served& served : served_) {
      if (!served.begun) {
         continue;
      }
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
/// say but the children that it was made with. False if there is nothing to replay, or if the child
/// was left out.
bool Session::descendInto(Entity& entity, bool fresh) {
   if (!introduced(entity.streamHandle())) {
      return false;
   }
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

Session::Write Session::replaySingle(FlowOut& flow, FieldDescriptor const& field) {
   Entity const& entity = flow.entity();
   std::size_t const fixed = field.ops->fixedSize;
   std::size_t const size = fixed != 0 ? fixed : field.ops->encodedSize(entity);
   if (isLeftOut(size)) [[unlikely]] {
      leaveOut(size, entity, &field, nullptr);
   } else if (!write(Opcode::set, size, flow.handle, field.fieldId,
                     [&](Out& out) { field.ops->encode(entity, out); })) {
      return Write::full;
   }
   flow.told(field.fieldId);
   return Write::done;
}

/// A new reader is told little else than values of a fixed size, one row after the other: room for
/// all is taken at once. Returns the row to go on with.
U16 Session::replayFixedSizes(FlowOut& flow, TypeImpl const& type, U16 row) {
   constexpr std::size_t largest = 8;
   Entity const& entity = flow.entity();
   U8* const begin =
         out_.reserve(static_cast<std::size_t>(type.rowCount - row) * (headerSize + largest));
   if (begin == nullptr || longestBody_ < largest || partsOut_ != nullptr) {
      return row;
   }
   U8* at = begin;
   U32 count = 0;
   for (; row != type.rowCount; ++row) {
      FieldDescriptor const& field = type.rows[row];
      std::size_t const size = field.kind == MemberKind::single ? field.ops->fixedSize : 0;
      if (size == 0 || !field.has(FieldDescriptor::streamed) || !flow.kivIsDirty(field.fieldId)) {
         break;
      }
      assert(size <= largest);
      Out out(at, headerSize + size);
      writeHeader(out, {Opcode::set, static_cast<U32>(size), flow.handle, field.fieldId});
      field.ops->encode(entity, out);
      at += headerSize + size;
      ++count;
      flow.told(field.fieldId);
   }
   commit(static_cast<std::size_t>(at - begin), count);
   changesSent_ += count;
   return row;
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

Session::Write Session::replayChild(FlowOut& flow, FieldDescriptor const& field) {
   Entity* const child = field.ops->child->get(flow.entity());
   bool const told = child != nullptr && peerHas(*child);
   // A whole replay says that there is none, too: the mirror may hold one from before.
   if ((child == nullptr || flow.erased(field.fieldId)) && !told) {
      if (writeErase(flow.entity(), field, nullptr) == Write::full) {
         return Write::full;
      }
      flow.erasedIs(field.fieldId, false);
   }
   bool descend = false;
   if (child != nullptr && !told) {
      if (writeCreate(flow.entity(), field, *child) == Write::full) {
         return Write::full;
      }
      descend = descendInto(*child, false);
   }
   flow.told(field.fieldId);
   return descend ? Write::descend : Write::done;
}

Session::Write Session::replayCollection(FlowOut& flow, FieldDescriptor const& field) {
   Entity& entity = flow.entity();
   CollectionIterator* at = flow.resyncIterator();
   if (at == nullptr && field.ops->collection->size(entity) == 0) {
      if (reserveMarker(Opcode::erase, flow, field) == Write::full) {
         return Write::full;
      }
      flow.wholeIsTold(field.fieldId);
      return Write::done;
   }
   if (at == nullptr) {
      if (reserveMarker(Opcode::collectionBegin, flow, field) == Write::full) {
         return Write::full;
      }
      at = flow.resyncIteratorIs(field);
   }
   // Where the keys were too many to remember, nobody knows whose former child the peer still has.
   FlowOut const* const own = flowOutOf(entity);
   bool const eraseFirst = own != nullptr && own->wholeCollection(field.fieldId);
   while (at->valid()) {
      if (field.kind != MemberKind::children) {
         if (writeElement(entity, field, at->key(), at->value()) == Write::full) {
            return Write::full;
         }
         at->next();
         continue;
      }
      Entity& child = *at->child();
      if (isDirtyKey(entity, field, at->key())) {
         at->next();
         continue;  // erased and made since the replay began: both are told later
      }
      // What the peer has, too: it must not take it for gone at the collection's end.
      bool const had = peerHas(child);
      // A key that travels in parts would be erased again and again: nothing fits behind it. There
      // the replay runs into what the peer has.
      bool const erases =
            eraseFirst && !had && field.ops->collection->keySize(at->key()) <= longestBody_;
      if (erases && writeErase(entity, field, at->key()) == Write::full) {
         return Write::full;
      }
      if (writeCreate(entity, field, child) == Write::full) {
         return Write::full;
      }
      at->next();
      if (!had && descendInto(child, false)) {
         return Write::descend;
      }
   }
   if (reserveMarker(Opcode::collectionEnd, flow, field) == Write::full) {
      return Write::full;
   }
   flow.freeResyncState();
   flow.wholeIsTold(field.fieldId);
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
      flow.told(field.fieldId);
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
   if (child != nullptr && peerHas(*child)) {
      return DirtyKeyResult::written;
   }
   bool const erases = value == nullptr || erased;
   if (erases && writeErase(entity, field, key) == Write::full) {
      return DirtyKeyResult::full;
   }
   if (value == nullptr) {
      return DirtyKeyResult::written;
   }
   Write const result =
         children ? writeCreate(entity, field, *child) : writeElement(entity, field, key, value);
   if (result == Write::full) {
      return erases ? DirtyKeyResult::erased : DirtyKeyResult::full;
   }
   return children && descendInto(*child, false) ? DirtyKeyResult::writtenAndStop
                                                 : DirtyKeyResult::written;
}

Session::Write Session::replayQueue(FlowOut& flow, FieldDescriptor const& field) {
   Entity& entity = flow.entity();
   QueueOps const& queue = *field.ops->queue;
   U32 const front = queue.frontSequence(entity);
   U32 const next = queue.nextSequence(entity);
   FlowOut* const own = flowOutOf(entity);
   if (flow.wholeCollection(field.fieldId) && own == &flow && !serves(entity)) {
      if (reserveMarker(Opcode::collectionEnd, flow, field) == Write::full) {
         return Write::full;
      }
      flow.wholeCollectionIs(field.fieldId, false);
      flow.toldSequence(field.fieldId, next) = next;
      flow.kivIsDirtyIs(field.fieldId, false);
      return Write::done;
   }
   U32& told = flow.toldSequence(field.fieldId, front);
   // Numbered anew since: what was told before is another queue's.
   bool const anew = static_cast<S32>(next - told) < 0 ||
                     (own != nullptr && own->wholeCollection(field.fieldId));
   bool const whole = anew || flow.wholeCollection(field.fieldId);
   if (!write(whole ? Opcode::collectionBegin : Opcode::front, 4, flow.handle, field.fieldId,
              [front](Out& out) { out.writeU32(front); })) {
      return Write::full;
   }
   flow.wholeCollectionIs(field.fieldId, false);
   if (own != nullptr) {
      own->wholeCollectionIs(field.fieldId, false);
   }
   if (whole || static_cast<S32>(told - front) < 0) {
      told = front;
   }
   for (; static_cast<S32>(next - told) > 0; ++told) {
      void const* const value = queue.at(entity, told);
      if (value == nullptr) {
         continue;
      }
      if (writeEnqueue(entity, field, told, value) == Write::full) {
         return Write::full;
      }
   }
   flow.told(field.fieldId);
   // An element must not be told twice: what changed during a whole replay has been told by it.
   if (own != nullptr && own != &flow) {
      own->toldSequence(field.fieldId, next) = next;
      own->kivIsDirtyIs(field.fieldId, false);
   }
   return Write::done;
}

namespace {

/// In id order, inherited attributes first; stops at the first that cannot be written.
S32 flowOutFields(TypeImpl const& type, Sa& adapter, AttributeId from, FlowOut& flowOut) {
   if (type.base != nullptr && from < type.firstId) {
      if (S32 const rest = flowOutFields(*type.base, adapter, from, flowOut); rest != 0) {
         return rest;
      }
   }
   U16 i = from > type.firstId ? static_cast<U16>(from - type.firstId) : U16(0);
   while (i < type.rowCount) {
      U16 const next = adapter.flowOutFixedSizes(flowOut, type, i);
      if (next != i) {
         i = next;
         continue;
      }
      FieldDescriptor const& field = type.rows[i++];
      if (field.kind != MemberKind::none && field.has(FieldDescriptor::streamed) &&
          flowOut.kivIsDirty(field.fieldId) &&
          !adapter.flowOutOnAttributeForConnection(flowOut, field)) {
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
   return flowOutFields(type, adapter, from, flowOut);
}

}  // namespace Kiv::NboAttrLog

#include "Kiv/Log/Walk.h"

#include <algorithm>
#include <bit>
#include <cassert>

#include "Kiv/Log/Prefetch.h"
#include "Kiv/Log/RootWatcher.h"
#include "Kiv/Log/Teller.h"
#include "Kiv/NboAttrLogSa.h"

namespace Kiv::NboAttrLog {

void Walk::fill() noexcept {
   if (filling_) {
      return;
   }
   filling_ = true;
   closing_.orFail([this] { fillUp(); });
   filling_ = false;
}

void Walk::fillUp() {
   while (!closing_.closed()) {
      auto& served = mounts_.served();
      auto const isNew = [this](Served const& s) { return !s.begun && teller_.mayReplay(); };
      if (!outbox_.writeParts() || !teller_.writeTypes()) {
         break;
      }
      if (held()) {
         if (idle()) {
            replies_.write();
         }
         break;
      }
      // What a replay sends belongs to a mirror that is incomplete anyway.
      Entity const* const walked = idle() ? nullptr : handles_.find(stack_[0]->handle);
      bool const replays = walked != nullptr && walked->parent() == nullptr;
      if (idle() && teller_.denied().any()) {
         bracket_.want(teller_.denied().settle(), 0);
      }
      if (bracket_.any() && !replays && !bracket_.tend(idle())) {
         break;
      }
      if (progress_.depth != 0) {
         if (!run(*stack_[progress_.depth - 1])) {
            break;
         }
      } else if (!endReplays()) {
         break;
      } else if (auto const next = std::find_if(served.begin(), served.end(), isNew);
                 next != served.end() && !bracket_.open()) {
         if (!beginReplay(*next)) {
            break;
         }
      } else if (!replies_.write()) {
         break;
      } else if (!backlog_.empty()) {
         if (!encoder_.acknowledge() || !run(*backlog_.first())) {
            break;
         }
      } else if (bracket_.any()) {  // it is due to be closed
      } else if (teller_.digestAnswers().due()) {
         if (!teller_.digestAnswers().write()) {
            break;
         }
      } else if (!teller_.comparison().due() || !teller_.comparison().write()) {
         break;
      }
   }
}

/// False when the output is full.
bool Walk::run(FlowOut& flow) {
   std::size_t const depth = progress_.depth;
   bool const walking = depth != 0 && stack_[depth - 1].get() == &flow;
   S32 rest = 0;
   // An entity that was removed from the tree during its walk has nothing more to send.
   if (Entity* const entity = handles_.find(flow.handle)) {
      if (!walking && !encoder_.reach(*entity)) {
         return false;
      }
      Sa adapter(session_, *entity);
      rest = entity->kivType().entity->stream->handleAttrFlowOut(
            adapter, flow.kivFlowOutBookmarkDeq(), flow);
   }
   assert(rest >= 0);
   if (closing_.closed()) {
      return false;
   }
   if (rest != 0) {
      flow.kivFlowOutBookmarkEnq(static_cast<AttributeId>(rest));
      return progress_.depth > depth;
   }
   if (walking) {
      if (progress_.depth == depth) {
         stack_[depth - 1]->freeResyncState();
         --progress_.depth;
      }
   } else if (!flow.dirty()) {  // a change may have come for an attribute before the bookmark
      backlog_.remove(flow.handle);
   }
   return true;
}

bool Walk::beginReplay(Served& served) {
   Entity& root = *served.root;
   if (!outbox_.write(Opcode::replayBegin, 4, root.streamHandle(), 0,
                      [&served](Out& out) { out.writeU32(served.id); })) {
      return false;
   }
   served.begun = true;
   names_.introducedIs(root.streamHandle(), true);
   outbox_.cursor().leave();
   served.watcher->subscribe(teller_);
   descendInto(root, false);
   return true;
}

bool Walk::endReplays() {
   for (Served& served : mounts_.served()) {
      if (!served.begun) {
         continue;
      }
      if (!served.walked) {
         served.walked = true;
         served.endAfter = backlog_.sequence();
      }
      if (!served.ended && backlog_.isToldUpTo(served.endAfter)) {
         if (!outbox_.write(Opcode::replayEnd, 4, served.root->streamHandle(), 0,
                            [&served](Out& out) { out.writeU32(served.id); })) {
            return false;
         }
         served.ended = true;
      }
   }
   return true;
}

bool Walk::descendInto(Entity& entity, bool fresh) {
   if (!names_.introduced(entity.streamHandle())) {
      return false;
   }
   // Another version of the type may have other defaults, so that even a fresh child has values to
   // send.
   PeerTypes const* const peerTypes = teller_.peerTypes();
   fresh = fresh && peerTypes == nullptr;
   if (progress_.depth == stack_.size()) {
      stack_.push_back(std::make_unique<FlowOut>(entity, !fresh));
   } else {
      stack_[progress_.depth]->reset(entity, !fresh);
   }
   FlowOut& flow = *stack_[progress_.depth];
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
   if (peerTypes != nullptr) [[unlikely]] {
      peerTypes->strip(flow);
   }
   outbox_.cursor().leave();
   ++progress_.depth;
   return true;
}

void Walk::leave(Entity const& root) noexcept {
   // A walk stays below one root. If its entities were removed from the tree, it ends by itself.
   Entity const* const walked = progress_.depth != 0 ? handles_.find(stack_[0]->handle) : nullptr;
   if (walked != nullptr && rootOf(*walked) == &root) {
      while (progress_.depth != 0) {
         stack_[--progress_.depth]->freeResyncState();
      }
   }
}

void Walk::clear() noexcept {
   bracket_.clear();
   progress_.depth = 0;
   std::vector<std::unique_ptr<FlowOut>>().swap(stack_);  // `clear` would keep the memory
}

// One attribute.

Walk::Write Walk::tell(FlowOut& flow, FieldDescriptor const& field) {
   switch (field.kind) {
      case MemberKind::single:
         if (!encoder_.set(flow.entity(), field, flow.handle)) {
            return Write::full;
         }
         flow.told(field.fieldId);
         return Write::done;
      case MemberKind::child:
         return tellChild(flow, field);
      case MemberKind::queue:
         return tellQueue(flow, field);
      case MemberKind::none:
      case MemberKind::operation:
         return Write::done;
      default:
         return flow.wholeCollection(field.fieldId) ? tellWhole(flow, field)
                                                    : tellDirtyKeys(flow, field);
   }
}

namespace {
/// The longest value that counts as short.
constexpr std::size_t longestShort = 20;

/// Whether a child is absent, or a collection without elements is replayed by emptying it.
bool isEmpty(FlowOut const& flow, FieldDescriptor const& field, U32 place) {
   if (field.kind == MemberKind::child) {
      return field.ops->child->get(flow.entity()) == nullptr;
   }
   return field.kind != MemberKind::queue && flow.emptiesAtOnce(place) &&
          field.ops->collection->size(flow.entity()) == 0;
}
}  // namespace

U16 Walk::tellShort(FlowOut& flow, TypeImpl const& type, U16 row) {
   if (teller_.peerTypes() != nullptr) [[unlikely]] {
      return row;  // each value has to be checked
   }
   std::size_t const most =
         static_cast<std::size_t>(type.rowCount - row) * (headerSize + longestShort);
   U8* const begin = outbox_.longestBody() >= longestShort ? outbox_.reserveRun(most) : nullptr;
   if (begin == nullptr) {
      return row;
   }
   U8* end = begin;
   U32 count = 0;
   U32 const first = flow.placeOf(type);
   U32 const last = first + type.rowCount;
   U32 place = first + row;
   while (place < last) {
      U32 const shift = place % 64;
      U64 dirty = flow.dirtyWord(place / 64) >> shift;
      if (last - place < 64) {
         dirty &= ~(~U64(0) << (last - place));
      }
      U64 left = dirty;
      end = writeShort(end, flow, type.rows + (place - first), place, left, count);
      flow.wordIsTold(place / 64, (dirty ^ left) << shift);
      if (left != 0) {
         place += static_cast<U32>(std::countr_zero(left));
         break;
      }
      place += 64 - shift;
   }
   outbox_.commitRun(static_cast<std::size_t>(end - begin), count);
   return static_cast<U16>(std::min(place, last) - first);
}

/// Writes the attributes whose bits are set, from `rows` and `place` on, up to the first that is
/// neither a short value nor empty, clears their bits and counts them. Returns the end of the
/// messages.
U8* Walk::writeShort(U8* at, FlowOut const& flow, FieldDescriptor const* rows, U32 place, U64& bits,
                     U32& count) {
   Entity const& entity = flow.entity();
   U32 const handle = flow.handle;
   U64 left = bits;
   U32 written = 0;
   for (; left != 0; left &= left - 1) {
      auto const bit = static_cast<U32>(std::countr_zero(left));
      FieldDescriptor const& field = rows[bit];
      assert(field.has(FieldDescriptor::streamed));
      Opcode opcode = Opcode::set;
      std::size_t size = 0;
      if (field.kind == MemberKind::single) [[likely]] {
         size = valueSize(entity, field);
         if (size > longestShort) {
            break;
         }
         Out value(at + headerSize, size);
         field.ops->encode(entity, value);
      } else if (isEmpty(flow, field, place + bit)) {
         opcode = Opcode::erase;
      } else {
         break;
      }
      Out header(at, headerSize);
      writeHeader(header, {opcode, static_cast<U32>(size), handle, field.fieldId});
      at += headerSize + size;
      ++written;
   }
   bits = left;
   count += written;
   return at;
}

Walk::Write Walk::tellChild(FlowOut& flow, FieldDescriptor const& field) {
   Entity* const child = presentChild(flow.entity(), field, nullptr);
   bool const told = child != nullptr && names_.peerHas(*child);
   // The child that the peer has may have been removed during the walk of its parent.
   FlowOut* const own = backlog_.find(flow.entity());
   bool const erased = flow.erased(field.fieldId) || (own != nullptr && own->erased(field.fieldId));
   // A full replay erases an absent child, too: the mirror may hold one from before.
   if ((child == nullptr || erased) && !told) {
      if (!encoder_.erase(flow.entity(), field, nullptr)) {
         return Write::full;
      }
      flow.erasedIs(field.fieldId, false);
      if (own != nullptr) {
         own->erasedIs(field.fieldId, false);
      }
   }
   bool descend = false;
   if (child != nullptr && !told) {
      if (!encoder_.introduce(flow.entity(), field, *child)) {
         return Write::full;
      }
      descend = descendInto(*child, false);
   }
   flow.told(field.fieldId);
   return descend ? Write::descend : Write::done;
}

Walk::Write Walk::tellWhole(FlowOut& flow, FieldDescriptor const& field) {
   Entity& entity = flow.entity();
   CollectionIterator* at = flow.resyncIterator();
   if (at == nullptr && field.ops->collection->size(entity) == 0) {
      if (!outbox_.writeEmpty(Opcode::erase, flow.handle, field.fieldId)) {
         return Write::full;
      }
      flow.wholeIsTold(field.fieldId);
      return Write::done;
   }
   if (at == nullptr) {
      if (!outbox_.writeEmpty(Opcode::collectionBegin, flow.handle, field.fieldId)) {
         return Write::full;
      }
      at = flow.resyncIteratorIs(field);
   }
   // If the keys were too many to remember, the peer may still have the former child of any key.
   FlowOut const* const own = backlog_.find(entity);
   bool const eraseFirst = own != nullptr && own->wholeCollection(field.fieldId);
   while (at->valid()) {
      if (field.kind != MemberKind::children) {
         if (!encoder_.element(entity, field, at->key(), at->value())) {
            return Write::full;
         }
         at->next();
         continue;
      }
      Entity& child = *at->child();
      if (backlog_.has(entity, field, at->key())) {
         at->next();
         continue;  // erased and recreated since the replay began: both are sent later
      }
      // Name even a child that the peer has, or the peer would remove it at the end of the
      // collection.
      bool const had = names_.peerHas(child);
      // A key that travels in parts would be erased again and again, since nothing fits after it.
      // For such a key the replay overwrites the child that the peer has.
      bool const erases = eraseFirst && !had &&
                          field.ops->collection->keySize(at->key()) <= outbox_.longestBody();
      if (erases && !encoder_.erase(entity, field, at->key())) {
         return Write::full;
      }
      if (!encoder_.introduce(entity, field, child)) {
         return Write::full;
      }
      at->next();
      // The order is that of the hashes, so the next child is rarely in the cache.
      if (at->valid()) {
         prefetch(at->child(), 4);
      }
      if (!had && descendInto(child, false) && !tellLeaf()) {
         return Write::descend;
      }
   }
   if (!outbox_.writeEmpty(Opcode::collectionEnd, flow.handle, field.fieldId)) {
      return Write::full;
   }
   flow.freeResyncState();
   flow.wholeIsTold(field.fieldId);
   return Write::done;
}

/// Most children of a collection have only short values. Writes the child on top of the stack, and
/// leaves it again if nothing of it remains; false if the walk has to go on there.
bool Walk::tellLeaf() {
   FlowOut& flow = *stack_[progress_.depth - 1];
   TypeImpl const& type = flow.entity().kivType();
   if (type.base != nullptr || tellShort(flow, type, 0) != type.rowCount || flow.dirty()) {
      return false;
   }
   --progress_.depth;
   return true;
}

Walk::Write Walk::tellDirtyKeys(FlowOut& flow, FieldDescriptor const& field) {
   struct Context {
      Walk& walk;
      FlowOut& flow;
      FieldDescriptor const& field;
   } context{*this, flow, field};
   DirtyKeys* const keys = flow.dirtyKeys(field, true);
   std::size_t const depth = progress_.depth;
   bool const all = keys->flush(&context, [](void* c, void const* key, bool erased) {
      auto& [walk, flowOut, collection] = *static_cast<Context*>(c);
      return walk.tellDirtyKey(flowOut, collection, key, erased);
   });
   if (all) {
      flow.told(field.fieldId);
   }
   if (progress_.depth > depth) {
      return Write::descend;
   }
   return all ? Write::done : Write::full;
}

DirtyKeyResult Walk::tellDirtyKey(FlowOut& flow, FieldDescriptor const& field, void const* key,
                                  bool erased) {
   Entity& entity = flow.entity();
   bool const children = field.kind == MemberKind::children;
   void const* const value = field.ops->collection->find(entity, key);
   Entity* const child = children ? presentChild(entity, field, key) : nullptr;
   if (child != nullptr && names_.peerHas(*child)) {
      return DirtyKeyResult::written;
   }
   bool const erases = value == nullptr || erased;
   if (erases && !encoder_.erase(entity, field, key)) {
      return DirtyKeyResult::full;
   }
   if (value == nullptr) {
      return DirtyKeyResult::written;
   }
   if (!(children ? encoder_.introduce(entity, field, *child)
                  : encoder_.element(entity, field, key, value))) {
      return erases ? DirtyKeyResult::erased : DirtyKeyResult::full;
   }
   return children && descendInto(*child, false) ? DirtyKeyResult::writtenAndStop
                                                 : DirtyKeyResult::written;
}

Walk::Write Walk::tellQueue(FlowOut& flow, FieldDescriptor const& field) {
   Entity& entity = flow.entity();
   QueueOps const& queue = *field.ops->queue;
   U32 const front = queue.frontSequence(entity);
   U32 const next = queue.nextSequence(entity);
   FlowOut* const own = backlog_.find(entity);
   if (flow.wholeCollection(field.fieldId) && own == &flow && !mounts_.serves(entity)) {
      // The peer serves the queue: ask it to replay.
      if (!outbox_.writeEmpty(Opcode::collectionEnd, flow.handle, field.fieldId)) {
         return Write::full;
      }
      flow.wholeCollectionIs(field.fieldId, false);
      flow.toldSequence(field.fieldId, next) = next;
      flow.kivIsDirtyIs(field.fieldId, false);
      return Write::done;
   }
   U32& told = flow.toldSequence(field.fieldId, front);
   // Renumbered since: the numbers sent before no longer apply.
   bool const anew = static_cast<S32>(next - told) < 0 ||
                     (own != nullptr && own->wholeCollection(field.fieldId));
   bool const whole = anew || flow.wholeCollection(field.fieldId);
   if (!encoder_.front(entity, field, front, whole)) {
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
      if (!encoder_.enqueue(entity, field, told, value)) {
         return Write::full;
      }
   }
   flow.told(field.fieldId);
   // Do not send an element twice: the replay has included what changed meanwhile.
   if (own != nullptr && own != &flow) {
      own->toldSequence(field.fieldId, next) = next;
      own->kivIsDirtyIs(field.fieldId, false);
   }
   return Write::done;
}

}  // namespace Kiv::NboAttrLog

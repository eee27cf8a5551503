#include "Kiv/NboAttrLogSession.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "Kiv/Module.h"
#include "Kiv/Path.h"

namespace Kiv::NboAttrLog {
namespace {

/// `clear` would keep the memory.
template <class Vector>
void freeAll(Vector& vector) {
   Vector().swap(vector);
}

/// Whether a child of another name has taken the place of `removed`: the peer replaces it in one
/// step, too, when it is told of the new one.
bool isReplaced(Entity const& owner, FieldDescriptor const& field, Entity const& removed) {
   Entity const* const present =
         field.has(FieldDescriptor::named) ? field.ops->child->get(owner) : nullptr;
   return present != nullptr && *entityName(*present) != *entityName(removed);
}

}  // namespace

Session::Session(Hub& hub, SessionListener* listener)
      : hub_(hub),
        listener_(listener),
        out_(std::min(hub.limits().outputBuffer, hub.limits().unmounted), hub.limits().outputBuffer,
             &hub.budget_),
        longestBody_(
              std::min(hub.limits().longestMessage, hub.limits().outputBuffer - headerSize - 1)),
        idleSince_(hub.now()),
        partsIn_(hub.budget_),
        number_(++hub.sessionsMade_),
        openedAt_(hub.now()) {
   hub_.sessions_.push_back(this);
   hello();
}

Session::~Session() {
   listener_ = nullptr;
   close("destroyed", false);  // short enough to need no memory
   freeIn();
   std::erase(hub_.sessions_, this);
}

// Room in the output. A message is counted when it is committed.

bool Session::copy(U8 const* message, std::size_t size) {
   U8* const at = out_.reserve(size);
   if (at == nullptr) {
      if (out_.empty()) {
         noRoom(size);
      }
      return false;
   }
   std::memcpy(at, message, size);
   ++changesSent_;
   commit(size);
   return true;
}

void Session::hello() {
   std::size_t size = 8 + 4 + 4;
   U32 count = 0;
   for (KivModule const* at = firstModule(); at != nullptr; at = at->data->next) {
      size += 4 + std::strlen(at->name()) + 4;
      ++count;
   }
   write(Opcode::hello, size, 0, 0, [count](Out& out) {
      out.writeBytes(helloMagic, 8);
      out.writeU32(protocolVersion);
      out.writeU32(count);
      for (KivModule const* at = firstModule(); at != nullptr; at = at->data->next) {
         out.writeString(at->name());
         out.writeU32(at->hash());
      }
   });
}

void Session::pendingEnq(Opcode opcode, U32 token, Sarn::String text, U64 after) {
   pending_.push_back({opcode, token, std::move(text), after});
}

bool Session::writePending() {
   while (!pending_.empty()) {
      Pending const& next = pending_.front();
      if (firstDirty_ != nullptr && firstDirty_->sequence <= next.after) {
         return true;
      }
      bool const withText = next.opcode == Opcode::refused;
      bool done = false;
      if (next.opcode == Opcode::roots) {
         done = writeRoots();
      } else if (next.opcode == Opcode::mount) {
         done = writeMount(mounts_[next.token - 1]);
      } else if (next.opcode == Opcode::sessions) {
         done = writeSessions();
      } else if (next.opcode == Opcode::listRoots || next.opcode == Opcode::listSessions) {
         done = write(next.opcode, 0, 0, 0, [](Out&) {});
      } else {
         std::size_t const size = 4 + (withText ? 4 + next.text.size() : 0);
         done = write(next.opcode, size, 0, 0, [&](Out& out) {
            out.writeU32(next.token);
            if (withText) {
               out.writeString(next.text);
            }
         });
      }
      if (!done) {
         return false;
      }
      pending_.pop_front();
   }
   return true;
}

bool Session::writeMount(Mount const& mount) {
   std::string_view const type = mount.root().kivType().name;
   std::string_view const name = mount.root().nameString();
   return write(Opcode::mount, 4 + 1 + 4 + type.size() + 4 + name.size(), 0, 0, [&](Out& out) {
      out.writeU32(mount.id_);
      out.writeU8(static_cast<U8>(mount.mode_));
      out.writeString(type);
      out.writeString(name);
   });
}

// What the peer knows.

void Session::introducedIs(U32 handle, bool introduced) {
   U32 const at = HandleTable::place(handle);
   if (at / 64 >= introduced_.size()) {
      if (!introduced) {
         return;
      }
      introduced_.resize(std::max<std::size_t>(at / 64 + 1, introduced_.size() * 2));
   }
   U64 const bit = U64(1) << at % 64;
   U64& word = introduced_[at / 64];
   word = introduced ? word | bit : word & ~bit;
}

bool Session::acknowledge() {
   if (!writesBack_ || acknowledged_ == changesReceived_) {
      return true;
   }
   if (!write(Opcode::ack, 4, 0, 0, [this](Out& out) { out.writeU32(changesReceived_); })) {
      return false;
   }
   acknowledged_ = changesReceived_;
   return true;
}

bool Session::reachAfterBind(Entity& entity) {
   if (!acknowledge()) [[unlikely]] {
      return false;
   }
   U32 const handle = entity.streamHandle();
   if (introduced(handle)) [[likely]] {
      return true;
   }
   U32 const* const theirs = incomingHandles_.find(reinterpret_cast<U64>(&entity));
   if (theirs == nullptr ||
       !write(Opcode::bind, 4, handle, 0, [&](Out& out) { out.writeU32(*theirs); })) {
      return false;
   }
   introducedIs(handle, true);
   return true;
}

bool Session::serves(Entity const& entity) const noexcept {
   Entity const* const root = rootOf(entity);
   return std::any_of(served_.begin(), served_.end(),
                      [root](Served const& s) { return &s.root->entity() == root; });
}

bool Session::writes(Entity const& entity) const noexcept {
   Mount const* const mount = followed(entity);
   return mount != nullptr && writesBack(mount->mode_);
}

Mount const* Session::followed(Entity const& entity) const noexcept {
   Entity const* const root = rootOf(entity);
   auto const found = std::find_if(mounts_.begin(), mounts_.end(), [root](Mount const& m) {
      return (m.state_ == Mount::State::replaying || m.complete()) && m.root_.get() == root;
   });
   return found != mounts_.end() ? &*found : nullptr;
}

bool Session::mustEcho(Hub::Root const& root) const noexcept {
   bool const serves = std::any_of(served_.begin(), served_.end(),
                                   [&root](Served const& s) { return s.root == &root; });
   return serves && (changesSent_ != changesAcked_ || !upToDate());
}

void Session::created(Entity& child) {
   if (createHandle_ != 0) {
      map(std::exchange(createHandle_, 0), &child, true);
   }
}

void Session::vanished(Entity& entity, FieldDescriptor const& field, void const* key) {
   if (!live() || !reach(entity) || writeErase(entity, field, key) == Write::full) {
      markDirty(entity, field, key, true);
   }
}

void Session::forget(Entity& entity, U32 handle) {
   introducedIs(handle, false);
   flowOutDel(HandleTable::place(handle));
   closeCollections(entity);
   if (U32 const* const theirs = incomingHandles_.find(reinterpret_cast<U64>(&entity))) {
      incoming_[HandleTable::place(*theirs)].entity.reset();
      incomingHandles_.erase(reinterpret_cast<U64>(&entity));
   }
}

// One change of a child, a collection or a queue, told at once or left to a FlowOut.

void Session::onChange(Entity& entity, FieldDescriptor const& field, void const* key,
                       Entity* removed) {
   bool const wasKnown =
         removed != nullptr && known(*removed) && !isReplaced(entity, field, *removed);
   if (!live() || !reach(entity)) {
      markDirty(entity, field, key, wasKnown);
      return;
   }
   Write result = Write::done;
   bool erased = wasKnown;
   if (field.kind == MemberKind::child || field.kind == MemberKind::children) {
      Entity* const present = field.kind == MemberKind::child
                                    ? field.ops->child->get(entity)
                                    : field.ops->collection->findChild(entity, key);
      // A replay may have told of the present child before this removal comes here.
      bool const told = present != nullptr && peerHas(*present);
      if (wasKnown && !told) {
         result = writeErase(entity, field, key);
         erased = result != Write::done;
      }
      if (result == Write::done && present != nullptr && !told) {
         result = writeCreate(entity, field, *present);
         if (result == Write::done && descendInto(*present, true)) {
            fill();
         }
      }
   } else if (field.kind == MemberKind::queue) {
      QueueOps const& queue = *field.ops->queue;
      U32 const sequence = *static_cast<U32 const*>(key);
      if (void const* const value = queue.at(entity, sequence)) {
         result = writeEnqueue(entity, field, sequence, value);
      } else if (sequence == queue.nextSequence(entity)) {  // numbered anew
         markWhole(entity, field);
         fill();
      } else {
         result = write(Opcode::front, 4, entity.streamHandle(), field.fieldId,
                        [&](Out& out) { out.writeU32(queue.frontSequence(entity)); })
                        ? Write::done
                        : Write::full;
      }
   } else {
      void const* const value = field.ops->collection->find(entity, key);
      result = value != nullptr ? writeElement(entity, field, key, value)
                                : writeErase(entity, field, key);
   }
   if (result == Write::full) {
      markDirty(entity, field, key, erased);
   }
}

Session::Write Session::writeElement(Entity& entity, FieldDescriptor const& field, void const* key,
                                     void const* value) {
   CollectionOps const& ops = *field.ops->collection;
   std::size_t const size = ops.elementSize(key, value);
   if (isLeftOut(size)) [[unlikely]] {  // the one that the peer may have is not to be taken for it
      Write const result = writeErase(entity, field, key);
      if (result == Write::done) {
         leaveOut(size, entity, &field, key);
      }
      return result;
   }
   return write(Opcode::element, size, entity.streamHandle(), field.fieldId,
                [&](Out& out) { ops.encodeElement(out, key, value); })
                ? Write::done
                : Write::full;
}

Session::Write Session::writeErase(Entity& entity, FieldDescriptor const& field, void const* key) {
   bool const keyed = key != nullptr;
   std::size_t const size = keyed ? field.ops->collection->keySize(key) : 0;
   if (isLeftOut(size)) [[unlikely]] {
      return Write::done;  // no peer was ever told of such a key
   }
   return write(Opcode::erase, size, entity.streamHandle(), field.fieldId,
                [&](Out& out) {
                   if (keyed) {
                      field.ops->collection->encodeKey(out, key);
                   }
                })
                ? Write::done
                : Write::full;
}

Session::Write Session::writeCreate(Entity& owner, FieldDescriptor const& field, Entity& child) {
   if (child.streamHandle() == 0 && !hub_.registerTree(child)) {
      fail(hub_.tooManyEntities());
      return Write::full;
   }
   StreamFunctions const& stream = *child.kivType().entity->stream;
   std::size_t const size = 4 + stream.attrLogSizeCtorParams(child);
   if (isLeftOut(size)) [[unlikely]] {  // and with it what is below
      Write const result =
            field.kind == MemberKind::child ? writeErase(owner, field, nullptr) : Write::done;
      if (result == Write::done) {
         leaveOut(size, child, nullptr, nullptr);
      }
      return result;
   }
   bool const written =
         write(Opcode::create, size, owner.streamHandle(), field.fieldId, [&](Out& out) {
            out.writeU32(child.streamHandle());
            stream.serializeConstructorParams(out, child);
         });
   if (!written) {
      return Write::full;
   }
   introducedIs(child.streamHandle(), true);
   return Write::done;
}

// Mounts and the session's end.

void Session::syncIs(U32 token) {
   if (!closed_) {
      pendingEnq(Opcode::sync, token, {}, dirtySequence_);
      fill();
   }
}

void Session::unsubscribe() {
   for (Served const& served : served_) {
      std::erase(served.root->subscribers, this);
      hub_.release(*served.root);
   }
   served_.clear();
   for (Mount& mount : mounts_) {
      if (std::exchange(mount.adopted_, false)) {
         Hub::Root& root = *hub_.find(mount.root_->kivType().name, mount.root_->name());
         std::erase(root.subscribers, this);
         hub_.release(root);
      }
   }
}

void Session::fail(Sarn::String reason, Ending ending) noexcept {
   if (!closed_) {
      closed_ = true;
      ending_ = ending;
      closeReason_ = std::move(reason);
   }
}

void Session::failForException() noexcept {
   try {
      throw;
   } catch (std::bad_alloc const&) {
      fail(outOfMemory());
   } catch (std::exception const& error) {
      fail(copyOrOutOfMemory(error.what()));
   } catch (...) {
      fail("unknown");
   }
}

void Session::close(Sarn::String const& reason, bool tell) {
   if (!closed_) {
      fail(copyOrOutOfMemory(reason), Ending::here);
   }
   if (told_) {
      return;
   }
   told_ = true;
   closedAt_ = hub_.now();
   if (consumed_ == 0) {  // else `received` does so, which is looking at them
      freeIn();
   }
   partsOut_.reset();
   partsIn_.clear();
   if (tell) {
      std::size_t const most = std::min<std::size_t>(1000, longestBody_ - 4);
      std::string_view const text = std::string_view(closeReason_).substr(0, most);
      write(Opcode::bye, 4 + text.size(), 0, 0, [text](Out& out) { out.writeString(text); });
   }
   unsubscribe();
   walkDepth_ = 0;
   freeAll(walk_);
   freeAll(flowOuts_);
   freeAll(introduced_);
   firstDirty_ = lastDirty_ = nullptr;
   dirtyCount_ = 0;
   freeAll(incoming_);
   incomingHandles_.clear();
   open_.clear();
   pending_.clear();
   for (std::size_t i = 0; i != mounts_.size(); ++i) {  // the listener may ask for more
      Mount& mount = mounts_[i];
      if (mount.state_ == Mount::State::asked || mount.state_ == Mount::State::replaying ||
          mount.state_ == Mount::State::complete) {
         mount.reason_ = copyOrOutOfMemory(closeReason_);
         mountStateIs(mount, Mount::State::lost);
      }
   }
   callListener([this](SessionListener& listener) { listener.onClosed(*this, closeReason_); });
}

void Session::mountStateIs(Mount& mount, Mount::State state) {
   mount.state_ = state;
   callListener([&](SessionListener& listener) { listener.onMount(*this, mount); });
}

void Session::sent(std::size_t size) {
   used_ = true;
   out_.consume(size);
   pump();
   if (out_.empty() && upToDate()) {
      behindSince_ = 0;
   }
   if (closed_) {
      out_.shrink(0);
   }
}

}  // namespace Kiv::NboAttrLog

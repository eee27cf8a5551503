// Applying: what comes from the peer, checked before anything of it takes effect.
#include "Kiv/NboAttrLogSa.h"
#include "Kiv/NboAttrLogSession.h"
#include "Kiv/Path.h"
#include "Kiv/Printable.h"
#include "Sarn/Publications.h"

namespace Kiv::NboAttrLog {

void Session::received(U8 const* bytes, std::size_t size) {
   stats_.bytesIn += size;
   used_ = true;
   U64 const before = stats_.messagesIn;
   inside_ = Sarn::Publications::innermost();
   interrupted_ = false;
   // Whatever an observer throws, what was not looked at yet is kept for the next call.
   if (in_.empty()) {
      struct Keep {
         Session& session;
         U8 const* bytes;
         std::size_t size;
         ~Keep() { session.keep(bytes + session.consumed_, size - session.consumed_); }
      } const keepRest{*this, bytes, size};
      parse(bytes, size);
   } else {
      keep(bytes, size);
      struct Drop {
         Session& session;
         ~Drop() {
            session.in_.erase(session.in_.begin(),
                              session.in_.begin() + static_cast<std::ptrdiff_t>(session.consumed_));
            session.consumed_ = 0;
         }
      } const drop{*this};
      parse(in_.data(), in_.size());
   }
   boundHalfMessage(before);
   pump();
}

/// Keeps bytes for the next call. Without them the stream is broken.
void Session::keep(U8 const* bytes, std::size_t size) noexcept {
   orFail([&] { in_.insert(in_.end(), bytes, bytes + size); });
   consumed_ = 0;
}

void Session::parse(U8 const* bytes, std::size_t size) {
   while (size - consumed_ >= headerSize && !closed_) {
      Header const header = readHeader(bytes + consumed_);
      if (!greeted_ && header.opcode != Opcode::hello) [[unlikely]] {
         closeFor("the peer does not begin with the attribute log's greeting");
         return;
      }
      if (header.bodySize > hub_.shortMessage_ && header.bodySize > longestIncoming())
            [[unlikely]] {
         closeFor(describe(header) + ": a message of " + std::to_string(header.bodySize) +
                  " bytes exceeds the bound of " + std::to_string(longestIncoming()));
         return;
      }
      std::size_t const total = headerSize + header.bodySize;
      if (size - consumed_ < total) {
         return;
      }
      U8 const* const body = bytes + consumed_ + headerSize;
      consumed_ += total;
      ++stats_.messagesIn;
      In in(body, body + header.bodySize);
      parseOne(header, in);
   }
}

/// A message that cannot be applied for want of memory must not count as applied. Decoding and
/// checks come before anything is published: what else is thrown later is thrown by an observer or
/// a listener, of which the peer knows nothing.
void Session::parseOne(Header const& header, In& in) {
   listenerThrew_ = false;
   U32 const observersThrew = Sarn::Publisher::observersThrew();
   try {
      if (header.opcode == Opcode::part || partsIn_.any()) [[unlikely]] {
         applyPart(header, in);
      } else if (!applyAtOnce(header, in)) [[unlikely]] {
         apply(header, in);
      }
      return;
   } catch (Exception const& error) {
      if (listenerThrew_ || observersThrew != Sarn::Publisher::observersThrew()) {
         interrupted_ = true;
         throw;
      }
      fail(faultText(header, error.what()));
   } catch (std::bad_alloc const&) {
      fail(outOfMemory());
   } catch (...) {
      interrupted_ = true;
      throw;
   }
   close(closeReason_);
}

Sarn::String Session::faultText(Header const& header, char const* fault) const noexcept {
   try {
      return printable(describe(header) + ": " + fault);  // there may be names from the peer in it
   } catch (std::bad_alloc const&) {
      return outOfMemory();
   }
}

void Session::closeFor(Sarn::String const& fault) {
   fail(copyOrOutOfMemory(fault));
   close(closeReason_);
}

Sarn::String Session::describe(Header const& header) const {
   U32 const place = HandleTable::place(header.handle);
   if (place < incoming_.size() && incoming_[place].handle == header.handle &&
       incoming_[place].entity) {
      Entity const& entity = *incoming_[place].entity;
      FieldDescriptor const* const field = entity.kivType().field(header.attribute);
      return entityPath(entity) + "." + (field != nullptr ? field->name : "?") + " (" +
             entity.kivType().name + ", " + std::to_string(header.attribute) + ")";
   }
   return "message " + std::to_string(static_cast<unsigned>(header.opcode)) + " for entity " +
          std::to_string(header.handle) + ", attribute " + std::to_string(header.attribute);
}

void Session::apply(Header const& header, In& in) {
   switch (header.opcode) {
      case Opcode::set:
      case Opcode::element:
      case Opcode::erase:
      case Opcode::create:
      case Opcode::enqueue:
      case Opcode::front:
      case Opcode::collectionBegin:
      case Opcode::collectionEnd:
         ++changesReceived_;
         applyToEntity(header, in);
         return;
      case Opcode::hello:
         applyHello(in);
         return;
      case Opcode::bye: {
         Sarn::String const reason =
               "closed by the peer: " + printable(Sarn::String(in.nextString()));
         in.expectEnd();
         fail(reason, Ending::peer);
         close(reason, false);
         return;
      }
      case Opcode::mount:
         applyMount(in);
         return;
      case Opcode::bind:
         applyBind(header, in);
         return;
      case Opcode::ack:
         changesAcked_ = in.nextU32();
         in.expectEnd();
         return;
      case Opcode::sync: {
         U32 const token = in.nextU32();
         in.expectEnd();
         checkRoomForAnswer(in);
         pendingEnq(Opcode::synced, token, {}, dirtySequence_);
         fill();
         return;
      }
      case Opcode::listRoots:
         in.expectEnd();
         checkRoomForAnswer(in);
         pendingEnq(Opcode::roots, 0, {}, 0);
         fill();
         return;
      case Opcode::roots:
         applyRoots(in);
         return;
      case Opcode::listSessions:
         in.expectEnd();
         checkRoomForAnswer(in);
         pendingEnq(Opcode::sessions, 0, {}, 0);
         fill();
         return;
      case Opcode::sessions:
         applySessions(in);
         return;
      case Opcode::synced: {
         U32 const token = in.nextU32();
         in.expectEnd();
         callListener([&](SessionListener& listener) { listener.onSynced(*this, token); });
         return;
      }
      case Opcode::refused:
      case Opcode::replayBegin:
      case Opcode::replayEnd:
      case Opcode::rootGone:
         applyMountState(header, in);
         return;
      case Opcode::part:  // taken before
         break;
   }
   in.fault("there is no message of this kind");
}

/// By far the most: a value for an entity that no adapter here watches, or that a collection is
/// empty which is. False, and nothing is done, for everything else.
inline bool Session::applyAtOnce(Header const& header, In& in) {
   U32 const place = HandleTable::place(header.handle);
   bool const isSet = header.opcode == Opcode::set;
   if ((!isSet && header.opcode != Opcode::erase) || place >= incoming_.size()) {
      return false;
   }
   Incoming const& target = incoming_[place];
   Entity* const entity = target.entity.get();
   if (target.handle != header.handle || entity == nullptr || !target.writable ||
       entity->streamHandle() != 0) {
      return false;
   }
   FieldDescriptor const* const field = entity->kivType().field(header.attribute);
   if (field == nullptr || !field->has(FieldDescriptor::streamed)) {
      return false;
   }
   if (isSet) {
      if (field->kind != MemberKind::single || field->ops->apply == nullptr) {
         return false;
      }
      ++changesReceived_;
      field->ops->apply(*entity, in);
      return true;
   }
   CollectionOps const* const collection = field->ops->collection;
   if (header.bodySize != 0 || collection == nullptr || collection->size(*entity) != 0) {
      return false;
   }
   ++changesReceived_;
   return true;
}

void Session::applyToEntity(Header const& header, In& in) {
   U32 const place = HandleTable::place(header.handle);
   if (place >= incoming_.size() || incoming_[place].handle != header.handle) [[unlikely]] {
      in.fault("the peer has not introduced this entity");
   }
   Incoming& target = incoming_[place];
   if (!target.entity) [[unlikely]] {
      applyToNobody(header, in);
      return;
   }
   Entity& entity = *target.entity;
   FieldDescriptor const* const field = entity.kivType().field(header.attribute);
   // A setter has done its work when observers run; what takes several steps keeps the entity.
   Sarn::Ptr<Entity> const keep =
         header.opcode == Opcode::set ? Sarn::Ptr<Entity>() : target.entity;
   if (field == nullptr || !field->has(FieldDescriptor::streamed)) [[unlikely]] {
      Sa::doBaseKivNboAttrLogSaMsg(entity, header.attribute, in);
   }
   if (!target.writable && !Sa::allowWriteFromReadOnlyRemote(header.attribute)) {
      Sa::throwWriteUpdateFromReadOnlyProxyException(entity, header.attribute);
   }
   struct Applying {
      Hub& hub;
      Hub::Applying outer;
      ~Applying() { hub.applying_ = outer; }
   } const applying{hub_, hub_.applying_};
   hub_.applying_ = {this, inside_};
   MemberKind const kind = field->kind;
   bool const keyed = kind == MemberKind::map || kind == MemberKind::ordered;
   bool const entities = kind == MemberKind::child || kind == MemberKind::children;
   switch (header.opcode) {
      case Opcode::set:
         if (kind == MemberKind::single && field->ops->apply != nullptr) [[likely]] {
            field->ops->apply(entity, in);
            return;
         }
         break;
      case Opcode::element:
         if (keyed) {
            field->ops->collection->applyElement(entity, in, seenKeys(entity, *field));
            return;
         }
         break;
      case Opcode::erase:
         if (keyed || entities) {
            applyErase(entity, *field, in);
            return;
         }
         break;
      case Opcode::create:
         if (entities) {
            applyCreate(target, *field, in);
            return;
         }
         break;
      default:
         if (kind == MemberKind::queue) {
            applyToQueue(entity, *field, header, in);
            return;
         }
         if (header.opcode != Opcode::collectionBegin && header.opcode != Opcode::collectionEnd) {
            break;
         }
         if (keyed || kind == MemberKind::children) {
            applyCollectionMarker(entity, *field, header, in);
            return;
         }
   }
   in.fault("a message of kind " + std::to_string(static_cast<unsigned>(header.opcode)) +
            " does not fit the attribute");
}

/// The entity was deleted here while the message was on its way. What the message introduces is
/// nobody too.
void Session::applyToNobody(Header const& header, In& in) {
   if (header.opcode == Opcode::create) {
      U32 const handle = in.nextU32();
      checkHandle(handle, in);
      map(handle, nullptr, true);
   }
}

void Session::applyErase(Entity& entity, FieldDescriptor const& field, In& in) {
   if (field.kind != MemberKind::child && in.readableBytes() == 0) {
      if (field.ops->collection->size(entity) != 0) {  // a replay that names no key
         openCollection(entity, field, in);
         closeCollection(entity, field, in);
      }
      return;
   }
   // Held here, and given up also when an observer throws.
   struct Removed {
      Session& session;
      Sarn::Ptr<Entity> entity;
      ~Removed() {
         if (entity && entity->parent() == nullptr) {
            session.unmapTree(*entity);
         }
      }
   } removed{*this, {}};
   if (field.kind == MemberKind::child) {
      in.expectEnd();
      removed.entity = Sarn::Ptr<Entity>(field.ops->child->get(entity));
      field.ops->child->del(entity);
   } else {
      field.ops->collection->applyDelete(entity, in, seenKeys(entity, field), removed.entity);
   }
}

void Session::applyCreate(Incoming& target, FieldDescriptor const& field, In& in) {
   Sarn::Ptr<Entity> const owner = target.entity;
   bool const writable = target.writable;
   U32 const handle = in.nextU32();
   checkHandle(handle, in);
   createHandle_ = handle;
   struct Found {
      Session& session;
      U32 handle;
      bool writable;
   } found{*this, handle, writable};
   // What is there already is known from now on, before an observer can change it again.
   auto const know = [](void* context, Entity& there) {
      auto const& [session, itsHandle, isWritable] = *static_cast<Found*>(context);
      bool const untold = there.streamHandle() != 0 && !session.known(there);
      session.map(itsHandle, &there, isWritable);
      // Both have made it. What was done to ours was to be told when it was introduced; it is
      // introduced now, by the peer. A replay overwrites what the mirror had before it.
      if (untold && session.writes(there) && session.followed(there)->complete()) {
         session.markAll(there);
      }
   };
   Sarn::Ptr<Entity> child;
   try {
      child = field.kind == MemberKind::children
                    ? field.ops->collection->applyCreate(*owner, in, seenKeys(*owner, field),
                                                         &found, know)
                    : applyCreateSingleton(*owner, field, in, &found, know);
   } catch (...) {
      createHandle_ = 0;
      if (!closed_ && !maps(handle)) {  // what the peer says of it later is for nobody
         map(handle, nullptr, writable);
      }
      throw;
   }
   createHandle_ = 0;
   if (!closed_) {
      bool const stays = child->parent() == owner.get();  // an observer may have removed it
      map(handle, stays ? child.get() : nullptr, writable);
   }
}

/// As `CollectionOps::applyCreate`. A child of another name is replaced in one step.
Sarn::Ptr<Entity> Session::applyCreateSingleton(Entity& owner, FieldDescriptor const& field, In& in,
                                                void* context,
                                                void (*found)(void* context, Entity& child)) {
   bool const named = field.has(FieldDescriptor::named);
   std::string_view const name = named ? in.nextString() : std::string_view();
   in.expectEnd();
   ChildOps const& ops = *field.ops->child;
   auto const fits = [&](Entity const* child) {
      return child != nullptr && (!named || *entityName(*child) == name);
   };
   Sarn::Ptr<Entity> const before(ops.get(owner));
   if (fits(before.get())) {
      found(context, *before);
   }
   Sarn::Ptr<Entity> child;
   Impl::FirstException thrown;
   thrown.attempt([&] { child = ops.is(owner, name); });
   Entity* const there = ops.get(owner);
   if (!child && fits(there)) {
      found(context, *there);
   }
   if (before && before->parent() == nullptr) {
      unmapTree(*before);
   }
   thrown.rethrow();
   return child;
}

DirtyKeys* Session::seenKeys(Entity const& entity, FieldDescriptor const& field) noexcept {
   std::size_t const at = findOpen(entity, field);
   return at != open_.size() ? open_[at].seen.get() : nullptr;
}

void Session::sawInReplay(Entity const& entity, FieldDescriptor const& field, void const* key) {
   DirtyKeys* const seen = seenKeys(entity, field);
   if (seen == nullptr) {
      return;
   }
   if (field.ops->collection->find(entity, key) != nullptr) {
      seen->insert(key, false);
   } else {
      seen->remove(key);
   }
}

void Session::applyCollectionMarker(Entity& entity, FieldDescriptor const& field,
                                    Header const& header, In& in) {
   in.expectEnd();
   if (header.opcode == Opcode::collectionBegin) {
      openCollection(entity, field, in);
   } else {
      closeCollection(entity, field, in);
   }
}

std::size_t Session::findOpen(Entity const& entity, FieldDescriptor const& field) const noexcept {
   std::size_t at = 0;
   while (at != open_.size() && !(open_[at].entity == &entity && open_[at].field == &field)) {
      ++at;
   }
   return at;
}

void Session::openCollection(Entity& entity, FieldDescriptor const& field, In const& in) {
   if (findOpen(entity, field) != open_.size()) {
      in.fault("the collection's replay has begun already");
   }
   if (open_.size() >= hub_.limits_.nesting) {
      in.fault("replays are nested deeper than " + std::to_string(hub_.limits_.nesting));
   }
   // What is empty has nothing that could be left over at the end.
   bool const empty = field.ops->collection->size(entity) == 0;
   open_.push_back(
         {&entity, &field,
          std::shared_ptr<DirtyKeys>(empty ? nullptr : field.ops->collection->newDirtyKeys())});
}

void Session::closeCollection(Entity& entity, FieldDescriptor const& field, In const& in) {
   std::size_t const at = findOpen(entity, field);
   if (at == open_.size()) {
      in.fault("the collection's replay has not begun");
   }
   // It stays open meanwhile: what observers add must not be taken for left over.
   if (std::shared_ptr<DirtyKeys> const seen = open_[at].seen) {
      struct Close {
         std::vector<OpenCollection>& open;
         DirtyKeys const* seen;
         ~Close() {
            std::erase_if(open, [this](OpenCollection const& o) { return o.seen.get() == seen; });
         }
      } const close{open_, seen.get()};
      field.ops->collection->delUnseen(entity, *seen);
   } else {
      open_.erase(open_.begin() + static_cast<std::ptrdiff_t>(at));
   }
}

}  // namespace Kiv::NboAttrLog

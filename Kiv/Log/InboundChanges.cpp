// Checks the changes of a peer and applies them through the entities' setters.
#include <algorithm>

#include "Kiv/Log/Inbound.h"
#include "Kiv/NboAttrLogSa.h"

namespace Kiv::NboAttrLog {

void Inbound::applyChange(Header const& header, In& in) {
   Names::Theirs* const target = names_.theirs(header.handle);
   if (target == nullptr) [[unlikely]] {
      in.fault("the peer has not introduced this entity");
   }
   if (!target->entity) [[unlikely]] {
      applyToNobody(header, in);
      return;
   }
   Entity& entity = *target->entity;
   FieldDescriptor const* const field = entity.kivType().field(header.attribute);
   // A setter has done its work when observers run. Operations of several steps keep the entity
   // alive.
   Sarn::Ptr<Entity> const alive =
         header.opcode == Opcode::set ? Sarn::Ptr<Entity>() : target->entity;
   if (field == nullptr || !field->has(FieldDescriptor::streamed)) [[unlikely]] {
      Sa::doBaseKivNboAttrLogSaMsg(entity, header.attribute, in);
   }
   if (!target->writable && !Sa::allowWriteFromReadOnlyRemote(header.attribute)) {
      Sa::throwWriteUpdateFromReadOnlyProxyException(entity, header.attribute);
   }
   struct Now {
      Applying& applying;
      Applying outer;
      ~Now() { applying = outer; }
   } const now{applying_, applying_};
   applying_ = {&teller_, inside_};
   MemberKind const kind = field->kind;
   bool const keyed = kind == MemberKind::map || kind == MemberKind::ordered;
   switch (header.opcode) {
      case Opcode::set:
         if (kind == MemberKind::single && field->ops->apply != nullptr) [[likely]] {
            field->ops->apply(entity, in);
            return;
         }
         break;
      case Opcode::element:
         if (keyed) {
            field->ops->collection->applyElement(entity, in, open_.seen(entity, *field));
            return;
         }
         break;
      case Opcode::erase:
         if (keyed || holdsEntities(*field)) {
            applyErase(entity, *field, in);
            return;
         }
         break;
      case Opcode::create:
         if (holdsEntities(*field)) {
            applyCreate(*target, *field, in);
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

/// The entity was deleted here while the message was on its way. If the message introduces a child,
/// its handle gets no entity either.
void Inbound::applyToNobody(Header const& header, In& in) {
   if (header.opcode == Opcode::create) {
      U32 const handle = in.nextU32();
      names_.checkHandle(handle, in);
      names_.map(handle, nullptr, true);
   }
}

void Inbound::applyErase(Entity& entity, FieldDescriptor const& field, In& in) {
   if (field.kind != MemberKind::child && in.readableBytes() == 0) {
      if (field.ops->collection->size(entity) != 0) {  // it is a replay without elements
         open_.begin(entity, field, in);
         open_.end(entity, field, in);
      }
      return;
   }
   // Keeps the child alive, and unmaps it even if an observer throws.
   struct Removed {
      Names& names;
      Sarn::Ptr<Entity> entity;
      ~Removed() {
         if (entity && entity->parent() == nullptr) {
            names.unmapTree(*entity);
         }
      }
   } removed{names_, {}};
   if (field.kind == MemberKind::child) {
      in.expectEnd();
      removed.entity = Sarn::Ptr<Entity>(field.ops->child->get(entity));
      field.ops->child->del(entity);
   } else {
      field.ops->collection->applyDelete(entity, in, open_.seen(entity, field), removed.entity);
   }
}

/// The creation of a child that the peer calls `handle`.
class Inbound::Creation final : public CreationReceiver {
public:
   Creation(Inbound& inbound, Entity& owner, FieldDescriptor const& field, U32 handle,
            bool writable) noexcept
         : inbound_(inbound), owner_(owner), field_(field), handle_(handle), writable_(writable) {}

   /// Maps an existing child to the peer's handle before an observer can change anything again.
   void found(Entity& there) override {
      Names& names = inbound_.names_;
      found_ = true;
      bool const untold = there.streamHandle() != 0 && !names.known(there);
      if (there.streamHandle() != 0 && names.theirHandle(there) == nullptr &&
          !inbound_.mounts_.serves(there)) {
         // We made it, but the peer may mean another child: ours may be gone there, and our handle
         // with it. Our next change binds the handle again.
         names.introducedIs(there.streamHandle(), false);
      }
      names.map(handle_, &there, writable_);
      // Both ends have made it. Our changes to it were to be sent with its introduction, but now
      // the peer has introduced it, so mark them all. During a replay, the source's values win
      // instead.
      Mounts const& mounts = inbound_.mounts_;
      if (untold && mounts.writes(there) && mounts.followed(there)->complete()) {
         inbound_.teller_.markAll(there);
      }
   }

   /// False if it is the child that was removed here before the peer heard of it. Made again, it
   /// would lack the values that the peer need not repeat.
   bool wanted(void const* key) override {
      Names::Theirs const* const before = inbound_.names_.theirs(handle_);
      return before == nullptr || before->entity || !inbound_.mounts_.writes(owner_) ||
             !inbound_.teller_.backlog().has(owner_, field_, key);
   }

   /// Whether the child was there before.
   bool hasFound() const noexcept { return found_; }

private:
   Inbound& inbound_;
   Entity& owner_;
   FieldDescriptor const& field_;
   U32 const handle_;
   bool const writable_;
   bool found_ = false;
};

void Inbound::applyCreate(Names::Theirs& target, FieldDescriptor const& field, In& in) {
   Sarn::Ptr<Entity> const owner = target.entity;
   bool const writable = target.writable;
   U32 const handle = in.nextU32();
   names_.checkHandle(handle, in);
   names_.expectChild(handle);
   Creation creation(*this, *owner, field, handle, writable);
   Sarn::Ptr<Entity> child;
   try {
      child = field.kind == MemberKind::children
                    ? field.ops->collection->applyCreate(*owner, in, open_.seen(*owner, field),
                                                         creation)
                    : applyCreateSingleton(*owner, field, in, creation);
   } catch (...) {
      names_.expectNoChild();
      if (!closing_.closed() && names_.theirs(handle) == nullptr) {
         names_.map(handle, nullptr, writable);  // later messages for it are ignored
      }
      throw;
   }
   names_.expectNoChild();
   if (!closing_.closed()) {
      // An observer may have removed it already.
      bool const stays = child && child->parent() == owner.get();
      names_.map(handle, stays ? child.get() : nullptr, writable, !creation.hasFound());
   }
}

/// As `CollectionOps::applyCreate`. A child of another name is replaced in one step.
Sarn::Ptr<Entity> Inbound::applyCreateSingleton(Entity& owner, FieldDescriptor const& field, In& in,
                                                Creation& creation) {
   bool const named = field.has(FieldDescriptor::named);
   std::string_view const name = named ? in.nextString() : std::string_view();
   in.expectEnd();
   ChildOps const& ops = *field.ops->child;
   auto const fits = [&](Entity const* child) {
      return child != nullptr && (!named || *entityName(*child) == name);
   };
   Sarn::Ptr<Entity> const before(ops.get(owner));
   if (fits(before.get())) {
      creation.found(*before);
   } else if (!before && !creation.wanted(nullptr)) {
      return {};
   }
   Sarn::Ptr<Entity> child;
   Impl::FirstException thrown;
   thrown.attempt([&] { child = ops.is(owner, name); });
   Entity* const there = ops.get(owner);
   if (!child && fits(there)) {
      creation.found(*there);
   }
   if (before && before->parent() == nullptr) {
      names_.unmapTree(*before);
   }
   thrown.rethrow();
   return child;
}

void Inbound::applyCollectionMarker(Entity& entity, FieldDescriptor const& field,
                                    Header const& header, In& in) {
   in.expectEnd();
   if (header.opcode == Opcode::collectionBegin) {
      open_.begin(entity, field, in);
   } else {
      open_.end(entity, field, in);
   }
}

/// The serving end numbers the elements. If the queue has changed since the writer saw it, the
/// writer's change is applied as well as possible, and the writer is sent the whole queue.
void Inbound::applyToQueue(Entity& entity, FieldDescriptor const& field, Header const& header,
                           In& in) {
   QueueOps const& queue = *field.ops->queue;
   Backlog& backlog = teller_.backlog();
   bool const ours = mounts_.serves(entity);
   if (header.opcode == Opcode::collectionEnd) {
      in.expectEnd();
      if (!ours) {
         in.fault("the peer asks for a queue that it serves itself");
      }
      backlog.markWhole(entity, field);
      return;
   }
   Impl::FirstException thrown;
   if (ours) {
      bool const crosses = teller_.crosses();
      if (!applyToServedQueue(entity, queue, header, in, thrown) || crosses) {
         backlog.markWhole(entity, field);
      }
   } else {
      FlowOut const* const flow = backlog.find(entity);
      bool const changed = flow != nullptr && flow->kivIsDirty(field.fieldId);
      if ((!applyToMirroredQueue(entity, queue, header, in, thrown) || changed) &&
          mounts_.writes(entity)) {
         backlog.markWhole(entity, field);
      }
   }
   thrown.rethrow();
}

/// False unless both ends now have the same queue. `thrown`: exceptions of observers.
bool Inbound::applyToServedQueue(Entity& entity, QueueOps const& queue, Header const& header,
                                 In& in, Impl::FirstException& thrown) {
   U32 const sequence = in.nextU32();
   U32 const next = queue.nextSequence(entity);
   if (header.opcode == Opcode::enqueue) {
      applyEnqueue(entity, queue, next, in, thrown);
      return sequence == next;
   }
   in.expectEnd();
   if (header.opcode == Opcode::collectionBegin) {
      thrown.attempt([&] { queue.applyFront(entity, next); });
   }
   if (static_cast<S32>(sequence - queue.frontSequence(entity)) > 0) {
      thrown.attempt([&] { queue.applyFront(entity, sequence); });
   }
   return sequence == queue.frontSequence(entity);
}

bool Inbound::applyToMirroredQueue(Entity& entity, QueueOps const& queue, Header const& header,
                                   In& in, Impl::FirstException& thrown) {
   U32 const sequence = in.nextU32();
   U32 const next = queue.nextSequence(entity);
   if (header.opcode == Opcode::enqueue) {
      applyEnqueue(entity, queue, sequence, in, thrown);
      return sequence == next;
   }
   in.expectEnd();
   U32 const front = queue.frontSequence(entity);
   if (header.opcode == Opcode::collectionBegin) {
      thrown.attempt([&] { queue.applyFront(entity, next); });
   }
   thrown.attempt([&] { queue.applyFront(entity, sequence); });
   return header.opcode == Opcode::collectionBegin || sequence - front <= next - front;
}

/// An invalid element throws at once: nothing of it was applied.
void Inbound::applyEnqueue(Entity& entity, QueueOps const& queue, U32 sequence, In& in,
                           Impl::FirstException& thrown) {
   U32 const before = Sarn::Publisher::observersThrew();
   try {
      queue.applyEnq(entity, sequence, in);
   } catch (...) {
      if (before == Sarn::Publisher::observersThrew()) {
         throw;
      }
      thrown.attempt([] { throw; });
   }
}

}  // namespace Kiv::NboAttrLog

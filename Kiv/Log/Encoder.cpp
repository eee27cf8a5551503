#include "Kiv/Log/Encoder.h"

namespace Kiv::NboAttrLog {
namespace {

std::shared_ptr<void> newDefault(TypeImpl const& type) {
   auto const alignment = static_cast<std::align_val_t>(type.alignment);
   void* const room = ::operator new(type.size, alignment);
   type.support->construct(room);
   return {room, [&type, alignment](void* value) {
              type.values->genericIfDestruct(value);
              ::operator delete(value, alignment);
           }};
}

StreamFunctions const& constructor(Entity const& child) noexcept {
   return *child.kivType().entity->stream;
}

/// The size of the message that creates a child.
std::size_t creationSize(Entity const& child) {
   return 4 + constructor(child).attrLogSizeCtorParams(child);
}

}  // namespace

template <class Output>
bool ChangeEncoder<Output>::set(Entity const& entity, FieldDescriptor const& field, U32 handle) {
   std::size_t const size = valueSize(entity, field);
   if (output_.isLeftOut(size)) [[unlikely]] {
      leaveOut(size, entity, &field, nullptr);
      return true;
   }
   return output_.write(Opcode::set, size, handle, field.fieldId,
                        [&](Out& out) { field.ops->encode(entity, out); });
}

template <class Output>
bool ChangeEncoder<Output>::element(Entity& entity, FieldDescriptor const& field, void const* key,
                                    void const* value) {
   CollectionOps const& ops = *field.ops->collection;
   std::size_t const size = ops.elementSize(key, value);
   if (output_.isLeftOut(size)) [[unlikely]] {  // the peer must not keep an old value for it
      if (!erase(entity, field, key)) {
         return false;
      }
      leaveOut(size, entity, &field, key);
      return true;
   }
   return output_.write(Opcode::element, size, entity.streamHandle(), field.fieldId,
                        [&](Out& out) { ops.encodeElement(out, key, value); });
}

template <class Output>
bool ChangeEncoder<Output>::erase(Entity& entity, FieldDescriptor const& field, void const* key) {
   bool const keyed = key != nullptr;
   std::size_t const size = keyed ? field.ops->collection->keySize(key) : 0;
   if (output_.isLeftOut(size)) [[unlikely]] {
      return true;  // such a key was never sent
   }
   return output_.write(Opcode::erase, size, entity.streamHandle(), field.fieldId, [&](Out& out) {
      if (keyed) {
         field.ops->collection->encodeKey(out, key);
      }
   });
}

template <class Output>
bool ChangeEncoder<Output>::enqueue(Entity& entity, FieldDescriptor const& field, U32 sequence,
                                    void const* value) {
   QueueOps const& queue = *field.ops->queue;
   std::size_t const whole = 4 + queue.elementSize(value);
   std::shared_ptr<void> const blank =
         output_.isLeftOut(whole) ? newDefault(*field.type) : std::shared_ptr<void>();
   void const* const told = blank != nullptr ? blank.get() : value;
   bool const written = output_.write(Opcode::enqueue, 4 + queue.elementSize(told),
                                      entity.streamHandle(), field.fieldId, [&](Out& out) {
                                         out.writeU32(sequence);
                                         queue.encodeElement(out, told);
                                      });
   if (written && blank != nullptr) {
      leaveOut(whole, entity, &field, &sequence);
   }
   return written;
}

template <class Output>
bool ChangeEncoder<Output>::front(Entity const& entity, FieldDescriptor const& field, U32 sequence,
                                  bool anew) {
   return output_.write(anew ? Opcode::collectionBegin : Opcode::front, 4, entity.streamHandle(),
                        field.fieldId, [sequence](Out& out) { out.writeU32(sequence); });
}

template <class Output>
bool ChangeEncoder<Output>::create(Entity& owner, FieldDescriptor const& field, Entity& child) {
   return output_.write(Opcode::create, creationSize(child), owner.streamHandle(), field.fieldId,
                        [&child](Out& out) {
                           out.writeU32(child.streamHandle());
                           constructor(child).serializeConstructorParams(out, child);
                        });
}

template class ChangeEncoder<Outbox>;
template class ChangeEncoder<Ring::Source>;

// For one session

bool Encoder::acknowledge() {
   if (!crossing_.owesAck()) {
      return true;
   }
   if (!output_.write(Opcode::ack, 4, 0, 0,
                      [this](Out& out) { out.writeU32(crossing_.received); })) {
      return false;
   }
   crossing_.acknowledged = crossing_.received;
   return true;
}

bool Encoder::reachSlowly(Entity& entity) {
   if (!acknowledge()) [[unlikely]] {
      return false;
   }
   U32 const handle = entity.streamHandle();
   if (names_.introduced(handle)) [[likely]] {
      return true;
   }
   U32 const* const theirs = names_.theirHandle(entity);
   if (theirs == nullptr ||
       !output_.write(Opcode::bind, 4, handle, 0, [&](Out& out) { out.writeU32(*theirs); })) {
      return false;
   }
   names_.introducedIs(handle, true);
   return true;
}

bool Encoder::introduce(Entity& owner, FieldDescriptor const& field, Entity& child) {
   if (child.streamHandle() == 0 && !handles_.registerTree(child)) {
      closing_.fail(handles_.tooMany());
      return false;
   }
   std::size_t const size = creationSize(child);
   bool const refused = peerTypes_ != nullptr && peerTypes_->refusesChild(child, leftOut_);
   if (refused || output_.isLeftOut(size)) [[unlikely]] {  // along with everything below it
      if (field.kind == MemberKind::child && !erase(owner, field, nullptr)) {
         return false;
      }
      if (!refused) {
         leaveOut(size, child, nullptr, nullptr);
      }
      return true;
   }
   if (!create(owner, field, child)) {
      return false;
   }
   names_.introducedIs(child.streamHandle(), true);
   return true;
}

}  // namespace Kiv::NboAttrLog

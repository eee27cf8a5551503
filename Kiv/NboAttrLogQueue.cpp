// Queues: telling of an element, and applying what the peer says.
#include "Kiv/NboAttrLogSession.h"

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

}  // namespace

/// An element that is left out keeps its place in the queue: the peer gets a default one.
Session::Write Session::writeEnqueue(Entity& entity, FieldDescriptor const& field, U32 sequence,
                                     void const* value) {
   QueueOps const& queue = *field.ops->queue;
   std::size_t const whole = 4 + queue.elementSize(value);
   std::shared_ptr<void> const blank =
         isLeftOut(whole) ? newDefault(*field.type) : std::shared_ptr<void>();
   void const* const told = blank != nullptr ? blank.get() : value;
   bool const written = write(Opcode::enqueue, 4 + queue.elementSize(told), entity.streamHandle(),
                              field.fieldId, [&](Out& out) {
                                 out.writeU32(sequence);
                                 queue.encodeElement(out, told);
                              });
   if (written && blank != nullptr) {
      leaveOut(whole, entity, &field, &sequence);
   }
   return written ? Write::done : Write::full;
}

/// Who serves a queue gives the numbers: what a writer has done to a queue that was another
/// meanwhile is done as well as it can be, and the writer gets the whole queue.
void Session::applyToQueue(Entity& entity, FieldDescriptor const& field, Header const& header,
                           In& in) {
   QueueOps const& queue = *field.ops->queue;
   bool const ours = serves(entity);
   if (header.opcode == Opcode::collectionEnd) {
      in.expectEnd();
      if (!ours) {
         in.fault("the peer asks for a queue that it serves itself");
      }
      markWhole(entity, field);
      return;
   }
   Impl::FirstException thrown;
   if (ours) {
      bool const behind = changesSent_ != changesAcked_ || !upToDate();
      if (!applyToServedQueue(entity, queue, header, in, thrown) || behind) {
         markWhole(entity, field);
      }
   } else {
      FlowOut const* const flow = flowOutOf(entity);
      bool const changed = flow != nullptr && flow->kivIsDirty(field.fieldId);
      if ((!applyToMirroredQueue(entity, queue, header, in, thrown) || changed) && writes(entity)) {
         markWhole(entity, field);
      }
   }
   thrown.rethrow();
}

/// False unless the queue is now what the peer's was when it wrote. `thrown`: by observers.
bool Session::applyToServedQueue(Entity& entity, QueueOps const& queue, Header const& header,
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

bool Session::applyToMirroredQueue(Entity& entity, QueueOps const& queue, Header const& header,
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

/// A fault of the element goes out at once: nothing of it was applied.
void Session::applyEnqueue(Entity& entity, QueueOps const& queue, U32 sequence, In& in,
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

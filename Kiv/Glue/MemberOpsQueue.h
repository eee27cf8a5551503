#pragma once

#include "Kiv/AttrOps.h"
#include "Kiv/FirstException.h"
#include "Kiv/Glue/Members.h"

/// Operations on a queue. See `Kiv/Glue/MemberOps.h`.
namespace Kiv::Impl {
#pragma GCC visibility push(hidden)

/// Holds a sequence number. Elements that are removed meanwhile are skipped; appended ones are
/// visited.
template <class Ops>
class QueueIterator final : public CollectionIterator {
public:
   explicit QueueIterator(Entity& owner) : owner_(owner), at_(Ops::frontSequence(owner)) {}
   bool valid() override {
      U32 const next = Ops::nextSequence(owner_);
      U32 const front = Ops::frontSequence(owner_);
      if (at_ - front > next - front) {  // the element is gone, or the queue was renumbered
         at_ = front;
      }
      return at_ != next;
   }
   void next() override {
      if (at_ != Ops::nextSequence(owner_)) {
         ++at_;
      }
   }
   void const* key() override { return &at_; }
   void const* value() override { return Ops::at(owner_, at_); }

private:
   Entity& owner_;
   U32 at_;
};

template <class Owner, auto Queue, AttributeId id>
struct QueueMemberOps {
   using Q = std::remove_cvref_t<decltype(std::declval<Owner&>().*Queue)>;
   using T = typename Q::Value;

   static Q& queue(Entity& owner) { return static_cast<Owner&>(owner).*Queue; }
   static Q const& queue(Entity const& owner) { return static_cast<Owner const&>(owner).*Queue; }

   static std::size_t size(Entity const& owner) { return queue(owner).size(); }
   static U32 frontSequence(Entity const& owner) {
      return queue(owner).empty() ? queue(owner).nextSequence() : queue(owner).frontSequence();
   }
   static U32 nextSequence(Entity const& owner) { return queue(owner).nextSequence(); }
   static void const* at(Entity const& owner, U32 sequence) { return queue(owner).find(sequence); }
   static void enq(Entity& owner, void const* value) {
      queueEnq(owner, id, queue(owner), *static_cast<T const*>(value));
   }
   static bool deq(Entity& owner) {
      bool const any = !queue(owner).empty();
      queueDeq(owner, id, queue(owner));
      return any;
   }
   static void delAll(Entity& owner) { queueDelAll(owner, id, queue(owner)); }
   static CollectionIterator* iterator(Entity& owner, IteratorStorage& storage) {
      using Iterator = QueueIterator<QueueMemberOps>;
      static_assert(sizeof(Iterator) <= sizeof(IteratorStorage));
      return new (storage.bytes) Iterator(owner);
   }
   static std::size_t elementSize(void const* value) {
      return ValueOps<T>::size(*static_cast<T const*>(value));
   }
   static void encodeElement(NboAttrLog::Out& out, void const* value) {
      ValueOps<T>::encode(out, *static_cast<T const*>(value));
   }
   static void applyEnq(Entity& owner, U32 sequence, NboAttrLog::In& in) {
      T const value = ValueOps<T>::decode(in);
      in.expectEnd();
      Q& q = queue(owner);
      FirstException thrown;
      if (q.nextSequence() != sequence) {
         dropTo(owner, q.nextSequence(), thrown);
         if (q.empty()) {  // else observers have appended: the element comes after theirs
            q.forceSequenceNumber(sequence);
         }
      }
      thrown.attempt([&] { queueEnq(owner, id, q, value); });
      thrown.rethrow();
   }
   static void applyFront(Entity& owner, U32 sequence) {
      Q& q = queue(owner);
      FirstException thrown;
      U32 const front = q.frontSequence();
      bool const renumbered = sequence - front > q.nextSequence() - front;
      dropTo(owner, sequence, thrown);
      // Else observers may have taken more, and what is left is still to be kept.
      if (renumbered && !q.empty() && q.frontSequence() != sequence) {
         dropTo(owner, q.nextSequence(), thrown);
      }
      if (renumbered && q.empty() && q.nextSequence() != sequence) {
         q.forceSequenceNumber(sequence);
         thrown.attempt(
               [&] { owner.publishChangeRecursive(id, &sequence, nullptr, &keysEqual<U32>); });
      }
      thrown.rethrow();
   }
   /// Removes the elements before `sequence`.
   static void dropTo(Entity& owner, U32 sequence, FirstException& thrown) {
      Q& q = queue(owner);
      while (!q.empty() && static_cast<S32>(sequence - q.frontSequence()) > 0) {
         thrown.attempt([&] { queueDeq(owner, id, q); });
      }
   }

   static constexpr QueueOps queueOps{&size,        &frontSequence, &nextSequence, &at,
                                      &enq,         &deq,           &delAll,       &iterator,
                                      &elementSize, &encodeElement, &applyEnq,     &applyFront};
   static constexpr AttrOps ops = [] {
      AttrOps all{};
      all.queue = &queueOps;
      return all;
   }();
};

#pragma GCC visibility pop

}  // namespace Kiv::Impl

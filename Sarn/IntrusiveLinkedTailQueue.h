#pragma once

#include <cassert>
#include <utility>

namespace Sarn {

/// A queue of objects linked through a member of their own: in at the tail, out at the head. It
/// owns nothing and allocates nothing; an object is in one queue of a link at most.
///
///     struct Chunk { Chunk* next_; };
///     IntrusiveLinkedTailQueue<Chunk, &Chunk::next_> chunks;
///
/// One pointer in size: it knows the tail, whose link leads round to the head.
///
///     tail_ ---------------------------+
///     head -> ... -> ... -> ... -> tail -> head
template <class T, T* T::*next>
class IntrusiveLinkedTailQueue {
public:
   constexpr IntrusiveLinkedTailQueue() noexcept = default;
   IntrusiveLinkedTailQueue(IntrusiveLinkedTailQueue const&) = delete;
   IntrusiveLinkedTailQueue& operator=(IntrusiveLinkedTailQueue const&) = delete;
   /// What is left in the queue stays alive, and linked to what was in it.
   ~IntrusiveLinkedTailQueue() = default;

   bool empty() const noexcept { return tail_ == nullptr; }
   /// Null if empty.
   T* front() const noexcept { return tail_ != nullptr ? tail_->*next : nullptr; }
   T* back() const noexcept { return tail_; }
   /// The one behind `element`, null behind the last. REQUIRES: `element` is in this queue.
   T* after(T const* element) const noexcept { return element == tail_ ? nullptr : element->*next; }

   void enq(T* element) noexcept {
      if (tail_ == nullptr) {
         element->*next = element;
      } else {
         element->*next = tail_->*next;
         tail_->*next = element;
      }
      tail_ = element;
   }

   /// REQUIRES: not empty.
   T* deq() noexcept {
      assert(tail_ != nullptr);
      T* const head = tail_->*next;
      if (head == tail_) {
         tail_ = nullptr;
      } else {
         tail_->*next = head->*next;
      }
      head->*next = nullptr;
      return head;
   }

   void swap(IntrusiveLinkedTailQueue& other) noexcept { std::swap(tail_, other.tail_); }

private:
   T* tail_ = nullptr;
};

}  // namespace Sarn

#pragma once

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstddef>
#include <iterator>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "Sarn/AllocTrack.h"
#include "Sarn/IntrusiveLinkedTailQueue.h"
#include "Sarn/RQueueChunk.h"
#include "Sarn/Slab.h"
#include "Sarn/Types.h"

namespace Sarn {

/// An unbounded queue with numbered elements: the first one ever enqueued has number 1, each
/// further one the next number, even after the queue has been empty.
///
///     Sarn::RQueue<double> delays;
///     Sarn::RQueueSequence const n = delays.enq(17.5);
///     for (auto const& [sequence, value] : delays) { ... }
///
/// Elements lie in a chain of chunks:
///
///     | next | first number | first, end, log2 | slot 0 | slot 1 | ... | slot 2^log2 - 1 |
///                                                taken    ^ first        ^ end
///
/// - A chunk is made when the last one is full, or when its numbers do not continue (see
///   `forceSequenceNumber`). It has the smallest power of two of slots strictly above the number of
///   elements before the new one, at least 4, at most 8192.
/// - The element with number `n` of a chunk lies in slot `n - first number`.
/// - A chunk whose last element has been taken is released: an empty queue holds no memory.
///
/// Sixteen bytes while empty. Enqueuing and dequeuing take O(1), finding a number O(chunks).
/// References are good until their element is taken. A copy that throws changes nothing; without
/// memory for a chunk the process ends. Belongs to one thread; several may read while none changes.
template <class T>
class RQueue {
   using Chunk = Impl::RQueueChunk<T>;

public:
   static constexpr U32 smallestChunk = 4;
   static constexpr U32 largestChunk = 8192;

   struct Item {
      RQueueSequence sequence;
      T const& value;
   };
   class Iterator;
   using Value = T;

   constexpr RQueue() noexcept = default;
   RQueue(RQueue const&) = delete;
   RQueue& operator=(RQueue const&) = delete;
   ~RQueue() { doClear(); }

   bool empty() const noexcept { return size_ == 0; }
   U32 size() const noexcept { return size_; }
   /// The number of chunks, for tests and measurements.
   U32 chunks() const noexcept;

   /// Appends a value and returns its number.
   RQueueSequence enq(T value);

   /// Takes the front element and returns it; `T()` if the queue is empty.
   T deq();
   /// The first and the last value; `T()` if the queue is empty.
   T front() const { return empty() ? T() : *chunks_.front()->slot(chunks_.front()->first); }
   T back() const { return empty() ? T() : *chunks_.back()->slot(chunks_.back()->end - 1u); }

   /// The number of the front element, or of the next to be enqueued if there is none.
   RQueueSequence frontSequence() const noexcept {
      return empty() ? nextSequence_ : chunks_.front()->firstSequence + chunks_.front()->first;
   }
   /// The number of the last element. REQUIRES: not empty.
   RQueueSequence backSequence() const noexcept {
      assert(!empty());
      return chunks_.back()->firstSequence + chunks_.back()->end - 1;
   }
   /// The number that the next element will get.
   RQueueSequence nextSequence() const noexcept { return nextSequence_; }

   /// Whether the number lies between those of the front and the last element, these included.
   bool has(RQueueSequence sequence) const noexcept {
      return !empty() && !isLater(frontSequence(), sequence) && !isLater(sequence, backSequence());
   }
   /// The element of that number, or null; null too for a number left out by force.
   T const* find(RQueueSequence sequence) const noexcept;
   /// The value of that number, or `T()`.
   T at(RQueueSequence sequence) const {
      T const* const value = find(sequence);
      return value != nullptr ? *value : T();
   }

   /// Gives the next element this number: for a mirror of another queue. Numbers must ascend, or
   /// elements before the step cannot be distinguished from those after it.
   void forceSequenceNumber(RQueueSequence sequence) noexcept { nextSequence_ = sequence; }

   /// Removes all elements at once. Numbering continues.
   void doClear() noexcept;

   /// From front to back, `Item` by `Item`; the queue must not change meanwhile.
   Iterator begin() const noexcept { return Iterator(*this); }
   std::default_sentinel_t end() const noexcept { return {}; }

private:
   static bool isLater(RQueueSequence a, RQueueSequence b) noexcept {
      return static_cast<S32>(a - b) > 0;
   }
   static AllocTrackRecord& tracker() noexcept {
      static constinit AllocTrackRecord record{typeNameOf<RQueue>()};
      return record;
   }

   Chunk* chunkForNext();
   static void release(Chunk* chunk) noexcept;

   IntrusiveLinkedTailQueue<Chunk, &Chunk::next> chunks_;
   U32 size_ = 0;
   RQueueSequence nextSequence_ = 1;
};

template <class T>
U32 RQueue<T>::chunks() const noexcept {
   U32 count = 0;
   for (Chunk const* c = chunks_.front(); c != nullptr; c = chunks_.after(c)) {
      ++count;
   }
   return count;
}

/// The chunk for the next element: the last one, or a new one after it.
template <class T>
auto RQueue<T>::chunkForNext() -> Chunk* {
   Chunk* const last = chunks_.back();
   if (last != nullptr && last->end < last->size() &&
       last->firstSequence + last->end == nextSequence_) [[likely]] {
      return last;
   }
   U32 const above = std::bit_ceil(std::min(size_, largestChunk - 1) + 1);
   U32 const slots = std::clamp(above, smallestChunk, largestChunk);
   U32 const log2Size = Impl::log2Of(slots);
   std::size_t const size = Chunk::bytes(slots);
   void* const memory = [size]() noexcept { return slabAllocate(size, Chunk::alignment); }();
   tracker().allocated(size, Chunk::alignment);
   auto* const chunk = new (memory) Chunk{nullptr, nextSequence_, 0, 0, log2Size & 15};
   chunks_.enq(chunk);
   return chunk;
}

template <class T>
RQueueSequence RQueue<T>::enq(T value) {
   static_assert(std::is_nothrow_move_constructible_v<T>);
   Chunk* const chunk = chunkForNext();
   std::construct_at(chunk->slot(chunk->end), std::move(value));
   chunk->end = (chunk->end + 1u) & 0x3fff;
   ++size_;
   return nextSequence_++;
}

template <class T>
T RQueue<T>::deq() {
   if (empty()) {
      return T();
   }
   Chunk* const chunk = chunks_.front();
   T* const slot = chunk->slot(chunk->first);
   T value = std::move(*slot);
   std::destroy_at(slot);
   chunk->first = (chunk->first + 1u) & 0x3fff;
   --size_;
   if (chunk->first == chunk->end) {
      release(chunks_.deq());
   }
   return value;
}

template <class T>
T const* RQueue<T>::find(RQueueSequence sequence) const noexcept {
   for (Chunk const* c = chunks_.front(); c != nullptr; c = chunks_.after(c)) {
      U32 const index = sequence - c->firstSequence;
      if (index >= c->first && index < c->end) {
         return c->slot(index);
      }
   }
   return nullptr;
}

template <class T>
void RQueue<T>::doClear() noexcept {
   decltype(chunks_) taken;
   taken.swap(chunks_);
   size_ = 0;
   while (!taken.empty()) {
      Chunk* const chunk = taken.deq();
      std::destroy(chunk->slot(chunk->first), chunk->slot(chunk->end));
      release(chunk);
   }
}

template <class T>
void RQueue<T>::release(Chunk* chunk) noexcept {
   std::size_t const size = Chunk::bytes(chunk->size());
   tracker().released(size);
   slabFree(chunk, size, Chunk::alignment);
}

/// Walks a queue from front to back.
template <class T>
class RQueue<T>::Iterator {
public:
   using iterator_category = std::input_iterator_tag;
   using value_type = Item;
   using difference_type = std::ptrdiff_t;
   using reference = Item;
   using pointer = void;

   Iterator() noexcept = default;

   Item operator*() const noexcept {
      return {chunk_->firstSequence + index_, *chunk_->slot(index_)};
   }
   Iterator& operator++() noexcept {
      if (++index_ == chunk_->end) {
         take(queue_->chunks_.after(chunk_));
      }
      return *this;
   }
   void operator++(int) noexcept { ++*this; }
   bool operator==(std::default_sentinel_t) const noexcept { return chunk_ == nullptr; }

private:
   friend RQueue;
   explicit Iterator(RQueue const& queue) noexcept : queue_(&queue) { take(queue.chunks_.front()); }
   void take(Chunk const* chunk) noexcept {
      chunk_ = chunk;
      index_ = chunk != nullptr ? chunk->first : 0;
   }

   RQueue const* queue_ = nullptr;
   Chunk const* chunk_ = nullptr;
   U32 index_ = 0;
};

}  // namespace Sarn

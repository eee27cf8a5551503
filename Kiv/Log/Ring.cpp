#include "Kiv/Log/Ring.h"

#include <algorithm>
#include <cassert>
#include <new>
#include <utility>

#include "Kiv/Log/Cursor.h"

namespace Kiv::NboAttrLog {

Ring::~Ring() {
   assert(cursors_.empty());
   budget_.change(capacity_, 0);
}

U8* Ring::reserveSlowly(Source& source, std::size_t size) noexcept {
   if (static_cast<std::size_t>(stop_ - write_) < size) {
      overtake(size);
      if (stop_ == nullptr || static_cast<std::size_t>(stop_ - write_) < size) {
         return nullptr;
      }
   }
   return source_ == &source || beginRun(source) ? write_ : nullptr;
}

/// Makes space for `size` bytes: those readers that have none leave, and a chunk that is full is
/// followed by another.
void Ring::overtake(std::size_t size) noexcept {
   std::size_t space = ~std::size_t(0);
   for (std::size_t i = cursors_.size(); i-- != 0;) {
      Cursor& cursor = *cursors_[i];
      if (cursor.following()) {
         std::size_t const unread = cursor.unread();
         if (unread > cursor.space_ || cursor.space_ - unread < size) {
            cursor.leave();  // may put the last cursor in this place, which has been looked at
         } else {
            space = std::min(space, cursor.space_ - unread);
         }
      }
   }
   Chunk const* const current = chunks_.empty() ? nullptr : chunks_.back().get();
   U8* end = current != nullptr ? begin_ + current->capacity : nullptr;
   if (static_cast<std::size_t>(end - write_) < size) {
      if (!nextChunk(size)) {
         stopIs(write_);
         return;
      }
      end = begin_ + chunks_.back()->capacity;
   }
   stopIs(static_cast<std::size_t>(end - write_) < space ? end : write_ + space);
}

/// Goes on in a chunk that has `size` bytes of space: the current one from its beginning if
/// everything is read, else another one.
bool Ring::nextChunk(std::size_t size) noexcept {
   U64 const oldest = oldestUnread();
   releaseRead(oldest);
   if (!chunks_.empty() && oldest == head() && chunks_.back()->capacity >= size) {
      writeTo(*chunks_.back());
      return true;
   }
   std::size_t const wanted =
         chunks_.empty() ? smallestChunk : std::min(2 * chunks_.back()->capacity, largestChunk);
   std::unique_ptr<Chunk> next = freeChunk(std::max(size, wanted));
   if (next == nullptr) {  // the budget may allow a smaller one
      next = freeChunk(std::max(size, smallestChunk));
   }
   if (next == nullptr) {
      return false;
   }
   if (!chunks_.empty()) {
      chunks_.back()->size = static_cast<std::size_t>(write_ - begin_);
   }
   chunks_.push_back(std::move(next));
   writeTo(*chunks_.back());
   return true;
}

/// Goes on at the beginning of a chunk.
void Ring::writeTo(Chunk& chunk) noexcept {
   endRun(source_);
   base_ = chunk.start = head();
   chunk.runs.clear();
   begin_ = write_ = stop_ = runBegin_ = chunk.bytes.get();
}

/// A chunk is in the cache as long as readers keep up: it begins anew when all have read it.
void Ring::beginAnew() noexcept {
   readersAtEnd_ = 0;
   if (std::all_of(cursors_.begin(), cursors_.end(),
                   [](Cursor const* cursor) { return cursor->atEnd(); })) {
      releaseRead(head());
      writeTo(*chunks_.back());
   }
}

/// A chunk with at least this capacity. Null if there is no memory, or if the budget is exhausted.
std::unique_ptr<Ring::Chunk> Ring::freeChunk(std::size_t capacity) noexcept {
   auto const fits = std::find_if(free_.begin(), free_.end(), [capacity](auto const& chunk) {
      return chunk->capacity >= capacity;
   });
   if (fits == free_.end()) {
      return makeChunk(capacity);
   }
   std::unique_ptr<Chunk> chunk = std::move(*fits);
   free_.erase(fits);
   return chunk;
}

std::unique_ptr<Ring::Chunk> Ring::makeChunk(std::size_t capacity) noexcept {
   if (!budget_.change(capacity_, capacity_ + capacity)) {
      return nullptr;
   }
   try {
      // Later, a chunk moves between the lists without an allocation.
      free_.reserve(mostFree);
      chunks_.reserve(chunks_.size() + free_.size() + 1);
      auto chunk = std::make_unique<Chunk>();
      chunk->runs.reserve(16);
      chunk->bytes.reset(new U8[capacity]);  // not value-initialised: unused pages stay untouched
      chunk->capacity = capacity;
      capacity_ += capacity;
      return chunk;
   } catch (std::bad_alloc const&) {
      budget_.change(capacity_ + capacity, capacity_);
      return nullptr;
   }
}

void Ring::release(std::unique_ptr<Chunk> chunk) noexcept {
   if (chunk->capacity <= largestChunk && free_.size() < mostFree) {
      free_.push_back(std::move(chunk));
   } else {
      discard(*chunk);
   }
}

/// The chunk is about to be freed.
void Ring::discard(Chunk const& chunk) noexcept {
   budget_.change(capacity_, capacity_ - chunk.capacity);
   capacity_ -= chunk.capacity;
}

/// Releases the chunks whose bytes before `oldest` have all been read, but not the current one.
void Ring::releaseRead(U64 oldest) noexcept {
   std::size_t count = 0;
   while (count + 1 < chunks_.size() && chunks_[count + 1]->start <= oldest) {
      release(std::move(chunks_[count++]));
   }
   chunks_.erase(chunks_.begin(), chunks_.begin() + static_cast<std::ptrdiff_t>(count));
}

U64 Ring::oldestUnread() noexcept {
   U64 oldest = head();
   for (std::size_t i = cursors_.size(); i-- != 0;) {
      Cursor& cursor = *cursors_[i];
      cursor.skip();  // may take it off the list
      oldest = std::min(oldest, cursor.at_);
   }
   return oldest;
}

bool Ring::beginRun(Source& source) noexcept {
   try {
      chunks_.back()->runs.push_back({static_cast<U32>(write_ - begin_), source.id_});
   } catch (std::bad_alloc const&) {
      return false;
   }
   endRun(source_);
   source_ = &source;
   runBegin_ = write_;
   source.renewLimit();
   return true;
}

void Ring::endRun(Source const* source) noexcept {
   if (source_ != nullptr && source_ == source) {
      source_->written_ += {messages_, runSize()};
      std::exchange(source_, nullptr)->renewLimit();
      messages_ = 0;
      runBegin_ = write_;
   }
}

Ring::Chunk const* Ring::chunkAt(U64 position) const noexcept {
   auto const after = std::find_if(chunks_.begin(), chunks_.end(), [position](auto const& chunk) {
      return chunk->start > position;
   });
   assert(after != chunks_.begin());
   return (after - 1)->get();
}

void Ring::shrink() noexcept {
   U64 const oldest = oldestUnread();
   releaseRead(oldest);
   if (oldest == head() && !chunks_.empty()) {
      endRun(source_);
      base_ = oldest;
      begin_ = write_ = stop_ = runBegin_ = nullptr;
      release(std::move(chunks_.back()));
      chunks_.clear();
   }
   for (auto const& chunk : free_) {
      discard(*chunk);
   }
   free_.clear();
}

}  // namespace Kiv::NboAttrLog

#include "Kiv/Log/Cursor.h"

#include <algorithm>
#include <cassert>
#include <new>

namespace Kiv::NboAttrLog {

Cursor::~Cursor() {
   leave();
   clear();
}

void Cursor::add(Ring::Source& source) {
   assert(!following_);
   std::erase_if(reads_, [this](Read const& read) {
      return read.source == nullptr && (atEnd() || read.until <= at_);
   });
   reads_.push_back({&source, source.id(), ring_.head(), ~U64(0), {}});
}

void Cursor::remove(Ring::Source& source) noexcept {
   for (Read& read : reads_) {
      if (read.source == &source) {
         if (following_) {
            count(read);
            source.onLeft(*this);
         }
         read.source = nullptr;
         read.until = ring_.head();
      }
   }
}

bool Cursor::follow() noexcept {
   assert(!following_);
   bool const any = std::any_of(reads_.begin(), reads_.end(),
                                [](Read const& read) { return read.source != nullptr; });
   skip();
   if (!any || !atEnd()) {
      return false;
   }
   if (!listed_) {
      try {
         ring_.cursors_.push_back(this);
      } catch (std::bad_alloc const&) {
         return false;
      }
      place_ = static_cast<U32>(ring_.cursors_.size() - 1);
      listed_ = true;
   }
   following_ = true;
   at_ = ring_.head();
   ring_.boundBy(space_);
   for (Read& read : reads_) {
      if (read.source != nullptr) {
         read.before = read.source->written();
         read.source->onFollows(*this);
      }
   }
   return true;
}

void Cursor::leave() noexcept {
   if (!following_) {
      return;
   }
   for (Read& read : reads_) {
      if (read.source != nullptr) {
         count(read);
      }
   }
   end_ = ring_.head();
   following_ = false;
   for (Read const& read : reads_) {
      if (read.source != nullptr) {
         read.source->onLeft(*this);
      }
   }
   unlistIfRead();
}

void Cursor::count(Read& read) noexcept {
   Ring::Written const now = read.source->written();
   told_ += now - read.before;
   read.before = now;
}

Ring::Written Cursor::told() const noexcept {
   Ring::Written sum = told_;
   for (Read const& read : reads_) {
      if (following_ && read.source != nullptr) {
         sum += read.source->written() - read.before;
      }
   }
   return sum;
}

void Cursor::spaceIs(std::size_t space) noexcept {
   space_ = space;
   if (following_) {
      std::size_t const unread_ = unread();
      ring_.boundBy(space - std::min(space, unread_));
   }
}

U64 Cursor::endOfRead(U32 source, U64 position, U64 runEnd) const noexcept {
   for (Read const& read : reads_) {
      if (read.id == source && read.from <= position && read.until > position) {
         return std::min(runEnd, read.until);
      }
   }
   return position;
}

CircularBuffer::Piece Cursor::pieceAt(U64& position) const noexcept {
   U64 const stop = end();
   U64 from = position;
   U64 to = position;
   U8 const* bytes = nullptr;
   while (to != stop) {
      Ring::Chunk const& chunk = *ring_.chunkAt(to);
      if (bytes != nullptr && chunk.start == to) {
         break;  // the piece ends with its chunk
      }
      bool const current = &chunk == ring_.chunks_.back().get();
      U64 const chunkEnd = current ? ring_.head() : chunk.start + chunk.size;
      // The last run that begins at or before `to`.
      U64 const offset = to - chunk.start;
      auto const after =
            std::upper_bound(chunk.runs.begin(), chunk.runs.end(), offset,
                             [](U64 wanted, Ring::Run const& run) { return wanted < run.begin; });
      assert(after != chunk.runs.begin());
      U64 const runEnd =
            std::min(stop, after != chunk.runs.end() ? chunk.start + after->begin : chunkEnd);
      U64 const readEnd = endOfRead((after - 1)->source, to, runEnd);
      if (readEnd != to) {
         if (bytes == nullptr) {
            bytes = chunk.bytes.get() + offset;
            from = to;
         }
         to = readEnd;
      }
      if (readEnd != runEnd) {  // the rest of the run is skipped
         if (bytes != nullptr) {
            break;
         }
         from = to = runEnd;
      }
   }
   position = from;
   return {bytes, static_cast<std::size_t>(to - from)};
}

CircularBuffer::Piece Cursor::first() const noexcept {
   U64 position = at_;
   return pieceAt(position);
}

CircularBuffer::Piece Cursor::second() const noexcept {
   U64 position = at_;
   position += pieceAt(position).size;
   return pieceAt(position);
}

void Cursor::skip() noexcept {
   if (!atEnd()) {
      pieceAt(at_);
      unlistIfRead();
   }
}

void Cursor::consume(std::size_t size) noexcept {
   bool const reads = size != 0;
   while (size != 0) {
      std::size_t const read = std::min(size, pieceAt(at_).size);
      assert(read != 0);
      at_ += read;
      size -= read;
   }
   skip();
   unlistIfRead();
   if (reads && atEnd()) {
      ring_.readToEnd();
   }
}

std::size_t Cursor::unread() const noexcept {
   std::size_t sum = 0;
   for (U64 position = at_;;) {
      std::size_t const more = pieceAt(position).size;
      if (more == 0) {
         return sum;
      }
      sum += more;
      position += more;
   }
}

void Cursor::clear() noexcept {
   at_ = end();
   unlistIfRead();
}

/// The ring need not know a cursor that has nothing to read and will have nothing.
void Cursor::unlistIfRead() noexcept {
   if (listed_ && !following_ && atEnd()) {
      ring_.cursors_[place_] = ring_.cursors_.back();
      ring_.cursors_[place_]->place_ = place_;
      ring_.cursors_.pop_back();
      listed_ = false;
   }
}

}  // namespace Kiv::NboAttrLog

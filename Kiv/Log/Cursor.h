#pragma once

#include <vector>

#include "Kiv/Log/Ring.h"

namespace Kiv::NboAttrLog {

/// One reader's position in the ring.
///
///     away ---- follow ----> following ---- leave, or overtaken ----> away, with an unread rest
///                            [at, head)                               [at, end)
///
/// Invariants:
/// - it is listed by the ring while it follows or has an unread rest;
/// - it follows only from a moment at which nothing was unread.
class Cursor {
public:
   /// `space`: the most unread bytes.
   Cursor(Ring& ring, std::size_t space) noexcept : ring_(ring), space_(space) {}
   ~Cursor();
   Cursor(Cursor const&) = delete;
   Cursor& operator=(Cursor const&) = delete;

   /// Makes space for one more source, so that the next `add` does not throw.
   void reserve() { reads_.reserve(reads_.size() + 1); }
   /// Reads the records of one more source when it follows. REQUIRES: it does not follow.
   void add(Ring::Source& source);
   /// Reads no later records of a source.
   void remove(Ring::Source& source) noexcept;

   bool following() const noexcept { return following_; }
   /// Follows from the head on. False, with no effect, if there is no memory, no source, or
   /// something unread.
   bool follow() noexcept;
   void leave() noexcept;
   /// Sets how many bytes may be unread.
   void spaceIs(std::size_t space) noexcept;

   // Unread bytes, contiguous, from the first one on.

   CircularBuffer::Piece first() const noexcept;
   CircularBuffer::Piece second() const noexcept;
   /// REQUIRES: size <= first().size + second().size.
   void consume(std::size_t size) noexcept;
   /// Moves past what it skips, so that the ring need not keep it.
   void skip() noexcept;
   /// Whether it is where its records end: nothing is unread. Where only skipped records follow,
   /// true after `skip`.
   bool atEnd() const noexcept { return at_ == end(); }
   /// All unread bytes. O(chunks and runs of these).
   std::size_t unread() const noexcept;
   void clear() noexcept;

   /// Messages and bytes that it has had to read, read or not.
   U64 messages() const noexcept { return told().messages; }
   U64 bytes() const noexcept { return told().bytes; }

private:
   friend class Ring;
   struct Read {
      /// Null once it is removed.
      Ring::Source* source;
      U32 id;
      /// Where it was added, and removed.
      U64 from;
      U64 until;
      /// What it had written when the cursor began to follow.
      Ring::Written before;
   };

   U64 end() const noexcept { return following_ ? ring_.head() : end_; }
   /// The unread bytes from `position` on, which moves past what is skipped.
   CircularBuffer::Piece pieceAt(U64& position) const noexcept;
   /// Where its unread bytes of a run from `position` end; `position` if it skips the run.
   U64 endOfRead(U32 source, U64 position, U64 runEnd) const noexcept;
   Ring::Written told() const noexcept;
   void count(Read& read) noexcept;
   void unlistIfRead() noexcept;

   Ring& ring_;
   std::size_t space_;
   std::vector<Read> reads_;
   U64 at_ = 0;
   U64 end_ = 0;
   /// What it was told before it last began to follow.
   Ring::Written told_;
   U32 place_ = 0;
   bool following_ = false;
   bool listed_ = false;
};

}  // namespace Kiv::NboAttrLog

#pragma once

#include <memory>

#include "Sarn/Types.h"

namespace Kiv::NboAttrLog {

/// The bytes of one connection that wait to be sent: a ring of fixed size in which every message
/// lies in one piece.
///
///     0            read             write        capacity
///     |    free     | waiting bytes  |    free      |          in one piece
///
///     0   write          read           end      capacity
///     | waiting | free    | waiting bytes | gap     |          wrapped: read..end, then 0..write
///
/// Invariants:
/// - not wrapped: `read <= write`, `end == write`; wrapped: `write < read <= end`;
/// - an empty ring starts again at 0, so that a reader who keeps up finds warm memory;
/// - `reserve` gives a piece that is free; nothing is waiting in it until `commit`.
class CircularBuffer {
public:
   explicit CircularBuffer(std::size_t capacity);

   std::size_t capacity() const noexcept { return capacity_; }
   bool empty() const noexcept { return read_ == end_; }
   /// Bytes that wait.
   std::size_t size() const noexcept { return wrapped_ ? end_ - read_ + write_ : write_ - read_; }

   /// Room for `size` bytes in one piece, or null when there is none now.
   U8* reserve(std::size_t size) noexcept {
      if (!wrapped_ && capacity_ - write_ >= size) [[likely]] {
         return bytes_.get() + write_;
      }
      return reserveWrapped(size);
   }
   /// The first `size` bytes of what `reserve` gave last now wait to be sent.
   void commit(std::size_t size) noexcept {
      write_ += size;
      if (!wrapped_) {
         end_ = write_;
      }
   }

   struct Piece {
      U8 const* begin;
      std::size_t size;
   };
   /// The bytes to be sent next, in one piece; `second` gives those behind it.
   Piece first() const noexcept { return {bytes_.get() + read_, end_ - read_}; }
   Piece second() const noexcept { return {bytes_.get(), wrapped_ ? write_ : 0}; }
   /// `size` bytes from the front have been sent. REQUIRES: size <= size().
   void consume(std::size_t size) noexcept;
   void clear() noexcept;

private:
   U8* reserveWrapped(std::size_t size) noexcept;

   std::unique_ptr<U8[]> bytes_;
   std::size_t capacity_;
   std::size_t read_ = 0;
   std::size_t write_ = 0;
   std::size_t end_ = 0;
   bool wrapped_ = false;
};

}  // namespace Kiv::NboAttrLog

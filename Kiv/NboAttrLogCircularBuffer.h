#pragma once

#include <algorithm>
#include <memory>

#include "Sarn/Types.h"

namespace Kiv::NboAttrLog {

/// Bytes that several buffers hold together, beyond the first of each, and may hold.
struct ByteBudget {
   /// What a buffer may hold without asking.
   static constexpr std::size_t freeOfCharge = 4096;

   std::size_t held = 0;
   std::size_t bound = ~std::size_t(0);

   static std::size_t charge(std::size_t capacity) noexcept {
      return capacity - std::min(capacity, freeOfCharge);
   }
   /// A buffer goes from one capacity to another; false, and nothing is done, beyond the bound.
   bool change(std::size_t from, std::size_t to) noexcept {
      std::size_t const rest = held - charge(from);
      if (charge(to) > charge(from) && (rest > bound || charge(to) > bound - rest)) {
         return false;
      }
      held = rest + charge(to);
      return true;
   }
};

/// The bytes of one connection that wait to be sent: a ring in which every message lies in one
/// piece, and which grows by use up to a limit.
///
///     0            read             write        capacity
///     |    free     | waiting bytes  |    free      |          in one piece
///
///     0   write          read           end      capacity
///     | waiting | free    | waiting bytes | gap     |          wrapped: read..end, then 0..write
///
///     0                                write                    capacity
///     | read..end, then what was 0..write |        free            |   after it has grown
///
/// Invariants:
/// - not wrapped: `read <= write`, `end == write`; wrapped: `write < read <= end`;
/// - an empty ring starts again at 0, so that a reader who keeps up finds warm memory;
/// - `reserve` gives a piece that is free; nothing is waiting in it until `commit`;
/// - it grows only when a message finds no room, neither behind what waits nor in front of it, and
///   to twice its size at least, so that a byte is moved once on the average;
/// - what waits is within `limit`, but for a message that found nothing waiting: such a one has
/// room
///   up to `largest`.
class CircularBuffer {
public:
   /// Holds no memory yet. `largest`: of one message, where it may exceed what may wait else.
   explicit CircularBuffer(std::size_t limit, std::size_t largest = 0,
                           ByteBudget* budget = nullptr) noexcept
         : limit_(limit), largest_(std::max(limit, largest)), budget_(budget) {}
   ~CircularBuffer() { capacityIs(0, 0); }
   CircularBuffer(CircularBuffer const&) = delete;
   CircularBuffer& operator=(CircularBuffer const&) = delete;

   /// Bytes that may wait.
   std::size_t limit() const noexcept { return limit_; }
   void limitIs(std::size_t limit) noexcept { limit_ = std::min(limit, largest_); }
   /// Bytes of memory that it holds.
   std::size_t capacity() const noexcept { return capacity_; }
   bool empty() const noexcept { return read_ == end_; }
   /// Bytes that wait.
   std::size_t size() const noexcept { return wrapped_ ? end_ - read_ + write_ : write_ - read_; }

   /// Room for `size` bytes in one piece, or null when there is none now: what waits is to be sent
   /// first, or, where nothing waits, the budget or the memory is exhausted. May move what waits.
   U8* reserve(std::size_t size) noexcept {
      if (!wrapped_ && capacity_ - write_ >= size) [[likely]] {
         return bytes_.get() + write_;
      }
      return reserveSlowly(size);
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
   /// The bytes to be sent next, in one piece; `second` gives those behind it. Valid until the next
   /// `reserve`, `consume` or `shrink`.
   Piece first() const noexcept { return {bytes_.get() + read_, end_ - read_}; }
   Piece second() const noexcept { return {bytes_.get(), wrapped_ ? write_ : 0}; }
   /// `size` bytes from the front have been sent. REQUIRES: size <= size().
   void consume(std::size_t size) noexcept;
   void clear() noexcept;
   /// Gives memory back, but for `kept` bytes, if nothing waits.
   void shrink(std::size_t kept) noexcept;

private:
   U8* reserveSlowly(std::size_t size) noexcept;
   U8* grow(std::size_t size) noexcept;
   bool capacityIs(std::size_t capacity, std::size_t waiting) noexcept;

   std::unique_ptr<U8[]> bytes_;
   std::size_t capacity_ = 0;
   std::size_t read_ = 0;
   std::size_t write_ = 0;
   std::size_t end_ = 0;
   bool wrapped_ = false;
   std::size_t limit_;
   std::size_t largest_;
   ByteBudget* budget_;
};

}  // namespace Kiv::NboAttrLog

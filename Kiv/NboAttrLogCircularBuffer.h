#pragma once

#include <algorithm>
#include <memory>

#include "Sarn/Types.h"

namespace Kiv::NboAttrLog {

/// The bytes that several buffers hold together, beyond the free share of each, and their bound.
struct ByteBudget {
   /// The bytes that each buffer may hold free of charge.
   static constexpr std::size_t freeOfCharge = 4096;

   std::size_t held = 0;
   std::size_t bound = ~std::size_t(0);

   static std::size_t charge(std::size_t capacity) noexcept {
      return capacity - std::min(capacity, freeOfCharge);
   }
   /// Charges a buffer's change of capacity. False, with no effect, if that would exceed the bound.
   bool change(std::size_t from, std::size_t to) noexcept {
      std::size_t const rest = held - charge(from);
      if (charge(to) > charge(from) && (rest > bound || charge(to) > bound - rest)) {
         return false;
      }
      held = rest + charge(to);
      return true;
   }
};

/// The pending output of one connection: a ring in which every message is contiguous, and which
/// grows on demand up to a limit.
///
///     0            read             write        capacity
///     |    free     | pending bytes  |    free      |          contiguous
///
///     0   write          read           end      capacity
///     | pending | free    | pending bytes | gap     |          wrapped: read..end, then 0..write
///
///     0                                write                    capacity
///     | read..end, then what was 0..write |        free            |   after it has grown
///
/// Invariants:
/// - not wrapped: `read <= write`, `end == write`; wrapped: `write < read <= end`;
/// - an empty ring starts again at 0, so a reader that keeps up uses memory that is in the cache;
/// - `reserve` returns a free piece; its bytes become pending only with `commit`;
/// - it grows only if a message fits neither after the pending bytes nor before them, and then to
///   at least twice its size, so each byte is moved once on average;
/// - the pending bytes are within `limit`; only a message reserved in an empty ring may exceed it,
///   up to `largest`.
class CircularBuffer {
public:
   /// Holds no memory yet. `largest`: the longest single message, if it may exceed `limit`.
   explicit CircularBuffer(std::size_t limit, std::size_t largest = 0,
                           ByteBudget* budget = nullptr) noexcept
         : limit_(limit), largest_(std::max(limit, largest)), budget_(budget) {}
   ~CircularBuffer() { capacityIs(0, 0); }
   CircularBuffer(CircularBuffer const&) = delete;
   CircularBuffer& operator=(CircularBuffer const&) = delete;

   /// The most bytes that may be pending.
   std::size_t limit() const noexcept { return limit_; }
   void limitIs(std::size_t limit) noexcept { limit_ = std::min(limit, largest_); }
   /// The same for a moment: the limit may exceed the longest message.
   void limitBeyondIs(std::size_t limit) noexcept { limit_ = limit; }
   /// Bytes of memory that it holds.
   std::size_t capacity() const noexcept { return capacity_; }
   bool empty() const noexcept { return read_ == end_; }
   /// Pending bytes.
   std::size_t size() const noexcept { return wrapped_ ? end_ - read_ + write_ : write_ - read_; }

   /// Reserves `size` contiguous bytes. Null if there is no space now: pending bytes must be sent
   /// first or, if there are none, the budget or the memory is exhausted. May move the pending
   /// bytes.
   U8* reserve(std::size_t size) noexcept {
      if (!wrapped_ && capacity_ - write_ >= size) [[likely]] {
         return bytes_.get() + write_;
      }
      return reserveSlowly(size);
   }
   /// The first `size` bytes of the last reserved piece are now pending.
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
   /// The next bytes to send, contiguous; `second` returns those after them. Valid until the next
   /// `reserve`, `consume` or `shrink`.
   Piece first() const noexcept { return {bytes_.get() + read_, end_ - read_}; }
   Piece second() const noexcept { return {bytes_.get(), wrapped_ ? write_ : 0}; }
   /// `size` bytes from the front have been sent. REQUIRES: size <= size().
   void consume(std::size_t size) noexcept;
   void clear() noexcept;
   /// Frees all memory but `kept` bytes, if nothing is pending.
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

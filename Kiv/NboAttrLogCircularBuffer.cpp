#include "Kiv/NboAttrLogCircularBuffer.h"

#include <cassert>
#include <cstring>
#include <new>

namespace Kiv::NboAttrLog {

U8* CircularBuffer::reserveSlowly(std::size_t size) noexcept {
   if (wrapped_) {
      return read_ - write_ > size ? bytes_.get() + write_ : grow(size);
   }
   // One byte stays free between the two halves, so that full differs from empty.
   if (read_ <= size) {
      return grow(size);
   }
   wrapped_ = true;
   write_ = 0;
   return bytes_.get();
}

U8* CircularBuffer::grow(std::size_t more) noexcept {
   std::size_t const waiting = size();
   std::size_t const most = waiting == 0 ? largest_ : limit_;
   if (more > most || waiting > most - more) {
      return nullptr;
   }
   std::size_t const needed = waiting + more;
   std::size_t const twice = std::max(2 * capacity_, ByteBudget::freeOfCharge);
   std::size_t const wanted = std::max(needed, std::min(limit_, twice));
   if (wanted <= capacity_) {
      return nullptr;
   }
   bool const grown =
         capacityIs(wanted, waiting) || (needed > capacity_ && capacityIs(needed, waiting));
   return grown ? bytes_.get() + write_ : nullptr;
}

/// Moves the pending bytes into new memory of this size, the oldest byte first. False, with no
/// effect, if there is no memory or the budget is exhausted.
bool CircularBuffer::capacityIs(std::size_t capacity, std::size_t waiting) noexcept {
   if (budget_ != nullptr && !budget_->change(capacity_, capacity)) {
      return false;
   }
   // Not value-initialised, so that unused pages are never touched.
   std::unique_ptr<U8[]> moved(capacity != 0 ? new (std::nothrow) U8[capacity] : nullptr);
   if (capacity != 0 && moved == nullptr) {
      if (budget_ != nullptr) {
         budget_->change(capacity, capacity_);
      }
      return false;
   }
   if (waiting != 0) {
      Piece const front = first();
      Piece const behind = second();
      std::memcpy(moved.get(), front.begin, front.size);
      std::memcpy(moved.get() + front.size, behind.begin, behind.size);
   }
   bytes_ = std::move(moved);
   capacity_ = capacity;
   read_ = 0;
   write_ = end_ = waiting;
   wrapped_ = false;
   return true;
}

void CircularBuffer::consume(std::size_t count) noexcept {
   assert(count <= size());
   read_ += count;
   if (wrapped_ && read_ >= end_) {
      read_ -= end_;
      end_ = write_;
      wrapped_ = false;
   }
   if (read_ == end_) {
      clear();
   }
}

void CircularBuffer::clear() noexcept {
   read_ = write_ = end_ = 0;
   wrapped_ = false;
}

void CircularBuffer::shrink(std::size_t kept) noexcept {
   if (empty() && capacity_ > kept) {
      capacityIs(kept, 0);
   }
}

}  // namespace Kiv::NboAttrLog

#include "Kiv/NboAttrLogCircularBuffer.h"

#include <cassert>

namespace Kiv::NboAttrLog {

// Not value-initialised: pages that are never used are never touched.
CircularBuffer::CircularBuffer(std::size_t capacity)
      : bytes_(new U8[capacity]), capacity_(capacity) {}

U8* CircularBuffer::reserveWrapped(std::size_t size) noexcept {
   if (wrapped_) {
      return read_ - write_ > size ? bytes_.get() + write_ : nullptr;
   }
   // One byte stays free between the two halves, so that full and empty differ.
   if (read_ <= size) {
      return nullptr;
   }
   wrapped_ = true;
   write_ = 0;
   return bytes_.get();
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

}  // namespace Kiv::NboAttrLog

#include "Kiv/Hash128.h"

#include <bit>

namespace Kiv {

namespace {

constexpr U64 factor1 = 0x87c37b91114253d5;
constexpr U64 factor2 = 0x4cf5ad432745937f;

U64 littleEndian(U8 const* at) noexcept {
   U64 v;
   std::memcpy(&v, at, sizeof v);
   return std::endian::native == std::endian::little ? v : NboAttrLog::byteSwapped(v);
}

U64 scrambled1(U64 v) noexcept {
   return std::rotl(v * factor1, 31) * factor2;
}

U64 scrambled2(U64 v) noexcept {
   return std::rotl(v * factor2, 33) * factor1;
}

U64 avalanche(U64 v) noexcept {
   v = (v ^ v >> 33) * 0xff51afd7ed558ccd;
   v = (v ^ v >> 33) * 0xc4ceb9fe1a85ec53;
   return v ^ v >> 33;
}

}  // namespace

void Hash128::mix(U8 const* blocks, std::size_t count) noexcept {
   U64 first = first_;
   U64 second = second_;
   for (U8 const* const end = blocks + count * blockSize; blocks != end; blocks += blockSize) {
      first ^= scrambled1(littleEndian(blocks));
      first = (std::rotl(first, 27) + second) * 5 + 0x52dce729;
      second ^= scrambled2(littleEndian(blocks + 8));
      second = (std::rotl(second, 31) + first) * 5 + 0x38495ab5;
   }
   first_ = first;
   second_ = second;
   mixed_ += count * blockSize;
}

/// Mixes in all complete blocks and keeps the rest, which is less than one.
void Hash128::mixRoom() noexcept {
   std::size_t const whole = fill_ / blockSize;
   mix(room_, whole);
   fill_ -= whole * blockSize;
   std::memmove(room_, room_ + whole * blockSize, fill_);
}

void Hash128::add(void const* bytes, std::size_t size) noexcept {
   if (size == 0) {
      return;
   }
   auto const* at = static_cast<U8 const*>(bytes);
   if (size > roomSize) {
      mixRoom();
      std::size_t const lead = (blockSize - fill_) % blockSize;
      std::memcpy(room_ + fill_, at, lead);
      fill_ += lead;
      mixRoom();
      at += lead;
      size -= lead;
      std::size_t const whole = size / blockSize;
      mix(at, whole);
      at += whole * blockSize;
      size -= whole * blockSize;
   }
   std::memcpy(room(size), at, size);
}

Hash128::Result Hash128::finish() noexcept {
   mixRoom();
   U64 const size = mixed_ + fill_;
   if (fill_ != 0) {
      std::memset(room_ + fill_, 0, blockSize - fill_);
      first_ ^= scrambled1(littleEndian(room_));
      second_ ^= scrambled2(littleEndian(room_ + 8));
   }
   U64 first = first_ ^ size;
   U64 second = second_ ^ size;
   first += second;
   second += first;
   first = avalanche(first);
   second = avalanche(second);
   first += second;
   second += first;
   return {first, second};
}

}  // namespace Kiv

#pragma once

#include <cstring>

#include "Kiv/NboAttrLog.h"

namespace Kiv {

/// MurmurHash3 (x64, 128 bits, seed 0) of bytes that come piece by piece. The result depends on the
/// bytes alone, not on the pieces. Fast, well distributed, and the same everywhere; not
/// cryptographic.
///
/// Invariant: the first `fill_` bytes of `room_` have not been mixed in yet; they precede all
/// others.
class Hash128 {
public:
   struct Result {
      U64 first;
      U64 second;
   };
   /// The most bytes for which `room` has room.
   static constexpr std::size_t roomSize = 1024;

   void add(void const* bytes, std::size_t size) noexcept;
   /// Adds a number, big-endian.
   void addU16(U16 v) noexcept { addNumber(v); }
   void addU64(U64 v) noexcept { addNumber(v); }
   /// Where the next `size` bytes go, which the caller writes at once. REQUIRES: size <= roomSize.
   U8* room(std::size_t size) noexcept {
      if (fill_ + size > sizeof room_) {
         mixRoom();
      }
      U8* const at = room_ + fill_;
      fill_ += size;
      return at;
   }
   /// The hash of everything added. The object must not be used afterwards.
   Result finish() noexcept;

private:
   static constexpr std::size_t blockSize = 16;

   template <class T>
   void addNumber(T v) noexcept {
      T const swapped = NboAttrLog::byteSwapped(v);
      std::memcpy(room(sizeof swapped), &swapped, sizeof swapped);
   }
   void mix(U8 const* blocks, std::size_t count) noexcept;
   void mixRoom() noexcept;

   U64 first_ = 0;
   U64 second_ = 0;
   /// The bytes that were mixed in.
   U64 mixed_ = 0;
   std::size_t fill_ = 0;
   /// One block more than promised: less than a block may be left after mixing. Only the first
   /// `fill_` bytes are ever read, so it is left as it is.
   U8 room_[roomSize + blockSize];  // NOLINT(cppcoreguidelines-pro-type-member-init): see above
};

}  // namespace Kiv

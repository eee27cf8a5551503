#pragma once

#include <bit>
#include <cstring>
#include <type_traits>

#include "Kiv/Exception.h"
#include "Sarn/String.h"
#include "Sarn/Types.h"

/// Values in the attribute log: big-endian, no padding, no tags. `In` reads the bytes of one
/// message; `Out` writes into a buffer reserved for exactly the bytes to come.
namespace Kiv {

/// Tag of the constructors that read a value from the attribute log.
struct StreamBogon {};

namespace NboAttrLog {

/// A received message breaks the log's rules; its connection must be closed.
class FaultException : public Exception {
public:
   /// `offset`: where the fault is in the message's body, in bytes.
   FaultException(Sarn::String const& message, std::size_t offset)
         : Exception(message + " at offset " + std::to_string(offset)), offset_(offset) {}
   std::size_t offset() const noexcept { return offset_; }

private:
   std::size_t offset_;
};

template <class T>
constexpr T byteSwapped(T v) noexcept {
   static_assert(std::is_unsigned_v<T>);
   if constexpr (std::endian::native == std::endian::big || sizeof(T) == 1) {
      return v;
   } else if constexpr (sizeof(T) == 2) {
      return __builtin_bswap16(v);
   } else if constexpr (sizeof(T) == 4) {
      return __builtin_bswap32(v);
   } else {
      return __builtin_bswap64(v);
   }
}

/// Reads the bytes of one message. Every read that would pass the end of the message throws
/// `FaultException` instead. Does not own the bytes.
class In {
public:
   In(U8 const* begin, U8 const* end) noexcept : begin_(begin), at_(begin), end_(end) {}

   std::size_t readableBytes() const noexcept { return static_cast<std::size_t>(end_ - at_); }
   std::size_t offset() const noexcept { return static_cast<std::size_t>(at_ - begin_); }

   /// One byte, 0 or 1; anything else is a fault.
   bool nextbool() {
      U8 const v = next<U8>();
      if (v > 1) {
         fault("a bool is neither 0 nor 1", 1);
      }
      return v != 0;
   }
   U8 nextU8() { return next<U8>(); }
   U16 nextU16() { return next<U16>(); }
   U32 nextU32() { return next<U32>(); }
   U64 nextU64() { return next<U64>(); }
   S8 nextS8() { return static_cast<S8>(next<U8>()); }
   S16 nextS16() { return static_cast<S16>(next<U16>()); }
   S32 nextS32() { return static_cast<S32>(next<U32>()); }
   S64 nextS64() { return static_cast<S64>(next<U64>()); }
   float nextfloat() { return std::bit_cast<float>(next<U32>()); }
   double nextdouble() { return std::bit_cast<double>(next<U64>()); }
   /// Seconds as a double; accepts any double, infinity included.
   double nextSeconds() { return nextdouble(); }
   /// U32 length and bytes. The view is valid as long as the message's bytes.
   std::string_view nextString();
   /// Like `nextString`, but throws `FaultException` for more than `bound` bytes.
   std::string_view nextValidString(std::size_t bound);
   /// `size` raw bytes, valid as long as the message's bytes.
   U8 const* nextBytes(std::size_t size) {
      require(size);
      U8 const* const bytes = at_;
      at_ += size;
      return bytes;
   }
   /// Throws `FaultException` unless the message has been read to its end.
   void expectEnd() const {
      if (at_ != end_) [[unlikely]] {
         faultTrailing();
      }
   }
   /// Throws a `FaultException` whose offset is `back` bytes before the cursor.
   [[noreturn]] void fault(std::string_view what, std::size_t back = 0) const;

private:
   template <class T>
   T next() {
      require(sizeof(T));
      T v;
      std::memcpy(&v, at_, sizeof(T));
      at_ += sizeof(T);
      return byteSwapped(v);
   }
   void require(std::size_t bytes) const {
      if (bytes > readableBytes()) [[unlikely]] {
         faultShort(bytes);
      }
   }
   [[noreturn]] void faultShort(std::size_t bytes) const;
   [[noreturn]] void faultTrailing() const;

   U8 const* begin_;
   U8 const* at_;
   U8 const* end_;
};

/// Writes into a reserved buffer. The writer asks for the encoded size first and reserves that, so
/// running past the end is a programming error and is asserted.
class Out {
public:
   Out(U8* begin, std::size_t size) noexcept : at_(begin), end_(begin + size) {}

   void writebool(bool v) { write<U8>(v ? 1 : 0); }
   void writeU8(U8 v) { write(v); }
   void writeU16(U16 v) { write(v); }
   void writeU32(U32 v) { write(v); }
   void writeU64(U64 v) { write(v); }
   void writeS8(S8 v) { write(static_cast<U8>(v)); }
   void writeS16(S16 v) { write(static_cast<U16>(v)); }
   void writeS32(S32 v) { write(static_cast<U32>(v)); }
   void writeS64(S64 v) { write(static_cast<U64>(v)); }
   void writefloat(float v) { write(std::bit_cast<U32>(v)); }
   void writedouble(double v) { write(std::bit_cast<U64>(v)); }
   void writeSeconds(double v) { writedouble(v); }
   void writeString(std::string_view v);
   void writeBytes(void const* bytes, std::size_t size);

   U8* at() const noexcept { return at_; }
   std::size_t room() const noexcept { return static_cast<std::size_t>(end_ - at_); }

private:
   template <class T>
   void write(T v) {
      T const swapped = byteSwapped(v);
      std::memcpy(take(sizeof(T)), &swapped, sizeof(T));
   }
   U8* take(std::size_t size);

   U8* at_;
   U8* end_;
};

inline U8* Out::take(std::size_t size) {
#ifndef NDEBUG
   if (size > room()) {
      __builtin_trap();
   }
#endif
   U8* const place = at_;
   at_ += size;
   return place;
}

inline void Out::writeBytes(void const* bytes, std::size_t size) {
   if (size != 0) {
      std::memcpy(take(size), bytes, size);
   }
}

inline void Out::writeString(std::string_view v) {
   writeU32(static_cast<U32>(v.size()));
   writeBytes(v.data(), v.size());
}

}  // namespace NboAttrLog
}  // namespace Kiv

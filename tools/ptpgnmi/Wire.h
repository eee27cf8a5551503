// The framing of protobuf messages whose parts have been encoded before.
#pragma once

#include <string>
#include <string_view>

#include "Sarn/Types.h"

namespace Ptpgnmi::Wire {

inline void varint(std::string& out, U64 value) {
   for (; value >= 0x80; value >>= 7) {
      out += static_cast<char>(value | 0x80);
   }
   out += static_cast<char>(value);
}

/// A field with a number. `field`: less than 16.
inline void number(std::string& out, U8 field, U64 value) {
   out += static_cast<char>(field << 3);
   varint(out, value);
}

/// A field with bytes, a string or a message. `field`: less than 16.
inline void bytes(std::string& out, U8 field, std::string_view value) {
   out += static_cast<char>(field << 3 | 2);
   varint(out, value.size());
   out += value;
}

inline std::size_t varintSize(U64 value) noexcept {
   std::size_t size = 1;
   for (; value >= 0x80; value >>= 7) {
      ++size;
   }
   return size;
}

}  // namespace Ptpgnmi::Wire

#pragma once

#include <array>
#include <string_view>

#include "Sarn/Types.h"

/// Converts between interface names and the 64 bits of `Dorn::IntfId`.
namespace Dorn::IntfIdImpl {

/// The result of encoding a name. `bits` is valid only with `ok`.
struct Encoded {
   enum class Result : U8 {
      ok,
      /// The character at `at` is not allowed in a name.
      character,
      /// The number at `at` is above `maxNumber`.
      number,
      /// The name needs `at` bits, which is more than 64.
      size,
   };
   Result result = Result::ok;
   std::size_t at = 0;
   U64 bits = 0;
};

/// The largest number in a name that is not a hexadecimal tail.
extern U64 const maxNumber;

Encoded encode(std::string_view name) noexcept;

/// Room for the longest name that 64 bits can encode.
using NameBuffer = std::array<char, 96>;

/// The name that `encode` gives `bits` for, in `buffer`; empty if there is none, and for 0.
std::string_view decode(U64 bits, NameBuffer& buffer) noexcept;

}  // namespace Dorn::IntfIdImpl

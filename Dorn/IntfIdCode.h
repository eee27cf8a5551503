#pragma once

#include <array>
#include <string_view>

#include "Sarn/Types.h"

/// Between interface names and the 64 bits of `Dorn::IntfId`.
namespace Dorn::IntfIdImpl {

/// What became of a name. Only with `ok` are the bits the name's.
struct Encoded {
   enum class Result : U8 {
      ok,
      /// The character at `at` is in no name.
      character,
      /// The number at `at` is above `maxNumber`.
      number,
      /// It takes `at` bits.
      size,
   };
   Result result = Result::ok;
   std::size_t at = 0;
   U64 bits = 0;
};

/// The largest number in a name that is not a hexadecimal tail.
extern U64 const maxNumber;

Encoded encode(std::string_view name) noexcept;

/// Room for the longest name that 64 bits can stand for.
using NameBuffer = std::array<char, 96>;

/// The name that `encode` gives `bits` for, in `buffer`; empty if there is none, and for 0.
std::string_view decode(U64 bits, NameBuffer& buffer) noexcept;

}  // namespace Dorn::IntfIdImpl

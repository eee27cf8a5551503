#pragma once

#include <cstddef>
#include <cstdint>

/// Fixed-width integers under the names that the declaration language and every generated type use.
using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S8 = std::int8_t;
using S16 = std::int16_t;
using S32 = std::int32_t;
using S64 = std::int64_t;

// The value of a leaf, before it is encoded.
#pragma once

#include <string>
#include <variant>

#include "Sarn/Types.h"

namespace Ptpgnmi {

struct Value {
   std::variant<bool, U64, S64, double, std::string> of;
   /// A number that JSON_IETF writes as a string: an integer of 64 bits, a decimal.
   bool quoted = false;

   bool operator==(Value const&) const = default;
};

/// What a client may ask for. The numbers are those of the protocol.
enum class Encoding : U8 { json = 0, proto = 2, jsonIetf = 4 };

}  // namespace Ptpgnmi

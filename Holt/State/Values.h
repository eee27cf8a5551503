// Converts values of types that are known at run time only from and to text.
#pragma once

#include "Kiv/GenericIfImpl.h"

namespace Holt {

/// Reads the whole `text` as a value of `value`'s type. A string may be given without its quotes,
/// an integer in hexadecimal, names in any case of letters. Throws a `Failure` that names the type
/// and says what is wrong; for an unknown name, which there are, and which may have been meant.
void parseValue(std::string_view text, Kiv::AnyValue& value);

Sarn::String valueText(Kiv::ValueRef value);
inline Sarn::String valueText(Kiv::AnyValue const& value) {
   return valueText(value.ref());
}

/// Why a setter refuses a value, with both numbers: "7 is not allowed; the range is -1 to 1". Empty
/// if the value is within the bounds of the attribute, or if it has none.
Sarn::String outOfBoundsText(Kiv::FieldDescriptor const& field, Kiv::ValueRef value);

/// Orders texts as people do, with numbers by their value: "Ethernet2" before "Ethernet10", "-3"
/// before "2".
bool naturallyLess(std::string_view a, std::string_view b);

}  // namespace Holt

// Values of types that are known at run time only, from text and to text.
#pragma once

#include "Kiv/GenericIfImpl.h"

namespace Holt {

/// Reads `text` as a value of `value`'s type, all of it. A string may stand without its quotes.
/// Throws `Failure` that says what the type is and what is wrong.
void parseValue(std::string_view text, Kiv::AnyValue& value);

Sarn::String valueText(Kiv::ValueRef value);
inline Sarn::String valueText(Kiv::AnyValue const& value) {
   return valueText(value.ref());
}

/// Orders texts as people do: numbers in them count as numbers ("Ethernet2" before "Ethernet10",
/// "-3" before "2").
bool naturallyLess(std::string_view a, std::string_view b);

}  // namespace Holt

// Values of types that are known at run time only, from text and to text.
#pragma once

#include "Kiv/GenericIfImpl.h"

namespace Holt {

/// Reads `text` as a value of `value`'s type, all of it. A string may stand without its quotes.
/// Throws `Failure` that says what the type is and what is wrong.
void parseValue(std::string_view text, Kiv::AnyValue& value);

/// Reads a member of an entity, or a field of a value.
void readMember(void const* object, Kiv::FieldDescriptor const& field, Kiv::AnyValue& value);

Sarn::String valueText(Kiv::AnyValue const& value);

/// A copy of the value at `source`.
void copyValue(void const* source, Kiv::AnyValue& value);

/// Orders texts as people do: numbers in them count as numbers ("Ethernet2" before "Ethernet10",
/// "-3" before "2").
bool naturallyLess(std::string_view a, std::string_view b);

}  // namespace Holt

// Values of types that are known at run time only, as JSON and back, so that nothing is lost:
//
// - a bool, a number and a string are what JSON calls by these names;
// - an integer that a double does not hold exactly, beyond 2^53, and a number that is not finite
//   are strings ("18446744073709551615", "inf", "-inf", "nan");
// - an enumeration is its name, or a number where it has none;
// - a value with fields is an object, field by field in the order of the declaration;
// - an optional that is absent is null;
// - every other value is a string in its text form, or a number if that is a whole number;
// - a string that is no UTF-8 is `{"@text": "..."}` with its text form, which escapes bytes.
//
// What is read may be in the text form, too: "6" is as good as 6.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>

#include "Kiv/Types.h"

namespace Holt {

/// Keeps the order in which members are added. A source that uses one includes <nlohmann/json.hpp>,
/// which takes long to compile.
using Json = nlohmann::ordered_json;

Json jsonOf(Kiv::ValueRef value);

/// Reads a value of `value`'s type. Throws `Failure` that says what is wrong, with the field.
void readJson(Json const& json, Kiv::AnyValue& value);

/// Converts a string, and reads it back; nothing if `json` is not a string.
Json jsonOf(Sarn::String const& text);
std::optional<Sarn::String> stringOf(Json const& json);

/// A key of a map as that of an object: its text form, of a string itself.
Sarn::String jsonKey(Kiv::ValueRef key);

/// Reads a document. Throws `Failure` that names `source`, line and column where it is no JSON, or
/// where an object has a key twice.
Json parseJson(std::string const& text, std::string const& source);

/// A document as text without the end of the line, indented by so many blanks or, below 0, in one
/// line. What a terminal would not show as it is comes escaped; bytes that are no UTF-8, which only
/// a name can have, are replaced.
Sarn::String jsonLine(Json const& json, int indent = -1);

}  // namespace Holt

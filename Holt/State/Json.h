// Converts values of types that are known at run time only to JSON and back, without loss:
//
// - a bool, a number and a string are the JSON values of these names;
// - an integer that a double does not hold exactly, beyond 2^53, and a number that is not finite
//   are strings ("18446744073709551615", "inf", "-inf", "nan");
// - an enumerator is its name, or its number if it has no name;
// - a value with fields is an object with its fields in the order of their declaration;
// - an absent optional is null;
// - any other value is a string with its text form, or a number if that is a whole number;
// - a string that is not UTF-8 is `{"@text": "..."}` with its text form, which escapes bytes.
//
// A value may also be read from its text form: "6" is as good as 6.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>

#include "Kiv/Types.h"

namespace Holt {

/// Keeps its members in the order of their insertion. A source that uses one includes
/// <nlohmann/json.hpp>, which takes long to compile.
using Json = nlohmann::ordered_json;

Json jsonOf(Kiv::ValueRef value);

/// Reads a value of `value`'s type. Throws a `Failure` that names the field and says what is wrong.
void readJson(Json const& json, Kiv::AnyValue& value);

/// Converts a string, and reads it back; nothing if `json` is not a string.
Json jsonOf(Sarn::String const& text);
std::optional<Sarn::String> stringOf(Json const& json);

/// The key of a map as the key of an object: a string itself, else as in a path.
Sarn::String jsonKey(Kiv::ValueRef key);

/// Reads JSON. Throws a `Failure` that names `source`, line and column if it is invalid, and
/// `source` and the key if an object has a key twice.
Json parseJson(std::string const& text, std::string const& source);

/// JSON as text without a newline at the end, indented by `indent` blanks or, if that is negative,
/// in one line. Text that is not printable is escaped. Bytes that are not UTF-8 are replaced:
/// values have none (see above), but paths may.
Sarn::String jsonLine(Json const& json, int indent = -1);

}  // namespace Holt

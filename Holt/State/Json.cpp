#include "Holt/State/Json.h"

#include <charconv>
#include <cstdio>
#include <set>

#include "Holt/Failure.h"
#include "Holt/State/Values.h"
#include "Kiv/Module.h"
#include "Kiv/Printable.h"
#include "Kiv/Text.h"

namespace Holt {

using Kiv::AnyValue;
using Kiv::FieldDescriptor;
using Kiv::TypeImpl;

namespace {

constexpr char const* textKey = "@text";
/// How a hand-written type prints what is nothing.
constexpr char const* emptyText = "\"\"";
constexpr S64 exactInDouble = S64{1} << 53;

// By name: a type that is made in a header may be there once a library.
template <class T>
bool isType(TypeImpl const& type) {
   return std::string_view(type.name) == Kiv::typeOf<T>().name;
}

bool isString(TypeImpl const& type) {
   return isType<Sarn::String>(type);
}

bool isFloating(TypeImpl const& type) {
   return isType<double>(type) || isType<float>(type);
}

/// The type of what an optional holds; null if it is none.
TypeImpl const* innerOfOptional(TypeImpl const& type) {
   constexpr std::string_view before = "Kiv::Optional<";
   std::string_view name = type.name;
   if (!name.starts_with(before)) {
      return nullptr;
   }
   name = name.substr(before.size(), name.size() - before.size() - 1);
   static TypeImpl const* const builtin[] = {
         &Kiv::typeOf<bool>(),  &Kiv::typeOf<U8>(),     &Kiv::typeOf<U16>(),
         &Kiv::typeOf<U32>(),   &Kiv::typeOf<U64>(),    &Kiv::typeOf<S8>(),
         &Kiv::typeOf<S16>(),   &Kiv::typeOf<S32>(),    &Kiv::typeOf<S64>(),
         &Kiv::typeOf<float>(), &Kiv::typeOf<double>(), &Kiv::typeOf<Sarn::String>()};
   for (TypeImpl const* const candidate : builtin) {
      if (name == candidate->name) {
         return candidate;
      }
   }
   return Kiv::typeByName(name);
}

bool isUtf8(std::string_view text) {
   try {
      (void)Json(text).dump();
      return true;
   } catch (Json::type_error const&) {
      return false;
   }
}

/// A text form that JSON can hold: where bytes are no UTF-8, which they may be between quotes
/// alone, they are escaped.
Sarn::String utf8Text(Sarn::String const& text) {
   if (isUtf8(text)) {
      return text;
   }
   Sarn::String escaped;
   for (char const c : text) {
      constexpr char const* digits = "0123456789abcdef";
      auto const byte = static_cast<unsigned char>(c);
      if (byte < 0x80) {
         escaped += c;
      } else {
         escaped.append({'\\', 'x', digits[byte >> 4], digits[byte & 15]});
      }
   }
   return escaped;
}

/// A whole number as this system writes it, and how a double may hold it.
bool isExactInteger(std::string_view text, S64& number) {
   auto const result = std::from_chars(text.data(), text.data() + text.size(), number);
   return result.ec == std::errc() && result.ptr == text.data() + text.size() &&
          number >= -exactInDouble && number <= exactInDouble && std::to_string(number) == text;
}

Json jsonOfText(TypeImpl const& type, Sarn::String const& text) {
   if (isType<bool>(type)) {
      return text == "true";
   }
   if (S64 number = 0; !isFloating(type) && isExactInteger(text, number)) {
      return number;
   }
   if (isFloating(type)) {
      double number = 0;
      std::from_chars(text.data(), text.data() + text.size(), number);
      if (text.find_first_of("in") == Sarn::String::npos) {  // not inf, not nan
         return number;
      }
   }
   return text == emptyText ? Json("") : Json(utf8Text(text));
}

/// The text of a JSON value that is no object and no array.
Sarn::String plainText(Json const& json) {
   if (json.is_number_float()) {
      Sarn::String text;
      Kiv::printDouble(text, json.get<double>());
      return text;
   }
   Sarn::String const text = json.is_string() ? json.get<Sarn::String>() : json.dump();
   return text.empty() ? emptyText : text;
}

void readFields(Json const& json, std::vector<FieldDescriptor const*> const& fields,
                AnyValue& value) {
   std::vector<std::unique_ptr<AnyValue>> values;
   std::vector<Kiv::ValueRef> args;
   for (FieldDescriptor const* const field : fields) {
      auto const at = json.find(field->name);
      if (at == json.end()) {
         throw Failure(Sarn::String("the field '") + field->name + "' is missing");
      }
      values.push_back(std::make_unique<AnyValue>(*field->type));
      try {
         readJson(*at, *values.back());
      } catch (Failure const& error) {
         throw Failure(Sarn::String(field->name) + ": " + error.what());
      }
      args.push_back(values.back()->ref());
   }
   for (auto const& [name, unused] : json.items()) {
      FieldDescriptor const* const field = value.type().field(std::string_view(name));
      if (field == nullptr) {
         throw Failure(Sarn::String(value.type().name) + " has no field '" + name + "'");
      }
   }
   value.type().support->constructFromCtorArgs(value.room(), args);
   value.constructed();
}

/// Finds keys that stand twice in an object while it is read.
class DuplicateKeys {
public:
   bool operator()(int, Json::parse_event_t event, Json& parsed) {
      switch (event) {
         case Json::parse_event_t::object_start:
            open_.emplace_back();
            break;
         case Json::parse_event_t::object_end:
            open_.pop_back();
            break;
         case Json::parse_event_t::key:
            if (!open_.back().insert(parsed.get<std::string>()).second) {
               throw Failure("an object has the key '" + parsed.get<std::string>() + "' twice");
            }
            break;
         default:
            break;
      }
      return true;
   }

private:
   std::vector<std::set<std::string>> open_;
};

/// "3:14" for a byte's place, both from 1.
std::string lineAndColumn(std::string const& text, std::size_t at) {
   std::size_t line = 1;
   std::size_t column = 1;
   for (std::size_t i = 0; i + 1 < at && i < text.size(); ++i) {
      ++column;
      if (text[i] == '\n') {
         ++line;
         column = 1;
      }
   }
   return std::to_string(line) + ":" + std::to_string(column);
}

}  // namespace

std::vector<FieldDescriptor const*> valueFields(TypeImpl const& type) {
   std::vector<FieldDescriptor const*> fields;
   forEachField(type, [&](FieldDescriptor const& field) {
      if (type.kind == Kiv::TypeKind::value && field.kind == Kiv::MemberKind::single &&
          field.has(FieldDescriptor::streamed)) {
         fields.push_back(&field);
      }
   });
   return fields;
}

Json jsonOf(TypeImpl const& type, void const* value) {
   auto const fields = valueFields(type);
   if (!fields.empty()) {
      Json json = Json::object();
      for (FieldDescriptor const* const field : fields) {
         AnyValue inner(*field->type);
         readMember(value, *field, inner);
         json[field->name] = jsonOf(*field->type, inner.get());
      }
      return json;
   }
   if (isString(type)) {
      auto const& text = *static_cast<Sarn::String const*>(value);
      return isUtf8(text) ? Json(text) : Json{{textKey, utf8Text(type.genericIfStrRep(value))}};
   }
   Sarn::String const text = type.genericIfStrRep(value);
   if (TypeImpl const* const inner = innerOfOptional(type)) {
      if (text == "none") {
         return nullptr;
      }
      AnyValue held(*inner);
      parseValue(text, held);
      return jsonOf(*inner, held.get());
   }
   return jsonOfText(type, text);
}

void readJson(Json const& json, AnyValue& value) {
   TypeImpl const& type = value.type();
   if (json.is_object() && json.size() == 1 && json.contains(textKey) &&
       json[textKey].is_string()) {
      parseValue(json[textKey].get<Sarn::String>(), value);
      return;
   }
   TypeImpl const* const inner = innerOfOptional(type);
   if (inner != nullptr && !json.is_null()) {
      AnyValue held(*inner);
      readJson(json, held);
      parseValue(valueText(held), value);
      return;
   }
   auto const fields = valueFields(type);
   if (json.is_object() && !fields.empty()) {
      readFields(json, fields, value);
      return;
   }
   if (json.is_structured() || (json.is_null() && inner == nullptr)) {
      throw Failure("a value of type " + Sarn::String(type.name) + " is wanted, and not " +
                    (json.is_null()    ? "null"
                     : json.is_array() ? "a list"
                                       : "an object"));
   }
   if (isString(type)) {
      if (!json.is_string()) {
         throw Failure("a string is wanted, and not " + json.dump());
      }
      new (value.room()) Sarn::String(json.get<Sarn::String>());
      value.constructed();
      return;
   }
   parseValue(json.is_null() ? "none" : plainText(json), value);
}

Sarn::String jsonKey(AnyValue const& key) {
   if (isString(key.type())) {
      auto const& text = *static_cast<Sarn::String const*>(key.get());
      if (!text.starts_with('"') && isUtf8(text)) {
         return text;
      }
   }
   return utf8Text(valueText(key));
}

Sarn::String jsonLine(Json const& json, int indent) {
   Sarn::String const text = json.dump(indent, ' ', false, Json::error_handler_t::replace);
   Sarn::String line;
   line.reserve(text.size());
   for (std::size_t at = 0; at != text.size();) {
      std::string_view const rest = std::string_view(text).substr(at);
      std::size_t const shown = rest[0] == '\n' ? 1 : Kiv::printableCharacter(rest);
      if (shown != 0) {
         line += rest.substr(0, shown);
         at += shown;
         continue;
      }
      // The others below 0x20 are escaped already.
      auto const first = static_cast<U8>(rest[0]);
      std::size_t const size = first < 0x80 ? 1 : first < 0xe0 ? 2 : 3;
      U32 point = size == 1 ? first : first & (0xffU >> (size + 1));
      for (std::size_t i = 1; i != size; ++i) {
         point = point << 6 | (static_cast<U8>(rest[i]) & 0x3fU);
      }
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", point);
      line += escaped;
      at += size;
   }
   return line;
}

Json parseJson(std::string const& text, std::string const& source) {
   try {
      return Json::parse(text, DuplicateKeys());
   } catch (Json::parse_error const& error) {
      throw Failure(source + ":" + lineAndColumn(text, error.byte) +
                    ": is no JSON here; 'ptpstate dump --json' writes what is read");
   } catch (Failure const& error) {
      throw Failure(source + ": " + error.what());
   }
}

}  // namespace Holt

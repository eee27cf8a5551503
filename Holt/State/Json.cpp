#include "Holt/State/Json.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "Holt/Failure.h"
#include "Holt/State/Key.h"
#include "Kiv/Printable.h"
#include "Kiv/Text.h"
#include "Kiv/Visit.h"

namespace Holt {

using Kiv::AnyValue;
using Kiv::FieldDescriptor;
using Kiv::TypeImpl;

namespace {

constexpr char const* textKey = "@text";
/// How a hand-written type prints an empty value.
constexpr char const* emptyText = "\"\"";
constexpr U64 exactInDouble = U64{1} << 53;

bool isUtf8(std::string_view text) {
   try {
      (void)Json(text).dump();
      return true;
   } catch (Json::type_error const&) {
      return false;
   }
}

/// A text form that JSON can hold. Bytes that are not UTF-8, which occur only between quotes, are
/// escaped.
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

/// Converts each kind of value to JSON.
struct ToJson {
   Json operator()(bool v) const { return v; }
   Json operator()(U64 v) const { return v <= exactInDouble ? Json(v) : Json(std::to_string(v)); }
   Json operator()(S64 v) const {
      constexpr auto exact = static_cast<S64>(exactInDouble);
      return v >= -exact && v <= exact ? Json(v) : Json(std::to_string(v));
   }
   Json operator()(double v) const {
      return std::isfinite(v) ? Json(v) : Json(textOf(Kiv::ValueRef(&v)));
   }
   /// The double with the same text: 0.1, not 0.10000000149011612.
   Json operator()(float v) const {
      Sarn::String const text = textOf(Kiv::ValueRef(&v));
      double number = v;
      std::from_chars(text.data(), text.data() + text.size(), number);
      return (*this)(number);
   }
   Json operator()(Sarn::String const& v) const {
      return isUtf8(v) ? Json(v) : Json{{textKey, utf8Text(textOf(Kiv::ValueRef(&v)))}};
   }
   Json operator()(Kiv::EnumRef v) const {
      char const* const name = v.name();
      return name != nullptr ? Json(name) : Json(v.value);
   }
   Json operator()(Kiv::OptionalRef v) const {
      return v.held.address != nullptr ? jsonOf(v.held) : Json();
   }
   Json operator()(Kiv::RecordRef v) const {
      Json json = Json::object();
      forEachPart(v, [&json](FieldDescriptor const& field, Kiv::ValueRef part) {
         json[field.name] = jsonOf(part);
      });
      return json;
   }
   /// Its text is all that is known about it.
   Json operator()(Kiv::OpaqueRef v) const {
      Sarn::String const text = textOf(v.value);
      if (S64 number = 0; isExactInteger(text, number)) {
         return number;
      }
      return text == emptyText ? Json("") : Json(utf8Text(text));
   }

private:
   static Sarn::String textOf(Kiv::ValueRef value) { return valueText(value); }
   /// Whether it is a whole number, written as this system does, that a double holds exactly.
   static bool isExactInteger(std::string_view text, S64& number) {
      constexpr auto exact = static_cast<S64>(exactInDouble);
      auto const result = std::from_chars(text.data(), text.data() + text.size(), number);
      return result.ec == std::errc() && result.ptr == text.data() + text.size() &&
             number >= -exact && number <= exact && std::to_string(number) == text;
   }
};

/// `{"@text": "..."}`
bool isTextForm(Json const& json) {
   return json.is_object() && json.size() == 1 && json.contains(textKey) &&
          json[textKey].is_string();
}

/// The text of a JSON value that is neither an object nor an array.
Sarn::String plainText(Json const& json) {
   if (json.is_number_float()) {
      Sarn::String text;
      Kiv::printDouble(text, json.get<double>());
      return text;
   }
   Sarn::String const text = json.is_string() ? json.get<Sarn::String>() : json.dump();
   return text.empty() ? emptyText : text;
}

void readFields(Json const& json, AnyValue& value) {
   std::vector<std::unique_ptr<AnyValue>> values;
   std::vector<Kiv::ValueRef> args;
   Kiv::forEachPart(value.type(), [&](FieldDescriptor const& field) {
      auto const at = json.find(field.name);
      if (at == json.end()) {
         throw Failure(Sarn::String("the field '") + field.name + "' is missing");
      }
      values.push_back(std::make_unique<AnyValue>(*field.type));
      try {
         readJson(*at, *values.back());
      } catch (Failure const& error) {
         throw Failure(Sarn::String(field.name) + ": " + error.what());
      }
      args.push_back(values.back()->ref());
   });
   for (auto const& [name, unused] : json.items()) {
      FieldDescriptor const* const field = value.type().field(std::string_view(name));
      if (field == nullptr) {
         throw Failure(Sarn::String(value.type().name) + " has no field '" + name + "'");
      }
   }
   value.type().support->constructFromCtorArgs(value.room(), args);
   value.constructed();
}

/// Finds duplicate keys of an object while it is read.
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

/// "LINE:COLUMN" of a byte, both from 1.
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

Json jsonOf(Kiv::ValueRef value) {
   return Kiv::visitValue(value, ToJson());
}

Json jsonOf(Sarn::String const& text) {
   return jsonOf(Kiv::ValueRef(&text));
}

std::optional<Sarn::String> stringOf(Json const& json) {
   AnyValue text(Kiv::typeOf<Sarn::String>());
   try {
      readJson(json, text);
   } catch (Failure const&) {
      return std::nullopt;
   }
   return *static_cast<Sarn::String const*>(text.get());
}

void readJson(Json const& json, AnyValue& value) {
   TypeImpl const& type = value.type();
   if (isTextForm(json)) {
      parseValue(json[textKey].get<Sarn::String>(), value);
      return;
   }
   if (Kiv::OptionalSupport const* const optional = type.optional) {
      std::optional<AnyValue> held;
      if (!json.is_null()) {
         readJson(json, held.emplace(*optional->inner));
      }
      optional->construct(value.room(), held ? held->get() : nullptr);
      value.constructed();
      return;
   }
   if (json.is_object() && type.kind == Kiv::TypeKind::value) {
      readFields(json, value);
      return;
   }
   if (json.is_structured() || json.is_null()) {
      throw Failure("expected a value of type " + Sarn::String(type.name) + ", not " +
                    (json.is_null()    ? "null"
                     : json.is_array() ? "a list"
                                       : "an object"));
   }
   if (type.kind == Kiv::TypeKind::string) {
      if (!json.is_string()) {
         throw Failure("expected a string, not " + json.dump());
      }
      new (value.room()) Sarn::String(json.get<Sarn::String>());
      value.constructed();
      return;
   }
   parseValue(plainText(json), value);
}

Sarn::String jsonKey(Kiv::ValueRef key) {
   if (key.type->kind == Kiv::TypeKind::string) {
      auto const& text = *static_cast<Sarn::String const*>(key.address);
      if (!text.starts_with('"') && isUtf8(text)) {
         return text;
      }
   }
   return utf8Text(keyText(key));
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
   } catch (Json::out_of_range const&) {
      throw Failure(source + ": contains a number that is too large for a double");
   } catch (Json::parse_error const& error) {
      throw Failure(source + ":" + lineAndColumn(text, error.byte) +
                    ": invalid JSON; 'ptpstate dump --json' writes the expected format");
   } catch (Failure const& error) {
      throw Failure(source + ": " + error.what());
   }
}

}  // namespace Holt

#include "Holt/State/Key.h"

#include <memory>
#include <vector>

#include "Holt/Failure.h"
#include "Kiv/Text.h"
#include "Kiv/Visit.h"

namespace Holt {

using Kiv::AnyValue;
using Kiv::FieldDescriptor;
using Kiv::TypeImpl;
using Kiv::TypeKind;

namespace {

std::string_view withoutBlanks(std::string_view text) {
   std::size_t const begin = text.find_first_not_of(' ');
   return begin == std::string_view::npos
                ? std::string_view()
                : text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

/// Splits at commas that are in neither quotes nor parentheses.
std::vector<std::string_view> partsOf(std::string_view text) {
   std::vector<std::string_view> parts;
   std::size_t begin = 0;
   int depth = 0;
   bool quoted = false;
   for (std::size_t at = 0; at < text.size(); ++at) {
      char const c = text[at];
      if (quoted) {
         at += c == '\\' ? 1 : 0;
         quoted = c != '"';
      } else if (c == '"') {
         quoted = true;
      } else if (c == '(' || c == ')') {
         depth += c == '(' ? 1 : -1;
      } else if (c == ',' && depth == 0) {
         parts.push_back(withoutBlanks(text.substr(begin, at - begin)));
         begin = at + 1;
      }
   }
   parts.push_back(withoutBlanks(text.substr(begin)));
   return parts;
}

/// A field of a key that has no fields itself.
struct Part {
   Sarn::String name;
   TypeImpl const* type;
};

void appendParts(std::vector<Part>& parts, TypeImpl const& type, Sarn::String const& name) {
   if (type.kind != TypeKind::value) {
      parts.push_back({name, &type});
      return;
   }
   Kiv::forEachPart(type, [&](FieldDescriptor const& field) {
      appendParts(parts, *field.type, name.empty() ? field.name : name + "." + field.name);
   });
}

bool mayBeLeftOut(TypeImpl const& type) {
   AnyValue absent(type);
   absent.makeDefault();
   return type.kind != TypeKind::string && valueText(absent) == "none";
}

/// Builds a value from its parts.
class Builder {
public:
   Builder(std::vector<Part> const& parts, std::vector<std::string_view> const& texts)
         : parts_(parts), texts_(texts) {}

   void build(AnyValue& value) {
      if (value.type().kind != TypeKind::value) {
         part(value);
         return;
      }
      std::vector<std::unique_ptr<AnyValue>> fields;
      std::vector<Kiv::ValueRef> args;
      Kiv::forEachPart(value.type(), [&](FieldDescriptor const& field) {
         fields.push_back(std::make_unique<AnyValue>(*field.type));
         build(*fields.back());
         args.push_back(fields.back()->ref());
      });
      value.type().support->constructFromCtorArgs(value.room(), args);
      value.constructed();
   }

private:
   void part(AnyValue& value) {
      std::size_t const at = next_++;
      if (at >= texts_.size()) {
         value.makeDefault();
         return;
      }
      try {
         parseValue(texts_[at], value);
      } catch (Failure const& error) {
         throw Failure(parts_[at].name + ": " + error.what());
      }
   }

   std::vector<Part> const& parts_;
   std::vector<std::string_view> const& texts_;
   std::size_t next_ = 0;
};

[[noreturn]] void wrongCount(std::string_view text, std::size_t count, TypeImpl const& type,
                             std::vector<Part> const& parts) {
   Sarn::String names;
   for (Part const& part : parts) {
      names += (names.empty() ? "" : ",") + part.name;
   }
   throw Failure("the key '" + Sarn::String(text) + "' has " + std::to_string(count) +
                 (count == 1 ? " part; " : " parts; ") + type.name + " is written as " + names);
}

}  // namespace

void parseKey(std::string_view text, AnyValue& key) {
   TypeImpl const& type = key.type();
   Kiv::CharRange ahead(text);
   if (type.kind != TypeKind::value || (ahead.accept(type.name) && ahead.accept("("))) {
      parseValue(text, key);
      return;
   }
   std::vector<Part> parts;
   appendParts(parts, type, "");
   std::vector<std::string_view> const texts = partsOf(text);
   bool fits = texts.size() <= parts.size();
   for (std::size_t i = texts.size(); i < parts.size(); ++i) {
      fits = fits && mayBeLeftOut(*parts[i].type);
   }
   if (!fits) {
      wrongCount(text, texts.size(), type, parts);
   }
   Builder(parts, texts).build(key);
}

}  // namespace Holt

#include "Kiv/Path.h"

#include <cstring>
#include <vector>

#include "Kiv/AttrOps.h"
#include "Kiv/Printable.h"
#include "Kiv/Text.h"
#include "Kiv/Types.h"
#include "Kiv/Visit.h"

namespace Kiv {
namespace {

/// Characters with a meaning in a path, or next to one: between keys, around them, in patterns.
constexpr std::string_view special = " ,[]()\"\\=*";

/// Whether a part of a key can stand in a path without quotes.
bool isPlain(std::string_view text) {
   bool plain = !text.empty();
   for (std::size_t at = 0; plain && at != text.size();) {
      std::size_t const size = printableCharacter(text.substr(at));
      plain = size != 0 && special.find(text[at]) == std::string_view::npos;
      at += size;
   }
   return plain;
}

bool isQuoted(std::string_view text) {
   CharRange range(text);
   try {
      parseString(range);
   } catch (ParseException const&) {
      return false;
   }
   return range.atEnd();
}

struct KeyPart {
   Sarn::String text;
   /// Its text is "none", and nothing at its place is read as the same.
   bool absent;
};

KeyPart keyPart(ValueRef value) {
   if (value.type->kind == TypeKind::string) {
      auto const& text = *static_cast<Sarn::String const*>(value.address);
      return {isPlain(text) ? text : value.type->genericIfStrRep(value.address), false};
   }
   Sarn::String text = value.type->genericIfStrRep(value.address);
   bool const absent = text == "none" && !value.type->support->differsFromDefault(value.address);
   return {std::move(text), absent};
}

void appendParts(std::vector<KeyPart>& parts, ValueRef value) {
   if (value.type->kind != TypeKind::value) {
      parts.push_back(keyPart(value));
      return;
   }
   forEachPart(RecordRef{value},
               [&](FieldDescriptor const&, ValueRef part) { appendParts(parts, part); });
}

void appendStep(Sarn::String& path, FieldDescriptor const& field, void const* key) {
   path += '.';
   path += field.name;
   if (key != nullptr) {
      path += '[';
      path += keyText({*field.keyType, key});
      path += ']';
   }
}

/// Looks a child up by its own key. Returns false if that does not find it.
bool appendByKey(Sarn::String& path, Entity const& parent, Entity const& child) {
   FieldDescriptor const* const held = child.kivType().key();
   if (held == nullptr) {
      return false;
   }
   AnyValue key(*held->type);
   key.read(&child, *held);
   bool found = false;
   forEachField(parent.kivType(), [&](FieldDescriptor const& field) {
      if (!found && field.kind == MemberKind::children &&
          std::strcmp(field.keyType->name, held->type->name) == 0 &&
          field.ops->collection->findChild(parent, key.get()) == &child) {
         appendStep(path, field, key.get());
         found = true;
      }
   });
   return found;
}

}  // namespace

Sarn::String keyText(ValueRef key) {
   std::vector<KeyPart> parts;
   appendParts(parts, key);
   while (parts.size() > 1 && parts.back().absent) {
      parts.pop_back();
   }
   Sarn::String text;
   for (KeyPart const& part : parts) {
      if (key.type->kind == TypeKind::value && !isPlain(part.text) && !isQuoted(part.text)) {
         return key.type->genericIfStrRep(key.address);
      }
      text += (text.empty() ? "" : ",") + part.text;
   }
   return text;
}

Sarn::String entityPath(Entity const& entity) {
   Entity const* const parent = entity.parent();
   if (parent == nullptr) {
      Sarn::String const* const name = entityName(entity);
      return name != nullptr ? *name : Sarn::String(entity.kivType().name);
   }
   Sarn::String path = entityPath(*parent);
   if (!appendByKey(path, *parent, entity)) {
      forEachChild(*parent, [&](Entity& child, FieldDescriptor const& field, void const* key) {
         if (&child == &entity) {
            appendStep(path, field, key);
         }
      });
   }
   return path;
}

}  // namespace Kiv

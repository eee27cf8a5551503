#include "Kiv/Path.h"

#include <cstring>

#include "Kiv/AttrOps.h"
#include "Kiv/Types.h"

namespace Kiv {
namespace {

void appendStep(Sarn::String& path, FieldDescriptor const& field, void const* key) {
   path += '.';
   path += field.name;
   if (key != nullptr) {
      path += '[';
      path += field.keyType->genericIfStrRep(key);
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

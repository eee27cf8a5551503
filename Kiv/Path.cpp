#include "Kiv/Path.h"

#include <cstring>

#include "Kiv/AttrOps.h"
#include "Kiv/Types.h"

namespace Kiv {
namespace {

/// The attribute that holds a child's key: of those given to its constructor, the first.
FieldDescriptor const* keyField(TypeImpl const& type) {
   FieldDescriptor const* found = nullptr;
   forEachField(type, [&](FieldDescriptor const& field) {
      if (found == nullptr && field.kind == MemberKind::single && field.fieldId != nameFieldId &&
          field.has(FieldDescriptor::given)) {
         found = &field;
      }
   });
   return found;
}

void appendStep(Sarn::String& path, FieldDescriptor const& field, void const* key) {
   path += '.';
   path += field.name;
   if (key != nullptr) {
      path += '[';
      path += field.keyType->genericIfStrRep(key);
      path += ']';
   }
}

/// Looks a child up by the key that it holds. False where it cannot be found in that way.
bool appendByKey(Sarn::String& path, Entity const& parent, Entity const& child) {
   FieldDescriptor const* const held = keyField(child.kivType());
   if (held == nullptr) {
      return false;
   }
   AnyValue key(*held->type);
   held->ops->read(&child, key.room());
   key.constructed();
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

#include "Kiv/Path.h"

namespace Kiv {

Sarn::String entityPath(Entity const& entity) {
   Entity const* const parent = entity.parent();
   if (parent == nullptr) {
      Sarn::String const* const name = entityName(entity);
      return name != nullptr ? *name : Sarn::String(entity.kivType().name);
   }
   Sarn::String path = entityPath(*parent);
   forEachChild(*parent, [&](Entity& child, FieldDescriptor const& field, void const* key) {
      if (&child == &entity) {
         path += '.';
         path += field.name;
         if (key != nullptr) {
            path += '[';
            path += field.keyType->genericIfStrRep(key);
            path += ']';
         }
      }
   });
   return path;
}

}  // namespace Kiv

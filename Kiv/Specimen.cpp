#include "Kiv/Specimen.h"

#include <memory>
#include <vector>

#include "Kiv/Entity.h"
#include "Kiv/Types.h"

namespace Kiv {

Sarn::Ptr<Entity> specimenOf(TypeImpl const& type) {
   Sarn::String const name = "specimen";
   std::vector<std::unique_ptr<AnyValue>> values;
   std::vector<ValueRef> args;
   for (AttributeId const id : type.ctorArgs) {
      if (id == nameFieldId) {
         args.emplace_back(&name);
      } else {
         values.push_back(std::make_unique<AnyValue>(*type.field(id)->type));
         values.back()->makeDefault();
         args.push_back(values.back()->ref());
      }
   }
   return type.entity->genericIfConstructFromCtorArgs(args);
}

}  // namespace Kiv

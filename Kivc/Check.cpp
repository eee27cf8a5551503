#include "Kivc/Check.h"

#include "Kivc/Scope.h"

namespace Kivc {

void check(Module& module, Diagnostics& diagnostics) {
   for (auto const& type : module.types) {
      if (type->origin == Origin::declared) {
         type->header = module.outputPath() + "/" + type->name.text + ".h";
      }
   }
   checkNames(module, diagnostics);
   Scope const scope(module);
   checkReferences(module, scope, diagnostics);
   checkStructure(module, diagnostics);
   checkIds(module, diagnostics);
   checkValues(module, diagnostics);
}

}  // namespace Kivc

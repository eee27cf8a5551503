#include "Kivc/EmitManifest.h"

#include "Kivc/Words.h"

namespace Kivc {

std::string emitManifest(Module const& module) {
   std::string out;
   for (auto const& type : module.types) {
      if (type->origin != Origin::declared) {
         continue;
      }
      for (auto const& member : type->members) {
         if (member.kind == MemberKind::reserved) {
            continue;
         }
         out += module.name.text + " " + type->qualifiedName() + " " + member.name.text + " " +
                std::to_string(member.id) + " " + std::string(info(member.kind).keyword);
         if (member.kind != MemberKind::enumerator) {
            out += " " + hexWord(member.kindWord());
         }
         out += "\n";
      }
   }
   return out;
}

}  // namespace Kivc

#include "tools/statedb/Modules.h"

#include <dlfcn.h>

#include <set>

#include "Holt/Failure.h"
#include "Kiv/Module.h"

namespace Statedb {

std::string loadModules(std::string const& library) {
   std::set<Kiv::KivModule const*> before;
   for (Kiv::KivModule const* at = Kiv::firstModule(); at != nullptr; at = at->data->next) {
      before.insert(at);
   }
   if (::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL) == nullptr) {
      throw Holt::Failure("--module: " + std::string(::dlerror()));
   }
   std::string added;
   for (Kiv::KivModule const* at = Kiv::firstModule(); at != nullptr; at = at->data->next) {
      if (before.contains(at)) {
         continue;
      }
      for (Kiv::KivModule const* const other : before) {
         if (std::string_view(other->name()) == at->name()) {
            throw Holt::Failure("--module " + library + ": there is a module " + at->name() +
                                " already");
         }
      }
      added += (added.empty() ? "" : ", ") + std::string(at->name());
   }
   if (added.empty()) {
      throw Holt::Failure(
            "--module " + library +
            ": adds no module; name a library of modules that kivc has compiled, once");
   }
   return added;
}

}  // namespace Statedb

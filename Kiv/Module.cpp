#include "Kiv/Module.h"

namespace Kiv {
namespace {

constinit KivModule const* first = nullptr;
constinit KivModule const* last = nullptr;

}  // namespace

void kivModuleIs(KivModule const& module) noexcept {
   if (module.data->registered) {
      return;
   }
   module.data->registered = true;
   module.data->next = nullptr;
   (last != nullptr ? last->data->next : first) = &module;
   last = &module;
}

void kivModuleDel(KivModule const& module) noexcept {
   KivModule const* before = nullptr;
   for (KivModule const* at = first; at != nullptr; before = at, at = at->data->next) {
      if (at == &module) {
         (before != nullptr ? before->data->next : first) = module.data->next;
         if (last == &module) {
            last = before;
         }
         module.data->next = nullptr;
         module.data->registered = false;
         return;
      }
   }
}

KivModule const* firstModule() noexcept {
   return first;
}

KivModule const* moduleByName(std::string_view name) noexcept {
   for (KivModule const* at = first; at != nullptr; at = at->data->next) {
      if (name == at->name()) {
         return at;
      }
   }
   return nullptr;
}

TypeImpl const* typeByName(std::string_view name) noexcept {
   for (KivModule const* at = first; at != nullptr; at = at->data->next) {
      U32 low = 0;
      U32 high = at->typeCount;
      while (low != high) {
         U32 const middle = low + (high - low) / 2;
         int const order = name.compare(at->typeNames + at->typeRecords[middle].nameOffset());
         if (order == 0) {
            return at->data->types[middle];
         }
         (order < 0 ? high : low) = order < 0 ? middle : middle + 1;
      }
   }
   return nullptr;
}

}  // namespace Kiv

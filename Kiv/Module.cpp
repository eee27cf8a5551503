#include "Kiv/Module.h"

#include <link.h>

#include "Kiv/AllocTrack.h"

namespace Kiv {
namespace {

constinit KivModule const* firstOfAll = nullptr;
constinit KivModule const* last = nullptr;

/// Forgets the allocation counters in the same shared object as `address`.
int forgetCounters(dl_phdr_info* object, std::size_t, void* address) {
   auto const segments = [object](auto&& visit) {
      for (int i = 0; i != object->dlpi_phnum; ++i) {
         ElfW(Phdr) const& segment = object->dlpi_phdr[i];
         if (segment.p_type == PT_LOAD) {
            auto const begin = object->dlpi_addr + segment.p_vaddr;
            visit(reinterpret_cast<char*>(begin), reinterpret_cast<char*>(begin + segment.p_memsz));
         }
      }
   };
   bool within = false;
   segments([&](char* begin, char* end) {
      within = within || (static_cast<char*>(address) >= begin && address < end);
   });
   if (within) {
      segments([](char* begin, char* end) { Sarn::AllocTrackRecord::forget(begin, end); });
   }
   return within ? 1 : 0;
}

}  // namespace

void kivModuleIs(KivModule const& module) noexcept {
   if (module.data->registrations++ != 0) {
      return;
   }
   module.data->next = nullptr;
   (last != nullptr ? last->data->next : firstOfAll) = &module;
   last = &module;
}

void kivModuleDel(KivModule const& module) noexcept {
   if (module.data->registrations == 0 || --module.data->registrations != 0) {
      return;
   }
   KivModule const* before = nullptr;
   for (KivModule const* at = firstOfAll; at != nullptr; before = at, at = at->data->next) {
      if (at == &module) {
         (before != nullptr ? before->data->next : firstOfAll) = module.data->next;
         if (last == &module) {
            last = before;
         }
         module.data->next = nullptr;
         return;
      }
   }
}

void kivModuleUnloaded(KivModule const& module, void const* within) noexcept {
   kivModuleDel(module);
   dl_iterate_phdr(&forgetCounters, const_cast<void*>(within));
}

KivModule const* firstModule() noexcept {
   return firstOfAll;
}

KivModule const* moduleByName(std::string_view name) noexcept {
   for (KivModule const* at = firstOfAll; at != nullptr; at = at->data->next) {
      if (name == at->name()) {
         return at;
      }
   }
   return nullptr;
}

TypeImpl const* typeByName(std::string_view name) noexcept {
   for (KivModule const* at = firstOfAll; at != nullptr; at = at->data->next) {
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

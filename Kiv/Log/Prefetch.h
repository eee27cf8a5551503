#pragma once

#include <cstdint>

#include "Kiv/Entity.h"

namespace Kiv::NboAttrLog {

/// Begins to load the first `lines` cache lines of an entity that is needed soon. It may be null.
inline void prefetch(Entity const* entity, unsigned lines) noexcept {
   constexpr std::uintptr_t line = 64;
   auto const begin = reinterpret_cast<std::uintptr_t>(entity);
   for (unsigned i = 0; i != lines; ++i) {
      __builtin_prefetch(reinterpret_cast<void const*>(begin + i * line));
   }
}

}  // namespace Kiv::NboAttrLog

#include "Kiv/Hash.h"

#include <sys/random.h>

#include <cassert>
#include <chrono>

namespace Kiv {

U32 HashHelper::makeSeed() noexcept {
   U32 seed = 0;
   if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) != sizeof seed) {
      // Early in the system's life there is no entropy yet, and this must not wait for it.
      auto const now = std::chrono::steady_clock::now().time_since_epoch().count();
      seed = Impl::hashWord(static_cast<U32>(now), std::bit_cast<U64>(&now));
   }
   seed += seed == 0;
   U32 expected = 0;
   return seed_.compare_exchange_strong(expected, seed, std::memory_order_relaxed) ? seed
                                                                                   : expected;
}

void HashHelper::hashSeed32Is(U32 seed) noexcept {
   assert(seed != 0);
   [[maybe_unused]] U32 const old = seed_.exchange(seed, std::memory_order_relaxed);
   assert(old == 0 || old == seed);
}

namespace Impl {

U32 hashLongBytes(U32 seed, char const* p, std::size_t size) noexcept {
   // As for short strings the seed goes into both factors.
   U64 const s = spreadSeed(seed);
   U64 mixed = s ^ hashMultiplier;
   char const* const last = p + size - 16;
   for (; p < last; p += 16) {
      mixed = foldedMultiply(loadUnaligned<U64>(p) ^ s, loadUnaligned<U64>(p + 8) ^ mixed);
   }
   // The last 16 bytes may overlap the ones before.
   mixed = foldedMultiply(loadUnaligned<U64>(last) ^ s, loadUnaligned<U64>(last + 8) ^ mixed);
   return hashFinishMixed(mixed + size);
}

}  // namespace Impl

}  // namespace Kiv

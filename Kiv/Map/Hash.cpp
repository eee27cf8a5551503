#include "Kiv/Map/Hash.h"

#include <pthread.h>
#include <sys/random.h>
#include <unistd.h>

#include <cassert>
#include <chrono>

#include "Sarn/Node.h"

namespace Kiv {

namespace {

U64 randomWord() noexcept {
   U64 word = 0;
   if (getrandom(&word, sizeof word, GRND_NONBLOCK) != sizeof word) {
      // Early in the system's life there is no entropy yet, and this must not wait for it.
      auto const now = std::chrono::steady_clock::now().time_since_epoch().count();
      word = Impl::foldedMultiply(static_cast<U64>(now) ^ Impl::hashMultiplier,
                                  std::bit_cast<U64>(&now) ^ static_cast<U64>(getpid()) << 48);
   }
   return word;
}

constinit U64 orderSecret = 0;
constinit std::atomic<U64> ordersMade{0};
/// The last order before `hashSeed32Is` was called.
constinit U64 ordersBefore = 0;

void drawOrderSecret() noexcept {
   orderSecret = randomWord();
}

/// Before anything can be hashed, constructors of static objects included. The parent and a forked
/// child may fill maps from each other's, so their orders must differ from there on.
[[gnu::constructor(101)]] void drawSecrets() {
   Impl::hashSecret = randomWord();
   drawOrderSecret();
   pthread_atfork(nullptr, nullptr, &drawOrderSecret);
}

}  // namespace

namespace Impl {

constinit U64 hashSecret = 0;

U64 nextOrder() noexcept {
   if (Sarn::threadsExist()) {
      return ordersMade.fetch_add(1, std::memory_order_relaxed) + 1;
   }
   U64 const number = ordersMade.load(std::memory_order_relaxed) + 1;
   ordersMade.store(number, std::memory_order_relaxed);
   return number;
}

U64 orderFactor(U64 number) noexcept {
   U64 mixed = orderSecret + (number - ordersBefore) * hashMultiplier;
   mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9;
   mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EB;
   return (mixed ^ mixed >> 31) | 1;
}

}  // namespace Impl

U32 HashHelper::makeSeed() noexcept {
   U32 seed = static_cast<U32>(randomWord());
   seed += seed == 0;
   U32 expected = 0;
   return seed_.compare_exchange_strong(expected, seed, std::memory_order_relaxed) ? seed
                                                                                   : expected;
}

void HashHelper::hashSeed32Is(U32 seed) noexcept {
   assert(seed != 0);
   U32 const old = seed_.exchange(seed, std::memory_order_relaxed);
   assert(old == 0 || old == seed);
   if (old == 0) {
      Impl::hashSecret = seed * Impl::hashMultiplier;
      orderSecret = seed;
   }
   ordersBefore = ordersMade.load(std::memory_order_relaxed);
}

namespace Impl {

U64 mixLongBytes(U64 s, char const* p, std::size_t size) noexcept {
   // As for short strings the seed goes into both factors.
   U64 mixed = s ^ hashMultiplier;
   char const* const last = p + size - 16;
   for (; p < last; p += 16) {
      mixed = foldedMultiply(loadUnaligned<U64>(p) ^ s, loadUnaligned<U64>(p + 8) ^ mixed);
   }
   // The last 16 bytes may overlap the ones before.
   mixed = foldedMultiply(loadUnaligned<U64>(last) ^ s, loadUnaligned<U64>(last + 8) ^ mixed);
   return mixed + size;
}

}  // namespace Impl

}  // namespace Kiv

#include "Kiv/System.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>

namespace Kiv {

namespace {

constexpr Seconds never = -std::numeric_limits<Seconds>::infinity();

Seconds systemClock() {
   using std::chrono::system_clock;
   return std::chrono::duration<Seconds>(system_clock::now().time_since_epoch()).count();
}

std::atomic<System::Clock> clockInUse{&systemClock};
std::atomic<Seconds> lastGiven{never};

}  // namespace

Seconds System::currentTime() noexcept {
   Seconds const now = clockInUse.load(std::memory_order_relaxed)();
   Seconds last = lastGiven.load(std::memory_order_relaxed);
   Seconds given;
   do {
      given = now > last ? now : std::nextafter(last, std::numeric_limits<Seconds>::infinity());
   } while (!lastGiven.compare_exchange_weak(last, given, std::memory_order_relaxed));
   return given;
}

void System::clockIs(Clock clock) noexcept {
   clockInUse = clock != nullptr ? clock : &systemClock;
   lastGiven = never;
}

}  // namespace Kiv

#include "Sarn/AllocTrack.h"

#include <functional>

namespace Sarn {

namespace {

constinit std::atomic<AllocTrackRecord*> records{nullptr};

}  // namespace

AllocTrackRecord* AllocTrackRecord::first() noexcept {
   return records.load(std::memory_order_acquire);
}

void AllocTrackRecord::link(std::size_t alignment) noexcept {
   if (linked_.exchange(true, std::memory_order_relaxed)) {
      return;  // another thread was first
   }
   alignment_ = alignment;
   next_ = records.load(std::memory_order_relaxed);
   while (!records.compare_exchange_weak(next_, this, std::memory_order_release,
                                         std::memory_order_relaxed)) {
   }
}

void AllocTrackRecord::forget(void const* begin, void const* end) noexcept {
   std::less<void const*> const before;
   auto const within = [&](void const* p) { return !before(p, begin) && before(p, end); };
   AllocTrackRecord* kept = nullptr;
   for (AllocTrackRecord* r = first(); r != nullptr;) {
      AllocTrackRecord* const next = r->next_;
      if (within(r)) {
         r->next_ = nullptr;
         r->linked_.store(false, std::memory_order_relaxed);
         if (kept != nullptr) {
            kept->next_ = next;
         } else {
            records.store(next, std::memory_order_release);
         }
      } else {
         kept = r;
      }
      r = next;
   }
}

}  // namespace Sarn

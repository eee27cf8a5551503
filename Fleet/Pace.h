// How much a publisher keeps in flight.
#pragma once

#include <algorithm>

#include "Sarn/Types.h"

namespace Fleet {

/// Finds how many messages may be in flight, by the delay of their acknowledgements: more while
/// they come promptly, and fewer while they are late, since the cluster has more to do than it can
/// then. What waited there would be overtaken by newer changes, and be sent twice if it waited for
/// too long. Many publishers share a cluster, and each finds its part by itself. Times are in
/// nanoseconds.
class Pace {
public:
   /// Beyond the fastest acknowledgement: what is prompt, and what is late.
   static constexpr U64 promptly = 100'000'000;
   static constexpr U64 late = 300'000'000;
   static constexpr U32 first = 4;
   static constexpr U64 longestPatience = 60'000'000'000;

   /// `most`: messages in flight, at least 1. `patience`: for an acknowledgement, at first.
   Pace(U32 most, U64 patience)
         : most_(most),
           window_(std::min(first, most)),
           shortest_(patience),
           patience_(patience),
           longest_(std::max(patience, longestPatience)) {}

   U32 window() const noexcept { return window_; }
   /// How long to wait for an acknowledgement.
   U64 patience() const noexcept { return patience_; }

   /// `delay`: from sending to the acknowledgement.
   void acknowledged(U64 delay, U64 now) noexcept {
      patience_ = std::max(shortest_, std::min(2 * delay, longest_));
      fastest_ = std::min(fastest_, delay);
      if (delay < fastest_ + promptly) {
         window_ = std::min(window_ + 1, most_);
      } else if (delay > fastest_ + late && now >= narrowAt_) {
         window_ = std::max(window_ / 2, U32{1});
         // It takes effect after that time.
         narrowAt_ = now + delay;
      }
   }
   /// There was no acknowledgement, or a refusal: one message at a time, until one is stored.
   void failed() noexcept {
      window_ = 1;
      patience_ = std::min(2 * patience_, longest_);
   }

private:
   U32 most_;
   U32 window_;
   U64 shortest_;
   U64 patience_;
   U64 longest_;
   /// At most this: who comes when a cluster is busy already must not take that for its usual time.
   U64 fastest_ = 500'000'000;
   U64 narrowAt_ = 0;
};

}  // namespace Fleet

#include "Holt/Loop.h"

#include <algorithm>
#include <cerrno>

#include "Holt/Failure.h"

namespace Holt {

void Loop::remove(Source const& source) noexcept {
   for (Served& served : sources_) {
      if (served.source == &source) {
         // Erased in the next turn: this one may still go through the list.
         served.source = nullptr;
      }
   }
}

int Loop::timeout(std::chrono::milliseconds most) const {
   constexpr U64 longest = 60'000;  // check the clock at least this often
   U64 left = most < std::chrono::milliseconds::zero() ? longest : static_cast<U64>(most.count());
   bool bounded = most >= std::chrono::milliseconds::zero();
   for (Served const& served : sources_) {
      U64 const deadline = served.source != nullptr ? served.source->deadline() : 0;
      if (deadline != 0) {
         U64 const now = clock_();
         left = std::min(left, deadline > now ? (deadline - now + 999'999) / 1'000'000 : 0);
         bounded = true;
      }
   }
   return bounded ? static_cast<int>(std::min(left, longest)) : -1;
}

bool Loop::turn(int stopFd, std::chrono::milliseconds most) {
   std::erase_if(sources_, [](Served const& served) { return served.source == nullptr; });
   polled_.assign(1, {stopFd, POLLIN, 0});
   for (Served& served : sources_) {
      std::size_t const before = polled_.size();
      if (served.source != nullptr) {
         served.source->appendTo(polled_);
      }
      served.count = polled_.size() - before;
   }
   if (::poll(polled_.data(), polled_.size(), timeout(most)) < 0) {
      if (errno == EINTR) {
         return false;
      }
      throw Failure("cannot wait for descriptors", Exit::connection);
   }
   if (polled_[0].revents != 0) {
      return true;
   }
   std::span<pollfd const> rest(polled_);
   rest = rest.subspan(1);
   // A source added in this turn follows these.
   std::size_t const count = sources_.size();
   for (std::size_t i = 0; i != count; ++i) {
      Served const served = sources_[i];
      if (served.source != nullptr) {
         served.source->onTurn(rest.first(served.count));
      }
      rest = rest.subspan(served.count);
   }
   return false;
}

}  // namespace Holt

#include "tests/fleet/Commands.h"

#include <unistd.h>

namespace FleetLoad {

void Commands::appendTo(std::vector<pollfd>& polled) {
   polled.push_back({STDIN_FILENO, POLLIN, 0});
}

void Commands::onTurn(std::span<pollfd const> polled) {
   if (polled[0].revents == 0) {
      return;
   }
   char buffer[4096];
   ssize_t const size = ::read(STDIN_FILENO, buffer, sizeof buffer);
   if (size <= 0) {
      ended_ = true;
      return;
   }
   begun_.append(buffer, static_cast<std::size_t>(size));
   for (std::size_t end = 0; (end = begun_.find('\n')) != std::string::npos;) {
      std::string const line = begun_.substr(0, end);
      begun_.erase(0, end + 1);
      line_(line);
   }
}

void Every::onTurn(std::span<pollfd const>) {
   U64 const now = Holt::steadyNow();
   constexpr U64 second = 1'000'000'000;
   while (next_ + second < now) {
      next_ += period_;
      ++missed_;
   }
   while (next_ <= now) {
      next_ += period_;
      call_();
   }
}

}  // namespace FleetLoad

#include "tools/shared/Progress.h"

#include <unistd.h>

#include <iostream>
#include <memory>

#include "Holt/Client.h"
#include "Holt/Times.h"
#include "Kiv/Printable.h"

namespace Tools {

Progress::Progress() : on_(::isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
   clear();
}

bool Progress::due() noexcept {
   if (!on_) {
      return false;
   }
   U64 const now = Holt::steadyNow();
   if (now < next_) {
      return false;
   }
   next_ = now + 500'000'000;
   return true;
}

void Progress::say(Sarn::String const& text) {
   if (on_) {
      Sarn::String const line = Kiv::printable(text);
      std::cerr << '\r' << line
                << Sarn::String(width_ > line.size() ? width_ - line.size() : 0, ' ') << std::flush;
      width_ = line.size();
   }
}

void Progress::clear() {
   if (width_ != 0) {
      std::cerr << '\r' << Sarn::String(width_, ' ') << '\r' << std::flush;
      width_ = 0;
   }
}

void showWaiting(Holt::Client& client) {
   auto const progress = std::make_shared<Progress>();
   if (!progress->on()) {
      return;
   }
   client.onWaiting = [progress](Holt::Client::Waiting const* waiting) {
      if (waiting == nullptr) {
         progress->clear();
      } else if (progress->due()) {
         progress->say(Sarn::String(waiting->what) + ": " + std::to_string(waiting->bytes / 1000) +
                       " kB in " + std::to_string(waiting->time.count()) + " s");
      }
   };
}

}  // namespace Tools

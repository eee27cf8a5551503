#include "Holt/Progress.h"

#include <unistd.h>

#include <iostream>

#include "Holt/Times.h"
#include "Kiv/Printable.h"

namespace Holt {

Progress::Progress() : on_(::isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
   clear();
}

bool Progress::due() noexcept {
   if (!on_) {
      return false;
   }
   U64 const now = steadyNow();
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

}  // namespace Holt

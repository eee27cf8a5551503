// Shows the progress of long work, if standard error is a terminal.
#pragma once

#include "Sarn/String.h"
#include "Sarn/Types.h"

namespace Holt {
class Client;
}

namespace Tools {

class Progress {
public:
   Progress();
   /// Clears the line.
   ~Progress();
   Progress(Progress const&) = delete;
   Progress& operator=(Progress const&) = delete;

   bool on() const noexcept { return on_; }
   /// Whether it is time for another line.
   bool due() noexcept;
   /// Writes a line over the last one.
   void say(Sarn::String const& text);
   void clear();

private:
   bool on_;
   U64 next_ = 0;
   std::size_t width_ = 0;
};

/// Shows for what the client waits, whenever it waits for longer than a second.
void showWaiting(Holt::Client& client);

}  // namespace Tools

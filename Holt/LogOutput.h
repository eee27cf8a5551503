// The log of a server, which never waits for whoever reads it.
#pragma once

#include "Sarn/String.h"
#include "Sarn/Types.h"

namespace Holt {

/// Writes lines to a descriptor and never blocks. Lines that cannot be written at once are kept, up
/// to a bound, and written when there is room. Lines beyond the bound are left out; a line in their
/// place gives their number. Once the reader has gone, nothing is logged any more.
class LogOutput {
public:
   /// `fd` stays the caller's. Its flags are not changed, since other processes may share it.
   explicit LogOutput(int fd);
   ~LogOutput();
   LogOutput(LogOutput const&) = delete;
   LogOutput& operator=(LogOutput const&) = delete;

   /// Writes `text`, made printable, and ends the line.
   void line(Sarn::String text);
   /// Whether more is to be written once `fd()` is writable.
   bool waiting() const noexcept { return !pending_.empty(); }
   int fd() const noexcept { return own_ >= 0 ? own_ : fd_; }
   /// Writes as much as there is room for.
   void flush();

   static constexpr std::size_t longestPending = std::size_t(1) << 18;

private:
   /// Returns the number of bytes written; 0 if there is no room, -1 if the reader has gone.
   long writeSome();

   int fd_;
   /// The same file, opened again to be non-blocking for this process alone; -1 if it cannot be.
   int own_ = -1;
   Sarn::String pending_;
   U64 left_ = 0;
   bool over_ = false;
};

}  // namespace Holt

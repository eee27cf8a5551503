// Lines for whoever reads the log of a server, which must not wait for that reader.
#pragma once

#include "Sarn/String.h"
#include "Sarn/Types.h"

namespace Holt {

/// Writes lines to a descriptor and never blocks: what cannot be written at once is kept, up to a
/// bound, and goes out when there is room. Lines beyond the bound are left out, and their number is
/// told in their place. When there is nobody to read any more, there is no log any more.
class LogOutput {
public:
   /// `fd` stays the caller's, and as it is: that it is shared with other processes does no harm.
   explicit LogOutput(int fd);
   ~LogOutput();
   LogOutput(LogOutput const&) = delete;
   LogOutput& operator=(LogOutput const&) = delete;

   /// Writes `text`, made printable, and ends the line.
   void line(Sarn::String text);
   /// Whether there is more to be written once `fd()` is writable.
   bool waiting() const noexcept { return !pending_.empty(); }
   int fd() const noexcept { return own_ >= 0 ? own_ : fd_; }
   /// Writes as much as there is room for.
   void flush();

   static constexpr std::size_t longestPending = std::size_t(1) << 18;

private:
   /// Bytes that were written; 0 if there is no room, -1 if there is nobody to write to.
   long writeSome();

   int fd_;
   /// The same file opened again, so that it can be non-blocking for us alone; -1 if it cannot.
   int own_ = -1;
   Sarn::String pending_;
   U64 left_ = 0;
   bool over_ = false;
};

}  // namespace Holt

// UNIX stream sockets by path. What goes wrong is a `Failure` with `Exit::connection` that says
// what to do.
#pragma once

#include <sys/types.h>

#include <chrono>

#include "Holt/Access.h"
#include "Sarn/String.h"

namespace Holt {

/// A socket that listens. Its file is removed at the end, unless somebody else has taken its place.
class Listener {
public:
   /// A file that is left from a process that is gone is replaced; one that is answered is not.
   /// `mode` and `owner`, if given, hold before anybody can connect.
   explicit Listener(Sarn::String path, std::optional<mode_t> mode = std::nullopt,
                     Owner const& owner = {});
   ~Listener();
   Listener(Listener const&) = delete;
   Listener& operator=(Listener const&) = delete;

   int fd() const noexcept { return fd_; }
   /// A connected descriptor, or -1 when none waits; `exhausted` when there are no descriptors
   /// left for it.
   int accept(bool& exhausted) const;

private:
   Sarn::String path_;
   int fd_ = -1;
   dev_t device_ = 0;
   ino_t inode_ = 0;
};

/// A connected descriptor. A server that is too busy to accept is waited for so long.
int connectTo(Sarn::String const& path, std::chrono::milliseconds patience);

}  // namespace Holt

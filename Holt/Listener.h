// UNIX stream sockets by path. Errors are a `Failure` with `Exit::connection` that says what to do.
#pragma once

#include <sys/types.h>

#include <chrono>

#include "Holt/Access.h"
#include "Sarn/String.h"

namespace Holt {

/// A listening socket. The destructor removes its file, unless another process has replaced it.
class Listener {
public:
   /// Replaces a stale socket file, but not one at which a process still listens. `mode` and
   /// `owner`, if given, are set before anybody can connect.
   explicit Listener(Sarn::String path, std::optional<mode_t> mode = std::nullopt,
                     Owner const& owner = {});
   /// Takes a socket that listens already, and leaves its file alone. Throws if it does not listen.
   explicit Listener(int fd);
   ~Listener();
   Listener(Listener const&) = delete;
   Listener& operator=(Listener const&) = delete;

   int fd() const noexcept { return fd_; }
   /// The descriptor of a new connection, or -1 if none is waiting. Sets `exhausted` if the process
   /// or the system has no descriptor left.
   int accept(bool& exhausted) const;

private:
   Sarn::String path_;
   int fd_ = -1;
   dev_t device_ = 0;
   ino_t inode_ = 0;
};

/// A connected descriptor. `patience`: how long to wait for a server that is too busy to accept.
int connectTo(Sarn::String const& path, std::chrono::milliseconds patience);

}  // namespace Holt

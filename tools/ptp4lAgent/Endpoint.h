// A datagram socket to a daemon that answers to the path that a message came from.
#pragma once

#include <span>

#include "Sarn/String.h"
#include "Sarn/Types.h"

namespace Ptp4lAgent {

/// A UNIX datagram socket that is bound to a path of its own and connected to another: the kernel
/// refuses what others send to it. It never blocks.
class Endpoint {
public:
   /// `own`: the path to bind, which must be visible to the other end. A socket that a killed
   /// process has left there is replaced; anything else there is an error.
   explicit Endpoint(Sarn::String own) : own_(std::move(own)) {}
   ~Endpoint() { close(); }
   Endpoint(Endpoint const&) = delete;
   Endpoint& operator=(Endpoint const&) = delete;

   /// Binds and connects, anew if it is open. Returns 0 or an errno.
   int open(Sarn::String const& other);
   /// Closes the socket and removes its path.
   void close() noexcept;
   /// -1 if it is closed.
   int fd() const noexcept { return fd_; }

   /// Returns 0 or an errno; EAGAIN if the other end does not take more for now.
   int send(std::span<U8 const> octets) const noexcept;

   struct Received {
      /// Of the datagram, which may be longer than the buffer.
      std::size_t size = 0;
      /// 0 or an errno; EAGAIN if there is nothing more.
      int error = 0;
   };
   Received receive(std::span<U8> buffer) const noexcept;

private:
   Sarn::String own_;
   int fd_ = -1;
};

/// A path beside that of a daemon, for the socket of client number `number` of this process; in
/// /tmp if its directory cannot be written.
Sarn::String pathBeside(Sarn::String const& daemon, std::size_t number);

}  // namespace Ptp4lAgent

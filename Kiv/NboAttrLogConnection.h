#pragma once

#include "Kiv/NboAttrLogSession.h"

namespace Kiv::NboAttrLog {

/// Who has connected a UNIX socket, by the credentials at that moment, and what the process is
/// called now. Unknown for other descriptors.
PeerIdentity peerIdentity(int fd);

/// A session over a connected stream socket (UNIX or TCP), or any pair of pollable descriptors
/// that read and write bytes. It has no loop of its own and never blocks: the owner's loop asks
/// what it waits for and tells it what is ready.
///
///     pollfd p{connection.fd(), connection.events(), 0};
///     poll(&p, 1, timeout);
///     connection.onReady(p.revents);
///     if (connection.done()) { ... connection.closeReason() ... }
///
/// Changes made since the last turn are in the output already; they go out with the next `onReady`
/// or `flush`, all together. Call `flush()` at the end of a turn to send them without waiting for
/// the descriptor to be polled.
///
/// An owner that has given the hub a clock polls no longer than until `Hub::deadline()`, and calls
/// `Hub::expire()` then and `flush()` afterwards, so that peers that stop in the middle of a
/// message, or that do not take the last bytes, end as well.
///
/// Ownership: the descriptor is made non-blocking and closed with the connection.
class FdConnection {
public:
   /// Takes `fd` over.
   FdConnection(Hub& hub, int fd, SessionListener* listener = nullptr);
   ~FdConnection();
   FdConnection(FdConnection const&) = delete;
   FdConnection& operator=(FdConnection const&) = delete;

   Session& session() noexcept { return session_; }
   Session const& session() const noexcept { return session_; }

   /// -1 once the connection is over.
   int fd() const noexcept { return fd_; }
   /// What to poll for: `POLLIN`, `POLLOUT` or both.
   short events() const noexcept;
   /// Reads, applies and writes as far as the descriptor goes along without blocking.
   /// `revents`: as poll gives it.
   void onReady(short revents);
   /// Writes what waits.
   void flush();
   /// Whether the connection is over and its descriptor closed.
   bool done() const noexcept { return fd_ < 0; }
   Sarn::String const& closeReason() const noexcept { return session_.closeReason(); }

   /// Says goodbye and closes.
   void close(Sarn::String const& reason);

private:
   /// A turn reads at most so much, so that one busy peer does not starve the others.
   static constexpr std::size_t turnBytes = std::size_t(1) << 18;

   void read();
   void write();
   void end(Sarn::String const& reason);

   Session session_;
   int fd_;
};

}  // namespace Kiv::NboAttrLog

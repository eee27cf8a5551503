#pragma once

#include "Kiv/NboAttrLogSession.h"

namespace Kiv::NboAttrLog {

/// Who has connected a UNIX socket, by the credentials at that moment, and the current name of that
/// process. Unknown for other descriptors.
PeerIdentity peerIdentity(int fd);

/// A session over a connected stream socket (UNIX or TCP), or over any pollable descriptor that
/// reads and writes bytes. It has no loop of its own and never blocks: the owner's loop asks it
/// what to poll for and tells it what is ready.
///
///     pollfd p{connection.fd(), connection.events(), 0};
///     poll(&p, 1, timeout);
///     connection.onReady(p.revents);
///     if (connection.done()) { ... connection.closeReason() ... }
///
/// Changes made since the last turn are in the output already; the next `onReady` or `flush` sends
/// them all together. Call `flush()` at the end of a turn to send them without waiting for `poll`.
///
/// An owner that has given the hub a clock polls no longer than until `Hub::deadline()`, then calls
/// `Hub::expire()` and `flush()`. This also ends connections whose peers stop in the middle of a
/// message or do not take the last bytes.
///
/// Ownership: the connection owns the descriptor; it makes it non-blocking and closes it.
class FdConnection {
public:
   /// Takes ownership of `fd`.
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
   /// Reads, applies and writes as much as it can without blocking. `revents`: as returned by
   /// `poll`.
   void onReady(short revents);
   /// Writes the pending output.
   void flush();
   /// Whether the connection is over and its descriptor closed.
   bool done() const noexcept { return fd_ < 0; }
   Sarn::String const& closeReason() const noexcept { return session_.closeReason(); }

   /// Sends `bye` with the reason and closes.
   void close(Sarn::String const& reason);

private:
   /// A turn stops reading after this many bytes, so that one busy peer does not starve the others.
   static constexpr std::size_t turnBytes = std::size_t(1) << 18;

   void read();
   void write();
   void end(Sarn::String const& reason);

   Session session_;
   int fd_;
};

}  // namespace Kiv::NboAttrLog

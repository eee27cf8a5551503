#include "Kiv/NboAttrLogConnection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace Kiv::NboAttrLog {
namespace {

Sarn::String errorText(char const* what, int error) {
   return Sarn::String(what) + ": " + std::generic_category().message(error);
}

/// The kernel's name for a process; empty if it is gone.
Sarn::String programName(U32 pid) {
   char path[32];
   std::snprintf(path, sizeof path, "/proc/%u/comm", pid);
   int const fd = ::open(path, O_RDONLY | O_CLOEXEC);
   if (fd < 0) {
      return {};
   }
   char bytes[64];
   ssize_t const count = ::read(fd, bytes, sizeof bytes);
   ::close(fd);
   Sarn::String name(bytes, count > 0 ? static_cast<std::size_t>(count) : 0);
   std::erase(name, '\n');
   for (char& c : name) {
      c = c >= ' ' && c <= '~' ? c : '?';
   }
   return name;
}

bool wouldBlock(int error) {
   return error == EAGAIN || error == EWOULDBLOCK;
}

/// Writes two pieces, the second of which may be empty, in one system call.
ssize_t send(int fd, CircularBuffer::Piece const& first, CircularBuffer::Piece const& second) {
   std::array<iovec, 2> const pieces{{{const_cast<U8*>(first.begin), first.size},
                                      {const_cast<U8*>(second.begin), second.size}}};
   ssize_t count;
   if (second.size == 0) {  // most often, and cheaper
      count = ::send(fd, first.begin, first.size, MSG_NOSIGNAL);
   } else {
      msghdr message{};
      message.msg_iov = const_cast<iovec*>(pieces.data());
      message.msg_iovlen = pieces.size();
      count = ::sendmsg(fd, &message, MSG_NOSIGNAL);
   }
   if (count < 0 && errno == ENOTSOCK) {
      count = ::writev(fd, pieces.data(), second.size != 0 ? 2 : 1);
   }
   return count;
}

}  // namespace

PeerIdentity peerIdentity(int fd) {
   PeerIdentity peer;
   ucred credentials{};
   socklen_t size = sizeof credentials;
   if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 && credentials.pid > 0) {
      peer.pid = static_cast<U32>(credentials.pid);
      peer.uid = credentials.uid;
      peer.gid = credentials.gid;
      peer.program = programName(peer.pid);
   }
   return peer;
}

FdConnection::FdConnection(Hub& hub, int fd, SessionListener* listener)
      : session_(hub, listener), fd_(fd) {
   int const flags = fcntl(fd, F_GETFL);
   fcntl(fd, F_SETFL, flags | O_NONBLOCK);
   fcntl(fd, F_SETFD, FD_CLOEXEC);
   session_.peerIs(peerIdentity(fd));
   session_.boundSessionsOfUid();
}

FdConnection::~FdConnection() {
   if (fd_ >= 0) {
      ::close(fd_);
   }
}

short FdConnection::events() const noexcept {
   if (done()) {
      return 0;
   }
   auto events = static_cast<short>(session_.closed() ? 0 : POLLIN);
   if (session_.output().size != 0 || session_.closed() || session_.interrupted()) {
      events = static_cast<short>(events | POLLOUT);
   }
   return events;
}

void FdConnection::onReady(short revents) {
   if (done()) {
      return;
   }
   if (session_.interrupted() && !session_.closed()) {
      session_.received(nullptr, 0);
   }
   if ((revents & (POLLIN | POLLHUP | POLLERR)) != 0 && !session_.closed()) {
      read();
   }
   if (!done()) {
      write();
   }
}

void FdConnection::flush() {
   if (!done()) {
      write();
   }
}

void FdConnection::close(Sarn::String const& reason) {
   if (!done()) {
      session_.close(reason);
      write();
      end(reason);
   }
}

void FdConnection::read() {
   // On the stack, so that an idle connection costs no buffer, and a busy one reads into memory
   // that is in the cache.
   std::array<U8, std::size_t(1) << 16> bytes;
   for (std::size_t taken = 0; taken < turnBytes && !session_.closed();) {
      ssize_t const count = ::read(fd_, bytes.data(), bytes.size());
      if (count > 0) {
         taken += static_cast<std::size_t>(count);
         session_.received(bytes.data(), static_cast<std::size_t>(count));
         if (static_cast<std::size_t>(count) < bytes.size()) {
            return;
         }
      } else if (count == 0) {
         end("the peer has closed the connection");
         return;
      } else if (errno != EINTR) {
         if (!wouldBlock(errno)) {
            end(errorText("cannot read", errno));
         }
         return;
      }
   }
}

void FdConnection::write() {
   session_.sent(0);  // writes `bye` if the session has ended, and notifies the listener
   for (;;) {
      CircularBuffer::Piece const first = session_.output();
      CircularBuffer::Piece const second = session_.outputBehind();
      if (first.size == 0) {
         break;
      }
      ssize_t const count = send(fd_, first, second);
      if (count >= 0) {
         session_.sent(static_cast<std::size_t>(count));
      } else if (errno != EINTR) {
         if (wouldBlock(errno)) {
            session_.blocked();
         } else {
            end(errorText("cannot write", errno));
         }
         return;
      }
   }
   if (session_.closed()) {
      end(session_.closeReason());
   }
}

void FdConnection::end(Sarn::String const& reason) {
   session_.close(reason, false);
   ::close(fd_);
   fd_ = -1;
}

}  // namespace Kiv::NboAttrLog

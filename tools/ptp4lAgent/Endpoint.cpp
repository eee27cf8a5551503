#include "tools/ptp4lAgent/Endpoint.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Ptp4lAgent {

namespace {

bool addressIs(sockaddr_un& address, Sarn::String const& path) noexcept {
   address = {};
   address.sun_family = AF_UNIX;
   if (path.empty() || path.size() >= sizeof address.sun_path) {
      return false;
   }
   std::memcpy(address.sun_path, path.data(), path.size());
   return true;
}

/// Whether the socket at an address was left behind by a process that was killed.
bool isLeftBehind(sockaddr_un const& address) noexcept {
   struct stat file {};
   if (::lstat(address.sun_path, &file) != 0 || !S_ISSOCK(file.st_mode)) {
      return false;
   }
   int const fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
   bool const refused =
         fd >= 0 &&
         ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0 &&
         errno == ECONNREFUSED;
   if (fd >= 0) {
      ::close(fd);
   }
   return refused;
}

int bindTo(int fd, sockaddr_un const& address) noexcept {
   auto const* const plain = reinterpret_cast<sockaddr const*>(&address);
   int result = ::bind(fd, plain, sizeof address);
   if (result != 0 && errno == EADDRINUSE) {
      // In a container, the process has the same id each time, and so the same path.
      if (isLeftBehind(address)) {
         ::unlink(address.sun_path);
         result = ::bind(fd, plain, sizeof address);
      } else {
         errno = EADDRINUSE;
      }
   }
   return result;
}

}  // namespace

int Endpoint::open(Sarn::String const& other) {
   close();
   sockaddr_un own{};
   sockaddr_un to{};
   if (!addressIs(own, own_) || !addressIs(to, other)) {
      return ENAMETOOLONG;
   }
   fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
   if (fd_ < 0) {
      return errno;
   }
   if (bindTo(fd_, own) != 0) {
      int const error = errno;
      ::close(fd_);  // the path is somebody else's
      fd_ = -1;
      return error;
   }
   if (::connect(fd_, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) {
      int const error = errno;
      close();
      return error;
   }
   // The daemon may run as another user. Only what it sends gets in, since the socket is connected.
   ::chmod(own_.c_str(), 0666);
   return 0;
}

void Endpoint::close() noexcept {
   if (fd_ >= 0) {
      ::close(fd_);
      ::unlink(own_.c_str());
      fd_ = -1;
   }
}

int Endpoint::send(std::span<U8 const> octets) const noexcept {
   ssize_t count;
   do {
      count = ::send(fd_, octets.data(), octets.size(), MSG_NOSIGNAL);
   } while (count < 0 && errno == EINTR);
   return count < 0 ? errno : 0;
}

Endpoint::Received Endpoint::receive(std::span<U8> buffer) const noexcept {
   ssize_t count;
   do {
      count = ::recv(fd_, buffer.data(), buffer.size(), MSG_TRUNC);
   } while (count < 0 && errno == EINTR);
   return count < 0 ? Received{0, errno} : Received{static_cast<std::size_t>(count), 0};
}

Sarn::String pathBeside(Sarn::String const& daemon, std::size_t number) {
   std::size_t const slash = daemon.rfind('/');
   Sarn::String directory = slash == Sarn::String::npos ? "." : daemon.substr(0, slash);
   if (::access(directory.empty() ? "/" : directory.c_str(), W_OK) != 0) {
      directory = "/tmp";
   }
   return directory + "/ptp4lAgent." + std::to_string(::getpid()) + "." + std::to_string(number);
}

}  // namespace Ptp4lAgent

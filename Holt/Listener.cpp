#include "Holt/Listener.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "Holt/Failure.h"

namespace Holt {
namespace {

[[noreturn]] void fail(Sarn::String const& path, Sarn::String const& what) {
   throw Failure(path + ": " + what, Exit::connection);
}

Sarn::String errorText(int error) {
   return std::generic_category().message(error);
}

sockaddr_un addressOf(Sarn::String const& path) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   constexpr std::size_t longest = sizeof address.sun_path - 1;
   if (path.empty()) {
      throw Failure("the path of the socket is empty; give one with --socket", Exit::connection);
   }
   if (path.size() > longest) {
      fail(path, "a socket path has at most " + std::to_string(longest) + " bytes, this one has " +
                       std::to_string(path.size()) + "; choose a shorter one");
   }
   std::memcpy(address.sun_path, path.data(), path.size());
   return address;
}

int newSocket(Sarn::String const& path, int flags = 0) {
   int const fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
   if (fd < 0) {
      fail(path, "cannot create a socket: " + errorText(errno));
   }
   return fd;
}

/// Returns 0 or the error number.
int tryConnect(int fd, sockaddr_un const& address) {
   int result = 0;
   do {
      result = ::connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address);
   } while (result < 0 && errno == EINTR);
   return result < 0 ? errno : 0;
}

int tryBind(int fd, sockaddr_un const& address) {
   int const result = ::bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address);
   return result < 0 ? errno : 0;
}

/// Removes a socket file at which nobody listens.
void removeStale(Sarn::String const& path, sockaddr_un const& address) {
   struct stat file {};
   if (::lstat(path.c_str(), &file) == 0 && !S_ISSOCK(file.st_mode)) {
      fail(path, "exists and is not a socket; choose another path, or remove it");
   }
   int const probe = newSocket(path, SOCK_NONBLOCK);
   int const error = tryConnect(probe, address);
   ::close(probe);
   if (error == 0 || error == EAGAIN) {
      fail(path, "another process is serving here; stop it, or choose another socket");
   }
   if (error == EACCES || error == EPERM) {
      fail(path, "exists, and you are not permitted to connect to it; choose another socket");
   }
   if (error == ECONNREFUSED && ::unlink(path.c_str()) < 0 && errno != ENOENT) {
      fail(path, "was left behind by another process and cannot be removed: " + errorText(errno));
   }
}

Sarn::String bindHint(int error) {
   switch (error) {
      case ENOENT:
      case ENOTDIR:
         return "; create its directory first";
      case EACCES:
      case EROFS:
         return "; choose a directory that you may write to";
      default:
         return "";
   }
}

void permit(Sarn::String const& path, std::optional<mode_t> mode, Owner const& owner) {
   if (owner.user || owner.group) {
      if (::lchown(path.c_str(), owner.user.value_or(~uid_t(0)), owner.group.value_or(~gid_t(0))) <
          0) {
         fail(path, "cannot be given to that owner: " + errorText(errno) +
                          "; only root may give files away, and others only to a group of theirs");
      }
   }
   if (mode && ::chmod(path.c_str(), *mode) < 0) {
      fail(path, "cannot be given that mode: " + errorText(errno));
   }
}

}  // namespace

Listener::Listener(Sarn::String path, std::optional<mode_t> mode, Owner const& owner)
      : path_(std::move(path)) {
   sockaddr_un const address = addressOf(path_);
   fd_ = newSocket(path_, SOCK_NONBLOCK);
   int error = tryBind(fd_, address);
   try {
      if (error == EADDRINUSE) {
         removeStale(path_, address);
         error = tryBind(fd_, address);
      }
      if (error != 0) {
         fail(path_, "cannot listen here: " + errorText(error) + bindHint(error));
      }
      try {
         permit(path_, mode, owner);  // nobody can connect yet
         if (::listen(fd_, SOMAXCONN) < 0) {
            fail(path_, "cannot listen here: " + errorText(errno));
         }
      } catch (...) {
         ::unlink(path_.c_str());
         throw;
      }
   } catch (...) {
      ::close(fd_);
      throw;
   }
   struct stat file {};
   if (::lstat(path_.c_str(), &file) == 0) {
      device_ = file.st_dev;
      inode_ = file.st_ino;
   }
}

Listener::~Listener() {
   struct stat file {};
   if (::lstat(path_.c_str(), &file) == 0 && file.st_dev == device_ && file.st_ino == inode_) {
      ::unlink(path_.c_str());
   }
   ::close(fd_);
}

int Listener::accept(bool& exhausted) const {
   int fd = -1;
   do {
      fd = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
   } while (fd < 0 && (errno == EINTR || errno == ECONNABORTED));
   exhausted =
         fd < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM);
   return fd;
}

int connectTo(Sarn::String const& path, std::chrono::milliseconds patience) {
   sockaddr_un const address = addressOf(path);
   int const fd = newSocket(path);
   // For a UNIX socket this bounds connect(), too.
   auto const most = std::max<S64>(1, patience.count());
   timeval const bound{most / 1000, most % 1000 * 1000};
   ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &bound, sizeof bound);
   int const error = tryConnect(fd, address);
   if (error == 0) {
      return fd;
   }
   ::close(fd);
   switch (error) {
      case ENOENT:
      case ENOTDIR:
         fail(path,
              "there is no such socket; start a server there: ptpstate serve --socket " + path);
      case ECONNREFUSED:
         fail(path, "no server listens here any more; start one: ptpstate serve --socket " + path);
      case EAGAIN:
         fail(path,
              "the server does not answer (asked for a connection); wait longer with "
              "--timeout, or check the server");
      case EACCES:
      case EPERM:
         fail(path, "you are not permitted to connect; ask the owner of the socket");
      default:
         fail(path, "cannot connect: " + errorText(error));
   }
}

}  // namespace Holt

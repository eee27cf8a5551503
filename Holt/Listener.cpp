#include "Holt/Listener.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
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

/// What is said about a socket of another type, which no server of ours has.
constexpr char const* datagramText =
      "is a datagram socket, not that of a server. If it is the management socket of ptp4l(8), "
      "start ptp4lAgent, which serves the state of that ptp4l: ptp4lAgent --ptp4l ";

/// Whether somebody has bound a datagram socket to the path. Works without permission to connect.
bool isDatagram(Sarn::String const& path) {
   std::ifstream sockets("/proc/net/unix");
   for (std::string line; std::getline(sockets, line);) {
      // address: references protocol flags type state inode path
      constexpr std::size_t pathField = 7;
      std::size_t at = 0;
      std::string_view type;
      for (std::size_t field = 0; field != pathField && at != std::string::npos; ++field) {
         std::size_t const end = line.find(' ', at);
         type = field == 4 ? std::string_view(line).substr(at, end - at) : type;
         at = end == std::string::npos ? end : line.find_first_not_of(' ', end);
      }
      if (at != std::string::npos && type == "0002" && line.compare(at, line.npos, path) == 0) {
         return true;
      }
   }
   return false;
}

/// Throws if a file of another kind is at the path.
void requireSocket(Sarn::String const& path) {
   struct stat file {};
   if (::stat(path.c_str(), &file) != 0 || S_ISSOCK(file.st_mode)) {
      return;
   }
   if (S_ISDIR(file.st_mode)) {
      fail(path, "is a directory, not a socket; name the socket in it, such as " + path +
                       (path.ends_with('/') ? "" : "/") + "ptpstate.sock");
   }
   fail(path, "is not a socket; name the socket of a server");
}

/// Removes a socket file at which nobody listens.
void removeStale(Sarn::String const& path, sockaddr_un const& address) {
   struct stat file {};
   if (::stat(path.c_str(), &file) == 0 && S_ISDIR(file.st_mode)) {
      requireSocket(path);
   }
   if (::lstat(path.c_str(), &file) == 0 && !S_ISSOCK(file.st_mode)) {
      fail(path, "exists and is not a socket; choose another path, or remove it");
   }
   int const probe = newSocket(path, SOCK_NONBLOCK);
   int const error = tryConnect(probe, address);
   ::close(probe);
   if (error == 0 || error == EAGAIN) {
      fail(path, "another process is serving here; stop it, or choose another socket");
   }
   if (error == EPROTOTYPE) {
      fail(path,
           "another process has a datagram socket here; choose another socket. If it is the "
           "management socket of ptp4l(8), leave it alone: ptp4lAgent serves the state of "
           "that ptp4l");
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

Listener::Listener(int fd) : fd_(fd) {
   int listens = 0;
   socklen_t size = sizeof listens;
   if (::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) != 0 || listens == 0) {
      throw Failure("descriptor " + std::to_string(fd) + " is not a socket that listens",
                    Exit::connection);
   }
   ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
   ::fcntl(fd, F_SETFD, FD_CLOEXEC);
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
   if (error == EPROTOTYPE || (error == EACCES && isDatagram(path))) {
      fail(path, datagramText + path);
   }
   requireSocket(path);
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

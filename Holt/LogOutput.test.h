#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace Holt {

/// A pipe or a pair of sockets with the smallest buffer that the kernel has; `fds[1]` is written.
struct Ends {
   explicit Ends(bool isSocket) {
      if (isSocket) {
         (void)!::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds);
         int const least = 1;
         ::setsockopt(fds[1], SOL_SOCKET, SO_SNDBUF, &least, sizeof least);
      } else {
         (void)!::pipe2(fds, O_CLOEXEC);
         ::fcntl(fds[1], F_SETPIPE_SZ, 4096);
      }
   }
   ~Ends() {
      ::close(fds[0]);
      ::close(fds[1]);
   }
   /// What has come by now.
   std::string read() const {
      ::fcntl(fds[0], F_SETFL, O_NONBLOCK);
      std::string all;
      char bytes[4096];
      for (ssize_t count = 0; (count = ::read(fds[0], bytes, sizeof bytes)) > 0;) {
         all.append(bytes, static_cast<std::size_t>(count));
      }
      return all;
   }
   int fds[2];
};

}  // namespace Holt

#include "tools/ptp4lAgent/Readiness.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace Ptp4lAgent {
namespace {

/// Errors are ignored: whoever waits for the message gives up by itself.
void send(std::string const& path, std::string_view message) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if (path.size() >= sizeof address.sun_path) {
      return;
   }
   std::memcpy(address.sun_path, path.data(), path.size());
   if (path.front() == '@') {
      address.sun_path[0] = '\0';  // an abstract address
   }
   int const fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
   if (fd >= 0) {
      auto const size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
      ::sendto(fd, message.data(), message.size(), MSG_NOSIGNAL,
               reinterpret_cast<sockaddr const*>(&address), size);
      ::close(fd);
   }
}

}  // namespace

Readiness::Readiness(std::function<bool()> settled) : settled_(std::move(settled)) {
   if (char const* const path = std::getenv("NOTIFY_SOCKET"); path != nullptr && *path != '\0') {
      path_ = path;
      deadline_ = Holt::steadyNow() + patience;
      ::unsetenv("NOTIFY_SOCKET");
   }
}

void Readiness::onTurn(std::span<pollfd const>) {
   if (deadline_ != 0 && (settled_() || Holt::steadyNow() >= deadline_)) {
      deadline_ = 0;
      send(path_, "READY=1");
   }
}

}  // namespace Ptp4lAgent

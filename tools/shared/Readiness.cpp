#include "tools/shared/Readiness.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "Holt/Failure.h"

namespace Tools {

namespace {

/// The variable's value, which is unset; empty if it has none.
std::string taken(char const* variable) {
   char const* const value = std::getenv(variable);
   std::string const text = value != nullptr ? value : "";
   ::unsetenv(variable);
   return text;
}

/// Whether the variable names this process, or none.
bool isForUs(std::string const& pid) {
   return pid.empty() || pid == std::to_string(::getpid());
}

}  // namespace

Readiness::Readiness(std::function<bool()> settled)
      : settled_(std::move(settled)), path_(taken("NOTIFY_SOCKET")) {
   std::string const period = taken("WATCHDOG_USEC");
   bool const watched = isForUs(taken("WATCHDOG_PID"));
   if (path_.empty()) {
      return;
   }
   deadline_ = Holt::steadyNow() + patience;
   if (watched) {
      period_ = std::strtoull(period.c_str(), nullptr, 10) * 1000 / 2;
   }
}

void Readiness::statusIs(std::string const& text) {
   send("STATUS=" + text);
}

void Readiness::stopping() {
   send("STOPPING=1");
}

U64 Readiness::deadline() const {
   if (deadline_ != 0) {
      return settled_() ? 1 : deadline_;
   }
   return alive_;
}

void Readiness::onTurn(std::span<pollfd const>) {
   U64 const now = Holt::steadyNow();
   if (deadline_ != 0 && (settled_() || now >= deadline_)) {
      deadline_ = 0;
      alive_ = period_ != 0 ? now : 0;
      send("READY=1");
   }
   if (alive_ != 0 && now >= alive_) {
      alive_ = now + period_;
      send("WATCHDOG=1");
   }
}

void Readiness::send(std::string_view message) const {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if (path_.empty() || path_.size() >= sizeof address.sun_path) {
      return;
   }
   std::memcpy(address.sun_path, path_.data(), path_.size());
   if (path_.front() == '@') {
      address.sun_path[0] = '\0';  // an abstract address
   }
   int const fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
   if (fd >= 0) {
      auto const size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path_.size());
      ::sendto(fd, message.data(), message.size(), MSG_NOSIGNAL,
               reinterpret_cast<sockaddr const*>(&address), size);
      ::close(fd);
   }
}

int listeningSocket() {
   constexpr int first = 3;
   std::string const count = taken("LISTEN_FDS");
   std::string const pid = taken("LISTEN_PID");
   taken("LISTEN_FDNAMES");
   if (count.empty() || pid.empty() || !isForUs(pid)) {
      return -1;
   }
   if (count != "1") {
      throw Holt::Failure("LISTEN_FDS is " + count + "; expected one socket", Holt::Exit::usage);
   }
   return first;
}

bool outputIsJournal() {
   char const* const journal = std::getenv("JOURNAL_STREAM");  // "DEVICE:INODE"
   struct stat out {};
   if (journal == nullptr || ::fstat(STDOUT_FILENO, &out) != 0) {
      return false;
   }
   return std::to_string(out.st_dev) + ":" + std::to_string(out.st_ino) == journal;
}

}  // namespace Tools

#include "Holt/LogOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>

#include "Kiv/Printable.h"

namespace Holt {

LogOutput::LogOutput(int fd) : fd_(fd) {
   struct stat file {};
   if (::fstat(fd, &file) == 0 && (S_ISFIFO(file.st_mode) || S_ISCHR(file.st_mode))) {
      char path[32];
      std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
      own_ = ::open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
   }
}

LogOutput::~LogOutput() {
   flush();
   if (own_ >= 0) {
      ::close(own_);
   }
}

void LogOutput::line(Sarn::String text) {
   if (over_) {
      return;
   }
   flush();
   if (left_ != 0 || pending_.size() + text.size() >= longestPending) {
      ++left_;
      return;
   }
   pending_ += Kiv::printable(std::move(text));
   pending_ += '\n';
   flush();
}

void LogOutput::flush() {
   while (waiting()) {
      long const count = writeSome();
      if (count < 0) {
         over_ = true;
         pending_.clear();
         return;
      }
      if (count == 0) {
         return;
      }
      pending_.erase(0, static_cast<std::size_t>(count));
      if (pending_.empty() && left_ != 0) {
         pending_ = "(" + std::to_string(left_) + (left_ == 1 ? " line was" : " lines were") +
                    " left out here: nobody read them)\n";
         left_ = 0;
      }
   }
}

long LogOutput::writeSome() {
   for (;;) {
      ssize_t count = -1;
      if (own_ >= 0) {
         count = ::write(own_, pending_.data(), pending_.size());
      } else {
         count = ::send(fd_, pending_.data(), pending_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
         if (count < 0 && errno == ENOTSOCK) {
            pollfd polled{fd_, POLLOUT, 0};
            if (::poll(&polled, 1, 0) == 0) {
               return 0;
            }
            // A pipe that is ready takes this much without blocking.
            count = ::write(fd_, pending_.data(), std::min<std::size_t>(pending_.size(), PIPE_BUF));
         }
      }
      if (count >= 0 || errno != EINTR) {
         return count >= 0 ? count : errno == EAGAIN || errno == EWOULDBLOCK ? 0 : -1;
      }
   }
}

}  // namespace Holt

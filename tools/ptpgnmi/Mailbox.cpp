#include "tools/ptpgnmi/Mailbox.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Holt/Failure.h"

namespace Ptpgnmi {

Mailbox::Mailbox() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
   if (fd_ < 0) {
      throw Holt::Failure(std::string("eventfd: ") + std::strerror(errno));
   }
}

Mailbox::~Mailbox() {
   ::close(fd_);
}

void Mailbox::post(std::function<void()> work) {
   bool first = false;
   {
      std::lock_guard const lock(mutex_);
      first = posted_.empty();
      posted_.push_back(std::move(work));
   }
   if (first) {
      U64 const one = 1;
      (void)!::write(fd_, &one, sizeof one);
   }
}

void Mailbox::onTurn(std::span<pollfd const> polled) {
   if (polled[0].revents != 0) {
      serve(0);
   }
}

void Mailbox::serve(int most) {
   pollfd polled{fd_, POLLIN, 0};
   if (::poll(&polled, 1, most) <= 0) {
      return;
   }
   U64 count = 0;
   (void)!::read(fd_, &count, sizeof count);
   {
      std::lock_guard const lock(mutex_);
      taken_.swap(posted_);
   }
   for (auto const& work : taken_) {
      work();
   }
   taken_.clear();
}

}  // namespace Ptpgnmi

#include "Holt/StopSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "Holt/Failure.h"

namespace Holt {

StopSignals::StopSignals() : before_(), fd_(-1) {
   sigset_t stopping;
   sigemptyset(&stopping);
   sigaddset(&stopping, SIGINT);
   sigaddset(&stopping, SIGTERM);
   struct sigaction hangUp {};
   if (::sigaction(SIGHUP, nullptr, &hangUp) != 0 || hangUp.sa_handler != SIG_IGN) {
      sigaddset(&stopping, SIGHUP);  // nohup(1) has it ignored
   }
   sigprocmask(SIG_BLOCK, &stopping, &before_);
   fd_ = ::signalfd(-1, &stopping, SFD_NONBLOCK | SFD_CLOEXEC);
   if (fd_ < 0) {
      throw Failure("cannot wait for signals: " + std::generic_category().message(errno),
                    Exit::connection);
   }
}

StopSignals::~StopSignals() {
   taken();
   ::close(fd_);
   sigprocmask(SIG_SETMASK, &before_, nullptr);
}

bool StopSignals::taken() {
   bool any = false;
   signalfd_siginfo signal{};
   while (::read(fd_, &signal, sizeof signal) > 0) {
      any = true;
   }
   return any;
}

}  // namespace Holt

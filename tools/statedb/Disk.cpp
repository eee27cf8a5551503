#include "tools/statedb/Disk.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <csignal>
#include <exception>

#include "Holt/Failure.h"

namespace Statedb {

namespace {

/// Blocks all signals in the thread that is made meanwhile: they are the loop's.
class NoSignals {
public:
   NoSignals() {
      sigset_t all;
      ::sigfillset(&all);
      ::pthread_sigmask(SIG_SETMASK, &all, &before_);
   }
   ~NoSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
   NoSignals(NoSignals const&) = delete;
   NoSignals& operator=(NoSignals const&) = delete;

private:
   sigset_t before_;
};

}  // namespace

Disk::Disk(Database& database)
      : database_(database), fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
   if (fd_ < 0) {
      throw Holt::Failure("cannot make an event descriptor");
   }
   NoSignals const blocked;
   thread_ = std::thread([this] { run(); });
}

Disk::~Disk() {
   {
      std::lock_guard const lock(mutex_);
      ending_ = true;
   }
   wake_.notify_one();
   thread_.join();
   ::close(fd_);
}

Disk::News Disk::news() {
   U64 count = 0;
   [[maybe_unused]] ssize_t const read = ::read(fd_, &count, sizeof count);
   std::lock_guard const lock(mutex_);
   News news = std::exchange(news_, {});
   idle_ = idle_ || news.written;
   return news;
}

void Disk::give(Batch&& batch) {
   idle_ = false;
   {
      std::lock_guard const lock(mutex_);
      batch_ = std::move(batch);
   }
   wake_.notify_one();
}

std::string Disk::finish() {
   std::unique_lock lock(mutex_);
   if (batch_) {
      U64 const before = attempts_;
      hurry_ = true;
      wake_.notify_one();
      wasTried_.wait(lock, [&] { return !batch_ || attempts_ != before; });
   }
   idle_ = idle_ || !batch_;
   return batch_ ? news_.failure : std::string();
}

std::string Disk::tryToWrite(Batch const& batch) noexcept {
   try {
      database_.write(batch);
      return {};
   } catch (std::exception const& error) {
      return error.what();
   }
}

void Disk::run() {
   std::unique_lock lock(mutex_);
   for (;;) {
      wake_.wait(lock, [this] { return batch_ || ending_; });
      if (!batch_) {
         return;
      }
      lock.unlock();
      std::string failure = tryToWrite(*batch_);
      lock.lock();
      ++attempts_;
      if (failure.empty()) {
         batch_.reset();
         news_ = {.written = true};
      } else {
         news_.failure = std::move(failure);
      }
      U64 const one = 1;
      [[maybe_unused]] ssize_t const written = ::write(fd_, &one, sizeof one);
      wasTried_.notify_all();
      if (batch_) {
         if (ending_) {
            return;
         }
         hurry_ = false;
         wake_.wait_for(lock, std::chrono::seconds(1), [this] { return ending_ || hurry_; });
      }
   }
}

}  // namespace Statedb

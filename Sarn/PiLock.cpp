#include "Sarn/PiLock.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace Sarn {

constinit thread_local U32 PiLock::threadId_ = 0;

namespace {

/// True if the kernel did it.
bool futex(std::atomic<U32>& word, int operation) noexcept {
   static_assert(sizeof word == sizeof(U32) && std::atomic<U32>::is_always_lock_free);
   return syscall(SYS_futex, &word, operation | FUTEX_PRIVATE_FLAG, 0, nullptr, nullptr, 0) == 0;
}

/// Lets every other thread run, of whatever priority.
void sleepAMoment() noexcept {
   timespec const moment{0, 50'000};
   nanosleep(&moment, nullptr);
}

}  // namespace

U32 PiLock::askThreadId() noexcept {
   // The thread that forks goes on in the child under another id.
   [[maybe_unused]] static int const registered =
         pthread_atfork(nullptr, nullptr, [] { threadId_ = 0; });
   threadId_ = static_cast<U32>(gettid());
   return threadId_;
}

void PiLock::wait() noexcept {
   while (!futex(word_, FUTEX_LOCK_PI)) {
      // The holder is just leaving, or the kernel knows no inheritance.
      sleepAMoment();
      U32 expected = 0;
      if (word_.compare_exchange_strong(expected, threadId(), std::memory_order_acquire,
                                        std::memory_order_relaxed)) {
         break;
      }
   }
   // The kernel has changed the word; reading it makes visible what the last holder wrote.
   word_.load(std::memory_order_acquire);
}

void PiLock::handOver() noexcept {
   // The kernel changes the word without ordering memory for the next holder. This publishes what
   // was written under the lock, and changes nothing in the word.
   word_.fetch_or(0, std::memory_order_release);
   while (!futex(word_, FUTEX_UNLOCK_PI) && errno == EINTR) {
   }
}

}  // namespace Sarn

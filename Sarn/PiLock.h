#pragma once

#include <atomic>

#include "Sarn/Types.h"

namespace Sarn {

/// A lock with priority inheritance, to be held for a few instructions: a waiter lends the holder
/// its priority, so that no thread in between can keep the holder off the CPU.
///
/// One word, constant-initialised: 0 when free, else the holder's thread id, in the form that the
/// kernel's priority-inheriting futexes require. Taking a free lock and releasing one without
/// waiters is one atomic operation each, without a system call.
///
/// Not recursive. Nothing that may block or throw belongs under it.
class PiLock {
public:
   constexpr PiLock() noexcept = default;
   PiLock(PiLock const&) = delete;
   PiLock& operator=(PiLock const&) = delete;

   void lock() noexcept {
      U32 expected = 0;
      if (!word_.compare_exchange_strong(expected, threadId(), std::memory_order_acquire,
                                         std::memory_order_relaxed)) [[unlikely]] {
         wait();
      }
   }
   void unlock() noexcept {
      U32 expected = threadId();
      if (!word_.compare_exchange_strong(expected, 0, std::memory_order_release,
                                         std::memory_order_relaxed)) [[unlikely]] {
         handOver();
      }
   }

private:
   // A fixed offset from the thread pointer instead of a call for every allocation.
   [[gnu::tls_model("initial-exec")]] static thread_local U32 threadId_;

   static U32 threadId() noexcept { return threadId_ != 0 ? threadId_ : askThreadId(); }
   static U32 askThreadId() noexcept;
   void wait() noexcept;
   void handOver() noexcept;

   std::atomic<U32> word_{0};
};

}  // namespace Sarn

#include "Sarn/PiLock.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "Sarn/Slab.h"

/// The lock of the slabs, and how long a real-time thread waits for it at worst.
namespace {

using Sarn::PiLock;

double seconds(clockid_t clock = CLOCK_MONOTONIC) {
   timespec now{};
   clock_gettime(clock, &now);
   return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

void sleepSeconds(double time) {
   timespec const pause{static_cast<time_t>(time),
                        static_cast<long>((time - static_cast<time_t>(time)) * 1e9)};
   nanosleep(&pause, nullptr);
}

/// Uses up so much time of this thread's own.
void burn(double time) {
   double const end = seconds(CLOCK_THREAD_CPUTIME_ID) + time;
   while (seconds(CLOCK_THREAD_CPUTIME_ID) < end) {
   }
}

/// Binds this thread to the first CPU that it may use; makes it a real-time thread if `priority` is
/// not 0. False where that is not permitted.
bool scheduledAs(int priority) {
   cpu_set_t allowed;
   if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) {
      return false;
   }
   cpu_set_t one;
   CPU_ZERO(&one);
   for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
      if (CPU_ISSET(cpu, &allowed)) {
         CPU_SET(cpu, &one);
         break;
      }
   }
   sched_param const parameters{priority};
   return pthread_setaffinity_np(pthread_self(), sizeof one, &one) == 0 &&
          pthread_setschedparam(pthread_self(), priority != 0 ? SCHED_FIFO : SCHED_OTHER,
                                &parameters) == 0;
}

bool realTimeIsPermitted() {
   bool permitted = false;
   std::thread([&] { permitted = scheduledAs(1); }).join();
   return permitted;
}

TEST(PiLock, LetsOneThreadInAtATime) {
   PiLock lock;
   long counter = 0;
   std::vector<std::thread> threads;
   threads.reserve(4);
   for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
         for (int j = 0; j < 20'000; ++j) {
            lock.lock();
            ++counter;
            if (j % 1000 == 0) {
               sched_yield();  // so that others find it taken
            }
            lock.unlock();
         }
      });
   }
   for (std::thread& thread : threads) {
      thread.join();
   }
   EXPECT_EQ(counter, 80'000);
}

TEST(PiLock, WorksInAForkedProcessToo) {
   PiLock lock;
   lock.lock();
   lock.unlock();
   pid_t const child = fork();
   ASSERT_GE(child, 0);
   if (child == 0) {
      // The kernel refuses a lock whose holder it does not know: another thread finds it taken.
      alarm(20);
      lock.lock();
      std::atomic<bool> done{false};
      std::thread waiting([&] {
         lock.lock();
         done = true;
         lock.unlock();
      });
      sleepSeconds(0.05);
      bool const tooEarly = done;
      lock.unlock();
      waiting.join();
      _exit(tooEarly || !done ? 1 : 0);
   }
   int status = 1;
   waitpid(child, &status, 0);
   EXPECT_EQ(status, 0);
}

/// On one CPU an ordinary thread holds the lock, a real-time thread waits for it, and a third one,
/// of a priority between, wants the CPU for long: the holder must run before the third.
TEST(PiLock, LendsItsHolderThePriorityOfWhoWaits) {
   if (!realTimeIsPermitted()) {
      GTEST_SKIP() << "real-time scheduling is not permitted";
   }
   PiLock lock;
   std::atomic<bool> held{false};
   std::atomic<bool> waiting{false};
   std::atomic<bool> taken{false};
   bool takenInTime = false;
   std::thread holder([&] {
      scheduledAs(0);
      lock.lock();
      held = true;
      while (!waiting) {
         burn(0.001);
      }
      burn(0.02);
      lock.unlock();
   });
   std::thread urgent([&] {
      while (!held) {
         sleepSeconds(0.001);
      }
      scheduledAs(20);
      waiting = true;
      lock.lock();
      taken = true;
      lock.unlock();
   });
   std::thread between([&] {
      while (!waiting) {
         sleepSeconds(0.001);
      }
      scheduledAs(10);
      burn(0.4);
      takenInTime = taken;
   });
   holder.join();
   urgent.join();
   between.join();
   EXPECT_TRUE(takenInTime);
}

/// A real-time thread and an ordinary one use one slab on one CPU.
TEST(SlabRealTime, AnAllocationDoesNotWaitForTheScheduler) {
   if (!realTimeIsPermitted()) {
      GTEST_SKIP() << "real-time scheduling is not permitted";
   }
   Sarn::Slab slab(64);
   std::atomic<bool> stop{false};
   double worst = 0;
   int slow = 0;
   std::thread ordinary([&] {
      scheduledAs(0);
      std::vector<void*> live(1000);
      while (!stop) {
         for (void*& p : live) {
            p = slab.allocate();
         }
         for (void* p : live) {
            slab.free(p);
         }
      }
   });
   std::thread urgent([&] {
      scheduledAs(20);
      for (int i = 0; i < 8'000; ++i) {
         sleepSeconds(50e-6);
         double const begin = seconds();
         void* const p = slab.allocate();
         slab.free(p);
         double const taken = seconds() - begin;
         worst = std::max(worst, taken);
         slow += taken > 0.1 ? 1 : 0;
      }
      stop = true;
   });
   urgent.join();
   ordinary.join();
   slab.releaseEmpty();
   RecordProperty("worstMicroseconds", std::to_string(worst * 1e6));
   // The kernel takes 50 ms of each second from real-time threads, and on a virtual machine, the
   // host may take all threads' time for longer. That hits a few, whereas a thread that waits for
   // the scheduler does so again and again.
   EXPECT_LE(slow, 3);
}

}  // namespace

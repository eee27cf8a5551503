#pragma once

#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

/// Tools for measuring across processes: a child process at the other end of a socket, one CPU or
/// all, repetitions and medians, and a line for each figure with its baseline.
namespace Harness {

inline double now() {
   using namespace std::chrono;
   return duration<double>(steady_clock::now().time_since_epoch()).count();
}

[[noreturn]] inline void die(char const* what) {
   std::perror(what);
   std::exit(1);
}

/// Restricts the process and its future children to CPU 0, or lets it run on all CPUs of `mask`.
inline void pin(cpu_set_t const& mask) {
   if (sched_setaffinity(0, sizeof mask, &mask) != 0) {
      die("sched_setaffinity");
   }
}
inline cpu_set_t firstCpu(cpu_set_t const& all) {
   cpu_set_t one;
   CPU_ZERO(&one);
   for (int cpu = 0; cpu != CPU_SETSIZE; ++cpu) {
      if (CPU_ISSET(cpu, &all)) {
         CPU_SET(cpu, &one);
         break;
      }
   }
   return one;
}

/// A child process that runs `body(fd)` at the other end of `fd`.
struct Child {
   pid_t pid = -1;
   int fd = -1;

   explicit Child(std::function<void(int)> const& body) {
      int ends[2];
      if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
         die("socketpair");
      }
      std::fflush(nullptr);
      pid = fork();
      if (pid < 0) {
         die("fork");
      }
      if (pid == 0) {
         close(ends[0]);
         body(ends[1]);
         _exit(0);
      }
      close(ends[1]);
      fd = ends[0];
   }
   Child(Child&& other) noexcept
         : pid(std::exchange(other.pid, -1)), fd(std::exchange(other.fd, -1)) {}
   Child& operator=(Child&&) = delete;
   /// Waits for the child to end; whoever took the socket must have closed it.
   ~Child() {
      if (pid > 0) {
         int status = 0;
         waitpid(pid, &status, 0);
         if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            std::fprintf(stderr, "a measured process failed\n");
            std::exit(1);
         }
      }
   }
};

inline void waitFor(int fd, short events) {
   pollfd p{fd, events, 0};
   while (poll(&p, 1, -1) < 0) {
      if (errno != EINTR) {
         die("poll");
      }
   }
}

inline void readAll(int fd, void* bytes, std::size_t size) {
   auto* at = static_cast<char*>(bytes);
   while (size != 0) {
      ssize_t const count = read(fd, at, size);
      if (count <= 0) {
         if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
            waitFor(fd, POLLIN);
            continue;
         }
         die("read");
      }
      at += count;
      size -= static_cast<std::size_t>(count);
   }
}
inline void writeAll(int fd, void const* bytes, std::size_t size) {
   auto const* at = static_cast<char const*>(bytes);
   while (size != 0) {
      ssize_t const count = send(fd, at, size, MSG_NOSIGNAL);
      if (count < 0) {
         if (errno == EINTR || errno == EAGAIN) {
            waitFor(fd, POLLOUT);
            continue;
         }
         die("send");
      }
      at += count;
      size -= static_cast<std::size_t>(count);
   }
}

inline double median(std::vector<double> values) {
   std::sort(values.begin(), values.end());
   return values[values.size() / 2];
}

/// Runs both in turn, five times, and prints the medians and their ratio with the target.
inline void compare(char const* what, char const* unit, double scale, char const* target,
                    std::function<double()> const& baseline, std::function<double()> const& ours) {
   std::vector<double> a;
   std::vector<double> b;
   for (int i = 0; i != 5; ++i) {
      a.push_back(baseline());
      b.push_back(ours());
   }
   double const left = median(a);
   double const right = median(b);
   std::printf("%-58s %12.3f %12.3f %-8s %7.3f  %s\n", what, left * scale, right * scale, unit,
               right / left, target);
   std::fflush(stdout);
}

inline void heading() {
   std::printf("%-58s %12s %12s %-8s %7s  %s\n", "what", "baseline", "measured", "unit", "ratio",
               "target");
}

}  // namespace Harness

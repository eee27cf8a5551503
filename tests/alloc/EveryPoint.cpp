#include "tests/alloc/EveryPoint.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "Sarn/Slab.h"

#if defined(SARN_ASAN)
#   include <sanitizer/lsan_interface.h>
#endif

namespace AllocTesting {

void Findings::bad(std::string const& what) {
   text_ += (text_.empty() ? "" : "; ") + what;
}

namespace {

constexpr unsigned secondsAPoint = 20;

/// The results that the child processes leave for their parent.
struct Tally {
   std::size_t points;
   std::size_t bad;
   bool done;
   bool leaked;
   char first[1500];

   void add(std::size_t n, char const* what) {
      if (++bad <= 3) {
         std::size_t const used = std::strlen(first);
         std::snprintf(first + used, sizeof first - used, "   at %zu: %s\n", n, what);
      }
   }
};

/// False if the scenario has fewer than n allocations.
bool runPoint(Scenario const& scenario, Failures failures, std::size_t n, Findings& findings) {
   failuresAre(failures, n);
   scenario(findings);
   bool const any = failed() != 0;
   failuresAre(failures, 0);
   return any;
}

[[noreturn]] void runFrom(Tally& tally, Scenario const& scenario, Failures failures) {
   for (;;) {
      std::size_t const n = tally.points + 1;
      alarm(secondsAPoint);
      Findings findings;
      bool const any = runPoint(scenario, failures, n, findings);
      if (findings.any()) {
         tally.add(n, findings.text().c_str());
      }
      if (!any) {
         break;
      }
      tally.points = n;
   }
#if defined(SARN_ASAN)
   tally.leaked = __lsan_do_recoverable_leak_check() != 0;
#endif
   tally.done = true;
   _exit(0);
}

void everyPointOf(char const* way, Failures failures, std::size_t least, Scenario const& scenario) {
   void* const shared =
         mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
   ASSERT_NE(shared, MAP_FAILED);
   Tally& tally = *new (shared) Tally{};
   while (!tally.done) {
      std::fflush(nullptr);
      pid_t const child = fork();
      ASSERT_GE(child, 0);
      if (child == 0) {
         runFrom(tally, scenario, failures);
      }
      int status = 0;
      ASSERT_EQ(waitpid(child, &status, 0), child);
      if (!tally.done) {
         ++tally.points;
         tally.add(tally.points,
                   WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "the process ended");
      }
   }
   std::printf("[  POINTS  ] %s, %s: %zu, bad: %zu\n",
               testing::UnitTest::GetInstance()->current_test_info()->name(), way, tally.points,
               tally.bad);
   EXPECT_EQ(tally.bad, 0u) << way << ":\n" << tally.first;
   EXPECT_FALSE(tally.leaked) << way;
   EXPECT_GE(tally.points, least) << way;
   munmap(shared, sizeof(Tally));
}

}  // namespace

void everyPoint(std::size_t least, Scenario const& scenario) {
   if (char const* const wanted = std::getenv("ALLOC_TEST_POINT")) {
      bool const single = std::string_view(wanted).starts_with("single:");
      Findings findings;
      char const* const number = std::strchr(wanted, ':');
      ASSERT_NE(number, nullptr) << "ALLOC_TEST_POINT is neither single:N nor all:N";
      runPoint(scenario, single ? Failures::single : Failures::allFrom,
               std::strtoul(number + 1, nullptr, 10), findings);
      EXPECT_EQ(findings.text(), "");
      return;
   }
   everyPointOf("single", Failures::single, least, scenario);
   everyPointOf("all from", Failures::allFrom, least, scenario);
}

}  // namespace AllocTesting

// The real program, killed at every system call.
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "tools/statedb/DatabaseFile.h"
#include "tools/statedb/Workload.test.h"

namespace Statedb {
namespace {

constexpr int settings = 3;

/// Runs the program as a tracer, and kills it at its `n`th system call after it has first opened
/// the database. Returns the number of calls that were made by then.
///
/// Threads: the one that calls it is the tracer.
U64 runTraced(std::vector<std::string> const& args, std::string const& database, U64 n,
              std::atomic<pid_t>& started) {
   std::vector<char*> argv;
   for (std::string const& arg : args) {
      argv.push_back(const_cast<char*>(arg.c_str()));
   }
   argv.push_back(nullptr);
   pid_t const child = ::fork();
   if (child == 0) {
      ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      ::freopen("/dev/null", "w", stdout);
      ::execv(argv[0], argv.data());
      ::_exit(127);
   }
   int status = 0;
   ::waitpid(child, &status, 0);
   ::ptrace(PTRACE_SETOPTIONS, child, nullptr,
            PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE);
   ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
   started = child;
   auto const opensDatabase = [&](pid_t thread) {
      user_regs_struct registers{};
      ::ptrace(PTRACE_GETREGS, thread, nullptr, &registers);
      if (registers.orig_rax != 257) {  // openat
         return false;
      }
      std::string path;
      for (U64 at = registers.rsi; path.size() < 4096; at += 8) {
         long const word = ::ptrace(PTRACE_PEEKDATA, thread, at, nullptr);
         for (int i = 0; i != 8; ++i) {
            char const c = static_cast<char>(word >> (8 * i));
            if (c == '\0') {
               return path.starts_with(database);
            }
            path += c;
         }
      }
      return false;
   };
   U64 calls = 0;
   std::map<pid_t, bool> inside;
   for (;;) {
      pid_t const thread = ::waitpid(-1, &status, __WALL);
      if (thread < 0 || ((WIFEXITED(status) || WIFSIGNALED(status)) && thread == child)) {
         return calls;
      }
      if (!WIFSTOPPED(status)) {
         continue;
      }
      int signal = WSTOPSIG(status);
      if (signal == (SIGTRAP | 0x80)) {
         signal = 0;
         bool& in = inside[thread];
         in = !in;
         if (in && (calls != 0 || opensDatabase(thread)) && ++calls == n) {
            ::kill(child, SIGKILL);
         }
      } else if (signal == SIGTRAP || signal == SIGSTOP) {
         signal = 0;  // a new thread
      }
      ::ptrace(PTRACE_SYSCALL, thread, nullptr, signal);
   }
}

class Kill : public testing::Test {
protected:
   Kill() {
      char path[] = "/tmp/statedb-XXXXXX";
      directory = ::mkdtemp(path);
   }
   ~Kill() override { std::filesystem::remove_all(directory); }

   /// Lets a client make its settings while the program runs, until it is killed. Sets the last one
   /// that was acknowledged; returns the number of system calls.
   U64 run(U64 n, int& acknowledged) {
      std::string const socket = directory + "/socket";
      std::string const database = directory + "/state.db";
      acknowledged = 0;
      std::atomic<pid_t> started = 0;
      std::atomic<bool> ended = false;
      U64 calls = 0;
      std::thread tracer([&] {
         calls = runTraced(
               {PTPLIB_BIN_DIR "/statedb", "--socket", socket, "--database", database, "--quiet"},
               database, n, started);
         ended = true;
      });
      while (!ended && acknowledged != settings) {
         try {
            makeSettings(socket, acknowledged);
         } catch (Holt::Failure const&) {
            // It does not listen yet, or is killed.
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
         }
      }
      if (!ended) {
         ::kill(started, SIGTERM);
      }
      tracer.join();
      ::unlink(socket.c_str());
      return calls;
   }

   static void makeSettings(std::string const& socket, int& acknowledged) {
      Holt::Client client(socket, std::chrono::seconds(10));
      Holt::Mount& mount = client.mountIs({"Ptp::Config", workloadRoot}, Holt::MountMode::writer);
      client.waitComplete(mount);
      auto& config = static_cast<Ptp::Config&>(mount.root());
      for (int step = 1; step <= settings; ++step) {
         makeStep(config, step);
         client.sync();
         acknowledged = step;
      }
   }

   std::string directory;
};

TEST_F(Kill, AtEverySystemCallLosesNothingAcknowledged) {
   std::vector<std::vector<std::string>> expected;
   auto const config = Ptp::configFactory(workloadRoot);
   expected.push_back(textOf(*config));
   for (int step = 1; step <= settings; ++step) {
      makeStep(*config, step);
      expected.push_back(textOf(*config));
   }
   int acknowledged = 0;
   U64 calls = run(0, acknowledged);
   if (calls == 0) {
      GTEST_SKIP() << "processes cannot be traced here";
   }
   ASSERT_EQ(acknowledged, settings);
   U64 killed = 0;
   for (U64 n = 1; n <= calls + 20; ++n) {
      for (auto const& entry : std::filesystem::directory_iterator(directory)) {
         std::filesystem::remove(entry);
      }
      run(n, acknowledged);
      killed += acknowledged < settings ? 1 : 0;
      DatabaseFile found({directory + "/state.db"});
      auto const restored = Ptp::configFactory(workloadRoot);
      EXPECT_TRUE(found.database().keep(*restored).rejected.empty());
      std::vector<std::string> const state = textOf(*restored);
      // The messages of a step come in one piece, and are applied in one turn of the loop.
      auto const last = static_cast<std::size_t>(acknowledged);
      auto const begun = std::min<std::size_t>(last + 1, settings);
      ASSERT_TRUE(state == expected[last] || state == expected[begun])
            << "killed at call " << n << " of " << calls << ", after step " << acknowledged;
   }
   EXPECT_GT(killed, 50U);
}

}  // namespace
}  // namespace Statedb

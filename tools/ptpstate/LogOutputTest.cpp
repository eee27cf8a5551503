// The log of a server that nobody reads.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

/// A pipe of the least size that the kernel has.
struct Pipe {
   Pipe() {
      (void)!::pipe2(fds, O_CLOEXEC);
      ::fcntl(fds[1], F_SETPIPE_SZ, 4096);
   }
   ~Pipe() {
      ::close(fds[0]);
      ::close(fds[1]);
   }
   /// All that is there now.
   std::string read() const {
      ::fcntl(fds[0], F_SETFL, O_NONBLOCK);
      std::string all;
      char bytes[4096];
      for (ssize_t count = 0; (count = ::read(fds[0], bytes, sizeof bytes)) > 0;) {
         all.append(bytes, static_cast<std::size_t>(count));
      }
      return all;
   }
   int fds[2];
};

TEST(LogOutput, OfAServerThatNobodyReadsHoldsUpNobody) {
   Pipe ends;
   Scratch const scratch;
   std::string const socket = scratch.file("socket");
   std::string const full(4096, 'x');
   ASSERT_EQ(::write(ends.fds[1], full.data(), full.size()), 4096);
   Surroundings in;
   in.output = ends.fds[1];
   Program server({"serve", "--socket", socket}, in);
   for (int i = 0; i != 100 && ::access(socket.c_str(), F_OK) != 0; ++i) {
      ::usleep(50'000);
   }
   auto const ask = [&socket] {
      return run({"get", "--socket", socket, "--timeout", "5", "ptp/config.priority1"});
   };
   for (int i = 0; i != 5; ++i) {
      Outcome const outcome = ask();
      ASSERT_EQ(outcome.out, "128\n") << outcome.err;
   }
   std::string log;
   for (int i = 0; i != 100 && log.find("connection 5 ") == std::string::npos; ++i) {
      log += ends.read();
      ::usleep(20'000);
   }
   EXPECT_NE(log.find("xserving ptp/config (Ptp::Config) at " + socket + "\n"), std::string::npos);
   EXPECT_NE(log.find("connection 5 "), std::string::npos) << log;
   ::close(ends.fds[0]);
   ends.fds[0] = -1;
   EXPECT_EQ(ask().out, "128\n") << "it outlives the reader of its log";
   EXPECT_EQ(ask().out, "128\n");
   server.signal(SIGTERM);
   EXPECT_EQ(server.finish().status, 0);
}

}  // namespace
}  // namespace Ptpstate

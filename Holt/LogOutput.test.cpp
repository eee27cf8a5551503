#include "Holt/LogOutput.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <csignal>

#include "Holt/LogOutput.test.h"

namespace Holt {
namespace {

class LogOutputTest : public testing::TestWithParam<bool> {};

TEST_P(LogOutputTest, KeepsWhatNobodyReadsAndSaysWhatItLeavesOut) {
   Ends const ends(GetParam());
   LogOutput log(ends.fds[1]);
   std::string const text(99, 'x');
   for (int i = 0; i != 4000; ++i) {
      log.line(text);
   }
   EXPECT_TRUE(log.waiting());
   std::string all;
   for (int i = 0; log.waiting() && i != 1000; ++i) {
      all += ends.read();
      log.flush();
   }
   log.line("and on");
   all += ends.read();
   std::size_t const kept = all.find('(') / 100;
   EXPECT_GT(kept * 100, LogOutput::longestPending - 100);
   EXPECT_EQ(all.substr(kept * 100),
             "(" + std::to_string(4000 - kept) +
                   " lines were left out here: nobody read them)\nand on\n");
   EXPECT_EQ(::fcntl(ends.fds[1], F_GETFL) & O_NONBLOCK, 0) << "others may share its flags";
}

TEST_P(LogOutputTest, EndsWithItsReader) {
   std::signal(SIGPIPE, SIG_IGN);
   Ends ends(GetParam());
   LogOutput log(ends.fds[1]);
   log.line("one");
   ::close(ends.fds[0]);
   log.line("two");
   log.line("three");
   EXPECT_FALSE(log.waiting());
   ends.fds[0] = -1;
   std::signal(SIGPIPE, SIG_DFL);
}

INSTANTIATE_TEST_SUITE_P(To, LogOutputTest, testing::Bool(),
                         [](auto const& at) { return at.param ? "Socket" : "Pipe"; });

TEST(LogOutput, WritesToAFileAtOnce) {
   int const fd = ::memfd_create("log", MFD_CLOEXEC);
   LogOutput log(fd);
   log.line("one\x1b");
   log.line(std::string(10'000, 'x'));
   EXPECT_FALSE(log.waiting());
   std::string text(20'000, ' ');
   text.resize(static_cast<std::size_t>(::pread(fd, text.data(), text.size(), 0)));
   EXPECT_EQ(text, "one\\x1b\n" + std::string(10'000, 'x') + "\n");
   ::close(fd);
}

}  // namespace
}  // namespace Holt

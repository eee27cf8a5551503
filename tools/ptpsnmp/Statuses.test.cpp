#include "tools/ptpsnmp/Statuses.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>

#include "Holt/Client.h"
#include "Holt/Server.h"

namespace Ptpsnmp {
namespace {

U64 testTime = 0;

class StatusesTest : public testing::Test {
protected:
   StatusesTest() {
      std::string pattern = (std::filesystem::temp_directory_path() / "statuses.XXXXXX").string();
      directory = ::mkdtemp(pattern.data());
      logFd = ::open((directory + "/log").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
      log.emplace(logFd);
      testTime = 1'000'000'000;
      start({});
   }
   ~StatusesTest() override {
      statuses.reset();
      log.reset();
      ::close(logFd);
      std::filesystem::remove_all(directory);
   }

   void start(std::vector<std::string> roots) {
      Statuses::Options options;
      options.socket = directory + "/socket";
      options.roots = std::move(roots);
      options.log = &*log;
      options.clock = []() noexcept { return testTime; };
      statuses = std::make_unique<Statuses>(std::move(options));
      statuses->onStatuses = [this](Statuses::All const& all) {
         names.clear();
         for (auto const& status : all) {
            names += status->nameString() + " ";
         }
      };
   }
   Feed::Options const& times() const { return statuses->feed().options(); }
   /// The lines of the log, without their times and what all have in common.
   std::string logText() const {
      std::ifstream file(directory + "/log");
      std::string const common = " source " + directory + "/socket: ";
      std::string text;
      for (std::string line; std::getline(file, line);) {
         auto const at = line.find(common);
         text += at == std::string::npos ? "?" + line : line.substr(at + common.size());
         text += "\n";
      }
      return text;
   }
   std::unique_ptr<Holt::Server> serve(std::vector<char const*> const& roots) const {
      Holt::Server::Options options;
      options.socket = directory + "/socket";
      auto server = std::make_unique<Holt::Server>(std::move(options));
      for (char const* const name : roots) {
         server->rootIs(Ptp::statusFactory(name));
      }
      return server;
   }
   /// Lets the statuses and a server do what they can, without time passing.
   void settle(Holt::Server* server = nullptr) const {
      Holt::Loop loop([]() noexcept { return testTime; });
      loop.add(*statuses);
      if (server != nullptr) {
         loop.add(*server);
      }
      for (int i = 0; i != 30; ++i) {
         loop.turn(-1, std::chrono::milliseconds(1));
      }
   }

   std::string directory;
   int logFd = -1;
   std::optional<Holt::LogOutput> log;
   std::string names = "none yet";
   std::unique_ptr<Statuses> statuses;
};

TEST_F(StatusesTest, TellsTheCompleteStatusesInTheOrderOfTheirNames) {
   auto const server = serve({"b/status", "a/status"});
   settle(server.get());
   EXPECT_EQ(names, "a/status b/status ");
}

TEST_F(StatusesTest, ASourceThatIsGoneTakesItsStatusesAndReturnsWithThem) {
   auto server = serve({"a/status"});
   settle(server.get());
   EXPECT_EQ(names, "a/status ");
   server->closeAll("ends");
   server.reset();
   settle();
   EXPECT_EQ(names, "");
   testTime += times().pause;
   settle();  // tries, and waits twice as long
   server = serve({"a/status"});
   testTime += times().pause;
   settle(server.get());
   EXPECT_EQ(names, "");
   testTime += times().longestPause;
   settle(server.get());
   EXPECT_EQ(names, "a/status ");
}

TEST_F(StatusesTest, GivesOnlyTheNamedOnesInTheOrderInWhichTheyAreNamed) {
   start({"c/status", "none/status", "a/status"});
   auto const server = serve({"a/status", "b/status", "c/status"});
   settle(server.get());
   EXPECT_EQ(names, "c/status a/status ");
   EXPECT_EQ(logText(), "mirrors c/status, a/status\n");
}

TEST_F(StatusesTest, RootsOfOtherTypesAreNoStatuses) {
   auto const server = serve({});
   server->rootIs(Holt::newRoot("Ptp::Config", "config"));
   settle(server.get());
   EXPECT_TRUE(statuses->feed().status().current);
   EXPECT_EQ(names, "none yet");
   server->rootIs(Ptp::statusFactory("a/status"));
   testTime += times().rootsEvery;
   settle(server.get());
   EXPECT_EQ(names, "a/status ");
   EXPECT_EQ(logText().substr(0, 25), "it offers no such status\n");
}

TEST_F(StatusesTest, LogsEachReasonOnceIfItLasts) {
   settle();
   EXPECT_EQ(logText(), "");
   std::string expected =
         "not there: there is no such socket; start a server there: ptpstate serve --socket " +
         directory + "/socket\n";
   for (int i = 0; i != 5; ++i) {
      testTime += Statuses::lasting;
      settle();
      EXPECT_EQ(logText(), expected);
      testTime += times().longestPause;
      settle();
   }
   auto server = serve({"a/status"});
   testTime += times().longestPause;
   settle(server.get());
   expected += "mirrors a/status\n";
   EXPECT_EQ(logText(), expected);
   server->closeAll("ends");
   server.reset();
   settle();
   std::string const lost = logText().substr(expected.size());
   EXPECT_TRUE(lost.starts_with("lost: the connection is lost: ")) << lost;
   EXPECT_EQ(std::ranges::count(lost, '\n'), 1);
}

TEST_F(StatusesTest, ARootOfferedLaterIsFoundWithTheNextQuestion) {
   auto const server = serve({});
   settle(server.get());
   EXPECT_EQ(names, "none yet");
   server->rootIs(Ptp::statusFactory("late/status"));
   settle(server.get());
   EXPECT_EQ(names, "none yet");
   testTime += times().rootsEvery;
   settle(server.get());
   EXPECT_EQ(names, "late/status ");
}

TEST_F(StatusesTest, ASourceThatDoesNotAnswerForFiveSecondsIsLostUntilItDoes) {
   EXPECT_EQ(times().silence, 5'000'000'000u);
   auto const server = serve({"a/status"});
   settle(server.get());
   EXPECT_EQ(names, "a/status ");
   testTime += times().probe;
   settle();  // asks; the server hangs
   testTime += times().silence - 1;
   settle();
   EXPECT_EQ(names, "a/status ");
   testTime += 1;
   settle();
   EXPECT_EQ(names, "");
   settle(server.get());
   EXPECT_EQ(names, "a/status ");
   EXPECT_EQ(logText(),
             "mirrors a/status\n"
             "lost: the server does not answer\n"
             "mirrors a/status\n");
}

}  // namespace
}  // namespace Ptpsnmp

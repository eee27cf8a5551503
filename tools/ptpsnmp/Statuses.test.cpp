#include "tools/ptpsnmp/Statuses.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "Holt/Server.h"

namespace Ptpsnmp {
namespace {

U64 testTime = 0;

class StatusesTest : public testing::Test {
protected:
   StatusesTest() {
      std::string pattern = (std::filesystem::temp_directory_path() / "statuses.XXXXXX").string();
      directory = ::mkdtemp(pattern.data());
      testTime = 1'000'000'000;
      Statuses::Options options;
      options.socket = directory + "/socket";
      options.clock = []() noexcept { return testTime; };
      statuses = std::make_unique<Statuses>(std::move(options));
      statuses->onStatuses = [this](Statuses::All const& all) {
         names.clear();
         for (auto const& status : all) {
            names += status->nameString() + " ";
         }
      };
   }
   ~StatusesTest() override {
      statuses.reset();
      std::filesystem::remove_all(directory);
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
   testTime += Statuses::firstPause;
   settle();  // tries, and waits twice as long
   server = serve({"a/status"});
   testTime += Statuses::firstPause;
   settle(server.get());
   EXPECT_EQ(names, "");
   testTime += Statuses::longestPause;
   settle(server.get());
   EXPECT_EQ(names, "a/status ");
}

TEST_F(StatusesTest, ARootOfferedLaterIsFoundWithTheNextQuestion) {
   auto const server = serve({});
   settle(server.get());
   EXPECT_EQ(names, "none yet");
   server->rootIs(Ptp::statusFactory("late/status"));
   settle(server.get());
   EXPECT_EQ(names, "none yet");
   testTime += Statuses::askInterval;
   settle(server.get());
   EXPECT_EQ(names, "late/status ");
}

TEST_F(StatusesTest, ASourceThatDoesNotAnswerForTenSecondsIsLost) {
   auto const server = serve({"a/status"});
   settle(server.get());
   EXPECT_EQ(names, "a/status ");
   testTime += Statuses::askInterval;
   settle();  // asks; the server hangs
   testTime += Statuses::patience - 1;
   settle();
   EXPECT_EQ(names, "a/status ");
   testTime += 1;
   settle();
   EXPECT_EQ(names, "");
   testTime += Statuses::longestPause;
   settle(server.get());
   EXPECT_EQ(names, "a/status ");
}

}  // namespace
}  // namespace Ptpsnmp

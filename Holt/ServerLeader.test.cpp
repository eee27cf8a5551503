// Two processes that may lead one root: one is killed, or hangs, and the other takes over.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Holt/Client.h"
#include "Holt/Server.h"
#include "Holt/Times.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"

namespace Holt {
namespace {

class ServerLeader : public testing::Test {
protected:
   ServerLeader() {
      char path[] = "/tmp/holt-XXXXXX";
      directory_ = ::mkdtemp(path);
      Server::Options options;
      options.socket = directory_ + "/socket";
      server = std::make_unique<Server>(std::move(options));
      server->rootIs(config);
      loop.add(*server);
   }
   ~ServerLeader() override {
      for (pid_t const pid : started) {
         end(pid);
      }
      reader.reset();
      server.reset();
      ::rmdir(directory_.c_str());
   }

   /// Starts a process that writes `value` as long as it leads, and ends after ten seconds.
   pid_t agentIs(U32 priority, U8 value) {
      pid_t const pid = ::fork();
      if (pid == 0) {
         ::prctl(PR_SET_PDEATHSIG, SIGKILL);
         ::alarm(10);
         try {
            Client client(directory_ + "/socket", std::chrono::seconds(5));
            auto const mirror = Ptp::configFactory("ptp/config");
            Mount const& mount = client.mountIs(mirror, MountMode::candidate, priority);
            while (!client.over()) {
               client.turn(-1, std::chrono::milliseconds(5));
               if (mount.leads()) {
                  mirror->priority1Is(value);
                  mirror->priority2Is(static_cast<U8>(mirror->priority2() + 1));
               }
            }
         } catch (...) {
         }
         ::_exit(1);
      }
      started.push_back(pid);
      return pid;
   }
   void end(pid_t pid) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, nullptr, 0);
      std::erase(started, pid);
   }
   /// Serves until `done()`, for five seconds at most. Returns the milliseconds that it took.
   template <class Done>
   U64 serveUntil(Done&& done) {
      U64 const begin = steadyNow();
      while (!done() && steadyNow() - begin < 5'000'000'000) {
         loop.turn(-1, std::chrono::milliseconds(10));
      }
      return (steadyNow() - begin) / 1'000'000;
   }

   Sarn::Ptr<Ptp::Config> config = Ptp::configFactory("ptp/config");
   Sarn::Ptr<Ptp::Config> copy = Ptp::configFactory("ptp/config");
   std::unique_ptr<Server> server;
   std::unique_ptr<Client> reader;
   Loop loop;
   std::vector<pid_t> started;

private:
   std::string directory_;

protected:
   Mount const& readerIs() {
      reader = std::make_unique<Client>(directory_ + "/socket", std::chrono::seconds(5));
      loop.add(*reader);
      return reader->mountIs(copy, MountMode::reader);
   }
};

TEST_F(ServerLeader, TheOtherProcessLeadsWithinASecondWhenTheLeaderIsKilled) {
   Mount const& mount = readerIs();
   pid_t const first = agentIs(1, 11);
   serveUntil([&] { return copy->priority1() == 11; });
   ASSERT_EQ(copy->priority1(), 11);
   pid_t const second = agentIs(2, 22);
   serveUntil([&] { return mount.writers().size() == 2; });
   EXPECT_EQ(mount.writers().size(), 2u);
   end(first);
   U64 const taken = serveUntil([&] { return copy->priority1() == 22; });
   std::printf("   killed: the other leads after %llu ms\n",
               static_cast<unsigned long long>(taken));
   EXPECT_EQ(copy->priority1(), 22);
   EXPECT_LT(taken, 1000u);
   EXPECT_FALSE(mount.stale());
   U64 const before = wallNow();
   end(second);
   serveUntil([&] { return mount.stale(); });
   EXPECT_TRUE(mount.stale());
   EXPECT_GE(mount.staleSince(), before);
   EXPECT_LE(mount.staleSince(), wallNow());
}

TEST_F(ServerLeader, TheOtherProcessLeadsWhenTheLeaderIsStopped) {
   Mount const& mount = readerIs();
   pid_t const first = agentIs(1, 11);
   serveUntil([&] { return copy->priority1() == 11; });
   agentIs(2, 22);
   serveUntil([&] { return mount.writers().size() == 2; });
   ASSERT_EQ(mount.writers().size(), 2u);
   ::kill(first, SIGSTOP);
   U64 const taken = serveUntil([&] { return copy->priority1() == 22; });
   std::printf("   stopped: the other leads after %llu ms\n",
               static_cast<unsigned long long>(taken));
   EXPECT_EQ(copy->priority1(), 22);
   EXPECT_LT(taken, 1500u);
   ::kill(first, SIGCONT);
   U8 const written = config->priority2();
   serveUntil([&] { return static_cast<U8>(config->priority2() - written) > 20; });
   EXPECT_EQ(config->priority1(), 22) << "what the first still sends is not applied";
   EXPECT_EQ(server->peers(), 3u) << "and it keeps its connection";
}

}  // namespace
}  // namespace Holt

// Who may change what, and peers that wait until somebody else has decided about their change.
#include <gtest/gtest.h>
#include <unistd.h>

#include "Holt/Client.h"
#include "Holt/Server.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace Holt {
namespace {

/// An observer that leaves every change of `priority1` by a peer undecided.
class Asking final : public Kiv::Observer {
public:
   explicit Asking(Server& server) : server_(server) {}

   void onChange(Kiv::Change const& change) override {
      if (Kiv::entityOf(change).kivType().field(change.attributeId)->name ==
          std::string_view("priority1")) {
         askers.push_back(server_.asker());
         if (server_.asker() != 0) {
            throw Server::Undecided{};
         }
      }
   }

   std::vector<U64> askers;

private:
   Server& server_;
};

class ServerWriters : public testing::Test {
protected:
   ServerWriters() {
      char path[] = "/tmp/holt-XXXXXX";
      directory_ = ::mkdtemp(path);
      Server::Options options;
      options.socket = directory_ + "/socket";
      options.writers = Writers::nobody("the agent's own");
      server = std::make_unique<Server>(std::move(options));
      server->rootIs(status);
      server->rootIs(config, Writers());
      asking = std::make_unique<Asking>(*server);
      config->observerAdd(*asking);
      loop.add(*server);
   }
   ~ServerWriters() override {
      config->observerDel(*asking);
      clients.clear();
      server.reset();
      ::rmdir(directory_.c_str());
   }

   /// A mirror of the configuration that may be written.
   Sarn::Ptr<Ptp::Config> writer() {
      auto const mirror = Ptp::configFactory("ptp/config");
      clients.push_back(std::make_unique<Client>(directory_ + "/socket", std::chrono::seconds(5)));
      loop.add(*clients.back());
      Mount const& mount = clients.back()->mountIs(mirror, MountMode::writer);
      for (int i = 0; i != 100 && !mount.complete(); ++i) {
         turns(1);
      }
      EXPECT_TRUE(mount.complete());
      return mirror;
   }
   void turns(int count = 8) {
      for (int i = 0; i != count; ++i) {
         loop.turn(-1, std::chrono::milliseconds::zero());
      }
   }

   Sarn::Ptr<Ptp::Status> status = Ptp::statusFactory("ptp/status");
   Sarn::Ptr<Ptp::Config> config = Ptp::configFactory("ptp/config");
   std::unique_ptr<Server> server;
   std::unique_ptr<Asking> asking;
   std::vector<std::unique_ptr<Client>> clients;
   Loop loop;

private:
   std::string directory_;
};

TEST_F(ServerWriters, ARootMayHaveWritersOfItsOwn) {
   writer();
   Mount const& mount = clients[0]->mountIs({"Ptp::Status", "ptp/status"}, MountMode::writer);
   turns();
   EXPECT_FALSE(mount.complete());
   EXPECT_NE(mount.reason().find("ptp/status is the agent's own; it is read-only"),
             std::string::npos)
         << mount.reason();
}

TEST_F(ServerWriters, NothingFurtherIsAppliedWhileAChangeIsUndecided) {
   auto const mirror = writer();
   mirror->priority1Is(1);
   mirror->priority2Is(2);
   turns();
   EXPECT_EQ(config->priority1(), 1);
   EXPECT_EQ(config->priority2(), 128);
   ASSERT_EQ(asking->askers.size(), 1u);
   EXPECT_NE(asking->askers[0], 0u);
   server->decided(asking->askers[0], "");
   turns();
   EXPECT_EQ(config->priority2(), 2);
   EXPECT_FALSE(clients[0]->over());
}

TEST_F(ServerWriters, OtherPeersAreServedMeanwhile) {
   auto const mirror = writer();
   auto const other = writer();
   mirror->priority1Is(1);
   turns();
   other->priority2Is(3);
   turns();
   EXPECT_EQ(config->priority2(), 3);
   EXPECT_EQ(other->priority1(), 1);
}

TEST_F(ServerWriters, ARefusalEndsTheConnectionWithItsReason) {
   auto const mirror = writer();
   mirror->priority1Is(1);
   mirror->priority2Is(2);
   turns();
   server->decided(asking->askers[0], "ptp/config.priority1: not today");
   turns();
   EXPECT_TRUE(clients[0]->over());
   EXPECT_NE(clients[0]->closeReason().find("ptp/config.priority1: not today"), std::string::npos);
   EXPECT_EQ(config->priority2(), 128);
   EXPECT_EQ(server->peers(), 0u);
}

TEST_F(ServerWriters, ADecisionForAPeerThatHasLeftChangesNothing) {
   auto const mirror = writer();
   mirror->priority1Is(1);
   turns();
   loop.remove(*clients[0]);
   clients.clear();
   turns();
   server->decided(asking->askers[0], "too late");
   server->decided(0, "nobody");
   turns();
   auto const other = writer();
   EXPECT_EQ(other->priority1(), 1);
}

TEST_F(ServerWriters, ALocalChangeHasNoAsker) {
   config->priority1Is(5);
   EXPECT_EQ(asking->askers, std::vector<U64>{0});
}

}  // namespace
}  // namespace Holt

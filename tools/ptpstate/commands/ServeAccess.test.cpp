// Who may connect and who may write: the real program, run by two users.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "Holt/Client.h"
#include "Holt/Failure.test.h"
#include "Holt/State/Place.h"
#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {

using namespace Holt;

namespace {

constexpr uid_t nobody = 65534;

class ServeAccessTest : public WithServer {
protected:
   /// Whether commands can be run as somebody else.
   bool another() const {
      ::chmod(scratch.path().c_str(), 0755);
      return ::geteuid() == 0 && run({"--help"}, nobody).status == 0;
   }
   struct stat socketFile() const {
      struct stat file {};
      EXPECT_EQ(::stat(socket.c_str(), &file), 0);
      return file;
   }
};

TEST_F(ServeAccessTest, TheSocketGetsItsModeAndOwner) {
   serve({"--mode", "0620"});
   EXPECT_EQ(socketFile().st_mode & 0777, 0620U);
   server.reset();
   if (::geteuid() == 0) {
      serve({"--mode", "0606", "--owner", "65534:65534"});
      EXPECT_EQ(socketFile().st_mode & 0777, 0606U);
      EXPECT_EQ(socketFile().st_uid, nobody);
      EXPECT_EQ(socketFile().st_gid, 65534U);
   }
}

TEST_F(ServeAccessTest, AnOwnerThatCannotBeLeavesNoSocket) {
   if (!another()) {
      GTEST_SKIP() << "another user cannot run the program here";
   }
   ASSERT_EQ(::chmod(scratch.path().c_str(), 0777), 0);
   Outcome const outcome = run({"serve", "--socket", socket, "--owner", "root"}, nobody);
   EXPECT_EQ(outcome.status, 3);
   EXPECT_NE(outcome.err.find("cannot be given to that owner"), std::string::npos) << outcome.err;
   EXPECT_EQ(::access(socket.c_str(), F_OK), -1);
}

TEST_F(ServeAccessTest, WrongOptionsAreOneLine) {
   for (std::vector<std::string> const& wrong : {std::vector<std::string>{"--mode", "rw"},
                                                 {"--owner", ":"},
                                                 {"--writers", "no-such-user"}}) {
      Outcome const outcome = run({"serve", "--socket", socket, wrong[0], wrong[1]});
      EXPECT_EQ(outcome.status, 2) << wrong[0];
      EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
   }
}

TEST_F(ServeAccessTest, WhoIsNoWriterReadsAndIsRefusedToChange) {
   if (!another()) {
      GTEST_SKIP() << "another user cannot run the program here";
   }
   serve({"--mode", "0666", "--writers", "root"});
   EXPECT_EQ(client({"set", "ptp/config.priority1", "7"}).err, "");
   EXPECT_EQ(client({"get", "ptp/config.priority1"}, nobody).out, "7\n");
   for (std::vector<std::string> const& command :
        {std::vector<std::string>{"set", "ptp/config.priority1", "8"},
         {"add", "ptp/config.intfConfig[Ethernet1]", "true", "false"},
         {"del", "ptp/config.intfConfig"}}) {
      Outcome const outcome = client(command, nobody);
      EXPECT_EQ(outcome.status, 1) << command[0];
      EXPECT_EQ(
            outcome.err.find("ptpstate: ptp/config: the server accepts no changes from here: uid "
                             "65534, gid "),
            0U)
            << outcome.err;
      EXPECT_NE(outcome.err.find("writers: user root\n"), std::string::npos) << outcome.err;
   }
   EXPECT_EQ(client({"get", "ptp/config.priority1"}).out, "7\n");
   EXPECT_TRUE(server->says("refused Ptp::Config=ptp/config: uid 65534", 3)) << server->out();
}

TEST_F(ServeAccessTest, AGroupMayWrite) {
   if (!another()) {
      GTEST_SKIP() << "another user cannot run the program here";
   }
   // The other user keeps our group.
   serve({"--mode", "0666", "--writers", "1,:" + std::to_string(::getegid())});
   EXPECT_EQ(client({"set", "ptp/config.priority1", "8"}, nobody).err, "");
   EXPECT_EQ(client({"get", "ptp/config.priority1"}).out, "8\n");
}

/// A writer that stays connected: an agent in this process.
class Agent {
public:
   Agent(std::string const& socket, MountMode mode)
         : client_(socket, std::chrono::seconds(10)),
           mount_(client_.mountIs({"Ptp::Status", "ptp/status"}, mode)) {
      client_.waitComplete(mount_);
   }
   Place place(char const* steps) const {
      return {Sarn::Ptr<Kiv::Entity>(&mount_.root()), "ptp/status", parseSteps(steps)};
   }
   void sync() { client_.sync(); }

private:
   Client client_;
   Mount& mount_;
};

TEST_F(ServeAccessTest, AClaimedRootHasOneWriterAndTheNextFindsItAsItWasLeft) {
   serve({"--root", "Ptp::Status=ptp/status", "--root", "Ptp::Config=ptp/config"});
   auto agent = std::make_unique<Agent>(socket, MountMode::owner);
   agent->place(".holdoverExpiry").set("24");
   agent->place(".defaultDS").add({});
   agent->sync();

   Outcome const refused = client({"set", "ptp/status.holdoverExpiry", "5"});
   EXPECT_EQ(refused.status, 1);
   EXPECT_EQ(refused.err.find("ptpstate: ptp/status: the server accepts no changes from here: "
                              "ptp/status is claimed by pid " +
                              std::to_string(::getpid()) + ", uid "),
             0U)
         << refused.err;
   EXPECT_EQ(client({"set", "ptp/config.priority1", "5"}).err, "") << "it has claimed one root";
   EXPECT_EQ(client({"get", "ptp/status.holdoverExpiry"}).out, "24\n") << "others read it";

   agent.reset();
   EXPECT_TRUE(server->says("ended: closed by the peer: done"));
   Agent const next(socket, MountMode::owner);
   EXPECT_EQ(next.place(".holdoverExpiry").text(), "24");
   EXPECT_NE(next.place(".defaultDS").entity(), nullptr);
}

TEST_F(ServeAccessTest, WhatAnotherWritesCannotBeClaimed) {
   serve({"--root", "Ptp::Status=ptp/status"});
   Agent const writer(socket, MountMode::writer);
   EXPECT_NE(failureOf([this] {
                Agent(socket, MountMode::owner);
             }).find("ptp/status cannot be claimed: it is written by pid "),
             std::string::npos);
}

TEST_F(ServeAccessTest, TheLogSaysWhoCameAndHowItEnded) {
   serve();
   client({"get", "ptp/config.enabled"});
   EXPECT_TRUE(server->says(", uid " + std::to_string(::getuid()) + ", gid " +
                            std::to_string(::getgid()) + ", ptpstate) opened\n"))
         << server->out();
   EXPECT_TRUE(server->says(", ptpstate) ended: closed by the peer: done\n")) << server->out();
   Program watcher({"watch", "--socket", socket});
   ASSERT_TRUE(watcher.says("is complete"));
   watcher.signal(SIGKILL);
   EXPECT_TRUE(server->says(", ptpstate) lost: the peer has closed the connection\n"))
         << server->out();
   Program stays({"watch", "--socket", socket});
   ASSERT_TRUE(stays.says("is complete"));
   server->signal(SIGTERM);
   EXPECT_NE(server->finish().out.find(", ptpstate) ended: the server has ended\n"),
             std::string::npos)
         << server->out();
}

}  // namespace
}  // namespace Ptpstate

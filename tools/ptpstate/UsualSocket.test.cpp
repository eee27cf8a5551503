// Without --socket, servers and clients meet at a usual place.
#include <gtest/gtest.h>
#include <unistd.h>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

class UsualSocket : public testing::Test {
protected:
   Outcome client(std::vector<std::string> const& args) const { return run(args, in); }

   Scratch scratch;
   Surroundings in{.runtime = scratch.path()};
};

TEST_F(UsualSocket, OfTheUserIsWhereTheServerListensAndClientsLook) {
   Program server({"serve"}, in);
   ASSERT_TRUE(server.says("serving ptp/config")) << server.finish().err;
   EXPECT_TRUE(server.says(" at " + scratch.path() + "/ptpstate.sock"));
   EXPECT_EQ(client({"get", "ptp/config.priority1"}).out, "128\n");
   EXPECT_EQ(client({"complete", "--", "ptpstate get ptp/", "17", "ptp/"}).out, "ptp/config\n");
   Surroundings ports = in;
   ports.program = "ptpports";
   EXPECT_EQ(run({}, ports).err,
             "ptpports: the server offers no Ptp::Status; 'ptpstate dump' shows what it offers\n");
}

TEST_F(UsualSocket, GivesWayToTheEnvironmentAndTheOption) {
   std::string const other = scratch.file("other");
   Program server({"serve", "--socket", other}, in);
   ASSERT_TRUE(server.says("serving ptp/config"));
   EXPECT_EQ(client({"--socket", other, "get", "ptp/config.priority1"}).out, "128\n")
         << "options may come before the command";
   Surroundings named = in;
   named.socket = other;
   EXPECT_EQ(run({"get", "ptp/config.priority1"}, named).out, "128\n");
}

TEST_F(UsualSocket, IsNamedWhenNobodyServesThere) {
   if (::access("/run/ptpstate.sock", F_OK) == 0) {
      GTEST_SKIP() << "a server of this machine listens at /run/ptpstate.sock";
   }
   Outcome const outcome = client({"get", "ptp/config.priority1"});
   EXPECT_EQ(outcome.status, 3);
   EXPECT_EQ(outcome.err, "ptpstate: found no server at " + scratch.path() +
                                "/ptpstate.sock or /run/ptpstate.sock; name its socket with "
                                "--socket or in the environment variable PTPSTATE_SOCKET\n");
}

TEST_F(UsualSocket, IsNotNeededForHelp) {
   EXPECT_EQ(client({"help", "get"}).out, client({"get", "--help"}).out);
   EXPECT_EQ(client({"help"}).out, client({"--help"}).out);
   EXPECT_EQ(client({"--version"}).out.substr(0, 9), "ptpstate ");
   EXPECT_EQ(client({"help", "gte"}).err,
             "ptpstate: there is no command 'gte'; see 'ptpstate --help'\n");
}

}  // namespace
}  // namespace Ptpstate

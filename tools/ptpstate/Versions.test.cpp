// Programs with different versions of a module: old and new servers, readers and writers. The
// module is in a library for each version, which a program preloads.
#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

#ifdef PTPLIB_VERSIONS_DIR

class Versions : public testing::Test {
protected:
   static std::string library(std::string const& version) {
      return PTPLIB_VERSIONS_DIR "/libVersions" + version + ".so";
   }
   static Surroundings with(std::string const& version) {
      Surroundings in;
      in.preload = library(version);
      return in;
   }
   void serve(std::string const& version) {
      server = std::make_unique<Program>(
            std::vector<std::string>{"serve", "--socket", socket, "--root", "Versions::Rack=rack"},
            with(version));
      ASSERT_TRUE(server->says("serving"));
   }
   /// What a program of this version prints, or its error.
   std::string client(std::string const& version, std::vector<std::string> args) const {
      args.insert(args.begin() + 1, {"--socket", socket});
      Outcome const outcome = run(args, with(version));
      return outcome.status == 0 ? outcome.out
                                 : std::to_string(outcome.status) + ": " + outcome.err;
   }

   Scratch scratch;
   std::string socket = scratch.file("socket");
   std::unique_ptr<Program> server;
};

TEST_F(Versions, NewSourceGivesAnOldReaderAllThatItHas) {
   serve("After");
   EXPECT_EQ(client("After", {"set", "rack.owner", "me", "rack.place", "there"}), "");
   EXPECT_EQ(client("After", {"add", "rack.lamp[1]", "20"}), "");
   EXPECT_EQ(client("After", {"add", "rack.fuse[1]"}), "");
   EXPECT_EQ(client("After", {"set", "rack.lamp[1].mode", "blinking"}), "");
   EXPECT_EQ(client("Before", {"dump", "rack"}),
             "rack : Versions::Rack\n"
             "rack.place = \"there\"\n"
             "rack.limit = 10\n"
             "rack.lamp[1] : Versions::Lamp\n"
             "rack.lamp[1].number = 1\n"
             "rack.lamp[1].power  = 20\n"
             "rack.lamp[1].level  = 7\n"
             "rack.lamp[1].mode   = 2\n");
}

TEST_F(Versions, OldSourceGivesANewReaderAllThatItHas) {
   serve("Before");
   EXPECT_EQ(client("Before", {"add", "rack.lamp[1]", "20"}), "");
   EXPECT_EQ(client("After", {"dump", "rack"}),
             "rack : Versions::Rack\n"
             "rack.place = \"here\"\n"
             "rack.limit = 10\n"
             "rack.owner = \"\"\n"
             "rack.lamp[1] : Versions::Lamp\n"
             "rack.lamp[1].number = 1\n"
             "rack.lamp[1].power  = 20\n"
             "rack.lamp[1].level  = 5\n"
             "rack.lamp[1].mode   = off\n"
             "rack.lamp[1].colour = \"white\"\n");
}

TEST_F(Versions, OldWriterWritesItsDefaultsToANewSource) {
   serve("After");
   EXPECT_EQ(client("Before", {"add", "rack.lamp[1]", "20"}), "");
   EXPECT_EQ(client("Before", {"set", "rack.limit", "50"}), "");
   EXPECT_EQ(client("After", {"get", "rack.limit"}), "50\n");
   EXPECT_EQ(client("After", {"get", "rack.lamp[1].level"}), "5\n");
   EXPECT_EQ(client("After", {"get", "rack.lamp[1].mode"}), "off\n");
   EXPECT_EQ(client("After", {"get", "rack.lamp[1].colour"}), "\"white\"\n");
}

TEST_F(Versions, NewWriterIsToldWhatAnOldSourceCannotTake) {
   serve("Before");
   EXPECT_EQ(client("After", {"set", "rack.place", "there"}), "");
   EXPECT_EQ(client("After", {"add", "rack.lamp[1]", "20"}), "");
   std::string const begin = "1: ptpstate: not all changes could be sent: ";
   EXPECT_EQ(client("After", {"set", "rack.owner", "me", "rack.limit", "50"}),
             begin + "rack.owner (260): the peer has no such attribute\n");
   EXPECT_EQ(client("After", {"set", "rack.limit", "500"}),
             begin + "rack.limit (259): 500 is not in the peer's range, 0 to 100\n");
   EXPECT_EQ(client("After", {"add", "rack.lamp[2]", "100"}),
             begin + "rack.lamp[2].power (259): 100 is not in the peer's range, 1 to 50\n");
   EXPECT_EQ(client("After", {"set", "rack.lamp[1].colour", "red"}),
             begin + "rack.lamp[1].colour (262): the peer has no such attribute\n");
   EXPECT_EQ(client("After", {"add", "rack.fuse[1]"}),
             begin + "rack.fuse (264): the peer has no such attribute\n");
   EXPECT_EQ(client("Before", {"dump", "rack"}),
             "rack : Versions::Rack\n"
             "rack.place = \"there\"\n"
             "rack.limit = 50\n"
             "rack.lamp[1] : Versions::Lamp\n"
             "rack.lamp[1].number = 1\n"
             "rack.lamp[1].power  = 20\n"
             "rack.lamp[1].level  = 7\n"
             "rack.lamp[1].mode   = steady\n");
}

TEST_F(Versions, LiveChangesReachAnOldReaderWhoseStatusSaysWhatItLacks) {
   serve("After");
   Program watch({"watch", "--socket", socket, "rack"}, with("Before"));
   ASSERT_TRUE(watch.says("complete"));
   std::string const status = client("After", {"status"});
   EXPECT_NE(status.find("   lacks      5 attributes or types\n"
                         "              Versions::Fuse\n"
                         "              Versions::Lamp.colour\n"
                         "              Versions::Rack.owner\n"
                         "              Versions::Rack.fuse\n"
                         "              Versions::Rack.alarms\n"),
             std::string::npos)
         << status;
   EXPECT_NE(client("After", {"status", "--json"}).find("\"lackingCount\": 5"), std::string::npos);
   EXPECT_EQ(client("After", {"set", "rack.limit", "500"}), "");
   EXPECT_EQ(client("After", {"set", "rack.owner", "me", "rack.place", "there"}), "");
   EXPECT_TRUE(watch.says("rack.place: \"here\" -> \"there\""));
   EXPECT_EQ(watch.out().find("limit:"), std::string::npos);
   EXPECT_EQ(watch.out().find("owner"), std::string::npos);
   server->signal(2);
   std::string const log = server->finish().err + server->finish().out;
   EXPECT_NE(log.find("has another version of a module, and lacks Versions::Fuse, "
                      "Versions::Lamp.colour, Versions::Rack.owner, Versions::Rack.fuse, "
                      "Versions::Rack.alarms"),
             std::string::npos)
         << log;
   EXPECT_NE(log.find("left out: rack.limit (259): 500 is not in the peer's range, 0 to 100"),
             std::string::npos)
         << log;
}

TEST_F(Versions, ThatDoNotFitAreRefused) {
   serve("Before");
   EXPECT_EQ(
         client("Moved", {"dump", "rack"}),
         "3: ptpstate: " + socket +
               ": the connection is lost: module Versions has hash 5e01 at the peer, 5e03 here: "
               "Versions::Rack.lamp (260) has id 261 at the peer\n");
   EXPECT_EQ(client("Before", {"get", "rack.place"}), "\"here\"\n");
}

TEST_F(Versions, TalkIfKivcCallsThemCompatible) {
   Surroundings compiler;
   compiler.program = "kivc";
   std::string const versions = PTPLIB_SOURCE_DIR "/tests/versions/";
   auto const between = [&](std::string const& before, std::string const& after) {
      return run({"diff", versions + before + "/Versions.kiv", versions + after + "/Versions.kiv"},
                 compiler)
            .status;
   };
   EXPECT_EQ(between("before", "after"), 0);
   EXPECT_EQ(between("after", "before"), 3) << "back again, much is removed";
   EXPECT_EQ(between("before", "moved"), 3);
}

#endif

}  // namespace
}  // namespace Ptpstate

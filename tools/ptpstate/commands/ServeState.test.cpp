// A server's state outlives it: what it writes at its end, the next one loads.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

class ServeState : public WithServer {
protected:
   /// Interrupts the server, which must end normally and remove its socket.
   void end(int signal = SIGINT) {
      server->signal(signal);
      Outcome const& outcome = server->finish();
      EXPECT_EQ(outcome.status, 0) << outcome.err;
      EXPECT_EQ(::access(socket.c_str(), F_OK), -1);
   }

   std::string const file = scratch.file("state.json");
};

TEST_F(ServeState, ThatIsDumpedIsLoadedByTheNextServer) {
   serve({"--dump", file, "--root", "Ptp::Config=ptp/config", "--root", "Ptp::HwTime=ptp/time"});
   EXPECT_EQ(client({"set", "ptp/config.priority1", "7"}).err, "");
   EXPECT_EQ(client({"add", "ptp/config.intfConfig[Ethernet1]", "true", "false"}).err, "");
   std::string const state = client({"dump", "--json"}).out;
   end();
   EXPECT_EQ(readFile(file), state);
   serve({"--load", file, "--dump", file});
   EXPECT_EQ(client({"dump", "--json"}).out, state) << "the roots are those of the file";
   end();
   EXPECT_EQ(readFile(file), state) << "it may be the file that was loaded";
   for (auto const& entry : std::filesystem::directory_iterator(scratch.path())) {
      EXPECT_EQ(entry.path().string(), file) << "was left behind";
   }
}

TEST_F(ServeState, ThatIsDumpedIsTakenByLoad) {
   serve({"--dump", file});
   EXPECT_EQ(client({"set", "ptp/config.priority1", "7"}).err, "");
   end();
   serve();
   EXPECT_EQ(client({"load", file}).out, file + ": 1 change\n");
   EXPECT_EQ(client({"get", "ptp/config.priority1"}).out, "7\n");
}

TEST_F(ServeState, IsKeptWhateverEndsTheServer) {
   for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
      serve({"--dump", file});
      std::string const value = std::to_string(signal);
      EXPECT_EQ(client({"set", "ptp/config.priority1", value}).err, "");
      end(signal);
      EXPECT_NE(readFile(file).find("\"priority1\": " + value + ","), std::string::npos) << signal;
   }
}

TEST_F(ServeState, ThatIsWrongIsNotServed) {
   std::ofstream(file) << R"({"format": "ptpstate dump 1", "places": [{"root": {"type":
         "Ptp::Config", "name": "ptp/config"}, "path": "ptp/config", "state": {"driftLimit": 7}}]})";
   Outcome const outcome = run({"serve", "--socket", socket, "--load", file});
   EXPECT_EQ(outcome.status, 1);
   EXPECT_NE(outcome.err.find("ptpstate: ptp/config.driftLimit: "), std::string::npos)
         << outcome.err;
   EXPECT_NE(outcome.err.find(file + ": not loaded, and nothing is served"), std::string::npos)
         << outcome.err;
   EXPECT_EQ(::access(socket.c_str(), F_OK), -1);
}

TEST_F(ServeState, OfARootThatIsNotServedIsRefused) {
   serve({"--dump", file});
   end();
   Outcome const outcome =
         run({"serve", "--socket", socket, "--load", file, "--root", "Ptp::HwTime=ptp/time"});
   EXPECT_EQ(outcome.status, 1);
   EXPECT_EQ(outcome.err, "ptpstate: " + file +
                                ": has Ptp::Config=ptp/config, which is not served; add --root "
                                "Ptp::Config=ptp/config\n");
}

}  // namespace
}  // namespace Ptpstate

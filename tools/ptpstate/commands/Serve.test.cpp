// Commands against a live server, as transcripts.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <thread>

#include "Holt/LogOutput.test.h"
#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

using Holt::Ends;

class ServeTest : public WithServer {
protected:
   /// Commands and their output, as in a terminal.
   std::string transcript(std::vector<std::vector<std::string>> const& commands) {
      std::string all;
      for (std::vector<std::string> const& command : commands) {
         all += "$";
         for (std::string const& word : command) {
            all += " " + word;
         }
         Outcome const outcome = client(command);
         all += "\n" + outcome.out + outcome.err;
         if (outcome.status != 0) {
            all += "-> " + std::to_string(outcome.status) + "\n";
         }
      }
      return replaced(all, socket, "SOCKET");
   }
};

TEST_F(ServeTest, GetsAndSets) {
   serve();
   EXPECT_EQ(transcript({{"get", "ptp/config.priority1"},
                         {"set", "ptp/config.priority1", "7"},
                         {"get", "ptp/config.priority1"},
                         {"set", "ptp/config.clockQuality.clockClass", "6"},
                         {"get", "ptp/config.clockQuality"},
                         {"set", "ptp/config.missingSequenceThresholds[sync]", "5"},
                         {"get", "ptp/config.missingSequenceThresholds"},
                         {"del", "ptp/config.missingSequenceThresholds[sync]"},
                         {"get", "ptp/config.missingSequenceThresholds[sync]"}}),
             "$ get ptp/config.priority1\n"
             "128\n"
             "$ set ptp/config.priority1 7\n"
             "$ get ptp/config.priority1\n"
             "7\n"
             "$ set ptp/config.clockQuality.clockClass 6\n"
             "$ get ptp/config.clockQuality\n"
             "Ptp::ClockQuality(clockClass=6, clockAccuracy=254, offsetScaledLogVariance=65535)\n"
             "$ set ptp/config.missingSequenceThresholds[sync] 5\n"
             "$ get ptp/config.missingSequenceThresholds\n"
             "ptp/config.missingSequenceThresholds[sync] = 5\n"
             "$ del ptp/config.missingSequenceThresholds[sync]\n"
             "$ get ptp/config.missingSequenceThresholds[sync]\n"
             "ptpstate: ptp/config.missingSequenceThresholds[sync]: does not exist\n"
             "-> 1\n");
}

TEST_F(ServeTest, TakesTheJsonThatGetPrints) {
   serve();
   EXPECT_EQ(client({"add", "ptp/config.intfConfig[Ethernet1]", "true", "false"}).err, "");
   for (char const* const path :
        {"ptp/config.clockQuality", "ptp/config.ptpProfile", "ptp/config.priority1"}) {
      std::string const json = client({"get", "--json", path}).out;
      Outcome const set = client({"set", "--json", path, json});
      EXPECT_EQ(set.status, 0) << path << set.err;
      EXPECT_EQ(client({"get", "--json", path}).out, json);
   }
   EXPECT_EQ(client({"set", "--json", "ptp/config.ptpProfile", "\"g8275_1\""}).err, "");
   EXPECT_EQ(client({"get", "ptp/config.ptpProfile"}).out, "g8275_1\n");
   std::string const port = "ptp/config.intfConfig[Ethernet1]";
   std::string const file = scratch.file("port.json");
   std::ofstream(file) << client({"get", "--json", port}).out;
   EXPECT_EQ(client({"load", "--at", port, file}).out, file + ": 0 changes\n");
   EXPECT_EQ(client({"set", port + ".logSyncInterval", "-4"}).err, "");
   EXPECT_EQ(client({"load", "--at", port, file}).out, file + ": 1 change\n");
   EXPECT_EQ(client({"get", port + ".logSyncInterval"}).out, "0\n");
   EXPECT_EQ(client({"set", "--json", port, "{}"}).err,
             "ptpstate: " + port + ": is not a single value; use 'load --at' instead\n");
   EXPECT_EQ(client({"set", "--json", "ptp/config.priority1", "300"}).status, 1);
   EXPECT_EQ(client({"get", "ptp/config.priority1"}).out, "128\n");
}

TEST_F(ServeTest, CreatesAndRemovesChildren) {
   serve();
   EXPECT_EQ(transcript({{"add", "ptp/config.intfConfig[Ethernet1]"},
                         {"add", "ptp/config.intfConfig[Ethernet1]", "true", "false"},
                         {"add", "ptp/config.intfConfig[Ethernet1].vlanConfig[100]"},
                         {"set", "ptp/config.intfConfig[Ethernet1].logSyncInterval", "-4"},
                         {"get", "ptp/config.intfConfig[Ethernet1].logSyncInterval"},
                         {"get", "ptp/config.intfConfig[Ethernet1].vlanConfig"},
                         {"del", "ptp/config.intfConfig[Ethernet1]"},
                         {"get", "ptp/config.intfConfig[Ethernet1].logSyncInterval"},
                         {"del", "ptp/config.intfConfig[Ethernet1]"}}),
             "$ add ptp/config.intfConfig[Ethernet1]\n"
             "ptpstate: ptp/config.intfConfig[Ethernet1]: takes these arguments: enabled (bool), "
             "mpassEnabled (bool)\n"
             "-> 1\n"
             "$ add ptp/config.intfConfig[Ethernet1] true false\n"
             "$ add ptp/config.intfConfig[Ethernet1].vlanConfig[100]\n"
             "$ set ptp/config.intfConfig[Ethernet1].logSyncInterval -4\n"
             "$ get ptp/config.intfConfig[Ethernet1].logSyncInterval\n"
             "-4\n"
             "$ get ptp/config.intfConfig[Ethernet1].vlanConfig\n"
             "ptp/config.intfConfig[Ethernet1].vlanConfig[100] : Ptp::VlanConfig\n"
             "ptp/config.intfConfig[Ethernet1].vlanConfig[100].vlanId = 100\n"
             "$ del ptp/config.intfConfig[Ethernet1]\n"
             "$ get ptp/config.intfConfig[Ethernet1].logSyncInterval\n"
             "ptpstate: ptp/config.intfConfig[Ethernet1]: does not exist\n"
             "-> 1\n"
             "$ del ptp/config.intfConfig[Ethernet1]\n"
             "ptpstate: ptp/config.intfConfig[Ethernet1]: does not exist\n"
             "-> 1\n");
}

TEST_F(ServeTest, RefusesInTheSettersWordsAndChangesNothing) {
   serve();
   std::string const before = client({"dump"}).out;
   EXPECT_EQ(
         transcript({{"set", "ptp/config.driftLimit", "7"},
                     {"set", "ptp/config.priority1", "300"},
                     {"set", "ptp/config.ptpProfile", "none"},
                     {"set", "ptp/config", "1"},
                     {"set", "ptp/other.enabled", "1"}}),
         "$ set ptp/config.driftLimit 7\n"
         "ptpstate: ptp/config.driftLimit: 7 is not allowed; the range is 50 to "
         "500000000\n"
         "-> 1\n"
         "$ set ptp/config.priority1 300\n"
         "ptpstate: ptp/config.priority1: 300 does not fit U8 (0 to 255)\n"
         "-> 1\n"
         "$ set ptp/config.ptpProfile none\n"
         "ptpstate: ptp/config.ptpProfile: 'none' is not a valid Ptp::PtpProfile: at position 0: "
         "expected ptpDefault, g8275_1, g8275_2, g8265_1, gptp, or a number of Ptp::PtpProfile\n"
         "-> 1\n"
         "$ set ptp/config 1\n"
         "ptpstate: ptp/config: is an entity; 'add' creates one, 'del' removes it, 'set' sets "
         "its attributes\n"
         "-> 1\n"
         "$ set ptp/other.enabled 1\n"
         "ptpstate: 'ptp/other.enabled' does not begin with the name of a root; the server has "
         "ptp/config\n"
         "-> 1\n");
   EXPECT_EQ(client({"dump"}).out, before);
}

TEST_F(ServeTest, HoldsAnyRootsThatAreAskedFor) {
   serve({"--root", "Ptp::Status=twice", "--root", "Ptp::Config=twice", "--root",
          "Ptp::HwTime=ptp/time"});
   EXPECT_EQ(client({"get", "Ptp::Config=twice.priority1"}).out, "128\n");
   EXPECT_EQ(client({"get", "twice.priority1"}).status, 1);
   Outcome const summary = client({"dump", "--summary"});
   EXPECT_NE(summary.out.find("Ptp::HwTime"), std::string::npos) << summary.out;
   EXPECT_NE(summary.out.find("total"), std::string::npos) << summary.out;
   Outcome const dump = client({"dump", "ptp/time"});
   EXPECT_EQ(dump.out.find("ptp/time : Ptp::HwTime\nptp/time.fpgaAndSystemTime = "), 0U)
         << dump.out;
}

TEST_F(ServeTest, RefusesRootsThatCannotBe) {
   struct {
      char const* root;
      char const* says;
   } const cases[] = {{"Ptp::Config", "expected TYPE=NAME"},
                      {"Ptp::Nothing=x", "there is no type 'Ptp::Nothing'"},
                      {"Ptp::IntfConfig=x", "cannot be a root"},
                      {"Ptp::ClockQuality=x", "cannot be a root"}};
   for (auto const& at : cases) {
      Outcome const outcome = run({"serve", "--socket", socket, "--root", at.root});
      EXPECT_EQ(outcome.status, 1) << at.root;
      EXPECT_NE(outcome.err.find(at.says), std::string::npos) << outcome.err;
   }
}

TEST_F(ServeTest, LoadsAConfigurationFileAndTellsWhatHasNoPlace) {
   std::string const file = std::string(PTPLIB_SOURCE_DIR) + "/Holt/Ptp4l/testdata/boundary.conf";
   serve({"--ptp4l-conf", file, "--notes"});
   EXPECT_TRUE(server->says("note: " + file + ":24: step_threshold: "));
   EXPECT_EQ(client({"get", "ptp/config.priority2"}).out, "120\n");
   EXPECT_EQ(client({"get", "ptp/config.intfConfig[eth2].transportMode"}).out, "ipv4\n");
}

TEST_F(ServeTest, CountsWhatHasNoPlaceAndTakesInterfacesThatTheFileDoesNotName) {
   std::string const file = scratch.file("ptp4l.conf");
   std::ofstream(file) << "[global]\npriority1 7\nstep_threshold 1\nlogSyncInterval -4\n";
   serve({"--ptp4l-conf", file, "--interface", "eth0", "--interface", "eth1"});
   EXPECT_EQ(
         server->out().substr(0, server->out().find("serving")),
         "note: " + file + ": 1 setting is not loaded; --notes lists it\nloaded " + file + "\n");
   EXPECT_EQ(client({"get", "ptp/config.intfConfig[eth0].logSyncInterval"}).out, "-4\n");
   EXPECT_EQ(client({"get", "ptp/config.intfConfig[eth1].enabled"}).out, "true\n");
   server.reset();
   serve({"--ptp4l-conf", file});
   EXPECT_NE(server->out().find("note: " + file +
                                ": has no interface; name those of ptp4l -i with --interface\n"),
             std::string::npos)
         << server->out();
   EXPECT_EQ(run({"serve", "--socket", socket, "--interface", "eth0"}).status, 2);
}

TEST_F(ServeTest, AWrongConfigurationFileIsNotServed) {
   std::string const file = scratch.file("wrong.conf");
   std::ofstream(file) << "[global]\npriority1 300\n";
   Outcome const outcome = run({"serve", "--socket", socket, "--ptp4l-conf", file});
   EXPECT_EQ(outcome.status, 1);
   EXPECT_EQ(outcome.err.find("ptpstate: " + file + ":2: priority1: "), 0U) << outcome.err;
   EXPECT_EQ(::access(socket.c_str(), F_OK), -1);

   Outcome const missing = run({"serve", "--socket", socket, "--ptp4l-conf", "/no/such/file"});
   EXPECT_EQ(missing.status, 1);
   EXPECT_NE(missing.err.find("/no/such/file"), std::string::npos) << missing.err;
}

TEST_F(ServeTest, InterruptedItRemovesItsSocket) {
   serve();
   server->signal(SIGINT);
   EXPECT_EQ(server->finish().status, 0);
   EXPECT_EQ(::access(socket.c_str(), F_OK), -1);
}

TEST_F(ServeTest, TwoWritersBothChangeIt) {
   serve();
   constexpr int rounds = 15;
   auto const write = [this](std::string const& port) {
      for (int i = 0; i != rounds; ++i) {
         std::string const path = "ptp/config.intfConfig[" + port + std::to_string(i) + "]";
         EXPECT_EQ(client({"add", path, "true", "false"}).err, "");
      }
   };
   std::thread other([&] { write("Ethernet"); });
   write("eth");
   other.join();
   Outcome const summary = client({"dump", "--summary", "ptp/config.intfConfig"});
   EXPECT_NE(summary.out.find("        30 "), std::string::npos) << summary.out;
}

TEST_F(ServeTest, ASocketThatIsServedIsRefused) {
   serve();
   Outcome const outcome = run({"serve", "--socket", socket});
   EXPECT_EQ(outcome.status, 3);
   EXPECT_EQ(outcome.err,
             "ptpstate: " + socket +
                   ": another process is serving here; stop it, or choose another socket\n");
   EXPECT_EQ(client({"get", "ptp/config.enabled"}).out, "false\n") << "the first goes on";
}

TEST_F(ServeTest, ASocketThatWasLeftIsReplaced) {
   serve();
   server->signal(SIGKILL);
   server->finish();
   ASSERT_EQ(::access(socket.c_str(), F_OK), 0);
   EXPECT_NE(client({"get", "ptp/config.enabled"}).err.find("no server listens here any more"),
             std::string::npos);
   serve();
   EXPECT_EQ(client({"get", "ptp/config.enabled"}).out, "false\n");
}

TEST_F(ServeTest, AFileThatIsNoSocketIsLeftAlone) {
   std::ofstream(socket) << "precious";
   Outcome const outcome = run({"serve", "--socket", socket});
   EXPECT_EQ(outcome.status, 3);
   EXPECT_NE(outcome.err.find("exists and is not a socket"), std::string::npos) << outcome.err;
   EXPECT_EQ(readFile(socket), "precious");
}

TEST_F(ServeTest, ASocketThatCannotBeSaysWhy) {
   std::string const tooLong = "/tmp/" + std::string(120, 'x');
   EXPECT_NE(run({"serve", "--socket", tooLong}).err.find("at most 107 bytes, this one has 125"),
             std::string::npos);
   EXPECT_EQ(run({"get", "--socket", tooLong, "ptp/config"}).status, 3);
   Outcome const noDirectory = run({"serve", "--socket", scratch.file("no/socket")});
   EXPECT_EQ(noDirectory.status, 3);
   EXPECT_NE(noDirectory.err.find("create its directory first"), std::string::npos);
   Outcome const nobody = run({"dump", "--socket", scratch.file("nobody")});
   EXPECT_EQ(nobody.status, 3);
   EXPECT_NE(nobody.err.find("there is no such socket; start a server there"), std::string::npos);
}

TEST_F(ServeTest, ASocketThatIsNotPermittedSaysSo) {
   constexpr uid_t nobody = 65534;
   // The other user must be able to run the program; otherwise there is nothing to test.
   if (::geteuid() == 0 && run({"--help"}, nobody).status != 0) {
      GTEST_SKIP() << "another user cannot run the program here";
   }
   serve();
   ASSERT_EQ(::chmod(scratch.path().c_str(), 0755), 0);
   ASSERT_EQ(::chmod(socket.c_str(), ::geteuid() == 0 ? 0600 : 0), 0);
   Outcome const reading = run({"get", "--socket", socket, "ptp/config.enabled"}, nobody);
   EXPECT_EQ(reading.status, 3);
   EXPECT_NE(reading.err.find("you are not permitted to connect"), std::string::npos)
         << reading.err;
   ASSERT_EQ(::chmod(scratch.path().c_str(), 0555), 0);
   Outcome const serving = run({"serve", "--socket", scratch.file("other")}, nobody);
   EXPECT_EQ(serving.status, 3);
   EXPECT_NE(serving.err.find("choose a directory that you may write to"), std::string::npos)
         << serving.err;
   ASSERT_EQ(::chmod(scratch.path().c_str(), 0755), 0);
}

TEST_F(ServeTest, AServerThatDoesNotAnswerIsGivenUp) {
   serve();
   server->signal(SIGSTOP);
   Outcome const outcome = client({"set", "--timeout", "0.2", "ptp/config.enabled", "true"});
   server->signal(SIGCONT);
   EXPECT_EQ(outcome.status, 3);
   EXPECT_NE(outcome.err.find("does not answer"), std::string::npos) << outcome.err;
   EXPECT_EQ(client({"get", "ptp/config.enabled"}).out, "false\n") << "the server goes on";
}

TEST_F(ServeTest, APeerThatSpeaksSomethingElseIsSentAway) {
   serve();
   int const fd = connectedTo(socket);
   ASSERT_GE(fd, 0);
   std::string const nonsense = "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n";
   ASSERT_EQ(::write(fd, nonsense.data(), nonsense.size()), static_cast<ssize_t>(nonsense.size()));
   EXPECT_TRUE(
         server->says(") refused: the peer does not begin with the attribute log's greeting"));
   ::close(fd);
   EXPECT_EQ(client({"get", "ptp/config.enabled"}).out, "false\n");
}

TEST_F(ServeTest, ALogThatNobodyReadsHoldsUpNobody) {
   Ends ends(false);
   std::string const full(4096, 'x');
   ASSERT_EQ(::write(ends.fds[1], full.data(), full.size()), 4096);
   Surroundings in;
   in.output = ends.fds[1];
   server = std::make_unique<Program>(std::vector<std::string>{"serve", "--socket", socket}, in);
   for (int i = 0; i != 100 && ::access(socket.c_str(), F_OK) != 0; ++i) {
      ::usleep(50'000);
   }
   auto const ask = [this] { return client({"get", "--timeout", "5", "ptp/config.priority1"}); };
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
   server->signal(SIGTERM);
   EXPECT_EQ(server->finish().status, 0);
}

TEST(CommandLine, AWrongOneIsOneLineAndItsOwnStatus) {
   for (std::vector<std::string> const& args : {std::vector<std::string>{},
                                                {"nonsense"},
                                                {"get", "--socket", "x"},
                                                {"set", "--socket", "x", "path"},
                                                {"watch", "--socket", "x", "--count", "none"},
                                                {"del", "--socket", "x", "p", "-3"}}) {
      Outcome const outcome = run(args);
      EXPECT_EQ(outcome.status, 2) << outcome.err;
      EXPECT_EQ(outcome.err.find("ptpstate: "), 0U) << outcome.err;
      EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
   }
}

}  // namespace
}  // namespace Ptpstate

// The program: its command line, and several daemons at once.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "PtpLib/PtpOpenConfig/Instance.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"
#include "tools/ptp4lAgent/Lab.test.h"
#include "tools/ptp4lAgent/StandIn.test.h"

namespace {

using namespace Ptp4lAgent;

/// Where systemd waits for a service to be ready.
class NotifySocket {
public:
   explicit NotifySocket(std::string const& path)
         : fd_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy(address.sun_path, sizeof address.sun_path - 1);
      EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
      ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
   }
   ~NotifySocket() {
      ::unsetenv("NOTIFY_SOCKET");
      ::close(fd_);
   }
   NotifySocket(NotifySocket const&) = delete;
   NotifySocket& operator=(NotifySocket const&) = delete;

   /// The first message, for which the stand-ins answer as long as it takes; empty if none comes.
   std::string received(std::vector<StandIn*> const& daemons) const {
      for (int i = 0; i != 4000; ++i) {
         for (StandIn* const daemon : daemons) {
            daemon->serve();
         }
         char text[256];
         ssize_t const size = ::recv(fd_, text, sizeof text, 0);
         if (size > 0) {
            return {text, static_cast<std::size_t>(size)};
         }
         std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
      return {};
   }

private:
   int fd_;
};

class ProgramTest : public testing::Test {
protected:
   ProgramTest() {
      std::string pattern = (std::filesystem::temp_directory_path() / "ptp4lAgent.XXXXXX").string();
      directory = ::mkdtemp(pattern.data());
   }
   ~ProgramTest() override {
      client.reset();
      stop();
      std::filesystem::remove_all(directory);
   }

   std::string file(std::string const& name) const { return directory + "/" + name; }
   /// Runs the program to its end; its exit status and output.
   std::string run(std::string const& arguments) const {
      int status = 0;
      std::string const said = outputOf("timeout 10 " + std::string(PTPLIB_BIN_DIR) +
                                              "/ptp4lAgent --socket " + file("s") + " " + arguments,
                                        &status);
      return std::to_string(status) + " " + said;
   }
   /// Starts the program, and connects to it.
   void start(std::vector<std::string> args) {
      args.insert(args.begin(),
                  {std::string(PTPLIB_BIN_DIR) + "/ptp4lAgent", "--quiet", "--socket", file("s")});
      std::vector<char*> pointers;
      for (std::string& one : args) {
         pointers.push_back(one.data());
      }
      pointers.push_back(nullptr);
      pid = ::fork();
      if (pid == 0) {
         std::freopen((directory + "/log").c_str(), "w", stdout);
         ::execv(pointers[0], pointers.data());
         ::_exit(127);
      }
      for (int i = 0; client == nullptr; ++i) {
         try {
            client = std::make_unique<Holt::Client>(file("s"), std::chrono::seconds(20));
         } catch (Holt::Failure const&) {
            ASSERT_LT(i, 200) << "the agent does not listen";
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
         }
      }
   }
   int stop() {
      int status = -1;
      if (pid > 0) {
         ::kill(pid, SIGTERM);
         ::waitpid(pid, &status, 0);
         pid = -1;
      }
      return status;
   }
   /// Serves the stand-ins until something holds.
   bool eventually(std::vector<StandIn*> const& daemons, std::function<bool()> const& holds) {
      for (int i = 0; i != 2000 && !holds(); ++i) {
         for (StandIn* const daemon : daemons) {
            daemon->serve();
         }
         client->turn(-1, std::chrono::milliseconds(5));
      }
      return holds();
   }

   std::string directory;
   pid_t pid = -1;
   std::unique_ptr<Holt::Client> client;
};

TEST_F(ProgramTest, SaysWhatIsWrongWithItsCommandLine) {
   EXPECT_EQ(run("--ptp4l =/tmp/x"),
             "2 ptp4lAgent: --ptp4l =/tmp/x: expected a path, or NAME=PATH\n");
   EXPECT_EQ(run("--ptp4l a=/tmp/x --ptp4l a=/tmp/y"),
             "2 ptp4lAgent: --ptp4l a=/tmp/y: /tmp/x is named 'a', too; name each, as in "
             "NAME=PATH\n");
   EXPECT_EQ(run("--domain 256")[0], '2');
   EXPECT_EQ(run("--nonsense")[0], '2');
   EXPECT_EQ(run("--writers no-such-user-here")[0], '2');
}

TEST_F(ProgramTest, AConfigurationFileWithErrorsIsNotUsed) {
   std::ofstream(file("conf")) << "[global]\npriority1 1000\n";
   std::string const said = run("--conf " + file("conf"));
   EXPECT_EQ(said[0], '1');
   EXPECT_NE(said.find("conf:2: priority1: "), std::string::npos) << said;
   EXPECT_EQ(run("--conf " + file("none"))[0], '1');
}

TEST_F(ProgramTest, WritesTheConfigurationOfOneDaemonAndReloadsIt) {
   EXPECT_EQ(run("--reload true"), "2 ptp4lAgent: --reload needs --write-conf\n");
   EXPECT_EQ(run("--write-conf /tmp/x --ptp4l /tmp/a --ptp4l /tmp/b"),
             "2 ptp4lAgent: --write-conf: there are several ptp4l; run an agent for each\n");

   StandIn daemon(file("daemon"), "ptp4l-3.1.1-slave");
   std::ofstream(file("conf")) << "[global]\nuse_syslog 0\n[eth0]\n";
   start({"--ptp4l", "ptp=" + file("daemon"), "--conf", file("conf"), "--write-conf", file("conf"),
          "--reload", "cp " + file("conf") + " " + file("seen")});
   auto const config = Ptp::configFactory("ptp/config");
   auto& mount = client->mountIs(config, Holt::MountMode::writer);
   client->waitComplete(mount);
   EXPECT_TRUE(eventually({&daemon}, [&] { return config->intfConfigCount() == 1; }));
   // The daemon's values are not a change by others.
   EXPECT_FALSE(std::filesystem::exists(file("seen")));
   config->ttlIs(9);
   config->intfConfigAll().begin()->get()->logSyncIntervalIs(-2);
   EXPECT_TRUE(eventually({&daemon}, [&] { return std::filesystem::exists(file("seen")); }));
   std::ostringstream all;
   all << std::ifstream(file("seen")).rdbuf();
   EXPECT_NE(all.str().find("udp_ttl                         9\n"), std::string::npos);
   EXPECT_NE(all.str().find("logSyncInterval                 -2\n"), std::string::npos);
   EXPECT_NE(all.str().find("use_syslog                      0\n"), std::string::npos);
   EXPECT_EQ(stop(), 0);
}

TEST_F(ProgramTest, EndsWith3IfItsSocketCannotBeMade) {
   std::ofstream(file("s")) << "a file\n";
   EXPECT_EQ(run("")[0], '3');
}

TEST_F(ProgramTest, WithoutADaemonItServesAStatusThatSaysSo) {
   start({"--ptp4l", file("none")});
   auto const status = Ptp::statusFactory("ptp/status");
   client->waitComplete(client->mountIs(status, Holt::MountMode::reader));
   EXPECT_FALSE(status->enabled());
   EXPECT_EQ(stop(), 0);
   EXPECT_FALSE(std::filesystem::exists(file("s")));
}

TEST_F(ProgramTest, TellsSystemdThatItIsReadyOnceThePortsCanBeRead) {
   NotifySocket const systemd(file("notify"));
   StandIn daemon(file("ptp4l"), "ptp4l-3.1.1-boundary");
   start({"--ptp4l", file("ptp4l")});
   EXPECT_EQ(systemd.received({&daemon}), "READY=1");
   // From here on, the daemon answers nothing.
   auto const status = Ptp::statusFactory("ptp/status");
   client->waitComplete(client->mountIs(status, Holt::MountMode::reader));
   EXPECT_TRUE(status->enabled());
   EXPECT_EQ(status->portDSCount(), 2u);
}

TEST_F(ProgramTest, TellsSystemdThatItIsReadyThoughThereIsNoDaemon) {
   NotifySocket const systemd(file("notify"));
   start({"--ptp4l", file("none")});
   EXPECT_EQ(systemd.received({}), "READY=1");
}

TEST_F(ProgramTest, ServesSeveralDaemonsByTheirNames) {
   StandIn left(file("left"), "ptp4l-3.1.1-slave");
   StandIn right(file("right"), "ptp4l-3.1.1-boundary");
   start({"--ptp4l", file("left"), "--ptp4l", "other=" + file("right")});
   auto const first = Ptp::statusFactory("left/status");
   auto const second = Ptp::statusFactory("other/status");
   client->waitComplete(client->mountIs(first, Holt::MountMode::reader));
   client->waitComplete(client->mountIs(second, Holt::MountMode::reader));
   EXPECT_TRUE(eventually({&left, &right},
                          [&] { return first->portDSCount() == 1 && second->portDSCount() == 2; }));
   EXPECT_EQ(client->roots().size(), 10u);
   // Their ids are the keys of the model's list.
   auto const one = Openconfig::Ptp::instanceFactory("left/instance");
   auto const two = Openconfig::Ptp::instanceFactory("other/instance");
   client->waitComplete(client->mountIs(one, Holt::MountMode::reader));
   client->waitComplete(client->mountIs(two, Holt::MountMode::reader));
   EXPECT_EQ(one->id(), 0u);
   EXPECT_EQ(two->id(), 1u);
   client.reset();
   EXPECT_EQ(stop(), 0);
   int files = 0;
   for (auto const& entry : std::filesystem::directory_iterator(directory)) {
      files += entry.path().filename().string().starts_with("ptp4lAgent.");
   }
   EXPECT_EQ(files, 0) << "its own sockets are removed";
}

TEST_F(ProgramTest, OnlyTheConfigurationCanBeWritten) {
   StandIn daemon(file("ptp4l"), "ptp4l-3.1.1-grandmaster");
   start({"--ptp4l", file("ptp4l")});
   auto const status = Ptp::statusFactory("ptp/status");
   auto const& mount = client->mountIs(status, Holt::MountMode::writer);
   EXPECT_THROW(client->waitComplete(mount), Holt::Failure);
   EXPECT_NE(mount.reason().find("read-only"), std::string::npos) << mount.reason();
}

TEST_F(ProgramTest, WhoMakesAChangeThatPtp4lRefusesLosesTheConnectionWithItsError) {
   StandIn daemon(file("ptp4l"), "ptp4l-3.1.1-grandmaster");
   start({"--ptp4l", file("ptp4l")});
   auto const config = Ptp::configFactory("ptp/config");
   client->waitComplete(client->mountIs(config, Holt::MountMode::writer));
   ASSERT_TRUE(eventually({&daemon}, [&] { return config->priority1() == 10; }));
   daemon.refused[Id::priority1] = 4;
   config->priority1Is(20);
   EXPECT_TRUE(eventually({&daemon}, [&] { return client->over(); }));
   EXPECT_EQ(client->closeReason(),
             "closed by the peer: ptp/config.priority1: ptp4l refuses PRIORITY1: WRONG_VALUE");
}

}  // namespace

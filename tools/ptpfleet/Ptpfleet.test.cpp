// The program itself, between an agent and a server.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <spawn.h>

#include <sstream>

#include "Fleet/Fixture.test.h"
#include "Fleet/Mirror.h"
#include "Holt/Client.h"
#include "Holt/State/Dump.h"
#include "tools/shared/Feed.h"

namespace {

std::string textOf(std::string const& path) {
   std::ostringstream text;
   text << std::ifstream(path).rdbuf();
   return text.str();
}

std::string dumpOf(Kiv::NamedEntity* root) {
   std::ostringstream text;
   Holt::dumpRoots(text, {root});
   return text.str();
}

class Ptpfleet : public Fleet::Test::FleetTest {
protected:
   Ptpfleet() {
      std::string pattern = std::filesystem::temp_directory_path() / "ptpfleet-XXXXXX";
      directory_ = ::mkdtemp(pattern.data());
   }
   ~Ptpfleet() override {
      for (pid_t const pid : children_) {
         end(pid, SIGTERM);
      }
      std::filesystem::remove_all(directory_);
   }

   std::string file(std::string const& name) const { return directory_ + "/" + name; }
   /// Starts a program; its output is in the file `out`.
   pid_t start(std::vector<std::string> arguments, std::string const& out) {
      arguments[0] = PTPLIB_BIN_DIR "/" + arguments[0];
      std::vector<char*> pointers;
      for (std::string& argument : arguments) {
         pointers.push_back(argument.data());
      }
      pointers.push_back(nullptr);
      pid_t const pid = ::fork();
      if (pid == 0) {
         ::prctl(PR_SET_PDEATHSIG, SIGKILL);
         int const fd = ::open(file(out).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
         ::dup2(fd, 1);
         ::dup2(fd, 2);
         ::execv(pointers[0], pointers.data());
         ::_exit(127);
      }
      children_.push_back(pid);
      return pid;
   }
   pid_t startAgent(char const* ports) {
      return start({"demoAgent", "--socket", file("socket"), "--ports", ports}, "agent");
   }
   pid_t startPublisher(Fleet::Test::NatsServer const& server) {
      return start({"ptpfleet", "publish", "--nats", server.url(), "--switch", "edge-7", "--socket",
                    file("socket"), "--heartbeat", "0.2", "--storage", "memory"},
                   "fleet");
   }
   int end(pid_t pid, int signal) {
      std::erase(children_, pid);
      int status = 0;
      ::kill(pid, signal);
      ::waitpid(pid, &status, 0);
      return status;
   }

   std::string directory_;
   std::vector<pid_t> children_;
};

TEST_F(Ptpfleet, TheFleetHasWhatTheAgentHas) {
   Fleet::Test::NatsServer const server;
   pid_t const agent = startAgent("8");
   pid_t publisher = startPublisher(server);
   Fleet::Connection connection({.urls = {server.url()}});
   Fleet::Mirror mirror(connection, {.switches = "edge-7"});
   Tools::Feed feed(file("socket"));
   loop.add(connection);
   loop.add(mirror);
   loop.add(feed);
   auto const its = [&] { return mirror.find("edge-7"); };
   auto const current = [&] { return its() != nullptr && its()->status().current; };
   ASSERT_TRUE(until([&] { return current() && feed.status().current; }))
         << mirror.status().reason << textOf(file("fleet"));
   Sarn::Ptr<Kiv::NamedEntity> const root = its()->root("ptp/status");
   ASSERT_NE(root, nullptr);
   // The agent changes once a second.
   EXPECT_TRUE(until([&] { return dumpOf(feed.roots().at(0)) == dumpOf(&*root); }));

   // A publisher that is killed goes on where it was.
   end(publisher, SIGKILL);
   ASSERT_TRUE(until([&] { return !current(); }));
   publisher = startPublisher(server);
   ASSERT_TRUE(until(current)) << its()->status().reason << textOf(file("fleet"));
   EXPECT_EQ(its()->status().restarts, 1);
   EXPECT_EQ(its()->root("ptp/status"), root);

   // The agent ends: the state stays, and is known to be old.
   end(agent, SIGKILL);
   ASSERT_TRUE(until([&] { return !current(); }));
   EXPECT_NE(its()->root("ptp/status"), nullptr);
   EXPECT_THAT(its()->status().reason, testing::Not(testing::StartsWith("no heartbeat")));

   EXPECT_EQ(end(publisher, SIGTERM), 0);
   ASSERT_TRUE(until([&] { return its()->status().reason == "the publisher has ended"; }))
         << its()->status().reason;
   EXPECT_THAT(textOf(file("fleet")), testing::HasSubstr("fleet: publishing"));
   loop.remove(connection);
   loop.remove(mirror);
   loop.remove(feed);
}

TEST_F(Ptpfleet, ACommandLineThatIsWrongIsRefused) {
   pid_t const pid = start({"ptpfleet", "publish", "--storage", "tape", "--socket", "x"}, "out");
   int status = 0;
   ::waitpid(pid, &status, 0);
   std::erase(children_, pid);
   EXPECT_EQ(WEXITSTATUS(status), 2);
   EXPECT_EQ(textOf(file("out")), "ptpfleet: --storage: 'tape' is neither file nor memory\n");
}

TEST_F(Ptpfleet, AFileThatIsMissingIsNamed) {
   pid_t const pid =
         start({"ptpfleet", "publish", "--creds", file("none"), "--socket", "x"}, "out");
   int status = 0;
   ::waitpid(pid, &status, 0);
   std::erase(children_, pid);
   EXPECT_EQ(WEXITSTATUS(status), 1);
   EXPECT_THAT(textOf(file("out")),
               testing::HasSubstr("credentials '" + file("none") + "': No such file"));
}

}  // namespace

// Every command with a server that disappears at any byte of the conversation, or while the command
// waits for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <thread>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

sockaddr_un addressOf(std::string const& path) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::memcpy(address.sun_path, path.data(), path.size());
   return address;
}

/// A proxy between a client and a server. It breaks both connections once a number of bytes has
/// passed in one direction.
class CutProxy {
public:
   CutProxy(std::string const& path, std::string const& server, bool fromServer, std::size_t after)
         : server_(server), fromServer_(fromServer), left_(after) {
      listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      sockaddr_un const address = addressOf(path);
      ::unlink(path.c_str());
      if (::bind(listener_, reinterpret_cast<sockaddr const*>(&address), sizeof address) < 0 ||
          ::listen(listener_, 1) < 0) {
         throw std::runtime_error("no socket for the test");
      }
      thread_ = std::thread([this] { carry(); });
   }
   ~CutProxy() {
      ::shutdown(listener_, SHUT_RDWR);  // ends a waiting for a client, too
      thread_.join();
      ::close(listener_);
   }
   CutProxy(CutProxy const&) = delete;
   CutProxy& operator=(CutProxy const&) = delete;

   bool hasCut() const { return cut_; }

private:
   void carry() {
      int const client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0) {
         return;
      }
      int const server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      sockaddr_un const address = addressOf(server_);
      if (::connect(server, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0) {
         while (!cut_) {
            pollfd polled[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
            ::poll(polled, 2, -1);
            if ((polled[0].revents != 0 && !pass(client, server, !fromServer_)) ||
                (polled[1].revents != 0 && !pass(server, client, fromServer_))) {
               break;
            }
         }
      }
      ::close(client);
      ::close(server);
   }

   bool pass(int from, int to, bool counted) {
      char bytes[65536];
      std::size_t const most = counted ? std::min(left_, sizeof bytes) : sizeof bytes;
      if (most == 0) {
         cut_ = true;
         return false;
      }
      ssize_t const count = ::read(from, bytes, most);
      if (count <= 0 || ::send(to, bytes, static_cast<std::size_t>(count), MSG_NOSIGNAL) != count) {
         return false;
      }
      left_ -= counted ? static_cast<std::size_t>(count) : 0;
      return true;
   }

   std::string server_;
   bool fromServer_;
   std::size_t left_;
   std::atomic<bool> cut_ = false;
   int listener_ = -1;
   std::thread thread_;
};

using Words = std::vector<std::string>;

/// Each command as it is typed; FILE is a dump that differs from the server's state, RECORDING has
/// a change of it.
Words const commands[] = {
      {"get", "ptp/config.priority1"},
      {"get", "--json", "ptp/config.clockQuality"},
      {"set", "ptp/config.priority1", "7"},
      {"add", "ptp/config.intfConfig[Ethernet2]", "true", "false"},
      {"del", "ptp/config.intfConfig[Ethernet1]"},
      {"dump"},
      {"dump", "--json"},
      {"dump", "--summary", "ptp/config.intfConfig"},
      {"load", "FILE"},
      {"load", "--dry-run", "FILE"},
      {"diff", "FILE"},
      {"watch", "--no-reconnect", "--count", "1"},
      {"top", "--batch", "--count", "1", "ptp/config.intfConfig"},
      {"status"},
      {"replay", "RECORDING"},
};

class Interrupted : public testing::TestWithParam<Words> {
protected:
   void SetUp() override {
      restart();
      std::string const dump = run({"dump", "--json", "--socket", socket}).out;
      std::size_t const at = dump.find("\"priority2\": 128");
      ASSERT_NE(at, std::string::npos);
      std::ofstream(file) << dump.substr(0, at) << "\"priority2\": 3" << dump.substr(at + 16);
      if (GetParam()[0] == "replay") {
         Program recorder({"record", "--socket", socket, recording});
         ASSERT_TRUE(recorder.says("recording "));
         ASSERT_EQ(run({"set", "--socket", socket, "ptp/config.priority1", "7"}).status, 0);
         ::usleep(100000);
         recorder.signal(SIGINT);
         ASSERT_EQ(recorder.finish().status, 0);
         restart();
      }
   }
   void restart() {
      server.reset();
      server = std::make_unique<Program>(Words{"serve", "--quiet", "--socket", socket});
      ASSERT_TRUE(server->says("serving "));
      ASSERT_EQ(
            run({"add", "--socket", socket, "ptp/config.intfConfig[Ethernet1]", "true", "false"})
                  .err,
            "");
   }
   /// The command for a socket.
   Words words(std::string const& at) const {
      Words words = GetParam();
      for (std::string& word : words) {
         word = word == "FILE" ? file : word == "RECORDING" ? recording : word;
      }
      char const* const option = words[0] == "replay" ? "--into" : "--socket";
      words.insert(words.begin() + 1, {option, at, "--timeout", "20"});
      return words;
   }
   int trouble() const { return GetParam()[0] == "diff" ? 2 : 3; }
   void expectOneLine(Outcome const& outcome, std::string const& where) const {
      EXPECT_EQ(outcome.status, trouble()) << where << outcome.out << outcome.err;
      EXPECT_THAT(outcome.err, AllOf(StartsWith("ptpstate: "), EndsWith("\n"))) << where;
      EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
      if (GetParam()[0] != "watch") {
         EXPECT_EQ(outcome.out, "") << where << "nothing is told that is not whole";
      }
   }

   Scratch scratch;
   std::string socket = scratch.file("socket");
   std::string file = scratch.file("dump.json");
   std::string recording = scratch.file("recording");
   std::unique_ptr<Program> server;
};

TEST_P(Interrupted, AtAnyByteItSaysSoInOneLine) {
   std::string const before = run({"dump", "--socket", socket}).out;
   if (GetParam()[0] != "watch") {
      EXPECT_EQ(run(words(socket)).status, GetParam()[0] == "diff" ? 1 : 0);
   }
   std::string const done = run({"dump", "--socket", socket}).out;
   restart();
   std::string const proxy = scratch.file("proxy");
   int cuts = 0;
   for (bool const fromServer : {true, false}) {
      for (std::size_t const after :
           {0U, 1U, 9U, 100U, 295U, 300U, 310U, 330U, 350U, 400U, 1000U, 2000U}) {
         std::string const where = (fromServer ? "from the server, " : "to the server, ") +
                                   std::to_string(after) + " bytes: ";
         CutProxy const between(proxy, socket, fromServer, after);
         Program program(words(proxy));
         if (GetParam()[0] == "watch") {
            // Without a change it would wait for ever.
            program.says("complete", 1);
            program.signal(SIGINT);
         }
         Outcome const& outcome = program.finish();
         bool const succeeded = outcome.status == 0 || (trouble() == 2 && outcome.status == 1);
         if (!between.hasCut() || succeeded) {
            EXPECT_TRUE(succeeded) << where << outcome.err;
            restart();  // it was done
            continue;
         }
         ++cuts;
         expectOneLine(outcome, where);
         std::string const now = run({"dump", "--socket", socket}).out;
         EXPECT_TRUE(now == before || now == done) << where << "there is half a change:\n" << now;
         if (now != before) {
            restart();  // the answer was cut, and not the change
         }
      }
   }
   EXPECT_GT(cuts, 8);
}

TEST_P(Interrupted, WhileTheServerIsWaitedForItSaysSoInOneLine) {
   server->signal(SIGSTOP);
   Program program(words(socket));
   ::usleep(30000);
   server->signal(SIGKILL);
   server->finish();
   expectOneLine(program.finish(), "");
}

INSTANTIATE_TEST_SUITE_P(Commands, Interrupted, testing::ValuesIn(commands), [](auto const& at) {
   std::string name = at.param[0] + std::to_string(at.index);
   return name;
});

}  // namespace
}  // namespace Ptpstate

// Text from peers, files and names never controls a terminal or forges a line.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <thread>

#include "Holt/Client.h"
#include "Holt/Failure.h"
#include "Kiv/Log/Wire.h"
#include "Kiv/Module.h"
#include "tools/ptpstate/ProgramUnderTest.h"
#include "tools/ptpstate/complete/Complete.h"

namespace Ptpstate {

using namespace Holt;

namespace {

using Kiv::NboAttrLog::Opcode;
using Bytes = std::vector<U8>;

/// Begins a line of its own, and has a command to the terminal.
std::string const evil =
      "x\n2026-01-01 00:00:00.000 connection 7 opened\x1b[2J\xc2\x9b"
      "1m";
std::string const shown = "x\\n2026-01-01 00:00:00.000 connection 7 opened\\x1b[2J\\xc2\\x9b1m";

void expectClean(std::string const& text) {
   EXPECT_EQ(text.find('\x1b'), std::string::npos) << text;
   EXPECT_EQ(text.find('\x9b'), std::string::npos) << text;
   EXPECT_EQ(text.find("\n2026-01-01"), std::string::npos) << text;
}

/// Listens, and leaves the first connection to `serve`.
class FakeServer {
public:
   FakeServer(std::string const& path, std::function<void(int)> serve)
         : listener_(listeningAt(path, 1)) {
      thread_ = std::thread([this, serve = std::move(serve)] {
         int const fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
         if (fd >= 0) {
            serve(fd);
            ::close(fd);
         }
      });
   }
   ~FakeServer() {
      ::shutdown(listener_, SHUT_RDWR);
      thread_.join();
      ::close(listener_);
   }
   FakeServer(FakeServer const&) = delete;
   FakeServer& operator=(FakeServer const&) = delete;

private:
   int listener_;
   std::thread thread_;
};

void put(Bytes& bytes, Opcode opcode, std::function<void(Kiv::NboAttrLog::Out&)> const& body,
         std::size_t size) {
   std::size_t const at = bytes.size();
   bytes.resize(at + Kiv::NboAttrLog::headerSize + size);
   Kiv::NboAttrLog::Out out(bytes.data() + at, bytes.size() - at);
   writeHeader(out, {opcode, static_cast<U32>(size), 0, 0});
   body(out);
}

Bytes hello() {
   std::size_t size = 16;
   U32 count = 0;
   auto const forEachModule = [](auto const& visit) {
      for (Kiv::KivModule const* at = Kiv::firstModule(); at != nullptr; at = at->data->next) {
         visit(*at);
      }
   };
   forEachModule([&](Kiv::KivModule const& module) {
      size += 4 + std::strlen(module.name()) + 4;
      ++count;
   });
   Bytes bytes;
   put(
         bytes, Opcode::hello,
         [&](Kiv::NboAttrLog::Out& out) {
            out.writeBytes(Kiv::NboAttrLog::helloMagic, 8);
            out.writeU32(Kiv::NboAttrLog::protocolVersion);
            out.writeU32(count);
            forEachModule([&out](Kiv::KivModule const& module) {
               out.writeString(module.name());
               out.writeU32(module.hash());
            });
         },
         size);
   return bytes;
}

void send(int fd, Bytes const& bytes) {
   (void)!::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

/// Reads until nothing has arrived for a while.
void drain(int fd) {
   char bytes[65536];
   for (pollfd polled{fd, POLLIN, 0}; ::poll(&polled, 1, 300) > 0;) {
      if (::read(fd, bytes, sizeof bytes) <= 0) {
         return;
      }
   }
}

class ForeignText : public WithServer {};

TEST_F(ForeignText, OfARootThatIsAskedForIsOneLineInTheLog) {
   serve();
   Client peer(socket, std::chrono::seconds(10));
   Mount const& mount = peer.mountIs({"Ptp::Config", evil}, MountMode::reader);
   EXPECT_THROW(peer.waitComplete(mount), Failure);
   EXPECT_EQ(mount.reason(), "there is no Ptp::Config named " + shown);
   EXPECT_TRUE(server->says("refused Ptp::Config=" + shown)) << server->out();
   expectClean(server->out());
}

TEST_F(ForeignText, OfAReasonIsOneLineInTheLog) {
   serve();
   Bytes bytes = hello();
   put(
         bytes, Opcode::bye, [](Kiv::NboAttrLog::Out& out) { out.writeString(evil); },
         4 + evil.size());
   int const fd = connectedTo(socket);
   ASSERT_GE(fd, 0);
   send(fd, bytes);
   EXPECT_TRUE(server->says("ended: closed by the peer: " + shown)) << server->out();
   expectClean(server->out());
   ::close(fd);
}

TEST_F(ForeignText, OfAServersReasonIsOneLineOfError) {
   FakeServer const fake(socket, [](int fd) {
      Bytes bytes = hello();
      put(
            bytes, Opcode::bye, [](Kiv::NboAttrLog::Out& out) { out.writeString(evil); },
            4 + evil.size());
      send(fd, bytes);
      drain(fd);
   });
   Outcome const outcome = client({"get", "ptp/config.enabled"});
   EXPECT_EQ(outcome.status, 3);
   EXPECT_EQ(outcome.err, "ptpstate: " + socket +
                                ": the connection is lost: closed by the peer: " + shown + "\n");
}

TEST_F(ForeignText, OfARootsNameIsShownEverywhereAsText) {
   serve({"--root", "Ptp::Config=" + evil});
   expectClean(server->out());
   Program watcher({"watch", "--socket", socket});
   ASSERT_TRUE(watcher.says(shown + " is complete")) << watcher.out();
   Program jsonWatcher({"watch", "--json", "--socket", socket});
   ASSERT_TRUE(jsonWatcher.says("\"complete\"")) << jsonWatcher.out();
   // Commands accept the name as it is shown.
   EXPECT_EQ(client({"set", shown + ".priority1", "7"}).err, "");
   EXPECT_EQ(client({"get", shown + ".priority1"}).out, "7\n");
   EXPECT_TRUE(watcher.says(shown + ".priority1: 128 -> 7")) << watcher.out();
   EXPECT_TRUE(jsonWatcher.says("\\u001b[2J\\u009b1m.priority1")) << jsonWatcher.out();
   std::string const recording = scratch.file("recording");
   EXPECT_EQ(client({"record", "--for", "0.1", recording}).err, "");
   std::string all = watcher.out() + jsonWatcher.out();
   for (std::vector<std::string> const& command :
        std::vector<std::vector<std::string>>{{"dump"},
                                              {"dump", "--json"},
                                              {"status"},
                                              {"status", "--json"},
                                              {"get", shown},
                                              {"get", "nothing"},
                                              {"top", "--batch", "--count", "1", shown}}) {
      Outcome const outcome = client(command);
      EXPECT_NE(outcome.out + outcome.err, "") << command[0];
      all += outcome.out + outcome.err;
   }
   for (std::vector<std::string> const& command : std::vector<std::vector<std::string>>{
              {"replay", recording}, {"replay", "--info", recording}, {"replay", "\x1b[2J"}}) {
      Outcome const outcome = run(command);
      EXPECT_NE(outcome.out + outcome.err, "") << command[0];
      all += outcome.out + outcome.err;
   }
   server->signal(SIGTERM);
   all += server->finish().out;
   expectClean(all);
}

TEST_F(ForeignText, OfAProgramsNameIsText) {
   char before[16];
   ::prctl(PR_GET_NAME, before);
   ::prctl(PR_SET_NAME, "a\x1b[2Jb\nc");
   serve();
   {
      Client const peer(socket, std::chrono::seconds(10));
      EXPECT_TRUE(server->says("opened"));
      EXPECT_EQ(client({"status"}).status, 0);
   }
   ::prctl(PR_SET_NAME, before);
   EXPECT_TRUE(server->says("ended")) << server->out();
   expectClean(server->out());
}

TEST_F(ForeignText, OfARootsNameIsCompletedAsText) {
   serve({"--root", "Ptp::Config=" + evil});
   Surroundings in;
   in.socket = socket;
   auto const complete = [&in](std::string const& line, std::string const& word) {
      return run({"complete", "--", line, std::to_string(line.size()), word}, in).out;
   };
   std::string const name = shellQuoted(shown, 0);
   EXPECT_EQ(complete("ptpstate get x", "x"), name + "\n");
   EXPECT_EQ(complete("ptpstate get " + name + ".priority1", name + ".priority1"),
             name + ".priority1 \n");
}

TEST_F(ForeignText, OfAColumnsKeyIsOneLine) {
   serve();
   std::string const column = "ucastNegProfile[\x1b[2J\n2026-01-01]]";
   Outcome const outcome =
         client({"top", "--batch", "--count", "1", "--columns", column, "ptp/config"});
   EXPECT_EQ(outcome.out.rfind("ucastNegProfile[\\x1b[2J\\n2026-01-01]]  -", 0), 0u)
         << outcome.out << outcome.err;
   expectClean(outcome.out);
}

TEST_F(ForeignText, OfACommandLineIsOneLineOfError) {
   std::vector<std::pair<std::string, std::vector<std::string>>> const programs{
         {"ptpstate", {"del", "--socket", "x", "path"}},
         {"ptpports", {"--socket", "x"}},
         {"demoAgent", {"--socket", "x"}},
         {"kivc", {"a.kiv"}}};
   for (auto const& [program, good] : programs) {
      Surroundings in;
      in.program = program;
      for (std::string const& bad : {evil, "--" + evil}) {
         std::vector<std::string> args = good;
         args.push_back(bad);
         Outcome const outcome = run(args, in);
         EXPECT_EQ(outcome.status, 2) << program;
         EXPECT_EQ(outcome.err.find(program + ": "), 0U) << outcome.err;
         EXPECT_NE(outcome.err.find(shown + "; see '" + program), std::string::npos) << outcome.err;
         EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
         EXPECT_EQ(outcome.out, "");
         expectClean(outcome.err);
      }
   }
}

TEST_F(ForeignText, OfANameThatIsNoUtf8ComesBackFromADump) {
   serve({"--root", "Ptp::Config=\xff\"\\"});
   ASSERT_EQ(client({"set", "Ptp::Config=\xff\"\\.priority1", "7"}).err, "");
   std::string const file = scratch.file("dump.json");
   std::ofstream(file) << client({"dump", "--json"}).out;
   EXPECT_NE(readFile(file).find(R"("@text": "\"\\xff\\\"\\\\\"")"), std::string::npos)
         << readFile(file);
   ASSERT_EQ(client({"set", "Ptp::Config=\xff\"\\.priority1", "8"}).err, "");
   EXPECT_EQ(client({"load", file}).out, file + ": 1 change\n");
   EXPECT_EQ(client({"get", "Ptp::Config=\xff\"\\.priority1"}).out, "7\n");
   EXPECT_EQ(client({"diff", file}).status, 0);
}

TEST_F(ForeignText, OfAConfigurationFileIsText) {
   std::string const file = scratch.file("bad.conf");
   std::ofstream(file) << "[global]\npriority1 7\x1b[2J\n";
   Outcome const outcome = run({"serve", "--socket", socket, "--ptp4l-conf", file});
   EXPECT_NE(outcome.status, 0);
   EXPECT_NE((outcome.out + outcome.err).find("\\x1b[2J"), std::string::npos) << outcome.err;
   expectClean(outcome.out + outcome.err);
}

TEST_F(ForeignText, ThatComesByteByByteIsGivenUpInTime) {
   FakeServer const fake(socket, [](int fd) {
      send(fd, hello());
      Bytes bytes;
      put(
            bytes, Opcode::roots, [](Kiv::NboAttrLog::Out& out) { out.writeU32(1); }, 4000);
      for (U8 const byte : bytes) {  // each is a sign of life
         if (::send(fd, &byte, 1, MSG_NOSIGNAL) < 0) {
            return;
         }
         ::usleep(20'000);
      }
   });
   auto const begin = Clock::now();
   Outcome const outcome = client({"dump", "--timeout", "0.5"});
   EXPECT_EQ(outcome.status, 3);
   EXPECT_EQ(outcome.err, "ptpstate: " + socket +
                                ": the server did not answer in full in time (asked for its "
                                "roots); wait longer with --timeout, or check the server\n");
   EXPECT_LT(Clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(ForeignText, AServerThatAcceptsNobodyIsGivenUpInTime) {
   int const listener = listeningAt(socket, 0);
   int const waiting = connectedTo(socket);  // its queue is full
   ASSERT_GE(waiting, 0);
   Outcome const outcome = client({"get", "--timeout", "0.3", "ptp/config.enabled"});
   EXPECT_EQ(outcome.status, 3);
   EXPECT_EQ(outcome.err, "ptpstate: " + socket +
                                ": the server does not answer (asked for a connection); wait "
                                "longer with --timeout, or check the server\n");
   ::close(waiting);
   ::close(listener);
}

}  // namespace
}  // namespace Ptpstate

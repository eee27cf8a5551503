// A server with real sockets, and a clock that the test sets.
#include "Holt/Server.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>

#include "Holt/Client.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"

namespace Holt {
namespace {

constexpr U64 oneSecond = 1'000'000'000;

U64 serverNow = 0;
U64 serverClock() noexcept {
   return serverNow;
}

class ServerTest : public testing::Test {
protected:
   ServerTest() {
      serverNow = 1000 * oneSecond;
      char path[] = "/tmp/holt-XXXXXX";
      directory_ = ::mkdtemp(path);
      socket = directory_ + "/socket";
   }
   ~ServerTest() override {
      server.reset();
      ::rmdir(directory_.c_str());
      ::close(logFd_);
   }

   void serve(Kiv::NboAttrLog::Limits const& limits = {}) {
      Server::Options options;
      options.socket = socket;
      options.log = &log_;
      options.limits = limits;
      options.clock = &serverClock;
      server = std::make_unique<Server>(std::move(options));
      server->rootIs(config);
      loop.add(*server);
   }
   /// Runs the server until it has nothing to do.
   void turns(int count = 4) {
      for (int i = 0; i != count; ++i) {
         loop.turn(-1, std::chrono::milliseconds::zero());
      }
   }
   void pass(U64 time) {
      serverNow += time;
      turns();
   }
   /// A peer that sends only the bytes that the test gives it.
   int rawPeer() {
      int const fd = connectTo(socket, std::chrono::seconds(5));
      turns();
      return fd;
   }
   /// What the log says, without times and peers.
   std::string said() const {
      std::string text(100'000, ' ');
      text.resize(static_cast<std::size_t>(::pread(logFd_, text.data(), text.size(), 0)));
      std::string all;
      for (std::size_t at = 0; at < text.size();) {
         std::size_t const end = text.find('\n', at);
         std::string const line = text.substr(at, end - at);
         std::size_t const peer = line.find(") ");
         all += line.substr(peer == std::string::npos ? 0 : peer + 2) + '\n';
         at = end + 1;
      }
      return all;
   }
   /// Whether the server has closed the other end.
   static bool isClosed(int fd) {
      char bytes[4096];
      ssize_t count = 0;
      while ((count = ::recv(fd, bytes, sizeof bytes, MSG_DONTWAIT)) > 0) {
      }
      return count == 0;
   }

   Sarn::Ptr<Ptp::Config> config = Ptp::configFactory("ptp/config");
   std::string socket;
   Loop loop{&serverClock};
   std::unique_ptr<Server> server;

private:
   std::string directory_;
   int logFd_ = ::memfd_create("log", MFD_CLOEXEC);
   LogOutput log_{logFd_};
};

/// The greeting of a server, which is that of any peer with the same modules.
std::string greeting(int fd) {
   std::string bytes(1 << 16, ' ');
   bytes.resize(static_cast<std::size_t>(::recv(fd, bytes.data(), bytes.size(), MSG_DONTWAIT)));
   return bytes;
}

TEST_F(ServerTest, APeerThatSaysNothingIsGivenUp) {
   serve();
   int const silent = rawPeer();
   U64 const since = serverNow;
   pass(10 * oneSecond);
   pass(10 * oneSecond);
   EXPECT_EQ(server->deadline(), since + 60 * oneSecond) << "its buffers are given back by now";
   pass(40 * oneSecond - 1);
   EXPECT_EQ(server->peers(), 1U);
   EXPECT_FALSE(isClosed(silent));
   pass(1);
   EXPECT_EQ(server->peers(), 0U);
   EXPECT_TRUE(isClosed(silent));
   EXPECT_EQ(server->deadline(), 0U);
   EXPECT_EQ(said(), "opened\nrefused: the peer did not greet within 60000 ms\n");
   ::close(silent);
}

TEST_F(ServerTest, APeerThatHasGreetedMayBeSilentForEver) {
   serve();
   int const peer = rawPeer();
   std::string const hello = greeting(peer);
   ASSERT_EQ(::send(peer, hello.data(), hello.size(), 0), static_cast<ssize_t>(hello.size()));
   turns();
   for (int i = 0; i != 100; ++i) {
      pass(100 * oneSecond);
   }
   EXPECT_EQ(server->peers(), 1U);
   EXPECT_EQ(server->deadline(), 0U) << "nothing is left to be done for it";
   ::close(peer);
   turns();
   EXPECT_EQ(said(), "opened\nlost: the peer has closed the connection\n");
}

TEST_F(ServerTest, AHalfMessageIsGivenUp) {
   serve();
   int const peer = rawPeer();
   std::string const hello = greeting(peer);
   // All of the greeting, and the first five bytes of the next message.
   std::string const sent = hello + std::string("\x01\0\0\x20\0", 5);
   ASSERT_EQ(::send(peer, sent.data(), sent.size(), 0), static_cast<ssize_t>(sent.size()));
   turns();
   EXPECT_NE(server->deadline(), 0U);
   pass(59 * oneSecond);
   EXPECT_EQ(server->peers(), 1U);
   pass(oneSecond);
   EXPECT_EQ(server->peers(), 0U);
   EXPECT_EQ(
         said(),
         "opened\nrefused: the peer has left a message unfinished for 60000 ms, after 5 bytes\n");
   EXPECT_TRUE(isClosed(peer));
   ::close(peer);
}

TEST_F(ServerTest, HalfAGreetingIsGivenUp) {
   serve();
   int const peer = rawPeer();
   std::string const hello = greeting(peer);
   ASSERT_EQ(::send(peer, hello.data(), hello.size() - 1, 0),
             static_cast<ssize_t>(hello.size() - 1));
   turns();
   pass(60 * oneSecond);
   EXPECT_EQ(server->peers(), 0U);
   ::close(peer);
}

TEST_F(ServerTest, AGoodbyeThatNobodyTakesIsGivenUp) {
   for (int i = 0; i != 2000; ++i) {
      config->intfConfigIs(Dorn::IntfId("Ethernet" + std::to_string(i)), true, false);
   }
   serve();
   // A mirror that reads nothing: the socket is full, and more waits in the server.
   int const peer = rawPeer();
   int const least = 1;
   ::setsockopt(peer, SOL_SOCKET, SO_RCVBUF, &least, sizeof least);
   std::string const hello = greeting(peer);
   std::vector<U8> bytes(hello.begin(), hello.end());
   Kiv::NboAttrLog::Hub other;
   auto const mirror = Ptp::configFactory("ptp/config");
   Kiv::NboAttrLog::Session session(other);
   session.received(bytes.data(), bytes.size());
   session.mountIs(mirror);
   for (auto piece = session.output(); piece.size != 0; piece = session.output()) {
      ASSERT_EQ(::send(peer, piece.begin, piece.size, 0), static_cast<ssize_t>(piece.size));
      session.sent(piece.size);
   }
   turns(10);
   ASSERT_EQ(server->peers(), 1U);
   // It breaks a rule now; the goodbye finds no room.
   std::string const wrong(10, '\xff');
   ASSERT_EQ(::send(peer, wrong.data(), wrong.size(), 0), 10);
   turns();
   ASSERT_EQ(server->peers(), 1U) << "it waits for its goodbye to be taken";
   pass(59 * oneSecond);
   EXPECT_EQ(server->peers(), 1U);
   pass(oneSecond);
   turns();
   EXPECT_EQ(server->peers(), 0U);
   ::close(peer);
}

TEST_F(ServerTest, TellsWhenAMirrorHasEverything) {
   serve();
   EXPECT_FALSE(server->isMirrored());
   Kiv::NboAttrLog::Hub hub;
   Kiv::NboAttrLog::FdConnection reader(hub, connectTo(socket, std::chrono::seconds(5)));
   auto const mirror = Ptp::configFactory("ptp/config");
   auto const& mount = reader.session().mountIs(mirror);
   for (int i = 0; i != 10 && !mount.complete(); ++i) {
      reader.onReady(POLLIN | POLLOUT);
      turns(1);
   }
   ASSERT_TRUE(mount.complete());
   EXPECT_TRUE(server->isMirrored());
   U64 const before = server->total().messagesOut;

   config->priority1Is(7);
   server->sync();
   EXPECT_FALSE(server->synced());
   for (int i = 0; i != 10 && !server->synced(); ++i) {
      reader.onReady(POLLIN | POLLOUT);
      turns(1);
   }
   EXPECT_TRUE(server->synced());
   EXPECT_EQ(mirror->priority1(), 7U);
   U64 const after = server->total().messagesOut;
   EXPECT_GT(after, before);
   reader.close("done");
   turns();
   EXPECT_EQ(server->peers(), 0U);
   EXPECT_GE(server->total().messagesOut, after) << "what has gone counts";
   EXPECT_FALSE(server->isMirrored());
}

TEST_F(ServerTest, ClosesAllAndGoesOn) {
   serve();
   int const peer = rawPeer();
   server->closeAll("maintenance");
   EXPECT_EQ(server->peers(), 0U);
   EXPECT_TRUE(isClosed(peer));
   ::close(peer);
   int const next = rawPeer();
   EXPECT_EQ(server->peers(), 1U);
   ::close(next);
   EXPECT_EQ(said(), "opened\nended: maintenance\nopened\n");
}

}  // namespace
}  // namespace Holt

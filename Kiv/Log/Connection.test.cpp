// The attribute log over real descriptors.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

#include "Kiv/NboAttrLogConnection.h"
#include "KivTest/Stream.test.h"

using namespace StreamTesting;
using Kiv::NboAttrLog::FdConnection;

namespace {

class Connection : public testing::Test {
protected:
   Connection() {
      std::array<int, 2> fds{};
      EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds.data()), 0);
      server = std::make_unique<FdConnection>(source, fds[0]);
      client = std::make_unique<FdConnection>(mirror, fds[1]);
      source.rootIs(root);
   }
   ~Connection() override {
      client.reset();
      server.reset();
   }

   /// Polls a connection once, as its owner's loop does; false if nothing was ready.
   static bool turn(FdConnection& connection) {
      pollfd p{connection.fd(), connection.events(), 0};
      if (connection.done() || poll(&p, 1, 0) <= 0) {
         return false;
      }
      connection.onReady(p.revents);
      return true;
   }
   void run() {
      for (bool moved = true; moved;) {
         moved = turn(*server);
         moved = turn(*client) || moved;
      }
   }

   Hub source;
   Hub mirror;
   Sarn::Ptr<Stem> root = KivTest::stemFactory("test");
   Sarn::Ptr<Stem> copy = KivTest::stemFactory("test");
   std::unique_ptr<FdConnection> server;
   std::unique_ptr<FdConnection> client;
};

TEST_F(Connection, MirrorsOverASocket) {
   Mount const& mount = client->session().mountIs(copy);
   for (U32 i = 0; i != 2000; ++i) {
      root->byNumberIs(i, std::string(500, 'x'));
   }
   run();
   EXPECT_TRUE(mount.complete());
   EXPECT_EQ(KivTest::firstDifference(*root, *copy), "");
   root->u8Is(3);
   server->flush();
   turn(*client);
   EXPECT_EQ(copy->u8(), 3);
}

TEST_F(Connection, AppliesWhatAnObserversExceptionHasKeptBackWithoutMoreBytes) {
   client->session().mountIs(copy);
   run();
   struct Thrower final : Kiv::Observer {
      void onChange(Kiv::Change const&) override { throw Kiv::Exception("mine"); }
   } thrower;
   root->u8Is(3);
   root->u16Is(4);
   root->u32Is(5);
   server->flush();
   copy->observerAdd(thrower);
   EXPECT_THROW(turn(*client), Kiv::Exception);
   EXPECT_EQ(copy->u16(), 60000);
   EXPECT_EQ(client->events(), POLLIN | POLLOUT);
   EXPECT_THROW(turn(*client), Kiv::Exception);
   copy->observerDel(thrower);
   EXPECT_TRUE(turn(*client));
   EXPECT_EQ(client->events(), POLLIN);
   EXPECT_EQ(KivTest::firstDifference(*root, *copy), "");
   EXPECT_FALSE(client->done());
}

TEST_F(Connection, WaitsForRoomOnlyWhenSomethingIsToBeSent) {
   run();
   EXPECT_EQ(server->events(), POLLIN);
   client->session().mountIs(copy);
   EXPECT_EQ(client->events(), POLLIN | POLLOUT);
}

TEST_F(Connection, MakesTheDescriptorNonBlockingAndClosesIt) {
   int const fd = server->fd();
   EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
   EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
   server.reset();
   EXPECT_EQ(fcntl(fd, F_GETFL), -1);
}

TEST_F(Connection, TellsThePeerWhyItCloses) {
   run();
   server->close("that is enough");
   EXPECT_TRUE(server->done());
   EXPECT_EQ(server->fd(), -1);
   EXPECT_EQ(server->events(), 0);
   run();
   EXPECT_TRUE(client->done());
   EXPECT_EQ(client->closeReason(), "closed by the peer: that is enough");
}

TEST_F(Connection, EndsWhenThePeerIsGone) {
   run();
   server.reset();
   client->onReady(POLLIN);
   EXPECT_TRUE(client->done());
   EXPECT_EQ(client->closeReason(), "the peer has closed the connection");
}

TEST_F(Connection, ClosesOnGarbageWithAReasonOnBothSides) {
   run();
   ASSERT_EQ(write(client->fd(), "\xff\0\0\0\0\0\0\0\0\0", 10), 10);
   run();
   EXPECT_TRUE(server->done());
   EXPECT_TRUE(client->done());
   EXPECT_EQ(client->closeReason(), "closed by the peer: " + server->closeReason());
   EXPECT_NE(server->closeReason().find("no message of this kind"), std::string::npos);
}

TEST_F(Connection, CarriesAStringThatIsLongerThanItsBuffer) {
   client->session().mountIs(copy);
   run();
   root->textIs(std::string(std::size_t(3) << 20, 'x'));
   run();
   EXPECT_EQ(copy->text().size(), std::size_t(3) << 20);
   EXPECT_FALSE(server->done());
}

TEST_F(Connection, TellsTheListenerOfWhatIsLeftOutThoughNothingIsToBeSent) {
   struct Listener final : SessionListener {
      void onLeftOut(Session&, Sarn::String const& what) override { told += what + "\n"; }
      std::string told;
   } listener;
   std::array<int, 2> fds{};
   ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds.data()), 0);
   server = std::make_unique<FdConnection>(source, fds[0], &listener);
   client = std::make_unique<FdConnection>(mirror, fds[1]);
   client->session().mountIs(copy);
   run();
   root->textIs(std::string(std::size_t(1) << 24, 'x'));
   server->flush();
   EXPECT_EQ(listener.told, "test.text (270): 16777220 bytes exceed the bound of 16777216\n");
}

TEST_F(Connection, TellsThePeerWhenAChangeCannotBeWritten) {
   Limits few;
   few.entities = 2;
   Hub narrow(few);
   std::array<int, 2> fds{};
   ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds.data()), 0);
   FdConnection offering(narrow, fds[0]);
   client = std::make_unique<FdConnection>(mirror, fds[1]);
   Sarn::Ptr<Stem> const there = KivTest::stemFactory("test");
   narrow.rootIs(there);
   client->session().mountIs(copy);
   while (turn(*client) || turn(offering)) {
   }
   there->leafIs(1, true, KivTest::Opaque(1.0));
   EXPECT_TRUE(offering.session().closed());
   while (turn(offering) || turn(*client)) {
   }
   EXPECT_TRUE(offering.done());
   EXPECT_EQ(client->closeReason(), "closed by the peer: more than 2 entities cannot be streamed");
   EXPECT_EQ(client->session().mounts().front().state(), Mount::State::lost);
}

TEST_F(Connection, AReaderThatStopsAndGoesOnGetsTheLatestState) {
   client->session().mountIs(copy);
   run();
   for (U32 i = 0; i != 200000; ++i) {
      root->u32Is(i);
      root->byNumberIs(i % 100, std::to_string(i));
      if (i % 100 == 0) {
         server->flush();
      }
   }
   EXPECT_FALSE(server->session().upToDate());
   EXPECT_LE(server->session().dirtyEntities(), 1u);
   run();
   EXPECT_TRUE(server->session().upToDate());
   EXPECT_EQ(KivTest::firstDifference(*root, *copy), "");
}

TEST_F(Connection, WorksOverPipesToo) {
   std::array<int, 2> fds{};
   ASSERT_EQ(pipe(fds.data()), 0);
   FdConnection out(source, fds[1]);
   out.flush();
   U8 header[10];
   ASSERT_EQ(read(fds[0], header, sizeof header), 10);
   EXPECT_EQ(header[0], static_cast<U8>(Opcode::hello));
   ::close(fds[0]);
}

}  // namespace

// Who may write a root: the decision of the source's owner, and roots that one writer has claimed.
#include "KivTest/Stream.test.h"

using namespace StreamTesting;
using Kiv::NboAttrLog::OfferedRoot;
using Kiv::NboAttrLog::PeerIdentity;

namespace {

/// A source with two peers that mount the root, each in its own mode.
class StreamClaim : public StreamTest {
protected:
   ~StreamClaim() override { second.reset(); }

   /// Reconnects the second peer.
   void connectSecond() {
      second.reset();
      secondSource = std::make_unique<Session>(source.hub);
      second = std::make_unique<Session>(secondHub);
   }
   static void pass(Session& from, Session& to) {
      Bytes const bytes(from.output().begin, from.output().begin + from.output().size);
      from.sent(bytes.size());
      to.received(bytes.data(), bytes.size());
   }
   void carryAll() {
      for (int i = 0; i != 8; ++i) {
         carry();
         pass(*second, *secondSource);
         pass(*secondSource, *second);
      }
   }
   Mount& mountSecond(MountMode mode) {
      connectSecond();
      Mount& made = second->mountIs(secondCopy, mode);
      carryAll();
      return made;
   }

   Sarn::Ptr<Stem> secondCopy = KivTest::stemFactory("test");
   Hub secondHub;
   std::unique_ptr<Session> secondSource;
   std::unique_ptr<Session> second;
};

TEST_F(StreamClaim, AnotherWriterIsRefusedAndToldByWhomReadersAreNot) {
   source.session->peerIs({17, 1000, 100, "agent"});
   Mount const& first = mount(MountMode::owner);
   ASSERT_TRUE(first.complete()) << first.reason();
   for (MountMode const mode : {MountMode::writer, MountMode::owner}) {
      Mount const& other = mountSecond(mode);
      EXPECT_EQ(other.state(), Mount::State::refused);
      EXPECT_EQ(other.reason(), mode == MountMode::writer
                                      ? "test is claimed by pid 17, uid 1000, gid 100, agent"
                                      : "test cannot be claimed: it is written by pid 17, uid "
                                        "1000, gid 100, agent");
   }
   EXPECT_TRUE(mountSecond(MountMode::reader).complete());
   copy->u8Is(9);
   carryAll();
   EXPECT_EQ(root->u8(), 9);
   EXPECT_EQ(secondCopy->u8(), 9);
}

TEST_F(StreamClaim, WhatOthersWriteCannotBeClaimed) {
   ASSERT_TRUE(mount(MountMode::writer).complete());
   Mount const& claim = mountSecond(MountMode::owner);
   EXPECT_EQ(claim.state(), Mount::State::refused);
   EXPECT_EQ(claim.reason(), "test cannot be claimed: it is written by an unknown peer");
   EXPECT_TRUE(mountSecond(MountMode::writer).complete()) << "two who share it";
}

TEST_F(StreamClaim, WhatIsOnlyReadCanBeClaimed) {
   ASSERT_TRUE(mount(MountMode::reader).complete());
   EXPECT_TRUE(mountSecond(MountMode::owner).complete());
}

TEST_F(StreamClaim, EndsWithTheConnectionAndTheWriterFindsItsRootAsItLeftIt) {
   mount(MountMode::owner);
   copy->u8Is(42);
   copy->leafIs(3, true, KivTest::Opaque(1));
   carry();
   mirror.session->close("it was killed");
   source.receive(mirror.take());
   Mount const& again = mountSecond(MountMode::owner);
   ASSERT_TRUE(again.complete()) << again.reason();
   EXPECT_EQ(secondCopy->u8(), 42);
   EXPECT_NE(secondCopy->leaf(3), nullptr);
}

/// A source whose owner permits only readers.
struct Doorkeeper : SessionListener {
   Sarn::String onMountAsked(Session& session, Kiv::NamedEntity const& root,
                             MountMode mode) override {
      return writesBack(mode) ? session.peer().program + " may only read " + root.nameString()
                              : Sarn::String();
   }
   void onMountRefused(Session&, OfferedRoot const& root, Sarn::String const& reason) override {
      refused += root.type + "=" + root.name + ": " + reason + "\n";
   }
   Sarn::String refused;
};

TEST_F(StreamClaim, TheSourcesOwnerDecidesWhoMayWrite) {
   Doorkeeper doorkeeper;
   source.session = std::make_unique<Session>(source.hub, &doorkeeper);
   source.session->peerIs({17, 1000, 100, "stranger"});
   Mount const& refused = mount(MountMode::writer);
   EXPECT_EQ(refused.state(), Mount::State::refused);
   EXPECT_EQ(refused.reason(), "stranger may only read test");
   Mount const& reading = mount(MountMode::reader);
   EXPECT_TRUE(reading.complete()) << "on the same connection";
   root->u8Is(5);
   carry();
   EXPECT_EQ(copy->u8(), 5);
   Sarn::Ptr<Stem> const missing = KivTest::stemFactory("missing");
   mirror.session->mountIs(missing, MountMode::reader);
   carry();
   EXPECT_EQ(doorkeeper.refused,
             "KivTest::Stem=test: stranger may only read test\n"
             "KivTest::Stem=missing: there is no KivTest::Stem named missing\n");
   mirror.session->close("done");
   source.session.reset();
}

TEST_F(StreamClaim, AModeThatIsNoneEndsTheConnection) {
   carry();
   source.receive(message(Opcode::mount, 0, 0,
                          concat(u32(1), Bytes{4}, text("KivTest::Stem"), text("test"))));
   EXPECT_NE(source.session->closeReason().find("there is no mount mode 4"), std::string::npos)
         << source.session->closeReason();
   EXPECT_EQ(source.session->ending(), Kiv::NboAttrLog::Ending::fault);
}

}  // namespace

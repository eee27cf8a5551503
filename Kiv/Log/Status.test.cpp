// What a hub reports about its sessions.
#include "Kiv/NboAttrLogStatus.h"
#include "KivTest/Stream.test.h"

using namespace StreamTesting;
using Kiv::NboAttrLog::SessionStatus;

namespace {

Limits few() {
   Limits limits = narrow(2048);
   limits.longestMessage = 1024;
   return limits;
}

struct Answer : SessionListener {
   void onSessions(Session&, std::vector<SessionStatus> const& all, U32 of) override {
      ++answers;
      sessions = all;
      total = of;
   }
   int answers = 0;
   std::vector<SessionStatus> sessions;
   U32 total = 0;
};

class StreamStatus : public StreamTest {
protected:
   StreamStatus() : StreamTest(few()) {
      clockNow = 1000;
      source.hub.clockIs(&testClock);
      source.connect();
      mount();
   }
   ~StreamStatus() override { clockNow = 0; }

   SessionStatus status() { return source.session->status(); }
};

TEST_F(StreamStatus, OfAPeerThatKeepsUp) {
   root->u8Is(1);
   carry();
   clockNow = 5000;
   SessionStatus const now = status();
   EXPECT_EQ(now.number, 2u) << "the second session of this hub";
   EXPECT_EQ(now.age, 4000u);
   EXPECT_EQ(now.behind, 0u);
   EXPECT_EQ(now.waiting, 0u);
   EXPECT_EQ(now.capacity, 2048u);
   EXPECT_EQ(now.dirtyEntities + now.dirtyAttributes + now.dirtyKeys, 0u);
   EXPECT_EQ(now.stats.changesDeferred, 0u);
   ASSERT_EQ(now.roots.size(), 1u);
   EXPECT_EQ(now.roots[0].root.type, "KivTest::Stem");
   EXPECT_EQ(now.roots[0].root.name, "test");
   EXPECT_EQ(now.roots[0].mode, MountMode::reader);
   EXPECT_TRUE(now.roots[0].complete);
}

TEST_F(StreamStatus, OfAPeerThatDoesNotRead) {
   clockNow = 2000;
   for (int i = 0; i != 1000; ++i) {
      root->u8Is(static_cast<U8>(i));
      clockNow += 1;
   }
   U64 const fell = status().behind;
   EXPECT_GT(fell, 0u);
   EXPECT_LT(fell, 1000u) << "the first changes found room";
   EXPECT_EQ(status().dirtyEntities, 1u);
   EXPECT_EQ(status().dirtyAttributes, 1u);
   EXPECT_EQ(status().stats.changesCoalesced, status().stats.changesDeferred - 1);
   root->byNumberIs(1, "a");
   root->byNumberIs(1, "b");
   root->byNumberIs(2, "c");
   SessionStatus const now = status();
   EXPECT_EQ(now.dirtyAttributes, 2u);
   EXPECT_EQ(now.dirtyKeys, 2u);
   EXPECT_GT(now.waiting, 1024u);
   EXPECT_EQ(now.stats.changesCoalesced, now.stats.changesDeferred - 3)
         << "one for each that the peer will be told";
   carry();
   EXPECT_EQ(status().behind, 0u);
   EXPECT_EQ(status().waiting, 0u);
   expectEqual();
}

TEST_F(StreamStatus, ACarrierThatIsStuckCountsAsBehind) {
   root->u8Is(1);
   clockNow = 3000;
   source.session->blocked();
   clockNow = 3500;
   EXPECT_EQ(status().behind, 500u);
   carry();
   EXPECT_EQ(status().behind, 0u);
}

TEST_F(StreamStatus, IsToldToWhoAsks) {
   Answer answer;
   source.session->peerIs({17, 1000, 100, "reader"});
   Hub otherHub;
   Session asking(otherHub, &answer);
   Session asked(source.hub);
   asking.sessionsAsk();
   for (int i = 0; i != 3; ++i) {
      Bytes const there(asking.output().begin, asking.output().begin + asking.output().size);
      asking.sent(there.size());
      asked.received(there.data(), there.size());
      Bytes const back(asked.output().begin, asked.output().begin + asked.output().size);
      asked.sent(back.size());
      asking.received(back.data(), back.size());
   }
   EXPECT_EQ(answer.answers, 1);
   EXPECT_EQ(answer.total, 2u);
   ASSERT_EQ(answer.sessions.size(), 2u);
   SessionStatus const& first = answer.sessions[0];
   EXPECT_EQ(first.number, 2u);
   EXPECT_EQ(peerText(first.peer), "pid 17, uid 1000, gid 100, reader");
   EXPECT_FALSE(first.asking);
   EXPECT_EQ(first.stats.messagesOut, source.session->stats().messagesOut);
   ASSERT_EQ(first.roots.size(), 1u);
   EXPECT_TRUE(first.roots[0].complete);
   EXPECT_TRUE(answer.sessions[1].asking);
   EXPECT_EQ(peerText(answer.sessions[1].peer), "an unknown peer");
   asking.close("done", false);
   asked.close("done", false);
}

TEST_F(StreamStatus, OfMoreSessionsThanAMessageHoldsTheOldestAreTold) {
   std::vector<std::unique_ptr<Session>> many;
   for (int i = 0; i != 20; ++i) {
      many.push_back(std::make_unique<Session>(source.hub));
   }
   Answer answer;
   mirror.session->close("done", false);
   mirror.session = std::make_unique<Session>(mirror.hub, &answer);
   source.connect();
   mirror.session->sessionsAsk();
   carry();
   EXPECT_EQ(answer.total, 21u);
   EXPECT_GT(answer.sessions.size(), 2u);
   EXPECT_LT(answer.sessions.size(), 10u) << "of 1024 bytes";
   EXPECT_FALSE(mirror.session->closed()) << mirror.session->closeReason();
   mirror.session.reset();
}

TEST(SessionStatus, HasTheBytesThatTheDocumentationShows) {
   SessionStatus status;
   status.number = 3;
   status.peer = {4711, 1000, 100, "top"};
   status.asking = true;
   status.roots.push_back({{"T", "r"}, MountMode::owner, true});
   Bytes bytes(encodedSize(status));
   Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
   encode(out, status);
   EXPECT_EQ(out.room(), 0u);
   Bytes const begin(bytes.begin(), bytes.begin() + 28);
   EXPECT_EQ(begin, (Bytes{0, 0,    0, 0, 0, 0,   0, 3, 0, 0, 0x12, 0x67, 0,   0,
                           3, 0xe8, 0, 0, 0, 100, 0, 0, 0, 3, 't',  'o',  'p', 1}));
   Bytes const end(bytes.end() - 16, bytes.end());
   EXPECT_EQ(end, (Bytes{0, 0, 0, 1, 0, 0, 0, 1, 'T', 0, 0, 0, 1, 'r', 2, 1}));
   Kiv::NboAttrLog::In in(bytes.data(), bytes.data() + bytes.size());
   EXPECT_EQ(decodeSessionStatus(in).peer, status.peer);
   in.expectEnd();
}

TEST_F(StreamStatus, AnAnswerThatIsNotAsItShouldBeEndsTheConnection) {
   struct {
      char const* what;
      int asked;
      Bytes body;
      char const* reason;
   } const cases[] = {
         {"not asked for", 0, concat(u32(0), u32(0)), "nobody has asked for the sessions"},
         {"too many", 1, concat(u32(1), u32(0xffffffff)), "sessions exceed the bound of 0"},
         {"cut", 1, concat(u32(1), u32(1), Bytes(125, 0)), "message"},
         {"flags", 1, concat(u32(1), u32(1), Bytes(24, 0), Bytes{8}, Bytes(108, 0)),
          "unknown flags 8"},
   };
   for (auto const& bad : cases) {
      End end;
      End other;
      end.receive(other.take());
      for (int i = 0; i != bad.asked; ++i) {
         end.session->sessionsAsk();
      }
      end.receive(message(Opcode::sessions, 0, 0, bad.body));
      EXPECT_TRUE(end.session->closed()) << bad.what;
      EXPECT_NE(end.session->closeReason().find(bad.reason), std::string::npos)
            << bad.what << ": " << end.session->closeReason();
      end.session.reset();
      other.session.reset();
   }
}

}  // namespace

// Several peers that may claim a root: one leads, another takes over, and a root whose last one has
// gone is stale.
#include <list>

#include "Kiv/NboAttrLogTransaction.h"
#include "KivTest/Stream.test.h"

using namespace StreamTesting;
using Kiv::NboAttrLog::Transaction;

namespace {

U64 wallTime = 0;
U64 testWall() noexcept {
   return wallTime;
}

/// A source with any number of peers, named in the order of their coming.
class StreamLeader : public testing::Test {
protected:
   struct Peer final : SessionListener {
      explicit Peer(Hub& served) : server(std::make_unique<Session>(served)) {
         session = std::make_unique<Session>(hub, this);
      }
      void onWriters(Session&, Mount& changed) override {
         told += changed.stale() ? "stale since " + std::to_string(changed.staleSince()) + ";" : "";
         for (auto const& writer : changed.writers()) {
            told += " " + std::to_string(writer.priority) + (writer.leads ? " leads" : " waits") +
                    (writer.isSelf ? " (self)" : "");
         }
         told += "\n";
      }
      void onDecided(Session&, U32, Sarn::String const& reason) override { told += reason + "\n"; }
      std::string take() { return std::exchange(told, {}); }
      /// Its process is killed.
      void die() {
         server.reset();
         session.reset();
      }

      Sarn::Ptr<Stem> copy = KivTest::stemFactory("test");
      Hub hub;
      std::unique_ptr<Session> server;
      std::unique_ptr<Session> session;
      Mount* mount = nullptr;
      std::string told;
      bool hangs = false;
   };

   StreamLeader() {
      clockNow = 1'000'000'000;
      wallTime = 5000;
      hub.clockIs(testClock, testWall);
      hub.rootIs(root);
   }
   ~StreamLeader() override { peers.clear(); }

   Peer& peerIs(MountMode mode, U32 priority = Kiv::NboAttrLog::usualPriority) {
      Peer& peer = peers.emplace_back(hub);
      peer.server->peerIs({static_cast<U32>(peers.size()), 0, 0, "agent"});
      peer.mount = &peer.session->mountIs(peer.copy, mode, priority);
      carry();
      return peer;
   }
   static bool pass(Session& from, Session& to) {
      Bytes const bytes(from.output().begin, from.output().begin + from.output().size);
      from.sent(bytes.size());
      to.received(bytes.data(), bytes.size());
      return !bytes.empty();
   }
   void carry() {
      for (bool any = true; any;) {
         any = false;
         for (Peer& peer : peers) {
            if (peer.session != nullptr && !peer.hangs) {
               any = pass(*peer.session, *peer.server) || any;
               any = pass(*peer.server, *peer.session) || any;
            }
         }
      }
   }
   /// Lets time pass, as a loop does that polls until the hub's deadline.
   void wait(U64 milliseconds) {
      U64 const end = clockNow + milliseconds * 1'000'000;
      for (;;) {
         U64 const next = hub.deadline();
         if (next == 0 || next > end) {
            break;
         }
         ++turns;
         clockNow = std::max(clockNow, next);
         carry();
         hub.expire();
         carry();
      }
      clockNow = end;
   }

   Sarn::Ptr<Stem> root = KivTest::stemFactory("test");
   Hub hub;
   std::list<Peer> peers;
   unsigned turns = 0;
};

TEST_F(StreamLeader, TheSmallestPriorityOfThoseWhoWaitTakesOverWhenTheLeaderEnds) {
   Peer& first = peerIs(MountMode::candidate, 20);
   EXPECT_TRUE(first.mount->leads());
   EXPECT_EQ(first.take(), " 20 leads (self)\n");
   Peer& second = peerIs(MountMode::candidate, 10);
   Peer& third = peerIs(MountMode::candidate, 5);
   EXPECT_TRUE(first.mount->leads()) << "nobody takes the lead from who has it";
   EXPECT_FALSE(third.mount->leads());
   EXPECT_TRUE(third.mount->complete());
   first.copy->u8Is(1);
   carry();
   EXPECT_EQ(root->u8(), 1);
   EXPECT_EQ(third.copy->u8(), 1);
   third.take();
   first.die();
   carry();
   EXPECT_TRUE(third.mount->leads());
   EXPECT_FALSE(second.mount->leads());
   EXPECT_EQ(third.take(), " 10 waits 5 leads (self)\n");
   third.copy->u8Is(3);
   carry();
   EXPECT_EQ(root->u8(), 3);
}

TEST_F(StreamLeader, OfTwoWithTheSamePriorityTheFirstLeads) {
   Peer& first = peerIs(MountMode::candidate);
   Peer& second = peerIs(MountMode::candidate);
   Peer const& third = peerIs(MountMode::candidate);
   first.die();
   carry();
   EXPECT_TRUE(second.mount->leads());
   EXPECT_FALSE(third.mount->leads());
}

TEST_F(StreamLeader, WhatOneChangesThatWaitsIsUndoneInItsMirrorAlone) {
   Peer& leader = peerIs(MountMode::candidate);
   Peer& other = peerIs(MountMode::candidate);
   leader.copy->leafIs(1, true, KivTest::Opaque(1))->ticksIs(7);
   leader.copy->byNumberIs(1, "one");
   carry();
   other.take();
   other.copy->u8Is(9);
   other.copy->leafDel(1);
   other.copy->leafIs(2, true, KivTest::Opaque(1));
   other.copy->byNumberIs(1, "two");
   carry();
   EXPECT_EQ(root->u8(), 200);
   EXPECT_EQ(KivTest::firstDifference(*root, *other.copy), "");
   EXPECT_EQ(KivTest::firstDifference(*root, *leader.copy), "");
   EXPECT_FALSE(other.session->closed());
   {
      Transaction const together(*other.session);
      other.copy->u8Is(9);
   }
   carry();
   EXPECT_NE(other.take().find("another peer leads test"), std::string::npos);
   EXPECT_EQ(other.copy->u8(), 200);
   leader.die();
   carry();
   other.copy->leaf(1)->ticksIs(8);
   carry();
   EXPECT_EQ(root->leaf(1)->ticks(), 8) << "now it leads";
}

TEST_F(StreamLeader, OneThatHangsLosesTheLeadWithinASecondAndItsLateChangesAreUndone) {
   Peer& leader = peerIs(MountMode::candidate, 1);
   Peer& other = peerIs(MountMode::candidate, 2);
   wait(10'000);
   EXPECT_TRUE(leader.mount->leads()) << "it answers";
   EXPECT_LT(turns, 70u) << "and is asked about five times a second";
   leader.hangs = true;
   leader.copy->u8Is(77);
   U64 const before = clockNow;
   while (!other.mount->leads() && clockNow - before < 2'000'000'000) {
      wait(50);
   }
   EXPECT_LE(clockNow - before, 1'000'000'000u);
   other.copy->u8Is(5);
   carry();
   leader.hangs = false;
   carry();
   EXPECT_EQ(root->u8(), 5);
   EXPECT_EQ(leader.copy->u8(), 5);
   EXPECT_FALSE(leader.mount->leads());
   EXPECT_FALSE(leader.session->closed());
   other.die();
   carry();
   EXPECT_TRUE(leader.mount->leads()) << "it has been heard again";
}

TEST_F(StreamLeader, OneThatHangsAloneKeepsTheLeadAndIsNotAsked) {
   Peer& leader = peerIs(MountMode::candidate);
   hub.expire();
   leader.hangs = true;
   wait(60'000);
   EXPECT_LE(turns, 3u) << "only idle memory is freed";
   EXPECT_EQ(leader.server->output().size, 0u);
}

TEST_F(StreamLeader, AndWhoClaimsAloneOrJustWritesRuleEachOtherOutByName) {
   Peer& leader = peerIs(MountMode::candidate);
   Peer const& owner = peerIs(MountMode::owner);
   EXPECT_EQ(owner.mount->reason(),
             "test cannot be claimed: it is written by pid 1, uid 0, gid 0, agent");
   Peer const& writer = peerIs(MountMode::writer);
   EXPECT_EQ(writer.mount->reason(), "test is claimed by pid 1, uid 0, gid 0, agent");
   leader.die();
   Peer const& first = peerIs(MountMode::owner);
   EXPECT_TRUE(first.mount->leads());
   Peer const& late = peerIs(MountMode::candidate);
   EXPECT_EQ(late.mount->reason(),
             "test cannot be claimed: it is written by pid 4, uid 0, gid 0, agent");
}

TEST_F(StreamLeader, ARootIsStaleFromTheEndOfItsLastClaimToTheNext) {
   Peer& reader = peerIs(MountMode::reader);
   Peer& writer = peerIs(MountMode::writer);
   writer.die();
   carry();
   EXPECT_EQ(reader.take(), "") << "nobody has claimed it";
   Peer& owner = peerIs(MountMode::owner);
   EXPECT_EQ(reader.take(), " 0 leads\n");
   owner.die();
   carry();
   EXPECT_EQ(reader.take(), "stale since 5000;\n");
   EXPECT_TRUE(reader.mount->stale());
   EXPECT_EQ(reader.mount->staleSince(), 5000u);
   EXPECT_TRUE(hub.stale(*root));
   Peer& late = peerIs(MountMode::reader);
   EXPECT_EQ(late.take(), "stale since 5000;\n");
   wallTime = 6000;
   Peer const& again = peerIs(MountMode::owner);
   EXPECT_TRUE(again.mount->leads());
   EXPECT_FALSE(reader.mount->stale());
   EXPECT_EQ(reader.take(), " 0 leads\n");
}

TEST_F(StreamLeader, ARestoredRootIsStaleSinceItsLastWriterIfTheHolderSaysSo) {
   hub.staleIs(*root, true, 4000);
   Peer& reader = peerIs(MountMode::reader);
   EXPECT_EQ(reader.take(), "stale since 4000;\n");
   std::vector<Kiv::NboAttrLog::OfferedRoot> roots;
   struct Asking final : SessionListener {
      void onRoots(Session&, std::vector<Kiv::NboAttrLog::OfferedRoot> const& all) override {
         told = all;
      }
      std::vector<Kiv::NboAttrLog::OfferedRoot> told;
   } asking;
   Hub other;
   {
      Session server(hub);
      Session client(other, &asking);
      client.rootsAsk();
      for (int i = 0; i != 4; ++i) {
         pass(client, server);
         pass(server, client);
      }
   }
   ASSERT_EQ(asking.told.size(), 1u);
   EXPECT_TRUE(asking.told[0].stale);
   EXPECT_EQ(asking.told[0].staleSince, 4000u);
   peerIs(MountMode::candidate);
   EXPECT_FALSE(hub.stale(*root));
   EXPECT_EQ(reader.take(), " 128 leads\n");
}

TEST_F(StreamLeader, IsInTheStatusOfItsSession) {
   peerIs(MountMode::candidate);
   Peer const& other = peerIs(MountMode::candidate);
   EXPECT_TRUE(peers.front().server->status().roots.at(0).leads);
   EXPECT_FALSE(other.server->status().roots.at(0).leads);
   EXPECT_EQ(other.server->status().roots.at(0).mode, MountMode::candidate);
}

}  // namespace

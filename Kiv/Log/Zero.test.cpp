// 0.0 and -0.0 are equal for a setter, but differ in a dump: a mirror has the one that its source
// has, whatever changes it has missed.
#include <bit>
#include <cmath>
#include <limits>

#include "Kiv/Identical.h"
#include "KivTest/Stream.test.h"

using namespace StreamTesting;

namespace {

bool isNegativeZero(double v) {
   return v == 0 && std::signbit(v);
}

class StreamZero : public StreamTest {
protected:
   StreamZero() { mount(); }
   /// Blocks the mirror until the next `carry`, so that only the last values are sent.
   void stop() {
      source.session->blocked();
      for (std::size_t i = 0; source.session->upToDate(); ++i) {
         root->textIs(std::string(100000 + i % 2, 'x'));
      }
      root->textIs("none");
   }
};

TEST_F(StreamZero, ASetterStillTakesTheTwoForEqual) {
   KivTest::Witness published(*root);
   root->preciseIs(0.0);
   EXPECT_EQ(published.changes(), "precise was -1");
   root->preciseIs(-0.0);
   EXPECT_EQ(published.changes(), "");
   EXPECT_FALSE(isNegativeZero(root->precise()));
   root->preciseIs(std::numeric_limits<double>::quiet_NaN());
   root->preciseIs(std::numeric_limits<double>::quiet_NaN());
   EXPECT_EQ(published.ids(), "268 268");
}

TEST_F(StreamZero, ASingleAttributeIsTheSourcesAfterChangesThatTheMirrorHasMissed) {
   root->preciseIs(0.0);
   root->ratioIs(-0.0f);
   root->deadlineIs(0.0);
   carry();
   stop();
   root->preciseIs(1.0);
   root->preciseIs(-0.0);
   root->ratioIs(1.0f);
   root->ratioIs(0.0f);
   root->deadlineIs(Kiv::Optional<Kiv::Seconds>());
   root->deadlineIs(-0.0);
   KivTest::Witness published(*copy);
   carry();
   EXPECT_TRUE(isNegativeZero(copy->precise()));
   EXPECT_FALSE(isNegativeZero(copy->ratio()));
   EXPECT_TRUE(isNegativeZero(copy->deadline().value()));
   // Each is published once, and only for received values: setters called by observers still
   // compare by equality.
   std::string const ids = published.ids();
   EXPECT_NE(ids.find("268"), std::string::npos) << ids;
   copy->preciseIs(0.0);
   EXPECT_TRUE(isNegativeZero(copy->precise()));
   EXPECT_EQ(published.ids(), "");
}

TEST_F(StreamZero, AnObserversSettersKeepToTheirRule) {
   struct Follower final : Kiv::Observer {
      explicit Follower(Stem& observed) : root(observed) { root.observerAdd(*this); }
      ~Follower() { root.observerDel(*this); }
      void onChange(Kiv::Change const& change) override {
         if (change.attributeId == 268) {
            root.waitIs(-0.0);
         }
      }
      Stem& root;
   };
   root->preciseIs(0.0);
   root->waitIs(0.0);
   carry();
   stop();
   root->preciseIs(1.0);
   root->preciseIs(-0.0);
   Follower const follower(*copy);
   carry();
   EXPECT_TRUE(isNegativeZero(copy->precise()));
   EXPECT_FALSE(isNegativeZero(copy->wait()));
}

TEST_F(StreamZero, AReplayIntoAnOldMirrorBringsTheSourcesZero) {
   root->preciseIs(-0.0);
   root->leafIs(1, true, KivTest::Opaque(0.0))->twigIs(KivTest::Level::low)->weightIs(0.0);
   root->samplesEnq(0.0);
   carry();
   mirror.connect();
   source.connect();
   root->preciseIs(1.0);
   root->preciseIs(0.0);
   root->leafDel(1);
   Sarn::Ptr<KivTest::Twig> const twig =
         root->leafIs(1, true, KivTest::Opaque(-0.0))->twigIs(KivTest::Level::low);
   twig->weightIs(1.0);
   twig->weightIs(-0.0);
   root->samplesDeq();
   root->samplesEnq(-0.0);
   mount();
   EXPECT_FALSE(isNegativeZero(copy->precise()));
   EXPECT_TRUE(isNegativeZero(copy->leaf(1)->origin().content()));
   EXPECT_TRUE(isNegativeZero(copy->leaf(1)->twig(KivTest::Level::low)->weight()));
   EXPECT_TRUE(isNegativeZero(copy->samples(copy->samplesAll().frontSequence())));
   // A second replay of the same values changes nothing.
   Sarn::Ptr<KivTest::Leaf> const leaf = copy->leaf(1);
   mirror.connect();
   source.connect();
   KivTest::Witness published(*copy, Kiv::Scope::subtree);
   mount();
   EXPECT_EQ(copy->leaf(1), leaf);
   EXPECT_EQ(published.changes().find("precise"), std::string::npos);
}

TEST_F(StreamZero, ARelayPassesItOn) {
   End behind;
   Sarn::Ptr<Stem> const last = KivTest::stemFactory("test");
   mirror.hub.rootIs(copy);
   Session server(mirror.hub);
   Session client(behind.hub);
   Mount const& made = client.mountIs(last);
   auto const flow = [](Session& from, Session& to) {
      bool moved = false;
      while (from.output().size != 0) {
         auto const piece = from.output();
         to.received(piece.begin, piece.size);
         from.sent(piece.size);
         moved = true;
      }
      return moved;
   };
   auto const all = [&] {
      carry();
      for (bool moved = true; moved;) {
         moved = flow(server, client);
         moved = flow(client, server) || moved;
      }
   };
   root->preciseIs(0.0);
   all();
   ASSERT_TRUE(made.complete());
   stop();
   root->preciseIs(1.0);
   root->preciseIs(-0.0);
   all();
   EXPECT_TRUE(isNegativeZero(copy->precise()));
   EXPECT_TRUE(isNegativeZero(last->precise()));
}

TEST(Identical, TellsTheZerosApartWhereverTheyAre) {
   using Kiv::isIdentical;
   static_assert(!Kiv::equalMayDiffer<U32>);
   static_assert(!Kiv::equalMayDiffer<Sarn::String>);
   static_assert(!Kiv::equalMayDiffer<KivTest::Pair>);
   static_assert(!Kiv::equalMayDiffer<KivTest::Record>);
   static_assert(Kiv::equalMayDiffer<KivTest::Opaque>);
   static_assert(Kiv::equalMayDiffer<Kiv::Optional<float>>);
   EXPECT_TRUE(isIdentical(0.0, 0.0));
   EXPECT_FALSE(isIdentical(0.0, -0.0));
   EXPECT_FALSE(isIdentical(-0.0f, 0.0f));
   EXPECT_FALSE(isIdentical(Kiv::Optional<double>(0.0), Kiv::Optional<double>(-0.0)));
   EXPECT_TRUE(isIdentical(Kiv::Optional<double>(), Kiv::Optional<double>()));
   EXPECT_FALSE(isIdentical(KivTest::Opaque(0.0), KivTest::Opaque(-0.0)));
   EXPECT_TRUE(isIdentical(KivTest::Opaque(-0.0), KivTest::Opaque(-0.0)));
   Dorn::IntfId const intf;
   EXPECT_TRUE(isIdentical(intf, intf));
}

}  // namespace

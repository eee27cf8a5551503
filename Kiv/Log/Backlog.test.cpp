#include "KivTest/SessionParts.test.h"

namespace {

using namespace PartsTesting;

Limits smallBacklog() {
   Limits limits;
   limits.dirtyKeys = 8;
   limits.entities = 20;
   return limits;
}

class BacklogTest : public testing::Test, protected Parts {
protected:
   BacklogTest() : Parts(smallBacklog()) {}

   void markKeys(U32 count) {
      for (U32 key = 0; key != count; ++key) {
         backlog.mark(*root, field("byNumber"), &key, false);
      }
   }
};

TEST_F(BacklogTest, AnEntityThatThePeerDoesNotKnowIsNotListed) {
   backlog.mark(*root, field("u8"), nullptr, false);
   backlog.markWhole(*root, field("samples"));
   EXPECT_TRUE(backlog.empty());
   EXPECT_EQ(backlog.deferred(), 0u);
}

TEST_F(BacklogTest, AnAttributeIsOneFlagHoweverOftenItChanges) {
   serve();
   for (int i = 0; i != 5; ++i) {
      backlog.mark(*root, field("u8"), nullptr, false);
   }
   backlog.mark(*root, field("u16"), nullptr, false);
   EXPECT_EQ(backlog.size(), 1u);
   EXPECT_EQ(backlog.dirtyAttributes(), 2u);
   EXPECT_EQ(backlog.deferred(), 6u);
   EXPECT_EQ(backlog.coalesced(), 4u);
}

TEST_F(BacklogTest, EntitiesAreListedInTheOrderInWhichTheyFirstChanged) {
   auto const core = root->coreIs();
   handles.registerTree(*core);
   serve();
   names.introducedIs(core->streamHandle(), true);
   U64 const before = backlog.sequence();
   EXPECT_TRUE(backlog.isToldUpTo(before));
   backlog.mark(*core, *core->kivType().field(258), nullptr, false);
   U64 const between = backlog.sequence();
   backlog.mark(*root, field("u8"), nullptr, false);
   backlog.mark(*core, *core->kivType().field(259), nullptr, false);
   ASSERT_EQ(backlog.size(), 2u);
   EXPECT_EQ(&backlog.first()->entity(), core.get());
   EXPECT_EQ(&backlog.first()->next->entity(), root.get());
   EXPECT_TRUE(backlog.isToldUpTo(before));
   EXPECT_FALSE(backlog.isToldUpTo(between));
   backlog.remove(core->streamHandle());
   EXPECT_EQ(&backlog.first()->entity(), root.get());
   EXPECT_TRUE(backlog.isToldUpTo(between));
   backlog.remove(root->streamHandle());
   EXPECT_TRUE(backlog.empty());
}

TEST_F(BacklogTest, KeysAreKeptOneByOneUpToTheirBound) {
   serve();
   markKeys(8);
   EXPECT_EQ(backlog.dirtyKeys(), 8u);
   U32 const key = 3;
   EXPECT_TRUE(backlog.has(*root, field("byNumber"), &key));
   EXPECT_FALSE(backlog.has(*root, field("byText"), &key));
   markKeys(9);
   EXPECT_EQ(backlog.dirtyKeys(), 0u);
   EXPECT_TRUE(backlog.first()->wholeCollection(field("byNumber").fieldId));
   markKeys(20);
   EXPECT_EQ(backlog.dirtyKeys(), 0u) << "no key need be remembered before a whole replay";
}

TEST_F(BacklogTest, MoreKeysAreKeptOfALargeCollection) {
   serve();
   for (U32 key = 0; key != 100; ++key) {
      root->byNumberIs(key, "x");
   }
   markKeys(25);
   EXPECT_EQ(backlog.dirtyKeys(), 25u);
   markKeys(26);
   EXPECT_EQ(backlog.dirtyKeys(), 0u);
}

TEST_F(BacklogTest, AWritersKeysAreKeptUntilTheSessionEnds) {
   names.introducedIs(root->streamHandle(), true);  // the peer serves it
   markKeys(20);
   EXPECT_EQ(backlog.dirtyKeys(), 20u);
   EXPECT_FALSE(closing.closed());
   markKeys(21);
   EXPECT_EQ(closing.reason(),
             "test.byNumber (" + std::to_string(field("byNumber").fieldId) +
                   "): more than 20 changed keys wait for a peer that does not take them");
   U64 const deferred = backlog.deferred();
   markKeys(1);
   EXPECT_EQ(backlog.deferred(), deferred) << "it is closed";
}

TEST_F(BacklogTest, ThePeerFallsBehindWithTheFirstEntity) {
   static U64 now;
   now = 7;
   clock.read = []() noexcept { return now; };
   serve();
   backlog.mark(*root, field("u8"), nullptr, false);
   now = 17;
   EXPECT_EQ(outbox.behind(), 10u);
}

TEST_F(BacklogTest, AQueueKeepsTheFirstNumberThatThePeerMisses) {
   serve();
   root->samplesEnq(1);
   root->samplesEnq(2);
   for (U32 const sequence : {2u, 1u}) {
      backlog.mark(*root, field("samples"), &sequence, false);
   }
   EXPECT_EQ(backlog.first()->toldSequence(field("samples").fieldId, 99), 1u);
   EXPECT_EQ(backlog.coalesced(), 0u) << "each element is told";
}

TEST_F(BacklogTest, AllOfAnEntityIsEveryStreamedAttribute) {
   serve();
   backlog.markAll(*root);
   EXPECT_TRUE(backlog.first()->kivIsDirty(field("u8").fieldId));
   EXPECT_TRUE(backlog.first()->wholeCollection(field("leaf").fieldId));
   EXPECT_FALSE(backlog.first()->kivIsDirty(field("secret").fieldId));
}

}  // namespace

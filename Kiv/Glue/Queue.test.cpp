// The sequence-numbered queue as a member.
#include <gtest/gtest.h>

#include "KivTest/Observer.test.h"
#include "KivTest/TestTypes.h"
#include "KivTest/Witness.h"

namespace {

using namespace KivTest;

class Queue : public testing::Test {
protected:
   Sarn::Ptr<Stem> root = stemFactory("test");
};

TEST_F(Queue, IsEmptyAndGivesZeroAtFirst) {
   EXPECT_EQ(root->samplesCount(), 0u);
   EXPECT_EQ(root->samplesFront(), 0.0);
   EXPECT_EQ(root->samplesBack(), 0.0);
   EXPECT_EQ(root->samples(1), 0.0);
   EXPECT_FALSE(root->samplesHas(1));
}

TEST_F(Queue, NumbersItsElementsFromOne) {
   for (int i = 1; i <= 6; ++i) {
      root->samplesEnq(i * 10);
   }
   EXPECT_EQ(root->samplesFront(), 10);
   EXPECT_EQ(root->samplesBack(), 60);
   for (U32 i = 1; i <= 6; ++i) {
      EXPECT_TRUE(root->samplesHas(i));
      EXPECT_EQ(root->samples(i), i * 10);
   }
   EXPECT_FALSE(root->samplesHas(7));
   EXPECT_EQ(root->samplesAll().chunks(), 2u) << "the fifth element opens a second chunk";
}

TEST_F(Queue, EveryChangeIsPublishedWithTheSecondIdAndTheNumberAsKey) {
   std::vector<U32> keys;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      EXPECT_EQ(change.attributeId, 298);
      EXPECT_EQ(change.oldValue, nullptr);
      ASSERT_NE(change.key, nullptr);
      EXPECT_TRUE(change.keyCompare(change.key, change.key));
      keys.push_back(*static_cast<U32 const*>(change.key));
   });
   root->samplesEnq(1.5);
   root->samplesEnq(2.5);
   EXPECT_EQ(root->samplesDeq(), 1.5);
   root->samplesEnq(3.5);
   EXPECT_EQ(keys, (std::vector<U32>{1, 2, 1, 3}));
}

TEST_F(Queue, DequeuingFromAnEmptyOneGivesZeroAndPublishesNothing) {
   Witness published(*root);
   EXPECT_EQ(root->samplesDeq(), 0.0);
   EXPECT_EQ(published.ids(), "");
}

TEST_F(Queue, NumbersGoOnAfterItHasBeenEmptied) {
   root->samplesEnq(1);
   root->samplesEnq(2);
   root->samplesDeq();
   root->samplesDeq();
   root->samplesEnq(3);
   EXPECT_EQ(root->samples(3), 3.0);
   root->samplesDelAll();
   root->samplesEnq(4);
   EXPECT_EQ(root->samplesAll().frontSequence(), 4u);
}

TEST_F(Queue, DelAllTellsOfEachElementFromTheFront) {
   for (int i = 0; i != 5; ++i) {
      root->samplesEnq(i);
   }
   Witness published(*root);
   root->samplesDelAll();
   EXPECT_EQ(published.changes(),
             "samples[1] was nothing; samples[2] was nothing; samples[3] was nothing; "
             "samples[4] was nothing; samples[5] was nothing");
   EXPECT_EQ(root->samplesCount(), 0u);
}

TEST_F(Queue, EqualValuesAreChangesToo) {
   Witness published(*root);
   root->samplesEnq(0);
   root->samplesEnq(0);
   EXPECT_EQ(published.ids(), "298 298");
}

TEST_F(Queue, IsVisitedFromTheFront) {
   for (int i = 1; i <= 20; ++i) {
      root->samplesEnq(i);
   }
   root->samplesDeq();
   U32 next = 2;
   for (auto const& [sequence, value] : root->samplesAll()) {
      EXPECT_EQ(sequence, next);
      EXPECT_EQ(value, next);
      ++next;
   }
   EXPECT_EQ(next, 21u);
}

TEST_F(Queue, DelAllTakesOutWhatWasThereAndLeavesWhatObserversPutIn) {
   for (int i = 0; i != 20; ++i) {
      root->samplesEnq(i);
   }
   int removed = 0;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      U32 const number = *static_cast<U32 const*>(change.key);
      if (!root->samplesHas(number) && ++removed <= 1000) {
         root->samplesEnq(100 + number);
      }
   });
   root->samplesDelAll();
   EXPECT_EQ(removed, 20);
   EXPECT_EQ(root->samplesCount(), 20u);
   EXPECT_EQ(root->samplesFront(), 101);
}

TEST_F(Queue, DelAllTakesAllOutThoughObserversThrowAndThrowsTheFirst) {
   for (int i = 0; i != 20; ++i) {
      root->samplesEnq(i);
   }
   int heard = 0;
   Hears const hears(*root, [&](Kiv::Change const&) {
      throw std::runtime_error("removal " + std::to_string(++heard));
   });
   EXPECT_EQ(thrown<std::runtime_error>([&] { root->samplesDelAll(); }), "removal 1");
   EXPECT_EQ(heard, 20);
   EXPECT_EQ(root->samplesCount(), 0u);
}

}  // namespace

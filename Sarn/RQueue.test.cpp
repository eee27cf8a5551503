#include "Sarn/RQueue.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Sarn/String.h"

namespace {

using Queue = Sarn::RQueue<double>;
using Sarn::RQueueSequence;

TEST(RQueue, IsSixteenBytesAndHoldsNoMemoryWhileEmpty) {
   EXPECT_EQ(sizeof(Queue), 16u);
   Queue queue;
   EXPECT_EQ(queue.chunks(), 0u);
   queue.enq(1);
   queue.deq();
   EXPECT_EQ(queue.chunks(), 0u);
}

TEST(RQueue, AnEmptyQueueReadsAsTheDefaultValue) {
   Queue queue;
   EXPECT_EQ(queue.deq(), 0.0);
   EXPECT_EQ(queue.front(), 0.0);
   EXPECT_EQ(queue.back(), 0.0);
   EXPECT_EQ(queue.at(1), 0.0);
   EXPECT_FALSE(queue.has(1));
   EXPECT_FALSE(queue.has(0));
   EXPECT_EQ(queue.nextSequence(), 1u);
}

TEST(RQueue, NumbersRunFromOneWithoutAGapAcrossChunks) {
   Queue queue;
   for (U32 i = 1; i <= 100; ++i) {
      ASSERT_EQ(queue.enq(i), i);
   }
   RQueueSequence expected = 0;
   for (auto const& [sequence, value] : queue) {
      ASSERT_EQ(sequence, ++expected);
      ASSERT_EQ(value, expected);
   }
   EXPECT_EQ(expected, 100u);
}

TEST(RQueue, TheFifthElementOpensASecondChunk) {
   Queue queue;
   for (int i = 0; i < 4; ++i) {
      queue.enq(i);
   }
   EXPECT_EQ(queue.chunks(), 1u);
   EXPECT_EQ(queue.enq(4), 5u);
   EXPECT_EQ(queue.chunks(), 2u);
}

TEST(RQueue, AChunkIsTwiceTheElementsBeforeItWhereThatIsAPowerOfTwo) {
   Queue queue;
   // Where the number of elements is 4, 12, 28, ... a chunk is added: of 8, 16, 32, ...
   U32 boundary = 4;
   U32 chunks = 1;
   for (U32 i = 1; i <= 20'000; ++i) {
      if (i == boundary + 1) {
         ++chunks;
         U32 size = 4;
         while (size <= boundary && size < Queue::largestChunk) {
            size *= 2;
         }
         boundary += size;
      }
      queue.enq(i);
      ASSERT_EQ(queue.chunks(), chunks) << "after element " << i;
   }
}

TEST(RQueue, TheSizeOfAChunkFollowsTheElementsThatAreLeft) {
   Queue queue;
   for (int i = 0; i < 12; ++i) {
      queue.enq(i);  // chunks of 4 and 8
   }
   for (int i = 0; i < 10; ++i) {
      queue.deq();
   }
   EXPECT_EQ(queue.chunks(), 1u);
   for (int i = 0; i < 4; ++i) {
      queue.enq(i);  // two elements are left before the first: a chunk of 4
   }
   EXPECT_EQ(queue.chunks(), 2u);
   queue.enq(5);
   EXPECT_EQ(queue.chunks(), 3u);
}

TEST(RQueue, TenThousandElementsStayReachable) {
   Queue queue;
   for (int i = 0; i < 10'000; ++i) {
      queue.enq(i * 0.5);
   }
   EXPECT_EQ(queue.size(), 10'000u);
   EXPECT_EQ(queue.front(), 0.0);
   EXPECT_EQ(queue.back(), 4999.5);
   EXPECT_TRUE(queue.has(1));
   EXPECT_TRUE(queue.has(10'000));
   EXPECT_FALSE(queue.has(10'001));
   for (U32 i = 1; i <= 10'000; ++i) {
      ASSERT_EQ(queue.at(i), (i - 1) * 0.5);
   }
   for (int i = 0; i < 10'000; ++i) {
      ASSERT_EQ(queue.deq(), i * 0.5);
   }
   EXPECT_TRUE(queue.empty());
}

TEST(RQueue, NumbersGoOnAfterTheQueueHasBeenEmpty) {
   Queue queue;
   queue.enq(1);
   queue.enq(2);
   queue.deq();
   queue.deq();
   EXPECT_EQ(queue.enq(3), 3u);
   queue.doClear();
   EXPECT_TRUE(queue.empty());
   EXPECT_EQ(queue.frontSequence(), 4u);
   EXPECT_EQ(queue.enq(4), 4u);
}

TEST(RQueue, ElementsThatWereTakenAreGone) {
   Queue queue;
   for (int i = 1; i <= 6; ++i) {
      queue.enq(i);
   }
   queue.deq();
   queue.deq();
   EXPECT_FALSE(queue.has(2));
   EXPECT_EQ(queue.at(2), 0.0);
   EXPECT_TRUE(queue.has(3));
   EXPECT_EQ(queue.frontSequence(), 3u);
   EXPECT_EQ(queue.backSequence(), 6u);
}

TEST(RQueue, NumbersWrapAround) {
   Queue queue;
   queue.forceSequenceNumber(0xfffffffe);
   for (int i = 0; i < 9; ++i) {
      queue.enq(i);
   }
   EXPECT_EQ(queue.frontSequence(), 0xfffffffeu);
   EXPECT_EQ(queue.backSequence(), 6u);
   RQueueSequence sequence = 0xfffffffe;
   for (int i = 0; i < 9; ++i, ++sequence) {
      ASSERT_TRUE(queue.has(sequence));
      ASSERT_EQ(queue.at(sequence), i);
   }
   EXPECT_FALSE(queue.has(7));
   EXPECT_FALSE(queue.has(0xfffffffd));
   EXPECT_FALSE(queue.has(0x7ffffffe));
   queue.deq();
   queue.deq();
   queue.deq();
   EXPECT_EQ(queue.frontSequence(), 1u);
   EXPECT_FALSE(queue.has(0));
   EXPECT_TRUE(queue.has(1));
}

TEST(RQueue, AForcedNumberLeavesAGapThatReadsAsTheDefault) {
   Queue queue;
   queue.enq(1);
   queue.forceSequenceNumber(10);
   EXPECT_EQ(queue.enq(2), 10u);
   EXPECT_EQ(queue.enq(3), 11u);
   EXPECT_EQ(queue.at(1), 1.0);
   EXPECT_EQ(queue.at(10), 2.0);
   EXPECT_EQ(queue.at(11), 3.0);
   EXPECT_TRUE(queue.has(5));  // between the ends, though no element has it
   EXPECT_EQ(queue.find(5), nullptr);
   EXPECT_EQ(queue.at(5), 0.0);
   std::vector<RQueueSequence> sequences;
   for (auto const& [sequence, value] : queue) {
      sequences.push_back(sequence);
   }
   EXPECT_EQ(sequences, (std::vector<RQueueSequence>{1, 10, 11}));
   queue.deq();
   EXPECT_EQ(queue.frontSequence(), 10u);
}

TEST(RQueue, ForcingTheNumberThatIsNextChangesNothing) {
   Queue queue;
   queue.enq(1);
   queue.forceSequenceNumber(2);
   queue.enq(2);
   EXPECT_EQ(queue.chunks(), 1u);
}

TEST(RQueue, OwnsItsElements) {
   Sarn::RQueue<Sarn::String> strings;
   for (int i = 0; i < 50; ++i) {
      strings.enq("a string that is too long for the object " + std::to_string(i));
   }
   EXPECT_EQ(strings.deq(), "a string that is too long for the object 0");
   EXPECT_EQ(*strings.find(50), "a string that is too long for the object 49");
   Sarn::RQueue<std::shared_ptr<int>> pointers;
   auto const shared = std::make_shared<int>(1);
   for (int i = 0; i < 20; ++i) {
      pointers.enq(shared);
   }
   pointers.deq();
   EXPECT_EQ(shared.use_count(), 20);
   pointers.doClear();
   EXPECT_EQ(shared.use_count(), 1);
}

TEST(RQueue, AgreesWithTheStandardDequeOverLongRandomRuns) {
   U64 const seed = std::random_device()();
   SCOPED_TRACE("seed " + std::to_string(seed));
   std::mt19937_64 random(seed);
   Queue queue;
   std::deque<std::pair<RQueueSequence, double>> model;
   RQueueSequence next = static_cast<RQueueSequence>(0xffffff00 + random() % 256);
   queue.forceSequenceNumber(next);
   for (int i = 0; i < 100'000; ++i) {
      bool const growing = i / 10'000 % 2 == 0;
      if (random() % 16 < (growing ? 10u : 6u)) {
         double const v = static_cast<double>(random() % 1000);
         ASSERT_EQ(queue.enq(v), next);
         model.emplace_back(next++, v);
      } else if (random() % 64 == 0) {
         next += static_cast<RQueueSequence>(random() % 5);
         queue.forceSequenceNumber(next);
      } else if (!model.empty()) {
         ASSERT_EQ(queue.frontSequence(), model.front().first);
         ASSERT_EQ(queue.deq(), model.front().second);
         model.pop_front();
      }
      ASSERT_EQ(queue.size(), model.size());
      if (!model.empty()) {
         ASSERT_EQ(queue.back(), model.back().second);
         ASSERT_EQ(queue.backSequence(), model.back().first);
         auto const& [sequence, value] = model[random() % model.size()];
         ASSERT_TRUE(queue.has(sequence));
         ASSERT_EQ(queue.at(sequence), value);
      }
      if (i % 5000 == 0) {
         auto at = model.begin();
         for (auto const& [sequence, value] : queue) {
            ASSERT_EQ(sequence, at->first);
            ASSERT_EQ(value, at->second);
            ++at;
         }
         ASSERT_EQ(at, model.end());
      }
   }
}

TEST(RQueue, AChunkOfAnotherSizeThanAPowerOfTwoIsAFault) {
   EXPECT_EQ(Sarn::Impl::log2Of(8192), 13u);
   EXPECT_FALSE(Sarn::isPowerOfTwo(0));
   EXPECT_DEATH(Sarn::Impl::log2Of(12), "isPowerOfTwo\\( i \\)");
}

struct Link {
   int number = 0;
   Link* next = nullptr;
};

TEST(IntrusiveLinkedTailQueue, GivesObjectsBackInOrder) {
   Sarn::IntrusiveLinkedTailQueue<Link, &Link::next> queue;
   EXPECT_EQ(sizeof queue, sizeof(void*));
   EXPECT_TRUE(queue.empty());
   EXPECT_EQ(queue.front(), nullptr);
   EXPECT_EQ(queue.back(), nullptr);
   Link links[3] = {{1, nullptr}, {2, nullptr}, {3, nullptr}};
   for (Link& link : links) {
      queue.enq(&link);
   }
   EXPECT_EQ(queue.front(), &links[0]);
   EXPECT_EQ(queue.back(), &links[2]);
   EXPECT_EQ(queue.after(&links[0]), &links[1]);
   EXPECT_EQ(queue.after(&links[2]), nullptr);
   EXPECT_EQ(queue.deq(), &links[0]);
   EXPECT_EQ(links[0].next, nullptr);
   queue.enq(&links[0]);
   EXPECT_EQ(queue.deq(), &links[1]);
   EXPECT_EQ(queue.deq(), &links[2]);
   EXPECT_EQ(queue.deq(), &links[0]);
   EXPECT_TRUE(queue.empty());
}

}  // namespace

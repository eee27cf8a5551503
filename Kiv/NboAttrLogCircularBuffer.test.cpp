#include "Kiv/NboAttrLogCircularBuffer.h"

#include <algorithm>
#include <deque>

#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Kiv::NboAttrLog::ByteBudget;
using Kiv::NboAttrLog::CircularBuffer;

namespace {

class CircularBufferProperties : public SeededTest {};

/// Writes `size` bytes that count up from `first`; false if there is no space.
bool write(CircularBuffer& buffer, std::size_t size, U8 first) {
   U8* const room = buffer.reserve(size);
   if (room == nullptr) {
      return false;
   }
   for (std::size_t i = 0; i != size; ++i) {
      room[i] = static_cast<U8>(first + i);
   }
   buffer.commit(size);
   return true;
}

/// All pending bytes, in order.
Bytes waiting(CircularBuffer const& buffer) {
   auto const first = buffer.first();
   auto const second = buffer.second();
   Bytes all(first.begin, first.begin + first.size);
   all.insert(all.end(), second.begin, second.begin + second.size);
   return all;
}

TEST(CircularBuffer, IsEmptyAtFirst) {
   CircularBuffer const buffer(16);
   EXPECT_TRUE(buffer.empty());
   EXPECT_EQ(buffer.size(), 0u);
   EXPECT_EQ(buffer.limit(), 16u);
   EXPECT_EQ(buffer.capacity(), 0u) << "nothing was written yet";
   EXPECT_EQ(buffer.first().size, 0u);
   EXPECT_EQ(buffer.second().size, 0u);
}

TEST(CircularBuffer, TakesAMessageAsLargeAsItself) {
   CircularBuffer buffer(16);
   EXPECT_EQ(buffer.reserve(17), nullptr);
   ASSERT_TRUE(write(buffer, 16, 0));
   EXPECT_EQ(buffer.size(), 16u);
   EXPECT_FALSE(write(buffer, 1, 0));
}

TEST(CircularBuffer, WhatIsReservedDoesNotWaitBeforeItIsCommitted) {
   CircularBuffer buffer(16);
   ASSERT_NE(buffer.reserve(4), nullptr);
   EXPECT_TRUE(buffer.empty());
   buffer.commit(3);
   EXPECT_EQ(buffer.size(), 3u);
}

TEST(CircularBuffer, AMessageThatDoesNotFitBehindLiesInOnePieceInFront) {
   CircularBuffer buffer(16);
   ASSERT_TRUE(write(buffer, 12, 0));
   buffer.consume(8);
   ASSERT_TRUE(write(buffer, 6, 50));
   EXPECT_EQ(buffer.first().size, 4u);
   EXPECT_EQ(buffer.second().size, 6u);
   EXPECT_EQ(waiting(buffer), (Bytes{8, 9, 10, 11, 50, 51, 52, 53, 54, 55}));
}

TEST(CircularBuffer, FullAndEmptyDiffer) {
   CircularBuffer buffer(16);
   ASSERT_TRUE(write(buffer, 16, 0));
   buffer.consume(8);
   EXPECT_FALSE(write(buffer, 8, 0));  // would end where the pending bytes begin
   ASSERT_TRUE(write(buffer, 7, 100));
   EXPECT_EQ(buffer.size(), 15u);
   EXPECT_FALSE(buffer.empty());
   EXPECT_FALSE(write(buffer, 1, 0));
}

TEST(CircularBuffer, TakesBothPiecesAtOnce) {
   CircularBuffer buffer(16);
   ASSERT_TRUE(write(buffer, 12, 0));
   buffer.consume(8);
   ASSERT_TRUE(write(buffer, 6, 50));
   buffer.consume(7);
   EXPECT_EQ(waiting(buffer), (Bytes{53, 54, 55}));
   buffer.consume(3);
   EXPECT_TRUE(buffer.empty());
}

TEST(CircularBuffer, BeginsAnewWhenItIsEmpty) {
   CircularBuffer buffer(16);
   ASSERT_TRUE(write(buffer, 10, 0));
   U8 const* const front = buffer.first().begin;
   buffer.consume(10);
   ASSERT_TRUE(write(buffer, 16, 0));
   EXPECT_EQ(buffer.first().begin, front);
}

TEST(CircularBuffer, ClearsAll) {
   CircularBuffer buffer(16);
   ASSERT_TRUE(write(buffer, 12, 0));
   buffer.consume(8);
   ASSERT_TRUE(write(buffer, 6, 0));
   buffer.clear();
   EXPECT_TRUE(buffer.empty());
   EXPECT_TRUE(write(buffer, 16, 0));
}

TEST(CircularBuffer, GrowsByUseAndKeepsWhatWaitsInItsOrder) {
   CircularBuffer buffer(10000);
   ASSERT_TRUE(write(buffer, 3000, 0));
   EXPECT_EQ(buffer.capacity(), 4096u);
   buffer.consume(2000);
   ASSERT_TRUE(write(buffer, 1500, 7));  // before the pending bytes
   EXPECT_EQ(buffer.capacity(), 4096u);
   EXPECT_NE(buffer.second().size, 0u);
   Bytes expected = waiting(buffer);
   ASSERT_TRUE(write(buffer, 2000, 9));
   EXPECT_EQ(buffer.capacity(), 8192u);
   EXPECT_EQ(buffer.second().size, 0u) << "all in one piece now";
   for (int i = 0; i != 2000; ++i) {
      expected.push_back(static_cast<U8>(9 + i));
   }
   EXPECT_EQ(waiting(buffer), expected);
   ASSERT_TRUE(write(buffer, 10000 - expected.size(), 0));
   EXPECT_EQ(buffer.capacity(), 10000u) << "not beyond the limit";
   EXPECT_FALSE(write(buffer, 1, 0));
}

TEST(CircularBuffer, OneMessageMayExceedTheLimitWhereNothingWaits) {
   CircularBuffer buffer(100, 6000);
   EXPECT_EQ(buffer.limit(), 100u);
   EXPECT_EQ(buffer.reserve(6001), nullptr);
   ASSERT_TRUE(write(buffer, 60, 0));
   EXPECT_FALSE(write(buffer, 41, 0));
   ASSERT_TRUE(write(buffer, 40, 0));
   buffer.consume(100);
   ASSERT_TRUE(write(buffer, 6000, 0));
   buffer.consume(6000);
   buffer.shrink(0);
   buffer.limitIs(9000);
   EXPECT_EQ(buffer.limit(), 6000u);
   ASSERT_TRUE(write(buffer, 60, 0));
   EXPECT_TRUE(write(buffer, 5940, 0));
   EXPECT_FALSE(write(buffer, 1, 0));
}

TEST(CircularBuffer, GivesMemoryBackWhenNothingWaits) {
   CircularBuffer buffer(100000);
   ASSERT_TRUE(write(buffer, 50000, 0));
   buffer.shrink(0);
   EXPECT_EQ(buffer.size(), 50000u) << "something waits";
   buffer.consume(50000);
   EXPECT_GE(buffer.capacity(), 50000u);
   buffer.shrink(4096);
   EXPECT_EQ(buffer.capacity(), 4096u);
   ASSERT_TRUE(write(buffer, 4096, 0));
   buffer.consume(4096);
   EXPECT_EQ(buffer.capacity(), 4096u);
   buffer.shrink(0);
   EXPECT_EQ(buffer.capacity(), 0u);
   EXPECT_TRUE(write(buffer, 10, 0));
}

TEST(CircularBuffer, BuffersThatShareABudgetKeepToItTogether) {
   ByteBudget budget;
   budget.bound = 10000;
   {
      CircularBuffer first(100000, 0, &budget);
      CircularBuffer second(100000, 0, &budget);
      ASSERT_TRUE(write(first, 4096, 0));
      EXPECT_EQ(budget.held, 0u) << "the first bytes of each are free";
      ASSERT_TRUE(write(first, 4096, 0));
      ASSERT_TRUE(write(first, 5904, 0)) << "up to the bound, though not to twice the size";
      EXPECT_EQ(budget.held, 10000u);
      EXPECT_EQ(first.capacity(), 14096u);
      EXPECT_FALSE(write(first, 1, 0));
      EXPECT_TRUE(write(second, 4096, 0));
      EXPECT_EQ(second.reserve(1), nullptr);
      second.consume(4096);
      EXPECT_EQ(second.reserve(4097), nullptr) << "though nothing waits";
      first.consume(first.size());
      first.shrink(0);
      EXPECT_EQ(budget.held, 0u);
      EXPECT_TRUE(write(second, 14096, 0));
      EXPECT_FALSE(write(second, 1, 0));
   }
   EXPECT_EQ(budget.held, 0u);
}

TEST_F(CircularBufferProperties, GivesBackTheBytesThatWereWrittenInTheirOrder) {
   for (std::size_t const capacity : {1U, 2U, 7U, 64U, 1000U, 5000U, 12000U}) {
      CircularBuffer buffer(capacity);
      std::deque<U8> expected;
      U8 next = 0;
      for (int step = 0; step != 20000; ++step) {
         if (random() % 2 == 0) {
            std::size_t const size = 1 + random() % (random() % 3 == 0 ? capacity : 8);
            bool const mustFit = size <= capacity && expected.empty();
            bool const fits = write(buffer, size, next);
            ASSERT_TRUE(fits || !mustFit);
            ASSERT_LE(expected.size() + (fits ? size : 0), capacity);
            for (std::size_t i = 0; fits && i != size; ++i) {
               expected.push_back(next++);
            }
         } else {
            std::size_t const size = expected.empty() ? 0 : random() % (expected.size() + 1);
            Bytes const all = waiting(buffer);
            ASSERT_TRUE(std::equal(all.begin(), all.end(), expected.begin(), expected.end()));
            buffer.consume(size);
            expected.erase(expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(size));
         }
         ASSERT_EQ(buffer.size(), expected.size());
         ASSERT_EQ(buffer.empty(), expected.empty());
         ASSERT_LE(buffer.capacity(), capacity);
         if (random() % 100 == 0) {
            buffer.shrink(random() % 2 * 4096);
         }
      }
   }
}

}  // namespace

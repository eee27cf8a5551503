#include "Kiv/NboAttrLogCircularBuffer.h"

#include <algorithm>
#include <deque>

#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Kiv::NboAttrLog::CircularBuffer;

namespace {

class CircularBufferProperties : public SeededTest {};

/// Writes `size` bytes that count up from `first`; false if there is no room.
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

/// All that waits, in order.
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
   EXPECT_EQ(buffer.capacity(), 16u);
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
   EXPECT_FALSE(write(buffer, 8, 0));  // would end where the waiting bytes begin
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

TEST_F(CircularBufferProperties, GivesBackTheBytesThatWereWrittenInTheirOrder) {
   for (std::size_t const capacity : {1U, 2U, 7U, 64U, 1000U}) {
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
      }
   }
}

}  // namespace

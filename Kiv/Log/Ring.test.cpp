#include "Kiv/Log/Ring.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>
#include <string>

#include "Kiv/Log/Cursor.h"

namespace Kiv::NboAttrLog {
namespace {

/// A source whose records are a header and some letters.
class Letters final : public Ring::Source {
public:
   explicit Letters(Ring& ring) : Source(ring) {}

   bool write(char letter, std::size_t count = 1) {
      return Source::write(Opcode::set, count, id(), 1, [&](Out& out) {
         std::string const text(count, letter);
         out.writeBytes(text.data(), count);
      });
   }
   void onFollows(Cursor&) noexcept override { ++followers; }
   void onLeft(Cursor&) noexcept override { --followers; }

   int followers = 0;
};

/// The letters of the records in some bytes; "!" if these do not end with a record.
std::string lettersOf(std::string const& bytes) {
   std::string text;
   std::size_t at = 0;
   while (at + headerSize <= bytes.size()) {
      Header const header = readHeader(reinterpret_cast<U8 const*>(bytes.data()) + at);
      text += bytes.substr(at + headerSize, header.bodySize);
      at += headerSize + header.bodySize;
   }
   return at == bytes.size() ? text : text + "!";
}

/// Takes at most `most` of a cursor's unread bytes.
std::string take(Cursor& cursor, std::size_t most = ~std::size_t(0)) {
   std::string bytes;
   while (cursor.first().size != 0 && bytes.size() != most) {
      CircularBuffer::Piece const piece = cursor.first();
      std::size_t const size = std::min(piece.size, most - bytes.size());
      bytes.append(reinterpret_cast<char const*>(piece.begin), size);
      cursor.consume(size);
   }
   return bytes;
}

std::string read(Cursor& cursor) {
   return lettersOf(take(cursor));
}

class RingTest : public testing::Test {
protected:
   static constexpr std::size_t record = headerSize + 1;

   /// A cursor that follows `first` and, if given, `second`.
   Cursor& reader(Letters& one, Letters* other = nullptr, std::size_t space = 1 << 20) {
      Cursor& cursor = cursors.emplace_back(ring, space);
      cursor.add(one);
      if (other != nullptr) {
         cursor.add(*other);
      }
      EXPECT_TRUE(cursor.follow());
      return cursor;
   }

   ByteBudget budget;
   Ring ring{budget, 100'000};
   Letters a{ring};
   Letters b{ring};
   std::deque<Cursor> cursors;
};

TEST_F(RingTest, GivesEveryReaderWhatWasWrittenSinceItFollows) {
   Cursor& one = reader(a);
   EXPECT_TRUE(a.write('x'));
   Cursor& two = reader(a);
   EXPECT_TRUE(a.write('y'));
   EXPECT_EQ(one.unread(), 2 * record);
   EXPECT_EQ(read(one), "xy");
   EXPECT_EQ(read(two), "y");
   EXPECT_TRUE(one.atEnd());
   EXPECT_EQ(read(one), "");
   EXPECT_TRUE(a.write('z'));
   EXPECT_EQ(read(one) + read(two), "zz");
}

TEST_F(RingTest, ARecordHasTheHeaderAndTheBodyThatWereWritten) {
   Cursor& one = reader(a);
   U8* const at = [&] {
      EXPECT_TRUE(a.write('x'));  // the first one takes a chunk
      return a.writeAtOnce(Opcode::erase, 2, 0x01000007, 258);
   }();
   ASSERT_NE(at, nullptr);
   at[0] = 'y';
   at[1] = 'z';
   EXPECT_EQ(take(one).substr(record), std::string("\x0a\0\0\2\1\0\0\7\1\2yz", 12));
}

TEST_F(RingTest, WritesAtOnceOnlyWhereTheSourceHasSpace) {
   Cursor& one = reader(a);
   reader(b);
   EXPECT_EQ(a.writeAtOnce(Opcode::set, 1, 1, 1), nullptr) << "there is no chunk";
   EXPECT_TRUE(a.write('x'));
   EXPECT_EQ(b.writeAtOnce(Opcode::set, 1, 1, 1), nullptr) << "another source has written";
   EXPECT_EQ(a.writeAtOnce(Opcode::set, 4096, 1, 1), nullptr) << "the chunk has no space";
   EXPECT_NE(a.writeAtOnce(Opcode::set, 1, 1, 1), nullptr);
   EXPECT_EQ(one.unread(), 2 * record);
}

TEST_F(RingTest, AReaderSkipsSourcesThatItDoesNotRead) {
   Cursor& onlyA = reader(a);
   Cursor& both = reader(a, &b);
   Cursor& onlyB = reader(b);
   for (char const letter : std::string("aAAbBcCC")) {
      EXPECT_TRUE((letter < 'a' ? b : a).write(letter));
   }
   EXPECT_EQ(onlyA.unread(), 3 * record);
   EXPECT_EQ(read(onlyA), "abc");
   EXPECT_EQ(read(both), "aAAbBcCC");
   EXPECT_EQ(read(onlyB), "AABCC");
   EXPECT_TRUE(onlyA.atEnd());
}

TEST_F(RingTest, GivesOnePieceForConsecutiveSourcesAndTwoAroundASkippedOne) {
   Cursor& both = reader(a, &b);
   Cursor& onlyA = reader(a);
   a.write('a');
   b.write('B');
   a.write('c');
   EXPECT_EQ(both.first().size, 3 * record);
   EXPECT_EQ(both.second().size, 0u);
   EXPECT_EQ(onlyA.first().size, record);
   EXPECT_EQ(onlyA.second().size, record);
   onlyA.consume(record + 3);
   EXPECT_EQ(onlyA.first().size, record - 3);
   EXPECT_EQ(onlyA.second().size, 0u);
   onlyA.clear();
   both.clear();
}

TEST_F(RingTest, AReaderThatLeavesKeepsWhatItHasNotRead) {
   Cursor& one = reader(a);
   a.write('x');
   EXPECT_EQ(a.followers, 1);
   one.leave();
   EXPECT_EQ(a.followers, 0);
   EXPECT_FALSE(one.following());
   reader(a);
   a.write('y');
   EXPECT_FALSE(one.follow()) << "it has something unread";
   EXPECT_EQ(read(one), "x");
   EXPECT_TRUE(one.follow());
   a.write('z');
   EXPECT_EQ(read(one), "z");
}

TEST_F(RingTest, AReaderIsOvertakenByTheRecordForWhichItHasNoSpace) {
   Cursor& slow = reader(a, nullptr, 3 * record);
   Cursor& fast = reader(a);
   EXPECT_TRUE(a.write('1') && a.write('2') && a.write('3'));
   EXPECT_TRUE(slow.following());
   EXPECT_TRUE(a.write('4'));
   EXPECT_FALSE(slow.following());
   EXPECT_TRUE(fast.following());
   EXPECT_EQ(a.followers, 1);
   EXPECT_EQ(read(slow), "123");
   EXPECT_EQ(read(fast), "1234");
}

TEST_F(RingTest, WhatAReaderHasReadMakesSpace) {
   Cursor& one = reader(a, nullptr, 3 * record);
   for (int i = 0; i != 1000; ++i) {
      EXPECT_TRUE(a.write('x') && a.write('y'));
      ASSERT_TRUE(one.following());
      EXPECT_EQ(read(one), "xy");
   }
}

TEST_F(RingTest, SkippedRecordsTakeNoSpace) {
   Cursor& one = reader(a, nullptr, 3 * record);
   reader(b).leave();
   Cursor& other = reader(b);
   for (int i = 0; i != 20'000; ++i) {
      EXPECT_TRUE(b.write('x'));
      read(other);
   }
   EXPECT_TRUE(one.following());
   EXPECT_LE(ring.capacity(), std::size_t(1) << 17) << "they are not kept for it either";
   a.write('y');
   EXPECT_EQ(read(one), "y");
}

TEST_F(RingTest, SpaceThatIsTakenAwayCountsFromThenOn) {
   Cursor& one = reader(a);
   a.write('1');
   one.spaceIs(2 * record);
   EXPECT_TRUE(a.write('2'));
   EXPECT_TRUE(one.following());
   EXPECT_TRUE(a.write('3'));
   EXPECT_FALSE(one.following());
   EXPECT_EQ(read(one), "12");
}

TEST_F(RingTest, ASourceThatIsRemovedIsReadUpToThere) {
   Cursor& one = reader(a, &b);
   a.write('1');
   b.write('2');
   one.remove(a);
   EXPECT_EQ(a.followers, 0);
   EXPECT_EQ(b.followers, 1);
   reader(a);
   a.write('3');
   b.write('4');
   EXPECT_EQ(read(one), "124");
   a.write('5');
   EXPECT_EQ(read(one), "");
}

TEST_F(RingTest, ASourceThatIsAddedAgainIsReadFromThereOn) {
   Cursor& one = reader(a, &b);
   reader(a);
   a.write('1');
   one.remove(a);
   a.write('2');
   b.write('3');
   one.leave();
   one.add(a);
   a.write('4');
   EXPECT_EQ(read(one), "13");
   EXPECT_TRUE(one.follow());
   a.write('5');
   EXPECT_EQ(read(one), "5");
}

TEST_F(RingTest, CountsWhatAReaderWasToldWhileItFollowed) {
   Cursor& one = reader(a);
   reader(b);
   a.write('1');
   b.write('2');
   a.write('3');
   EXPECT_EQ(one.messages(), 2u);
   EXPECT_EQ(one.bytes(), 2 * record);
   one.leave();
   a.write('4');
   EXPECT_EQ(one.messages(), 2u);
   read(one);
   one.follow();
   a.write('5');
   EXPECT_EQ(one.messages(), 3u);
   EXPECT_EQ(one.bytes(), 3 * record);
   one.remove(a);
   EXPECT_EQ(one.messages(), 3u);
}

TEST_F(RingTest, ALongRecordIsContiguous) {
   Cursor& one = reader(a);
   EXPECT_TRUE(a.write('x', 90'000));
   EXPECT_EQ(one.first().size, headerSize + 90'000);
   EXPECT_TRUE(a.write('y'));
   EXPECT_EQ(read(one), std::string(90'000, 'x') + "y");
}

TEST_F(RingTest, RefusesARecordThatIsTooLong) {
   Cursor& one = reader(a);
   EXPECT_TRUE(a.write('x'));
   EXPECT_FALSE(a.write('y', 100'001));
   EXPECT_TRUE(one.following());
   EXPECT_EQ(read(one), "x");
}

TEST_F(RingTest, RefusesARecordWhereTheBudgetIsUsedUp) {
   budget.bound = 10'000;
   Cursor& one = reader(a);
   std::size_t written = 0;
   while (a.write('x')) {
      ++written;
      ASSERT_LT(written, 10'000u);
   }
   EXPECT_LE(budget.held, 10'000u);
   EXPECT_GE(written, 8'000 / record);
   EXPECT_EQ(read(one), std::string(written, 'x'));
   EXPECT_TRUE(a.write('y')) << "what has been read makes space";
   EXPECT_EQ(read(one), "y");
}

TEST_F(RingTest, HoldsNoMoreMemoryThanItsSlowestReaderNeeds) {
   Cursor& one = reader(a);
   for (int i = 0; i != 100'000; ++i) {
      a.write('x');
      if (i % 100 == 99) {
         EXPECT_EQ(read(one), std::string(100, 'x'));
      }
   }
   EXPECT_LE(ring.capacity(), std::size_t(1) << 14);
}

TEST_F(RingTest, GivesItsMemoryBackWhenAskedAndGoesOn) {
   Cursor& slow = reader(a);
   Cursor& fast = reader(a);
   a.write('x', 50'000);
   a.write('y', 50'000);
   EXPECT_GE(ring.capacity(), 100'000u);
   take(fast);
   ring.shrink();
   EXPECT_GE(ring.capacity(), 100'000u) << "a reader has not read it";
   take(slow);
   ring.shrink();
   EXPECT_EQ(ring.capacity(), 0u);
   EXPECT_EQ(budget.held, 0u);
   EXPECT_TRUE(a.write('z'));
   EXPECT_EQ(read(slow) + read(fast), "zz");
}

TEST_F(RingTest, ASourceMayGoWhileItsRecordsAreUnread) {
   Cursor& one = reader(a);
   {
      Letters c(ring);
      one.leave();
      one.add(c);
      one.follow();
      c.write('1');
      one.remove(c);
   }
   a.write('2');
   EXPECT_EQ(read(one), "12");
}

/// Readers of random sources that read, leave, follow and are overtaken at random get exactly what
/// was written while they followed.
TEST_F(RingTest, LosesNothingAndInventsNothing) {
   for (U32 seed = 0; seed != 200; ++seed) {
      std::mt19937 random(seed);
      auto const below = [&random](U32 bound) { return static_cast<U32>(random() % bound); };
      ByteBudget ownBudget;
      ownBudget.bound = below(2) != 0 ? 40'000 : ~std::size_t(0);
      Ring own(ownBudget, 20'000);
      std::deque<Letters> sources;
      for (int i = 0; i != 3; ++i) {
         sources.emplace_back(own);
      }
      struct Reader {
         explicit Reader(Ring& r, std::size_t space) : cursor(r, space) {}
         Cursor cursor;
         U32 sources = 0;
         std::string expected;
         std::string got;
         /// Expected before the next record.
         bool followed = false;
      };
      std::deque<Reader> readers;
      for (int i = 0; i != 5; ++i) {
         Reader& one = readers.emplace_back(own, 200 + below(20'000));
         one.sources = 1 + below(7);
         for (U32 s = 0; s != 3; ++s) {
            if ((one.sources >> s & 1) != 0) {
               one.cursor.add(sources[s]);
            }
         }
      }
      for (int step = 0; step != 3000; ++step) {
         Reader& one = readers[below(5)];
         switch (below(8)) {
            case 0:
               one.got += take(one.cursor, 1 + below(3000));
               break;
            case 1:
               one.cursor.leave();
               break;
            case 2:
               if (!one.cursor.following()) {
                  one.cursor.follow();
               }
               break;
            case 3:
               if (below(50) == 0) {
                  own.shrink();
               }
               break;
            default: {
               U32 const s = below(3);
               char const letter = static_cast<char>('a' + step % 26);
               std::size_t const size = below(20) == 0 ? below(2000) : 1 + below(30);
               bool const written = sources[s].write(letter, size);
               for (Reader& each : readers) {
                  if (written && each.cursor.following() && (each.sources >> s & 1) != 0) {
                     each.expected += std::string(size, letter);
                  }
               }
            }
         }
      }
      for (Reader& each : readers) {
         each.got += take(each.cursor);
         ASSERT_EQ(lettersOf(each.got), each.expected) << "seed " << seed;
      }
   }
}

}  // namespace
}  // namespace Kiv::NboAttrLog

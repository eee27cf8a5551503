#include "KivTest/SessionParts.test.h"

namespace {

using namespace PartsTesting;

Limits smallOutbox() {
   Limits limits;
   limits.outputBuffer = 4096;
   limits.unmounted = 64;
   limits.longestValue = 10'000;
   return limits;
}

class OutboxTest : public testing::Test, protected Parts {
protected:
   OutboxTest() : Parts(smallOutbox()) {}

   /// Writes a message of `size` bytes of 'x'.
   bool write(std::size_t size, Opcode opcode = Opcode::set) {
      return outbox.write(opcode, size, 1, 258, [size](Out& out) {
         std::string const text(size, 'x');
         out.writeBytes(text.data(), size);
      });
   }
};

TEST_F(OutboxTest, WritesMessagesAndCountsThem) {
   EXPECT_TRUE(outbox.write(Opcode::set, 2, 5, 258, [](Out& out) { out.writeU16(7); }));
   EXPECT_TRUE(outbox.writeEmpty(Opcode::collectionEnd, 5, 300));
   EXPECT_TRUE(outbox.write(Opcode::sync, 4, 0, 0, [](Out& out) { out.writeU32(1); }));
   EXPECT_EQ(outbox.messages(), 3u);
   EXPECT_EQ(outbox.changes(), 2u);
   EXPECT_EQ(outbox.bytes(), 12u + 10u + 14u);
   EXPECT_EQ(outbox.waiting(), 36u);
   EXPECT_EQ(sent(), "set 00000005.258 0007; collectionEnd 00000005.300; sync 00000000.0 00000001");
   EXPECT_TRUE(outbox.empty());
   EXPECT_EQ(outbox.bytes(), 36u);
}

TEST_F(OutboxTest, SaysNoWithoutATraceWhenItIsFull) {
   EXPECT_TRUE(write(40));
   EXPECT_FALSE(write(40)) << "nothing is mounted";
   EXPECT_EQ(outbox.changes(), 1u);
   EXPECT_FALSE(closing.closed());
   outbox.hasMount();
   EXPECT_TRUE(write(40));
   EXPECT_EQ(outbox.changes(), 2u);
}

TEST_F(OutboxTest, AMessageThatIsTooLongTravelsInPartsWithNothingBetween) {
   outbox.hasMount();
   EXPECT_EQ(outbox.longestBody(), 4085u);
   EXPECT_TRUE(write(6000));
   EXPECT_TRUE(outbox.inParts());
   EXPECT_EQ(outbox.changes(), 1u) << "it is one change";
   EXPECT_FALSE(write(1));
   EXPECT_EQ(outbox.reserve(Opcode::set, 1, 1, 258), nullptr);
   EXPECT_EQ(outbox.reserveRun(1), nullptr);
   std::string const first = sent();
   EXPECT_EQ(first.substr(0, 38), "part 00000001.258 08000017700000000078");
   EXPECT_TRUE(outbox.writeParts());
   EXPECT_FALSE(outbox.inParts());
   EXPECT_TRUE(write(1));
}

TEST_F(OutboxTest, AMessageInPartsIsHeldInFullUntilItsLastPart) {
   outbox.hasMount();
   write(6000);
   EXPECT_GE(outbox.heldBytes(), 6000u);
   EXPECT_EQ(outbox.waiting(), 6000u + (10 + 9)) << "all of it, and the header of one part";
   outbox.dropParts();
   EXPECT_FALSE(outbox.inParts());
}

TEST_F(OutboxTest, WhatDoesNotEvenGoInPartsEndsTheSession) {
   EXPECT_FALSE(outbox.isLeftOut(10'000));
   EXPECT_TRUE(outbox.isLeftOut(10'001));
   EXPECT_FALSE(write(10'001));
   EXPECT_EQ(closing.reason(), "a message of 10001 bytes exceeds the bound of 4085");
}

TEST_F(OutboxTest, AMessageThatWouldNeverFindRoomEndsTheSession) {
   budget.bound = 100;
   budget.held = 90;
   outbox.hasMount();
   limits.outputBuffer = 1 << 20;
   EXPECT_TRUE(write(4080)) << "the first bytes are free of charge";
   sent();
   Outbox big(limits, budget, clock, ring, closing);
   EXPECT_FALSE(big.write(Opcode::set, 100'000, 1, 258, [](Out&) {}));
   EXPECT_EQ(closing.reason(),
             "a message of 100010 bytes finds no room: the connections hold 90 bytes of 100");
}

TEST_F(OutboxTest, CopiesAChangeByteForByte) {
   U8 const message[] = {8, 0, 0, 1, 1, 0, 0, 0, 1, 2, 24};
   EXPECT_TRUE(outbox.copy(message, sizeof message));
   EXPECT_EQ(outbox.changes(), 1u);
   EXPECT_EQ(sent(), "set 01000000.258 18");
}

/// Writes a message of one letter into the ring.
class RingSource final : public Ring::Source {
public:
   using Source::Source;
   void write(char letter) {
      Source::write(Opcode::set, 1, 1, 258, [letter](Out& out) { out.writeBytes(&letter, 1); });
   }
   void onFollows(Cursor&) noexcept override {}
   void onLeft(Cursor&) noexcept override {}
};

TEST_F(OutboxTest, OwnBytesPrecedeWhatIsUnreadInTheRingAndFollowItWhenTheyComeLater) {
   RingSource source(ring);
   outbox.hasMount();
   outbox.cursor().add(source);
   write(1);
   outbox.follow();
   source.write('a');
   EXPECT_EQ(outbox.waiting(), 22u);
   EXPECT_EQ(outbox.second().size, 11u);
   EXPECT_EQ(outbox.messages(), 2u);
   EXPECT_EQ(outbox.changes(), 2u);
   EXPECT_EQ(outbox.bytes(), 22u);
   write(2);
   source.write('b');
   EXPECT_EQ(sent(),
             "set 00000001.258 78; set 00000001.258 61; set 00000001.258 7878; "
             "set 00000001.258 62");
   EXPECT_TRUE(outbox.empty());
   outbox.cursor().remove(source);
}

TEST_F(OutboxTest, OwnBytesThatArePendingTakeSpaceInTheRing) {
   RingSource source(ring);
   outbox.hasMount();
   outbox.cursor().add(source);
   write(4000);
   outbox.follow();
   for (int i = 0; i != 7; ++i) {
      source.write('a');
   }
   EXPECT_TRUE(outbox.cursor().following());
   source.write('a');
   EXPECT_FALSE(outbox.cursor().following()) << "4010 + 8 * 11 > 4096";
   EXPECT_FALSE(write(80)) << "what is unread must be sent first";
   EXPECT_FALSE(closing.closed());
   sent();
   EXPECT_TRUE(write(80));
   outbox.cursor().remove(source);
}

TEST_F(OutboxTest, ThePeerIsBehindFromTheFirstTimeOnUntilItHasCaughtUp) {
   static U64 now;
   now = 100;
   clock.read = []() noexcept { return now; };
   EXPECT_EQ(outbox.behind(), 0u);
   outbox.fallBehind();
   now = 150;
   outbox.fallBehind();
   EXPECT_EQ(outbox.behind(), 50u);
   outbox.caughtUp();
   EXPECT_EQ(outbox.behind(), 0u);
}

}  // namespace

// What becomes of recordings that were cut, damaged, or are none.
#include "KivTest/RecordingTestSupport.h"

using namespace RecordingTesting;

namespace {

class RecordingDamage : public Recording {};

/// Where frames begin, and where the last one ends.
std::vector<U64> offsetsIn(Bytes const& bytes) {
   Source source(bytes);
   RecordingReader reader(source);
   std::vector<U64> offsets;
   for (RecordingReader::Frame frame; reader.next(frame);) {
      offsets.push_back(frame.offset);
   }
   offsets.push_back(reader.offset());
   return offsets;
}

TEST_F(RecordingDamage, ThatWasCutIsReadUpToThere) {
   record();
   for (U8 i = 0; i != 80; ++i) {
      root->byNumberIs(i, std::string(40, 'x'));
      turn();
   }
   Bytes const whole = closed();
   ASSERT_GT(whole.size(), 3 * 2048u);
   std::vector<U64> const frames = offsetsIn(whole);
   for (std::size_t size = 0; size <= whole.size(); ++size) {
      Bytes const cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      Source source(cut);
      RecordingReader reader(source);
      std::size_t count = 0;
      for (RecordingReader::Frame frame; reader.next(frame); ++count) {
         ASSERT_EQ(frame.offset, frames[count]);
      }
      // All frames that are whole, and not one more.
      ASSERT_LE(reader.offset(), size);
      ASSERT_TRUE(count + 1 >= frames.size() || reader.offset() <= frames[count]) << size;
      bool const wholeFrames = std::find(frames.begin(), frames.end(), U64(size)) != frames.end();
      if (wholeFrames) {
         ASSERT_FALSE(reader.damaged()) << size << ": " << reader.damage();
      }
      ASSERT_EQ(reader.ended(), size == whole.size());
      if (reader.damaged() && reader.offset() != 0) {
         ASSERT_EQ(reader.damage().find("it ends within"), 0u) << reader.damage();
      }
   }
}

TEST_F(RecordingDamage, DamageIsFoundWhereverItIs) {
   record();
   for (U8 i = 0; i != 60; ++i) {
      root->byNumberIs(i, std::string(40, 'x'));
      turn();
   }
   Bytes const whole = closed();
   std::vector<U64> const frames = offsetsIn(whole);
   std::size_t unseen = 0;
   for (std::size_t at = 0; at != whole.size(); ++at) {
      Bytes bad = whole;
      bad[at] ^= 0x40;
      Source source(bad);
      RecordingReader reader(source);
      std::size_t count = 0;
      RecordingReader::Frame frame;
      while (reader.next(frame)) {
         ASSERT_EQ(frame.offset, frames[count++]);
      }
      if (reader.damaged()) {
         ASSERT_LE(reader.offset(), at);
         ASSERT_FALSE(reader.ended());
      } else {
         ++unseen;
         ASSERT_TRUE(reader.ended()) << at;
         ASSERT_EQ(whole[at], 0) << "only what nothing was written to, at the end of a block";
      }
   }
   EXPECT_LT(unseen, whole.size() / 10);
}

TEST_F(RecordingDamage, SomethingElseIsNoRecording) {
   for (std::string const& text :
        {std::string(), std::string("x"), std::string(5000, 'x'), std::string(5000, '\0')}) {
      Bytes const bytes(text.begin(), text.end());
      Source source(bytes);
      RecordingReader reader(source);
      RecordingReader::Frame frame;
      EXPECT_FALSE(reader.next(frame));
      EXPECT_EQ(reader.damage(), "it does not begin as a recording of version 1");
      EXPECT_EQ(reader.offset(), 0u);
      EXPECT_FALSE(reader.seek(~U64(0)));
   }
}

}  // namespace

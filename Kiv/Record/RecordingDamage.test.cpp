// Files that were cut or damaged, or are not recordings.
#include <array>

#include "Kiv/Log/Wire.h"
#include "KivTest/Recording.test.h"

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
      // All complete frames, and no others.
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
         ASSERT_GT(at % 2048, 2048 - Kiv::NboAttrLog::frameHeaderSize)
               << "only what is too short for a frame, at the end of a block";
      }
   }
   EXPECT_LT(unseen, whole.size() / 2048 * Kiv::NboAttrLog::frameHeaderSize);
}

TEST_F(RecordingDamage, AHoleOfZerosIsFoundWhereverItIs) {
   record();
   for (U8 i = 0; i != 60; ++i) {
      root->byNumberIs(i, std::string(40 + i, 'x'));
      turn();
   }
   Bytes const whole = closed();
   ASSERT_GT(whole.size(), 3 * 2048u);
   std::vector<U64> const frames = offsetsIn(whole);
   for (std::size_t const begin : frames) {
      std::size_t const block = begin / 2048 * 2048;
      for (std::size_t const end :
           {begin + 25, begin + 512, block + 2048, block + 4096, whole.size()}) {
         Bytes bad = whole;
         for (std::size_t at = begin; at < std::min(end, bad.size()); ++at) {
            bad[at] = 0;
         }
         Source source(bad);
         RecordingReader reader(source);
         std::size_t count = 0;
         for (RecordingReader::Frame frame; reader.next(frame); ++count) {
            ASSERT_EQ(frame.offset, frames[count]);
         }
         ASSERT_EQ(reader.damaged(), bad != whole) << begin << " to " << end;
         if (reader.damaged()) {
            ASSERT_EQ(reader.offset(), begin);
            ASSERT_EQ(reader.damage(), "there are zeros where a frame should begin");
         }
      }
   }
}

TEST_F(RecordingDamage, AHoleOfZerosIsFoundAtAnyByteAndOfAnyLength) {
   record();
   for (U8 i = 0; i != 36; ++i) {
      root->byNumberIs(i, std::string(40 + i, 'x'));
      turn();
   }
   Bytes const whole = closed();
   ASSERT_GT(whole.size(), 2 * 2048u);
   std::vector<U64> const frames = offsetsIn(whole);
   for (std::size_t begin = 0; begin != whole.size(); ++begin) {
      for (std::size_t const length :
           {std::size_t(1), std::size_t(2), std::size_t(5), std::size_t(25), std::size_t(64),
            std::size_t(512), std::size_t(2048), std::size_t(4096), whole.size()}) {
         Bytes bad = whole;
         std::size_t const end = std::min(begin + length, bad.size());
         std::fill(bad.begin() + static_cast<std::ptrdiff_t>(begin),
                   bad.begin() + static_cast<std::ptrdiff_t>(end), U8(0));
         Source source(bad);
         RecordingReader reader(source);
         std::size_t count = 0;
         for (RecordingReader::Frame frame; reader.next(frame); ++count) {
            ASSERT_EQ(frame.offset, frames[count]);
         }
         // If there were zeros before, nothing is damaged.
         ASSERT_EQ(reader.damaged(), bad != whole) << length << " zeros at " << begin;
         ASSERT_EQ(reader.ended(), bad == whole);
         // Nothing is read beyond the first byte that differs.
         auto const differs = std::mismatch(bad.begin(), bad.end(), whole.begin()).first;
         ASSERT_LE(reader.offset(), static_cast<U64>(differs - bad.begin()))
               << length << " zeros at " << begin;
      }
   }
}

TEST_F(RecordingDamage, AFileThatWasMadeLongerIsDamagedThere) {
   record();
   root->u8Is(3);
   turn();
   Bytes bytes = memory.files.back();
   std::size_t const written = bytes.size();
   bytes.resize(written + 100);
   Source source(bytes);
   RecordingReader reader(source);
   for (RecordingReader::Frame frame; reader.next(frame);) {
   }
   EXPECT_EQ(reader.damage(), "there are zeros where a frame should begin");
   EXPECT_EQ(reader.offset(), written);
}

/// Two files of several blocks each.
class RecordingBlocks : public RecordingDamage {
protected:
   RecordingBlocks() {
      RecorderOptions options = smallBlocks();
      options.fileSize = LogRecorder::smallestFile(narrowOutput(), options.blockSize);
      record(options);
      for (U32 i = 0; memory.files.size() != 2 || memory.files[1].size() < 4 * blockSize; ++i) {
         root->byNumberIs(static_cast<U8>(i % 50), std::string(100 + i % 7, 'x'));
         turn();
      }
      closed();
      first = memory.files[0];
      second = memory.files[1];
   }
   static constexpr std::size_t blockSize = 2048;
   static U8* block(Bytes& bytes, std::size_t n) { return bytes.data() + n * blockSize; }
   /// The damage found when the first file is read, and where.
   std::string damage() {
      Source source(first);
      RecordingReader reader(source);
      for (RecordingReader::Frame frame; reader.next(frame);) {
      }
      return std::to_string(reader.offset()) + ": " + reader.damage();
   }
   /// The same after seeking the last moment.
   std::string damageBehindSeek() {
      Source source(first);
      RecordingReader reader(source);
      EXPECT_TRUE(reader.seek(~U64(0)));
      RecordingReader::Frame frame;
      while (reader.next(frame)) {
      }
      return std::to_string(reader.offset()) + ": " + reader.damage();
   }
   void snapshotPlaceIs(std::size_t n, U64 snapshot) {
      auto header = *Kiv::NboAttrLog::readBlockHeader(block(first, n));
      header.snapshot = snapshot;
      Kiv::NboAttrLog::writeBlockHeader(block(first, n), header);
   }

   Bytes first;
   Bytes second;
};

TEST_F(RecordingBlocks, OfAnotherFileAreFound) {
   ASSERT_EQ(damage(), std::to_string(first.size()) + ": ");
   std::copy_n(block(second, 2), blockSize, block(first, 2));
   EXPECT_EQ(damage(), "4096: a block of file 2 stands in file 1");
}

TEST_F(RecordingBlocks, InAnotherOrderAreFound) {
   std::swap_ranges(block(first, 2), block(first, 3), block(first, 3));
   EXPECT_EQ(damage(), "4096: block 3 stands in the place of block 2");
   first.erase(first.begin() + blockSize, first.begin() + 2 * blockSize);
   EXPECT_EQ(damage(), "2048: block 3 stands in the place of block 1");
}

TEST_F(RecordingBlocks, OfAnotherSizeAreFound) {
   auto header = *Kiv::NboAttrLog::readBlockHeader(block(first, 1));
   header.blockSize = 4096;
   Kiv::NboAttrLog::writeBlockHeader(block(first, 1), header);
   EXPECT_EQ(damage(), "2048: the header of a block is damaged");
}

TEST_F(RecordingBlocks, AForgedPlaceOfTheSnapshotIsFound) {
   std::size_t const last = (first.size() - 1) / blockSize;
   std::string const begin = std::to_string(last * blockSize);
   U64 const real = Kiv::NboAttrLog::readBlockHeader(block(first, last))->snapshot;
   ASSERT_NE(real, 0u);
   ASSERT_EQ(damageBehindSeek(), std::to_string(first.size()) + ": ");
   std::vector<U64> const frames = offsetsIn(first);
   for (U64 const forged : {frames[1],                   // another frame
                            real + 1,                    // inside one
                            U64(blockSize),              // a block's header
                            U64(2 * blockSize - 3),      // too close to the block's end for a frame
                            U64(last * blockSize + 60),  // a snapshot would not be complete by then
                            U64(first.size()), ~U64(0)}) {  // after the end
      snapshotPlaceIs(last, forged);
      std::string const found = begin + ": the header of a block has the last snapshot at byte " +
                                std::to_string(forged) + ", where none begins";
      EXPECT_EQ(damageBehindSeek(), found);
      EXPECT_EQ(damage(), found);
   }
   snapshotPlaceIs(last, 0);
   EXPECT_EQ(damageBehindSeek(), std::to_string(first.size()) + ": ")
         << "no snapshot: it is read from its beginning";
}

TEST_F(RecordingBlocks, WithoutTheFirstOfTheirFileAreNoRecording) {
   first.erase(first.begin(), first.begin() + blockSize);
   EXPECT_EQ(damage(), "0: it does not begin as a recording of version 2");
   Source source(first);
   EXPECT_FALSE(RecordingReader(source).header());
   EXPECT_FALSE(RecordingReader(source).seek(~U64(0)));
}

TEST_F(RecordingBlocks, ThatDoNotBelongWhereTheyStandAreNotSought) {
   std::size_t const last = (first.size() - 1) / blockSize;
   auto const seek = [this] {
      Source source(first);
      return RecordingReader(source).seek(~U64(0));
   };
   ASSERT_EQ(seek(), last * blockSize);
   auto const whole = *Kiv::NboAttrLog::readBlockHeader(block(first, last));
   auto ofAnotherFile = whole;
   ofAnotherFile.file = 2;
   auto ofAnotherPlace = whole;
   ofAnotherPlace.block = last + 1;
   auto ofAnotherSize = whole;
   ofAnotherSize.blockSize = 4096;
   for (auto const& header : {ofAnotherFile, ofAnotherPlace, ofAnotherSize}) {
      Kiv::NboAttrLog::writeBlockHeader(block(first, last), header);
      EXPECT_EQ(seek(), (last - 1) * blockSize);
   }
}

TEST_F(RecordingBlocks, AreSoughtFromTheVeryMomentOnAtWhichTheyBegan) {
   std::size_t const last = (first.size() - 1) / blockSize;
   U64 const begun = Kiv::NboAttrLog::readBlockHeader(block(first, last))->begun.wall;
   Source source(first);
   RecordingReader reader(source);
   EXPECT_EQ(reader.seek(begun), last * blockSize);
   EXPECT_LT(*reader.seek(begun - 1), last * blockSize);
   EXPECT_EQ(reader.seek(moment(1).wall), 0u);
}

/// Blocks of 512 bytes that a test writes frame by frame.
class RecordingForged : public testing::Test {
protected:
   static constexpr U32 blockSize = 512;
   using BlockHeader = Kiv::NboAttrLog::BlockHeader;
   static constexpr std::size_t blockHeaderSize = Kiv::NboAttrLog::blockHeaderSize;
   static constexpr std::size_t frameHeaderSize = Kiv::NboAttrLog::frameHeaderSize;
   /// What one frame holds in a block of its own.
   static constexpr std::size_t mostInFrame = blockSize - blockHeaderSize - frameHeaderSize;
   /// The body of a snapshot that names no roots.
   static constexpr std::size_t noRoots = 4;

   /// Begins the next block.
   void block(U64 snapshot = 0) {
      U64 const begin = bytes.size();
      ASSERT_EQ(begin % blockSize, 0u);
      bytes.resize(begin + blockHeaderSize);
      Kiv::NboAttrLog::writeBlockHeader(bytes.data() + begin,
                                        {blockSize, begin / blockSize, file, snapshot, moment(1)});
   }
   /// Writes a frame with a body of zeros, and returns where it begins.
   U64 frame(FrameKind kind, std::size_t bodySize) {
      U64 const begin = bytes.size();
      bytes.resize(begin + frameHeaderSize + bodySize);
      Kiv::NboAttrLog::writeFrameHeader(bytes.data() + begin, kind, moment(1), bodySize);
      return begin;
   }
   /// Writes a frame that leaves so many bytes of the block.
   void frameUpTo(std::size_t left, FrameKind kind = FrameKind::log) {
      frame(kind, blockSize - bytes.size() % blockSize - frameHeaderSize - left);
   }
   /// Where frames begin, where reading stops, and why.
   std::string read(bool fromTheLastSnapshot = false) const {
      Source source(bytes);
      RecordingReader reader(source);
      if (fromTheLastSnapshot) {
         EXPECT_TRUE(reader.seek(~U64(0)));
      }
      std::string frames;
      for (RecordingReader::Frame at; reader.next(at);) {
         frames += std::to_string(at.offset) + " ";
      }
      EXPECT_FALSE(reader.damaged() && reader.ended());
      return frames + "to " + std::to_string(reader.offset()) + ": " + reader.damage();
   }
   std::string readBehindSeek() const { return read(true); }

   Bytes bytes;
   U64 file = 1;
};

TEST_F(RecordingForged, PaddingEndsWithItsBlock) {
   block();
   frameUpTo(0, FrameKind::padding);
   block();
   frame(FrameKind::end, 0);
   EXPECT_EQ(read(), "572 to 597: ");
   bytes.clear();
   block();
   frameUpTo(1, FrameKind::padding);
   bytes.push_back(0);
   block();
   frame(FrameKind::end, 0);
   EXPECT_EQ(read(), "to 60: padding ends before its block");
}

TEST_F(RecordingForged, AFrameMayFillItsBlockButNotExceedIt) {
   block();
   frame(FrameKind::log, mostInFrame);
   block();
   frame(FrameKind::end, 0);
   EXPECT_EQ(read(), "60 572 to 597: ");
   bytes.clear();
   block();
   frame(FrameKind::log, mostInFrame + 1);
   bytes.resize(2 * blockSize);
   EXPECT_EQ(read(), "to 60: a frame of 428 bytes exceeds its block");
}

TEST_F(RecordingForged, ABlockEndsWithAFrameThatIsOnlyAHeaderOrWithLessThanThat) {
   block();
   frameUpTo(frameHeaderSize);
   frame(FrameKind::back, 0);
   block();
   frameUpTo(frameHeaderSize - 1);
   bytes.resize(2 * blockSize);
   block();
   frame(FrameKind::end, 0);
   EXPECT_EQ(read(), "60 487 572 1084 to 1109: ");
}

TEST_F(RecordingForged, ASnapshotBehindTheBlockThatNamesItIsNone) {
   block();
   frame(FrameKind::snapshot, noRoots);
   frameUpTo(0);
   block(blockSize + blockHeaderSize);
   U64 const within = frame(FrameKind::snapshot, noRoots);
   ASSERT_EQ(within, blockSize + blockHeaderSize);
   EXPECT_EQ(readBehindSeek(),
             "to 512: the header of a block has the last snapshot at byte 572, where none begins");
   EXPECT_EQ(read(),
             "60 89 to 512: the header of a block has the last snapshot at byte 572, where none "
             "begins");
}

TEST_F(RecordingForged, TheEndIsNoSnapshot) {
   block();
   frame(FrameKind::snapshot, noRoots);
   U64 const end = frame(FrameKind::end, 0);
   frameUpTo(0, FrameKind::padding);
   block(end);
   EXPECT_EQ(readBehindSeek(),
             "to 512: the header of a block has the last snapshot at byte 89, where none begins");
}

TEST_F(RecordingForged, ASnapshotMayEndABlockButNotLieInAHeader) {
   block();
   frameUpTo(frameHeaderSize);
   U64 const last = frame(FrameKind::snapshot, 0);
   block(last);
   EXPECT_EQ(readBehindSeek(), "487 to 572: ");
   // From byte 24 on the header of block 1 reads as a frame as well: the file's number as size and
   // checksum, the snapshot's offset as kind and time, and zeros as the other time and no roots.
   BlockHeader forged{blockSize, 1, 0, U64(FrameKind::snapshot) << 56, {}};
   std::array<U8, blockHeaderSize> header;
   Kiv::NboAttrLog::writeBlockHeader(header.data(), forged);
   U32 const checksum = Kiv::NboAttrLog::crc32c(header.data() + 32, 17 + noRoots);
   forged.file = file = U64(noRoots) << 32 | checksum;
   bytes.clear();
   block();
   frameUpTo(0);
   block();
   Kiv::NboAttrLog::writeBlockHeader(bytes.data() + blockSize, forged);
   frameUpTo(0);
   block(blockSize + 24);
   EXPECT_EQ(readBehindSeek(),
             "to 1024: the header of a block has the last snapshot at byte 536, where none begins");
}

TEST_F(RecordingForged, ASnapshotThatGoesOnInTheNextBlockIsNone) {
   block();
   frameUpTo(9);
   std::size_t const begin = bytes.size();
   bytes.resize(blockSize);
   block();
   frameUpTo(0);
   // Size, checksum and kind are at the end of the block, times and body in the next header.
   bytes[begin + 3] = noRoots;
   bytes[begin + 8] = static_cast<U8>(FrameKind::snapshot);
   U32 const checksum = Kiv::NboAttrLog::crc32c(bytes.data() + begin + 8, 17 + noRoots);
   Kiv::NboAttrLog::Out(bytes.data() + begin + 4, 4).writeU32(checksum);
   block(begin);
   EXPECT_EQ(readBehindSeek(),
             "to 1024: the header of a block has the last snapshot at byte 503, where none begins");
}

TEST_F(RecordingDamage, SomethingElseIsNoRecording) {
   for (std::string const& text :
        {std::string(), std::string("x"), std::string(5000, 'x'), std::string(5000, '\0')}) {
      Bytes const bytes(text.begin(), text.end());
      Source source(bytes);
      RecordingReader reader(source);
      RecordingReader::Frame frame;
      EXPECT_FALSE(reader.next(frame));
      EXPECT_EQ(reader.damage(), "it does not begin as a recording of version 2");
      EXPECT_EQ(reader.offset(), 0u);
      EXPECT_FALSE(reader.seek(~U64(0)));
   }
}

}  // namespace

// Recordings: what is written, and what is played back.
#include "KivTest/Recording.test.h"
#include "Kiv/Log/Wire.h"

using namespace RecordingTesting;

namespace {

TEST(Crc32c, IsThatOfTheStandard) {
   auto const of = [](std::string_view text) {
      return Kiv::NboAttrLog::crc32c(reinterpret_cast<U8 const*>(text.data()), text.size());
   };
   EXPECT_EQ(of(""), 0u);
   EXPECT_EQ(of("123456789"), 0xe3069283u);
   EXPECT_EQ(of(std::string(32, '\0')), 0x8a9136aau);
   EXPECT_EQ(of(std::string(32, '\xff')), 0x62a8ab43u);
   Bytes const bytes{'1', '2', '3', '4', '5', '6', '7', '8', '9'};
   EXPECT_EQ(Kiv::NboAttrLog::crc32c(bytes.data() + 4, 5, Kiv::NboAttrLog::crc32c(bytes.data(), 4)),
             0xe3069283u)
         << "in two pieces";
}

TEST(Crc32c, IsTheSameWithAndWithoutTheProcessorsInstruction) {
   Bytes bytes(100);
   for (std::size_t i = 0; i != bytes.size(); ++i) {
      bytes[i] = static_cast<U8>(i * 167 + 13);
   }
   for (std::size_t begin = 0; begin != 9; ++begin) {
      for (std::size_t size = 0; begin + size <= bytes.size(); ++size) {
         U8 const* const at = bytes.data() + begin;
         ASSERT_EQ(Kiv::NboAttrLog::crc32c(at, size, 7),
                   Kiv::NboAttrLog::crc32cByTables(at, size, 7))
               << begin << ' ' << size;
      }
   }
}

TEST(RecordingFormat, HasTheBytesThatTheDocumentationShows) {
   Bytes block(Kiv::NboAttrLog::blockHeaderSize);
   Kiv::NboAttrLog::writeBlockHeader(block.data(), {4096, 0, 7, 0, {1000, 2000}});
   EXPECT_EQ(block, (Bytes{0x4b, 0x69, 0x76, 0x4e, 0x62, 0x6f, 0x52, 0x63, 0,    0, 0, 2, 0,
                           0,    0x10, 0,    0,    0,    0,    0,    0,    0,    0, 0, 0, 0,
                           0,    0,    0,    0,    0,    7,    0,    0,    0,    0, 0, 0, 0,
                           0,    0,    0,    0,    0,    0,    0,    3,    0xe8, 0, 0, 0, 0,
                           0,    0,    7,    0xd0, 0x51, 0x16, 0x1b, 0x24}));
   auto const header = Kiv::NboAttrLog::readBlockHeader(block.data());
   ASSERT_TRUE(header);
   EXPECT_EQ(header->file, 7u);
   EXPECT_EQ(header->begun, (Moment{1000, 2000}));

   Bytes frame(Kiv::NboAttrLog::frameHeaderSize);
   frame.insert(frame.end(), {8, 0, 0, 4, 1, 0, 0, 0, 1, 0x12, 0, 0, 0, 0x32});
   Kiv::NboAttrLog::writeFrameHeader(frame.data(), FrameKind::log, {1500, 2500}, 14);
   EXPECT_EQ(frame, (Bytes{0, 0, 0,    0x0e, 0x12, 0x01, 0xfd, 0x84, 2,    0, 0, 0,    0,
                           0, 0, 0x05, 0xdc, 0,    0,    0,    0,    0,    0, 9, 0xc4, 8,
                           0, 0, 4,    1,    0,    0,    0,    1,    0x12, 0, 0, 0,    0x32}));
}

TEST_F(Recording, PlaysBackWhatWasThereAndWhatHappened) {
   root->u8Is(3);
   root->leafIs(1, true, KivTest::Opaque(1))->twigIs(KivTest::Level::low);
   record();
   EXPECT_TRUE(recorder->complete());
   root->u8Is(4);
   root->byNumberIs(1, "one");
   turn();
   root->leafDel(1);
   root->samplesEnq(2.5);
   turn();
   Bytes const bytes = closed();
   EXPECT_EQ(recorder->stats().changes, 4u);
   EXPECT_EQ(recorder->stats().snapshots, 1u);
   EXPECT_EQ(recorder->stats().bytes, bytes.size());

   Source source(bytes);
   RecordingReader reader(source);
   Player player(make);
   std::vector<std::string> told;
   for (RecordingReader::Frame frame; reader.next(frame);) {
      std::unique_ptr<KivTest::Witness> observer;
      if (player.complete()) {
         observer = std::make_unique<KivTest::Witness>(rootOf(player), Kiv::Scope::subtree);
      }
      ASSERT_TRUE(player.apply(frame)) << player.reason();
      if (observer) {
         told.push_back(std::to_string(frame.at.steady) + "/" + std::to_string(frame.at.wall) +
                        ": " + observer->changes());
      }
   }
   EXPECT_TRUE(reader.ended());
   EXPECT_FALSE(reader.damaged()) << reader.damage();
   EXPECT_EQ(KivTest::firstDifference(*root, rootOf(player)), "");
   ASSERT_EQ(told.size(), 3u);
   EXPECT_EQ(told[0], "2000/1002000: u8 was 3; byNumber[1] was nothing");
   EXPECT_EQ(told[1], "3000/1003000: leaf[1] was KivTest::Leaf; samples[1] was nothing");
   EXPECT_EQ(told[2], "4000/1004000: ") << "the end";
}

TEST_F(Recording, PlaysBackWhatIsLongerThanAMessage) {
   std::string const before(3000, 'b');
   std::string const after(20000, 'a');
   root->textIs(before);
   root->byTextIs(after + "key", 3);
   record();
   root->textIs(after);
   root->byNumberIs(1, after);
   turn();
   EXPECT_EQ(recorder->stats().changes, 2u);
   Bytes const& bytes = closed();
   Player player(make);
   EXPECT_EQ(playAll(bytes, player), "");
   EXPECT_TRUE(player.complete());
   EXPECT_EQ(KivTest::firstDifference(*root, rootOf(player)), "");
   // Cut in the middle of the last value: everything before it is there.
   Player cut(make);
   playAll(Bytes(bytes.begin(), bytes.end() - 6000), cut);
   EXPECT_EQ(rootOf(cut).text(), after);
   EXPECT_EQ(rootOf(cut).byNumberCount(), 0u);
}

TEST_F(Recording, AppliesAFrameWholeThoughAnObserverThrows) {
   record();
   root->u8Is(1);
   root->u16Is(2);
   root->u32Is(3);
   turn();
   Bytes const& bytes = closed();
   struct Thrower final : Kiv::Observer {
      void onChange(Kiv::Change const&) override { throw Kiv::Exception("mine"); }
   } thrower;
   Sarn::Ptr<Stem> const played = KivTest::stemFactory("test");
   played->observerAdd(thrower);
   Player player([&](OfferedRoot const&) { return Sarn::Ptr<Kiv::NamedEntity>(played.get()); });
   Source source(bytes);
   RecordingReader reader(source);
   for (RecordingReader::Frame frame; reader.next(frame);) {
      try {
         EXPECT_TRUE(player.apply(frame));
      } catch (Kiv::Exception const& error) {
         EXPECT_STREQ(error.what(), "mine");
      }
   }
   played->observerDel(thrower);
   EXPECT_FALSE(player.failed());
   EXPECT_EQ(KivTest::firstDifference(*root, *played), "");
}

TEST_F(Recording, AnyMomentIsFoundAndIsAsItWas) {
   constexpr U64 turns = 120;
   RecorderOptions options = smallBlocks();
   options.snapshotEvery = 3000;
   Chance chance(17);
   record(options);
   // The state after each turn, played from the beginning.
   std::vector<std::unique_ptr<Player>> states;
   for (U64 i = 1; i <= turns; ++i) {
      for (int k = 0; i != 1 && k != 60; ++k) {
         KivTest::changeAtRandom(*root, chance);
      }
      if (i != 1) {
         turn();
      }
      states.push_back(std::make_unique<Player>(make));
      ASSERT_EQ(playAll(memory.files.back(), *states.back()), "");
      ASSERT_EQ(KivTest::firstDifference(*root, rootOf(*states.back())), "") << "at turn " << i;
   }
   Bytes const bytes = closed();
   EXPECT_GT(recorder->stats().snapshots, 2u);
   EXPECT_EQ(memory.files.size(), 1u);
   EXPECT_EQ(recorder->stats().changesCoalesced, 0u);

   Source source(bytes);
   RecordingReader reader(source);
   EXPECT_FALSE(reader.seek(moment(1).wall - 1)) << "before it began";
   U64 fromSnapshots = 0;
   for (U64 i = 1; i <= turns; ++i) {
      U64 const wall = moment(i).wall + 500;
      std::optional<U64> const from = reader.seek(wall);
      ASSERT_TRUE(from);
      Player player(make);
      U64 frames = 0;
      for (RecordingReader::Frame frame; reader.next(frame);) {
         if (frame.at.wall > wall && frame.offset >= *from) {
            break;
         }
         fromSnapshots += frames++ == 0 && frame.offset > Kiv::NboAttrLog::blockHeaderSize ? 1 : 0;
         ASSERT_TRUE(player.apply(frame)) << player.reason();
      }
      EXPECT_TRUE(player.complete());
      ASSERT_EQ(KivTest::firstDifference(rootOf(*states[i - 1]), rootOf(player)), "")
            << "at turn " << i;
   }
   EXPECT_GT(fromSnapshots, turns / 3) << "later moments are not reached from the beginning";
}

TEST_F(Recording, IsFoundByTheTimeOfDayAfterThatWasSetBack) {
   record();
   struct {
      U64 wall;
      U8 value;
   } const steps[] = {{5000, 1}, {9000, 2}, {3000, 3}, {4000, 4}, {6000, 5}};
   U64 steady = 10'000;
   for (auto const& step : steps) {
      root->u8Is(step.value);
      for (int i = 0; i != 300; ++i) {
         root->u32Is(static_cast<U32>(steady) + static_cast<U32>(i));  // more than a block per turn
      }
      recorder->turn({steady += 100, step.wall});
   }
   Source source(memory.files[0]);
   RecordingReader reader(source);
   std::optional<U64> const from = reader.seek(4500);
   ASSERT_TRUE(from);
   Player player(make);
   for (RecordingReader::Frame frame; reader.next(frame);) {
      if (frame.at.wall > 4500 && frame.offset >= *from) {
         break;
      }
      ASSERT_TRUE(player.apply(frame));
   }
   EXPECT_EQ(rootOf(player).u8(), 4) << "the last time that the clock showed it";
}

TEST_F(Recording, OfABoundedSizeGoesOnInANewFileThatStandsAlone) {
   RecorderOptions options = smallBlocks();
   options.fileSize = LogRecorder::smallestFile(narrowOutput(), options.blockSize);
   Chance chance(3);
   record(options);
   U64 turns = 1;
   while (memory.files.size() < 6) {
      for (int k = 0; k != 20; ++k) {
         KivTest::changeAtRandom(*root, chance);
      }
      turn();
      ASSERT_LT(++turns, 10'000u);
   }
   closed();
   Sarn::Ptr<Stem> const empty = KivTest::stemFactory("test");
   U64 files = 0;
   for (Bytes const& file : memory.files) {
      EXPECT_LE(file.size(), options.fileSize);
      Player player(make);
      EXPECT_EQ(playAll(file, player), "");
      EXPECT_TRUE(player.complete());
      Source source(file);
      EXPECT_EQ(RecordingReader(source).header()->file, ++files);
      if (&file == &memory.files.back()) {
         EXPECT_EQ(KivTest::firstDifference(*root, rootOf(player)), "");
      }
   }
   // Each file continues the previous one: nothing is missing when they are played in sequence.
   Player all(make);
   for (Bytes const& file : memory.files) {
      ASSERT_EQ(playAll(file, all), "");
   }
   EXPECT_EQ(KivTest::firstDifference(*root, rootOf(all)), "");
}

TEST_F(Recording, NeverExceedsItsSizeHoweverMuchComes) {
   RecorderOptions options = smallBlocks();
   options.fileSize = 3 * LogRecorder::smallestFile(narrowOutput(), options.blockSize);
   record(options);
   Chance chance(5);
   for (int i = 0; i != 2000; ++i) {
      // Much more than the buffer holds, in messages that cause much padding.
      for (U8 k = 0; k != 16; ++k) {
         root->byNumberIs(k, std::string(700 + chance.below(300), 'x'));
      }
      recorder->turn(moment(++now));
   }
   EXPECT_EQ(recorder->reason(), "");
   EXPECT_GT(recorder->stats().changesCoalesced, 0u);
   EXPECT_GT(memory.files.size(), 10u);
   for (Bytes const& file : memory.files) {
      EXPECT_LE(file.size(), options.fileSize);
   }
   closed();
   Player player(make);
   EXPECT_EQ(playAll(memory.files.back(), player), "");
   EXPECT_EQ(KivTest::firstDifference(*root, rootOf(player)), "");
}

TEST_F(Recording, EndsWhereFilesAreTooSmallForAllThatThereIs) {
   RecorderOptions options = smallBlocks();
   options.fileSize = LogRecorder::smallestFile(narrowOutput(), options.blockSize);
   for (U8 i = 0; i != 100; ++i) {
      root->byNumberIs(i, std::string(900, 'x'));
   }
   recorder = std::make_unique<LogRecorder>(hub, memory, options);
   for (int i = 0; i != 100; ++i) {
      recorder->turn(moment(++now));
   }
   EXPECT_TRUE(recorder->failed());
   EXPECT_EQ(recorder->reason(), "files of " + std::to_string(options.fileSize) +
                                       " bytes are too small: they do not hold all that there is");
   root->u8Is(9);
   EXPECT_EQ(root->u8(), 9) << "whoever changes the tree notices nothing";
}

TEST_F(Recording, EndsWhenTheDiskIsFullAndIsReadUpToThere) {
   record();
   memory.left = 1000;
   for (U8 i = 0; i != 60; ++i) {
      root->u8Is(i);
      turn();
   }
   EXPECT_EQ(recorder->reason(), "the disk is full");
   Player player(make);
   EXPECT_EQ(playAll(memory.files[0], player), "");
   EXPECT_GT(rootOf(player).u8(), 10);
   EXPECT_LT(rootOf(player).u8(), 59);
   recorder->close(moment(now));
   EXPECT_TRUE(hub.sessions().empty());
}

TEST_F(Recording, ARootThatIsOfferedLaterComesWithTheNextSnapshot) {
   record();
   Sarn::Ptr<Stem> const other = KivTest::stemFactory("other");
   hub.rootIs(other);
   other->u8Is(8);
   recorder->snapshotIs();
   turn();
   other->u8Is(9);
   hub.rootDel("KivTest::Stem", "test");
   turn();
   Player player(make);
   EXPECT_EQ(playAll(closed(), player), "");
   ASSERT_EQ(player.roots().size(), 2u);
   EXPECT_EQ(player.roots()[1]->nameString(), "other");
   EXPECT_EQ(static_cast<Stem&>(*player.roots()[1]).u8(), 9);
   EXPECT_TRUE(player.complete());
}

TEST_F(Recording, OfALongTimeHoldsNoMoreThanOfAShortOne) {
   RecorderOptions options = smallBlocks();
   options.snapshotEvery = 1 << 16;
   options.fileSize = 4 * LogRecorder::smallestFile(narrowOutput(), options.blockSize);
   record(options);
   Kiv::NboAttrLog::SessionStatus status;
   for (U32 i = 0; i != 20'000; ++i) {
      root->u32Is(i + 1);
      root->byNumberIs(i % 8, "x");
      root->byNumberDel(i % 8);
      turn();
      if (memory.files.size() > 2) {
         memory.files.front().clear();
         memory.files.front().shrink_to_fit();
      }
      ASSERT_EQ(hub.sessions().size(), 1u) << "the peer of the last snapshot is gone";
      status = hub.sessions().front()->status();
      ASSERT_EQ(status.waiting + status.dirtyEntities, 0u);
   }
   EXPECT_GT(recorder->stats().snapshots, 20u);
   EXPECT_EQ(status.peer.program, "recorder");
   EXPECT_EQ(recorder->stats().changes, 60'000u)
         << "none is missing where files or snapshots change";
}

TEST_F(Recording, TellsWhenItsSourceWasLost) {
   record();
   recorder->sourceIs(false, moment(2));
   recorder->sourceIs(true, moment(3));
   Source source(closed());
   RecordingReader reader(source);
   Player player(make);
   std::string lost;
   for (RecordingReader::Frame frame; reader.next(frame);) {
      player.apply(frame);
      lost += player.sourceIsLost() ? "1" : "0";
   }
   EXPECT_EQ(lost.substr(lost.size() - 3), "100");
}

TEST_F(Recording, PlaysIntoATreeThatOthersMirror) {
   root->leafIs(1, true, KivTest::Opaque(1));
   record();
   root->leafIs(2, false, KivTest::Opaque(2));
   root->u8Is(77);
   turn();
   Bytes const bytes = closed();
   Sarn::Ptr<Stem> const live = KivTest::stemFactory("test");
   live->leafIs(9, true, KivTest::Opaque(9));  // did not exist when it was recorded
   Hub liveHub;
   liveHub.rootIs(live);
   Player player([&](OfferedRoot const&) { return Sarn::Ptr<Kiv::NamedEntity>(live.get()); });
   EXPECT_EQ(playAll(bytes, player), "");
   EXPECT_EQ(KivTest::firstDifference(*root, *live), "");
}

TEST_F(Recording, OfATypeThatIsNotKnownSaysSo) {
   record();
   Bytes const bytes = closed();
   Player player([](OfferedRoot const&) { return Sarn::Ptr<Kiv::NamedEntity>(); });
   EXPECT_EQ(playAll(bytes, player), "the type KivTest::Stem of the root test is not known here");
}

TEST_F(Recording, ChangesBeforeASnapshotAreRefused) {
   Player player(make);
   RecordingReader::Frame frame;
   frame.kind = FrameKind::log;
   EXPECT_FALSE(player.apply(frame));
   EXPECT_EQ(player.reason(), "changes come before a snapshot");
}

TEST(RecordingPlayer, TakesAsManyRootsAsTheBoundSaysAndNotOneMore) {
   Limits limits;
   limits.nesting = 2;
   Player player(make, limits);
   auto const apply = [&player](U32 count) {
      Bytes body(4 + count * (4 + 13 + 4 + 1));
      Kiv::NboAttrLog::Out out(body.data(), body.size());
      out.writeU32(count);
      for (U32 i = 0; i != count; ++i) {
         out.writeString("KivTest::Stem");
         out.writeString(std::to_string(i));
      }
      EXPECT_EQ(out.room(), 0u);
      return player.apply({FrameKind::snapshot, {}, 0, body.data(), body.size()});
   };
   EXPECT_TRUE(apply(2)) << player.reason();
   EXPECT_EQ(player.roots().size(), 2u);
   EXPECT_FALSE(apply(3));
   EXPECT_EQ(player.reason(), "3 roots exceed the bound of 2");
   EXPECT_EQ(player.roots().size(), 2u);
}

TEST_F(Recording, OptionsThatDoNotGoTogetherAreRefused) {
   RecorderOptions options;
   options.blockSize = 1024;
   EXPECT_THROW(LogRecorder(hub, memory, options), Kiv::Exception) << "a message has 1024";
   options = smallBlocks();
   options.fileSize = LogRecorder::smallestFile(narrowOutput(), options.blockSize) - 1;
   EXPECT_THROW(LogRecorder(hub, memory, options), Kiv::Exception);
}

}  // namespace

// Readers that stop while keys come and go: the remembered keys are bounded, and a collection with
// more changed keys is replayed in full.
#include <algorithm>

#include "KivTest/StreamStop.test.h"

using namespace StreamTesting;

namespace {

constexpr std::size_t bound = 8;

Limits fewKeys() {
   Limits limits = narrow();
   limits.dirtyKeys = bound;
   return limits;
}

class StreamDirtyKeys : public StreamStopTest {
protected:
   StreamDirtyKeys() : StreamStopTest(fewKeys()) {}

   std::size_t dirtyKeys() const { return source.session->status().dirtyKeys; }
   static std::string hex(U32 v) {
      char text[9];
      std::snprintf(text, sizeof text, "%08x", v);
      return text;
   }
   /// How often `what` is in a text.
   static int count(std::string const& text, std::string const& what) {
      int all = 0;
      for (std::size_t at = 0; (at = text.find(what, at)) != text.npos; ++at) {
         ++all;
      }
      return all;
   }
   static KivTest::Record record(U32 key) {
      return KivTest::Record(key, KivTest::Pair(), {}, "", KivTest::Colour::blue, 9);
   }
   Sarn::Ptr<KivTest::Leaf> leaf(U32 number, U16 ticks) {
      auto made = root->leafIs(number, true, KivTest::Opaque(1));
      made->ticksIs(ticks);
      return made;
   }
};

TEST_F(StreamDirtyKeys, UpToTheBoundAreToldOneByOne) {
   stop();
   std::string expected;
   for (U32 i = 0; i != bound; ++i) {
      root->sortedIs(static_cast<S32>(i), "");
      expected += (i != 0 ? "; " : "") + at("element", "sorted", hex(i) + "00000000");
   }
   EXPECT_EQ(dirtyKeys(), bound);
   EXPECT_EQ(resume(), expected);
}

TEST_F(StreamDirtyKeys, OneMoreReplaysTheCollectionAndNothingIsRemembered) {
   root->sortedIs(-1, "");
   carry();
   stop();
   std::string expected =
         at("collectionBegin", "sorted") + "; " + at("element", "sorted", "ffffffff00000000");
   for (U32 i = 0; i != bound + 1; ++i) {
      root->sortedIs(static_cast<S32>(i), "");
      expected += "; " + at("element", "sorted", hex(i) + "00000000");
   }
   EXPECT_EQ(dirtyKeys(), 0u);
   EXPECT_EQ(source.session->dirtyEntities(), 1u);
   EXPECT_EQ(resume(), expected + "; " + at("collectionEnd", "sorted"));
}

TEST_F(StreamDirtyKeys, OfALargeCollectionAQuarterIsToldOneByOne) {
   for (U32 i = 0; i != 80; ++i) {
      root->byNumberIs(i, "");
   }
   carry();
   stop();
   for (U32 i = 0; i != 20; ++i) {
      root->byNumberIs(i, "x");
   }
   EXPECT_EQ(dirtyKeys(), 20u);
   std::string const text = resume();
   EXPECT_EQ(std::count(text.begin(), text.end(), ';'), 19) << text;
   stop();
   for (U32 i = 0; i != 21; ++i) {
      root->byNumberIs(i, "y");
   }
   EXPECT_EQ(dirtyKeys(), 0u);
   EXPECT_EQ(resume().find(at("collectionBegin", "byNumber")), 0u);
}

TEST_F(StreamDirtyKeys, ThatComeAndGoCostTheBoundWhateverTheirNumber) {
   stop();
   std::size_t most = 0;
   for (U32 i = 0; i != 30000; ++i) {
      root->byNumberIs(i, "here");
      root->sortedIs(static_cast<S32>(i), "here");
      root->byTextIs(std::to_string(i), i);
      root->leafIs(i, true, KivTest::Opaque(1));
      root->recordIs(record(i));
      most = std::max(most, dirtyKeys());
      root->byNumberDel(i);
      root->sortedDel(static_cast<S32>(i));
      root->byTextDel(std::to_string(i));
      root->leafDel(i);
      root->recordDel(i);
   }
   EXPECT_LE(most, 5 * bound);
   EXPECT_EQ(dirtyKeys(), 0u);
   EXPECT_EQ(source.session->dirtyEntities(), 1u);
   EXPECT_EQ(resume(), at("erase", "leaf") + "; " + at("erase", "byNumber") + "; " +
                             at("erase", "byText") + "; " + at("erase", "record") + "; " +
                             at("erase", "sorted"));
}

TEST_F(StreamDirtyKeys, AWholeReplayPublishesWhatHasChangedAndNothingElse) {
   for (U32 i = 0; i != 20; ++i) {
      root->byNumberIs(i, "before");
   }
   carry();
   stop();
   for (U32 i = 100; i != 200; ++i) {
      root->byNumberIs(i, "gone");
      root->byNumberDel(i);
   }
   root->byNumberIs(3, "after");
   root->byNumberDel(4);
   root->byNumberIs(50, "new");
   while (source.session->stats().messagesOut == waiting) {
      carryPiece();
   }
   Bytes const rest = source.take();
   KivTest::Witness published(*copy);
   mirror.receive(rest);
   expectEqual();
   std::string const changes = published.changes();
   EXPECT_EQ(std::count(changes.begin(), changes.end(), ';'), 3) << changes;
   for (char const* const one : {"count8 was ", "byNumber[3] was \"before\"",
                                 "byNumber[4] was \"before\"", "byNumber[50] was nothing"}) {
      EXPECT_NE(changes.find(one), changes.npos) << changes;
   }
}

TEST_F(StreamDirtyKeys, AChildMadeAgainIsErasedFirstAndTheOthersStay) {
   leaf(1, 9)->twigIs(KivTest::Level::low)->weightIs(3);
   leaf(2, 7);
   carry();
   auto const first = copy->leaf(1);
   auto const second = copy->leaf(2);
   stop();
   root->leafDel(1);
   for (U32 i = 100; i != 200; ++i) {  // more than are remembered; key 1 is forgotten, too
      leaf(i, 1);
      root->leafDel(i);
   }
   leaf(1, 0);
   EXPECT_EQ(dirtyKeys(), 0u);
   std::string const text = resume();
   EXPECT_EQ(text.find(at("collectionBegin", "leaf")), 0u) << text;
   std::size_t const erased = text.find(at("erase", "leaf", hex(1)));
   std::size_t const made = text.find(at("create", "leaf", hex(root->leaf(1)->streamHandle())));
   ASSERT_NE(erased, text.npos) << text;
   ASSERT_NE(made, text.npos) << text;
   EXPECT_LT(erased, made);
   EXPECT_EQ(text.find(at("erase", "leaf", hex(2))), text.npos) << text;
   EXPECT_NE(copy->leaf(1), first);
   EXPECT_EQ(copy->leaf(1)->twigCount(), 0u);
   EXPECT_EQ(copy->leaf(2), second);
}

TEST_F(StreamDirtyKeys, KeysThatChangeWhileTheirCollectionIsReplayedFollow) {
   stop();
   for (U32 i = 0; i != 100; ++i) {
      root->byNumberIs(i, "twenty bytes of text");
   }
   while (source.session->stats().messagesOut == waiting) {
      carryPiece();
   }
   // The replay has begun and is far from its end. Change some keys that it has sent, and some that
   // it has not.
   for (U32 i = 0; i != 100; i += 25) {
      root->byNumberDel(i);
      root->byNumberIs(200 + i, "new");
   }
   EXPECT_EQ(dirtyKeys(), 8u);
   std::string const text = resume();
   EXPECT_EQ(count(text, "collectionEnd"), 1) << text;
   EXPECT_EQ(count(text, at("erase", "byNumber")), 4) << text;
}

TEST_F(StreamDirtyKeys, MoreThanTheBoundWhileTheirCollectionIsReplayedAreToldByAnotherReplay) {
   stop();
   for (U32 i = 0; i != 100; ++i) {
      root->byNumberIs(i, "twenty bytes of text");
   }
   while (source.session->stats().messagesOut == waiting) {
      carryPiece();
   }
   for (U32 i = 0; i != 26; ++i) {  // a quarter and one
      root->byNumberIs(i, "changed");
      EXPECT_EQ(dirtyKeys(), i != 25 ? i + 1 : 0);
   }
   std::string const text = resume();
   EXPECT_EQ(count(text, "collectionBegin"), 2) << text;
   EXPECT_EQ(count(text, "collectionEnd"), 2) << text;
}

TEST_F(StreamDirtyKeys, MoreThanTheBoundWhileTheirCollectionIsReplayedReplayItOnceMore) {
   leaf(1, 4);
   carry();
   stop();
   for (U32 i = 0; i != 100; ++i) {
      root->byNumberIs(i, "twenty bytes of text");
      leaf(i, 5);
   }
   while (source.session->stats().messagesOut == waiting) {
      carryPiece();
   }
   int replays = 0;
   // For a while, more keys change during each piece of the replay than are remembered.
   for (U32 piece = 0; source.session->output().size != 0; ++piece) {
      for (U32 i = 0; i != 20 && piece < 40; ++i) {
         root->byNumberDel((piece * 7 + i) % 100);
         root->byNumberIs(1000 + piece * 20 + i, "new");
         root->byNumberDel(1000 + piece * 17);
         root->leafDel((piece * 3 + i) % 100);
         leaf((piece * 3 + i) % 100, static_cast<U16>(piece));
      }
      ASSERT_LE(dirtyKeys(), std::max(bound, (root->byNumberCount() + 1) / 4) +
                                   std::max(bound, root->leafCount() / 4));
      std::string const text = carryPiece();
      replays += text.find(at("collectionBegin", "byNumber")) != text.npos ? 1 : 0;
      ASSERT_LT(piece, 2000u);
   }
   EXPECT_GT(replays, 0);
   EXPECT_EQ(source.session->dirtyEntities(), 0u);
   expectEqual();
}

TEST_F(StreamDirtyKeys, MoreThanTheBoundWhileTheTreeIsWalkedReplayTheCollection) {
   for (U32 i = 0; i != 60; ++i) {
      leaf(i, 5)->twigIs(KivTest::Level::low)->weightIs(i);
      root->byNumberIs(i, "twenty bytes of text");
   }
   source.connect();
   mirror.connect();
   Mount& made = mirror.session->mountIs(copy);
   source.receive(mirror.take());
   for (int i = 0; i != 5; ++i) {  // some leaves have been sent, others have not
      carryPiece();
   }
   ASSERT_GT(copy->leafCount(), 0u);
   ASSERT_LT(copy->leafCount(), 60u);
   std::vector<std::pair<U32, Sarn::Ptr<KivTest::Leaf>>> before;
   for (U32 i = 0; i != 60; ++i) {
      if (auto const there = copy->leaf(i)) {
         before.emplace_back(i, there);
      }
      root->leafDel(i);
      root->leafIs(i, true, KivTest::Opaque(1));
      root->byNumberDel(i);
      root->byNumberIs(1000 + i, "new");
   }
   for (U32 i = 0; i != 1000; ++i) {
      root->leafIs(2000 + i, true, KivTest::Opaque(1));
      root->leafDel(2000 + i);
   }
   EXPECT_LE(dirtyKeys(), 60u);
   carry();
   EXPECT_TRUE(made.complete()) << mirror.session->closeReason();
   expectEqual();
   for (auto const& [number, old] : before) {
      EXPECT_NE(copy->leaf(number), old) << number;
   }
}

TEST_F(StreamDirtyKeys, AWritersChangesDoNotRemoveWhatItHasNotHeardOf) {
   mirror.connect();
   source.connect();
   mount(MountMode::writer);
   root->byNumberIs(1, "one");
   carry();
   fillUp(mirror, *copy);
   for (U32 i = 100; i != 200; ++i) {
      copy->byNumberIs(i, "of the writer");
   }
   root->byNumberIs(2, "of the source");
   EXPECT_EQ(mirror.session->status().dirtyKeys, 100u);
   carry();
   EXPECT_EQ(root->byNumberCount(), 102u);
   EXPECT_EQ(root->byNumber(2), "of the source");
   expectEqual();
}

TEST_F(StreamDirtyKeys, WhatAWriterAddsIsKeptByAWholeReplayThatDoesNotNameIt) {
   mirror.connect();
   source.connect();
   mount(MountMode::writer);
   stop();
   for (U32 i = 100; i != 200; ++i) {
      root->byNumberIs(i, "of the source");
      leaf(i, 1);
   }
   copy->byNumberIs(2, "of the writer");
   copy->leafIs(2, true, KivTest::Opaque(1))->ticksIs(8);
   carry();
   ASSERT_TRUE(root->byNumberHas(2));
   ASSERT_NE(root->leaf(2), nullptr);
   EXPECT_EQ(root->leaf(2)->ticks(), 8);
   EXPECT_EQ(root->leafCount(), 101u);
   expectEqual();
}

TEST_F(StreamDirtyKeys, AWriterSaysNothingOfAChildThatTheSourceHasMadeWhereItRemovedOne) {
   mirror.connect();
   source.connect();
   mount(MountMode::writer);
   leaf(1, 9);
   carry();
   fillUp(mirror, *copy);
   copy->leafDel(1);
   root->leafDel(1);
   auto const made = leaf(1, 4);
   mirror.receive(source.take());
   ASSERT_NE(copy->leaf(1), nullptr);
   EXPECT_EQ(mirror.session->status().dirtyKeys, 1u) << "of the one that it removed";
   for (Bytes bytes; bytes = mirror.take(), !bytes.empty(); source.receive(bytes)) {
      std::string const said = joined(lines(bytes));
      EXPECT_EQ(said.find("." + std::to_string(idOf("leaf")) + " "), said.npos) << said;
   }
   carry();
   EXPECT_EQ(root->leaf(1), made);
   expectEqual();
}

TEST_F(StreamDirtyKeys, AChildIsErasedOnceThoughThereIsNoRoomForTheOneInItsPlace) {
   leaf(1, 9);
   carry();
   stop();
   root->leafDel(1);
   leaf(1, 0);
   root->textIs(std::string(1150, 'x'));  // of 1200 bytes it leaves room for the erasure alone
   while (source.session->stats().messagesOut == waiting) {
      carryPiece();
   }
   std::string const erase = at("erase", "leaf", hex(1));
   std::string const first = carryPiece();
   EXPECT_EQ(first.substr(first.rfind("; ") + 2), erase);
   std::string const second = carryPiece();
   EXPECT_EQ(second.find(at("create", "leaf")), 0u) << second;
   EXPECT_EQ(second.find(erase), second.npos) << second;
   carry();
   expectEqual();
}

}  // namespace

// Mirrors that change the tree, and changes that cross.
#include "KivTest/Stream.test.h"

using namespace StreamTesting;

namespace {

class StreamWriter : public StreamTest {
protected:
   StreamWriter() { mount(MountMode::writer); }
   ~StreamWriter() override { expectAllEqual(); }

   void expectAllEqual() {
      carry();
      expectEqual();
      EXPECT_EQ(source.session->closeReason(), "");
      EXPECT_EQ(mirror.session->closeReason(), "");
   }
};

TEST_F(StreamWriter, BindsTheEntityOnceAndSaysWhatItHadSeen) {
   copy->u8Is(7);
   copy->u8Is(8);
   std::vector<std::string> const written = lines(mirror.take());
   ASSERT_EQ(written.size(), 4u) << joined(written);
   EXPECT_EQ(written[0].substr(0, 17), "ack 00000000.0 00");
   EXPECT_EQ(written[1], "bind 01000000.0 01000000");
   EXPECT_EQ(written[2], "set 01000000.259 07");
   EXPECT_EQ(written[3], "set 01000000.259 08");
   source.receive(concat(message(Opcode::bind, 0x01000000, 0, u32(0x01000000)),
                         message(Opcode::set, 0x01000000, 259, {8})));
   EXPECT_EQ(root->u8(), 8);
}

TEST_F(StreamWriter, ChangesOfEveryKindReachTheSource) {
   copy->textIs("written");
   copy->byNumberIs(1, "one");
   copy->sortedIs(-1, "below");
   copy->samplesEnq(1);
   copy->samplesEnq(2);
   copy->samplesDeq();
   copy->coreIs()->labelIs("mine");
   copy->badgeIs("b");
   copy->leafIs(3, true, KivTest::Opaque(1))->twigIs(KivTest::Level::high)->weightIs(4);
   expectAllEqual();
   EXPECT_EQ(root->leaf(3)->twig(KivTest::Level::high)->weight(), 4);
   copy->leafDel(3);
   copy->coreDel();
   copy->samplesDelAll();
   expectAllEqual();
   EXPECT_EQ(root->leafCount(), 0u);
}

TEST_F(StreamWriter, AnAppliedChangeIsNotSentBack) {
   copy->u8Is(7);
   mirror.session->sent(0);
   source.receive(mirror.take());
   // The writer had not yet acknowledged everything, so its change is echoed once, but not again.
   mirror.receive(source.take());
   copy->u8Is(8);
   source.receive(mirror.take());
   EXPECT_EQ(source.sent(), "");
   root->u8Is(9);
   mirror.receive(source.take());
   EXPECT_EQ(mirror.sent(), "");
}

TEST_F(StreamWriter, ChangesThatCrossEndWithTheSameValue) {
   copy->u8Is(1);
   root->u8Is(2);
   root->byNumberIs(1, "root");
   copy->byNumberIs(1, "copy");
   copy->byNumberIs(2, "copy");
   root->byNumberDel(2);
   expectAllEqual();
}

TEST_F(StreamWriter, ChildrenMadeOnBothSidesWithOtherConstantsEndAsOne) {
   copy->leafIs(1, true, KivTest::Opaque(1))->ticksIs(3);
   root->leafIs(1, false, KivTest::Opaque(2))->twigIs(KivTest::Level::low);
   expectAllEqual();
   EXPECT_EQ(root->leafCount(), 1u);
}

TEST_F(StreamWriter, WhatIsChangedBelowWhatWasDeletedIsDropped) {
   auto const ours = root->leafIs(1, true, KivTest::Opaque(1));
   ours->twigIs(KivTest::Level::low);
   carry();
   auto const theirs = copy->leaf(1);
   // Deleted there, changed and extended here; then the other way round.
   copy->leafDel(1);
   ours->ticksIs(5);
   ours->twigIs(KivTest::Level::high)->weightIs(3);
   expectAllEqual();
   EXPECT_EQ(root->leafCount(), 0u);
   root->leafIs(2, true, KivTest::Opaque(1));
   carry();
   copy->leaf(2)->twigIs(KivTest::Level::middle)->weightIs(9);
   copy->leaf(2)->ticksIs(9);
   root->leafDel(2);
   expectAllEqual();
   EXPECT_EQ(copy->leafCount(), 0u);
   EXPECT_EQ(theirs->parent(), nullptr);
}

TEST_F(StreamWriter, ADeletionAndANewChildThatCrossADeletion) {
   root->leafIs(1, true, KivTest::Opaque(1));
   carry();
   copy->leafDel(1);
   copy->leafIs(1, false, KivTest::Opaque(2))->ticksIs(4);
   root->leafDel(1);
   expectAllEqual();
   EXPECT_EQ(root->leaf(1)->ticks(), 4);
}

TEST_F(StreamWriter, ElementsEnqueuedOnBothSidesAreAllKeptInTheSourcesOrder) {
   root->samplesEnq(1);
   carry();
   root->samplesEnq(2);
   copy->samplesEnq(3);
   copy->samplesEnq(4);
   expectAllEqual();
   ASSERT_EQ(root->samplesCount(), 4u);
   EXPECT_EQ(root->samples(2), 2);
   EXPECT_EQ(root->samples(3), 3);
   EXPECT_EQ(root->samples(4), 4);
}

TEST_F(StreamWriter, AnElementTakenOnBothSidesIsGoneOnce) {
   for (int i = 0; i != 4; ++i) {
      root->samplesEnq(i);
   }
   carry();
   root->samplesDeq();
   copy->samplesDeq();
   copy->samplesDeq();
   expectAllEqual();
   EXPECT_EQ(root->samplesCount(), 2u);
}

TEST_F(StreamWriter, TwoWritersThatDisagreeEndWithTheSame) {
   End other;
   auto const third = KivTest::stemFactory("test");
   Session more(source.hub);
   other.session->mountIs(third, MountMode::writer);
   auto const carryAll = [&] {
      for (bool moved = true; moved;) {
         carry();
         Bytes const forth(more.output().begin, more.output().begin + more.output().size);
         other.receive(forth);
         more.sent(forth.size());
         Bytes const back = other.take();
         more.received(back.data(), back.size());
         moved = !forth.empty() || !back.empty() || source.session->output().size != 0;
      }
   };
   carryAll();
   third->u8Is(1);
   copy->u8Is(2);
   third->leafIs(1, true, KivTest::Opaque(1));
   copy->leafIs(1, true, KivTest::Opaque(2));
   carryAll();
   EXPECT_EQ(KivTest::firstDifference(*root, *third), "");
   expectEqual();
   other.session.reset();
}

TEST_F(StreamWriter, WhatAnObserverAtTheSourceMakesOfAChangeComesBack) {
   struct Clamp : Kiv::Observer {
      explicit Clamp(Stem& r) : root(r) {}
      void onChange(Kiv::Change const& change) override {
         if (change.attributeId == idOf("u16") && root.u16() > 100) {
            root.u16Is(100);
         }
         if (change.attributeId == idOf("leaf") && root.leafHas(1)) {
            root.leaf(1)->ticksIs(11);
         }
      }
      Stem& root;
   } clamp(*root);
   root->observerAdd(clamp);
   copy->u16Is(500);
   copy->leafIs(1, true, KivTest::Opaque(1));
   carry();
   EXPECT_EQ(copy->u16(), 100);
   EXPECT_EQ(copy->leaf(1)->ticks(), 11);
   root->observerDel(clamp);
}

TEST_F(StreamWriter, AChildThatAnObserverRemovesAtOnceIsRemovedAtTheWriter) {
   struct Refuse : Kiv::Observer {
      explicit Refuse(Stem& r) : root(r) {}
      void onChange(Kiv::Change const& change) override {
         if (change.attributeId == idOf("leaf")) {
            root.leafDel(1);
         }
      }
      Stem& root;
   } refuse(*root);
   root->observerAdd(refuse);
   copy->leafIs(1, true, KivTest::Opaque(1));
   carry();
   EXPECT_EQ(copy->leafCount(), 0u);
   root->observerDel(refuse);
}

TEST_F(StreamWriter, LocalChangesDuringAReplayStay) {
   copy->byNumberIs(1, "old");
   carry();
   source.connect();
   mirror.connect();
   mirror.session->mountIs(copy, MountMode::writer);
   source.receive(mirror.take());
   Bytes const replay = source.take();
   // Split it in the middle: after the beginning of the collection's replay.
   std::size_t at = 0;
   for (std::size_t next = 0; next < replay.size();) {
      bool const begin = replay[next] == static_cast<U8>(Opcode::collectionBegin) &&
                         (replay[next + 8] << 8 | replay[next + 9]) == idOf("byNumber");
      next += 10 + (std::size_t(replay[next + 1]) << 16 | std::size_t(replay[next + 2]) << 8 |
                    replay[next + 3]);
      at = begin ? next : at;
   }
   auto const middle = replay.begin() + static_cast<std::ptrdiff_t>(at);
   mirror.receive(Bytes(replay.begin(), middle));
   copy->byNumberIs(2, "mine");
   mirror.receive(Bytes(middle, replay.end()));
   carry();
   EXPECT_EQ(root->byNumber(2), "mine");
   EXPECT_EQ(copy->byNumber(2), "mine");
}

TEST_F(StreamWriter, RunningRemovalsLeaveNothingBehindWhenTheOwnerGoesMeanwhile) {
   struct Chain : Kiv::Observer {
      explicit Chain(Stem& r) : root(r) {}
      void onChange(Kiv::Change const&) override { root.leafDel(1); }
      Stem& root;
   } chain(*root);
   auto leaf = root->leafIs(1, true, KivTest::Opaque(1));
   leaf->twigIs(KivTest::Level::low);
   carry();
   leaf->observerAdd(chain);
   leaf->twigDel(KivTest::Level::low);
   leaf->observerDel(chain);
   leaf.reset();
   // A new entity takes over a handle; the old entity must no longer be found by it.
   Bytes forged = message(Opcode::bind, 0x01000050, 0, u32(0x01000003));
   source.receive(forged);
   expectAllEqual();
}

class StreamReader : public StreamTest {};

TEST_F(StreamReader, ItsOwnChangesStayWithIt) {
   mount();
   copy->u8Is(7);
   copy->leafIs(1, true, KivTest::Opaque(1));
   EXPECT_EQ(mirror.sent(), "");
   EXPECT_EQ(root->u8(), 200);
}

TEST_F(StreamReader, ThatForgesAWriteLosesItsConnectionAndChangesNothing) {
   mount();
   U32 const handle = root->streamHandle();
   source.receive(concat(message(Opcode::bind, 0x01000000, 0, u32(handle)),
                         message(Opcode::set, 0x01000000, 259, {1})));
   EXPECT_NE(source.session->closeReason().find("a read-only mirror must not change it"),
             std::string::npos)
         << source.session->closeReason();
   EXPECT_EQ(root->u8(), 200);
   mirror.receive(source.take());
   EXPECT_NE(mirror.session->closeReason().find("closed by the peer"), std::string::npos);
}

TEST_F(StreamReader, MustNotBindWhatWasNeverNumbered) {
   mount();
   source.receive(message(Opcode::bind, 0x01000000, 0, u32(0x01999999)));
   EXPECT_NE(source.session->closeReason().find("we have introduced no entity"), std::string::npos);
}

TEST_F(StreamReader, MustNotBindHandlesThatAreNone) {
   for (auto const& [handle, reason] :
        {std::pair<U32, char const*>(5, "the handle 5 is of turn 0, but turns begin at 1"),
         {0x01ffffff, "the handle 33554431 exceeds the bound of 1048576 entities"}}) {
      source.connect();
      mirror.connect();
      mount(MountMode::writer);
      ASSERT_EQ(source.session->closeReason(), "");
      source.receive(message(Opcode::bind, handle, 0, u32(root->streamHandle())));
      EXPECT_NE(source.session->closeReason().find(reason), std::string::npos)
            << source.session->closeReason();
   }
}

}  // namespace

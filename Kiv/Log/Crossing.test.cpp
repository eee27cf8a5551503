// What happens to handles when an entity is removed, recreated or withdrawn while messages for it
// are on their way.
#include <algorithm>

#include "KivTest/Stream.test.h"

using namespace StreamTesting;

namespace {

class StreamCrossing : public StreamTest {
protected:
   explicit StreamCrossing(Limits const& limits = {}) : StreamTest(limits) {
      mount(MountMode::writer);
   }
   ~StreamCrossing() override {
      carry();
      expectEqual();
      EXPECT_EQ(source.session->closeReason(), "");
      EXPECT_EQ(mirror.session->closeReason(), "");
   }
};

class StreamNarrowCrossing : public StreamCrossing {
protected:
   StreamNarrowCrossing() : StreamCrossing(narrow(1000)) {}
};

TEST_F(StreamNarrowCrossing, AChildThatTheWriterCouldNotTellYetKeepsWhatWasDoneToIt) {
   copy->textIs(std::string(950, 'x'));
   copy->leafIs(1, true, KivTest::Opaque(1));
   copy->leaf(1)->twigIs(KivTest::Level::low)->weightIs(3);
   copy->leaf(1)->ticksIs(7);
   root->leafIs(1, true, KivTest::Opaque(1));
   mirror.receive(source.take());
   carry();
   ASSERT_TRUE(root->leafHas(1));
   EXPECT_EQ(root->leaf(1)->ticks(), 7);
   ASSERT_TRUE(root->leaf(1)->twigHas(KivTest::Level::low));
   EXPECT_EQ(root->leaf(1)->twig(KivTest::Level::low)->weight(), 3);
}

class StreamForgetfulCrossing : public StreamCrossing {
protected:
   static Limits forgetful() {
      Limits limits = narrow(1000);
      limits.dirtyKeys = 4;
      return limits;
   }
   StreamForgetfulCrossing() : StreamCrossing(forgetful()) {}
};

/// The source replays the whole collection, and names a child that the writer knows without sending
/// its values.
TEST_F(StreamForgetfulCrossing, AChildWhoseRemovalTheWriterCouldNotTellYetStaysRemoved) {
   root->leafIs(1, true, KivTest::Opaque(1))->ticksIs(7);
   carry();
   root->textIs(std::string(950, 'x'));
   for (U32 i = 10; i != 20; ++i) {
      root->leafIs(i, true, KivTest::Opaque(1));
   }
   copy->textIs(std::string(950, 'y'));
   copy->leafDel(1);
   mirror.receive(source.take());
   EXPECT_FALSE(copy->leafHas(1));
   carry();
   EXPECT_FALSE(root->leafHas(1));
   EXPECT_EQ(root->leafCount(), 10u);
   expectEqual();
}

/// Before it can send anything, the source replaces the writer's child, and replaces that one by a
/// child of the old name. So the writer is sent a child that it already has.
TEST_F(StreamNarrowCrossing, AWriterReachesAChildThatHasTakenThePlaceOfItsOwn) {
   copy->badgeIs("silver")->brightnessIs(1);
   carry();
   ASSERT_EQ(root->badge()->brightness(), 1);
   root->textIs(std::string(980, 'x'));
   root->badgeIs("gold");
   root->badgeIs("silver");
   carry();
   copy->badge()->brightnessIs(9);
   carry();
   EXPECT_EQ(root->badge()->brightness(), 9);
}

TEST_F(StreamCrossing, ARootThatIsOfferedAgainIsWrittenUnderNewHandles) {
   copy->leafIs(1, true, KivTest::Opaque(1))->ticksIs(1);
   carry();
   source.hub.rootDel("KivTest::Stem", "test");
   carry();
   EXPECT_EQ(mirror.told(), "replaying; complete; gone");
   copy->leaf(1)->ticksIs(2);  // this one is sent to nobody
   source.hub.rootIs(root);
   mount(MountMode::writer);
   EXPECT_EQ(copy->leaf(1)->ticks(), 1);
   copy->leaf(1)->ticksIs(3);
   copy->u8Is(4);
   carry();
   EXPECT_EQ(root->leaf(1)->ticks(), 3);
   EXPECT_EQ(root->u8(), 4);
}

TEST_F(StreamCrossing, AWriterOfARootThatIsWithdrawnWritesNoMore) {
   copy->u8Is(1);
   carry();
   // Another session still mounts the root, so its entities keep their handles.
   Session here(source.hub);
   here.mountIs(root, MountMode::writer);
   source.hub.rootDel("KivTest::Stem", "test");
   copy->u8Is(2);
   source.receive(mirror.take());
   EXPECT_EQ(root->u8(), 1);
   carry();
   EXPECT_EQ(mirror.told(), "replaying; complete; gone");
   here.close("done");
   source.hub.rootIs(root);
   mount(MountMode::writer);
}

TEST_F(StreamNarrowCrossing, ARootThatIsWithdrawnInsideAReplayIsReplayedAgain) {
   for (U32 i = 0; i != 60; ++i) {
      root->leafIs(i, true, KivTest::Opaque(1))->twigIs(KivTest::Level::low);
   }
   carry();
   source.connect();
   mirror.connect();
   mirror.session->mountIs(copy, MountMode::writer);
   source.receive(mirror.take());
   // The reader is inside the collection when the root is gone.
   carryPiece();
   source.hub.rootDel("KivTest::Stem", "test");
   carry();
   source.hub.rootIs(root);
   mount(MountMode::writer);
   copy->leaf(7)->ticksIs(5);
   carry();
   EXPECT_EQ(root->leaf(7)->ticks(), 5);
}

TEST_F(StreamNarrowCrossing, ARootThatIsWithdrawnInsideAReplayIsToldNoFurtherThoughOthersHaveIt) {
   for (U32 i = 0; i != 60; ++i) {
      root->leafIs(i, true, KivTest::Opaque(1))->twigIs(KivTest::Level::low);
   }
   carry();
   source.connect();
   mirror.connect();
   mirror.told();
   mirror.session->mountIs(copy, MountMode::writer);
   source.receive(mirror.take());
   carryPiece();
   {
      Session here(source.hub);
      here.mountIs(root, MountMode::writer);
      source.hub.rootDel("KivTest::Stem", "test");
      Bytes const rest = source.take();
      EXPECT_LT(lines(rest).size(), 100u) << "what waited, and that the root is gone";
      mirror.receive(rest);
      carry();
   }
   EXPECT_EQ(mirror.told(), "replaying; gone");
   source.hub.rootIs(root);
   mount(MountMode::writer);
}

TEST_F(StreamCrossing, ABindForWhatIsGoneLeavesTheHandleWithWhatItWasGivenTo) {
   root->leafIs(1, true, KivTest::Opaque(1));
   carry();
   U32 const theirs = root->leaf(1)->streamHandle();
   // A handle that was never given out is refused; that of an entity that is gone has no effect.
   copy->leafIs(2, true, KivTest::Opaque(1));
   U32 const gone = copy->leaf(2)->streamHandle();
   copy->leafDel(2);
   mirror.receive(message(Opcode::bind, theirs, 0, u32(gone)));
   root->leaf(1)->ticksIs(9);
   carry();
   EXPECT_EQ(copy->leaf(1)->ticks(), 9);
}

TEST_F(StreamCrossing, AWriterThatIsItsMirrorsOnlySubscriberSaysWhatItHadSeenFirst) {
   copy->u8Is(7);
   carry();
   root->u16Is(5);
   mirror.receive(source.take());
   copy->u8Is(8);
   std::vector<std::string> const written = lines(mirror.take());
   ASSERT_EQ(written.size(), 2u);
   EXPECT_EQ(written[0].substr(0, 14), "ack 00000000.0");
   EXPECT_EQ(written[1], "set 01000000.259 08");
   source.receive(message(Opcode::set, copy->streamHandle(), 259, {8}));
   copy->u8Is(8);
}

TEST_F(StreamCrossing, AnEntityThatAnObserverRemovesLivesUntilItsMessageIsApplied) {
   root->leafIs(1, true, KivTest::Opaque(1))->twigIs(KivTest::Level::low);
   carry();
   struct Remove : Kiv::Observer {
      explicit Remove(Stem& r) : copy(r) {}
      void onChange(Kiv::Change const&) override {
         U64 const before = KivTest::Leaf::memAllocationTracker_.liveObjects();
         copy.leafDel(1);
         lives = KivTest::Leaf::memAllocationTracker_.liveObjects() == before;
      }
      Stem& copy;
      bool lives = false;
   } remove(*copy);
   auto const twig = copy->leaf(1)->twig(KivTest::Level::low);
   twig->observerAdd(remove, Kiv::Scope::entity);
   copy->leaf(1)->observerAdd(remove, Kiv::Scope::entity);
   root->leaf(1)->twigDel(KivTest::Level::low);
   mirror.receive(source.take());
   EXPECT_TRUE(remove.lives);
   EXPECT_FALSE(copy->leafHas(1));
}

/// At the end of a replay the mirror removes what was not named. At the first such removal, this
/// observer calls `work` with the key that is next.
template <class Work>
struct AtFirstRemoval final : Kiv::Observer {
   AtFirstRemoval(Stem& root, U16 id, Work work) : root_(root), id_(id), work_(work) {
      root_.observerAdd(*this);
   }
   ~AtFirstRemoval() { root_.observerDel(*this); }
   AtFirstRemoval(AtFirstRemoval const&) = delete;
   AtFirstRemoval& operator=(AtFirstRemoval const&) = delete;

   void onChange(Kiv::Change const& change) override {
      bool const removes = change.attributeId == id_ && change.oldValue != nullptr;
      if (removes && other == 0) {
         other = 3 - *static_cast<U32 const*>(change.key);  // of 1 and 2
         work_(other);
      }
   }

   U32 other = 0;

private:
   Stem& root_;
   U16 id_;
   Work work_;
};

class StreamLeftOver : public StreamTest {
protected:
   StreamLeftOver() : StreamTest(oneKey()) { mount(MountMode::writer); }
   ~StreamLeftOver() override {
      carry();
      expectEqual();
      EXPECT_EQ(source.session->closeReason(), "");
      EXPECT_EQ(mirror.session->closeReason(), "");
   }

   static Limits oneKey() {
      Limits limits = narrow(1000);
      limits.dirtyKeys = 1;
      return limits;
   }
   /// Makes changes that reach the mirror as a replay of their collection. Returns the last message
   /// of the replay, the last one that the mirror receives before the source hears from it again.
   template <class Changes>
   std::string replayOf(Changes&& changes) {
      root->textIs(std::string(980, 'x'));
      changes();
      Bytes const replay = source.take();
      mirror.receive(replay);
      return lines(replay).back();
   }
};

TEST_F(StreamLeftOver, AChildThatAnObserverMakesAnewMeanwhileStaysOnBothSides) {
   for (U32 const key : {1u, 2u, 7u}) {
      root->leafIs(key, true, KivTest::Opaque(1));
   }
   carry();
   U16 const id = idOf(Stem::kivTypeImpl, "leaf");
   AtFirstRemoval first(*copy, id, [this](U32 other) {
      copy->leafDel(other);
      copy->leafIs(other, false, KivTest::Opaque(2))->ticksIs(5);
   });
   EXPECT_EQ(replayOf([this] {
                root->leafDel(1);
                root->leafDel(2);
             }),
             "collectionEnd 01000000." + std::to_string(id));
   carry();
   ASSERT_NE(first.other, 0u);
   EXPECT_EQ(copy->leafCount(), 2u);
   ASSERT_TRUE(copy->leafHas(first.other));
   ASSERT_TRUE(root->leafHas(first.other));
   EXPECT_EQ(root->leaf(first.other)->ticks(), 5);
}

TEST_F(StreamLeftOver, AnElementThatAnObserverChangesMeanwhileStaysOnBothSides) {
   root->byNumberIs(1, "old");
   root->byNumberIs(2, "old");
   carry();
   U16 const id = idOf(Stem::kivTypeImpl, "byNumber");
   AtFirstRemoval first(*copy, id, [this](U32 other) { copy->byNumberIs(other, "mine"); });
   EXPECT_EQ(replayOf([this] {
                root->byNumberDel(1);
                root->byNumberDel(2);
             }),
             "erase 01000000." + std::to_string(id));
   carry();
   ASSERT_NE(first.other, 0u);
   EXPECT_EQ(copy->byNumberCount(), 1u);
   EXPECT_EQ(copy->byNumber(first.other), "mine");
   EXPECT_EQ(root->byNumber(first.other), "mine");
}

TEST_F(StreamLeftOver, AChildThatAnObserverRemovesMeanwhileIsGone) {
   root->leafIs(1, true, KivTest::Opaque(1));
   root->leafIs(2, true, KivTest::Opaque(1));
   carry();
   AtFirstRemoval first(*copy, idOf(Stem::kivTypeImpl, "leaf"),
                        [this](U32 other) { copy->leafDel(other); });
   replayOf([this] {
      root->leafDel(1);
      root->leafDel(2);
   });
   carry();
   ASSERT_NE(first.other, 0u);
   EXPECT_EQ(copy->leafCount(), 0u);
}

TEST_F(StreamLeftOver, AChildThatAReplayToldBeforeTheRemovalOfTheFormerStays) {
   using KivTest::Level;
   Sarn::Ptr<KivTest::Leaf> const leaf = root->leafIs(1, true, KivTest::Opaque(1));
   for (Level const level : {Level::low, Level::middle, Level::high}) {
      leaf->twigIs(level);
   }
   carry();
   struct MakeAnew : Kiv::Observer {
      explicit MakeAnew(KivTest::Leaf& l) : leaf(l) {}
      void onChange(Kiv::Change const& change) override {
         if (change.oldValue != nullptr) {
            leaf.twigIs(Level::low)->weightIs(5);
         }
      }
      KivTest::Leaf& leaf;
   } makeAnew(*leaf);
   struct Flush : Kiv::Observer {
      explicit Flush(End& s) : source(s) {}
      void onChange(Kiv::Change const&) override { sent = concat(sent, source.take()); }
      End& source;
      Bytes sent;
   } flush(source);
   root->textIs(std::string(980, 'x'));
   leaf->twigDel(Level::middle);
   leaf->twigDel(Level::high);
   leaf->observerAdd(makeAnew, Kiv::Scope::entity);
   leaf->observerAdd(flush, Kiv::Scope::entity);
   leaf->twigDel(Level::low);
   leaf->observerDel(makeAnew, Kiv::Scope::entity);
   leaf->observerDel(flush, Kiv::Scope::entity);
   flush.sent = concat(flush.sent, source.take());
   std::vector<std::string> const told = lines(flush.sent);
   auto const isCreation = [](std::string const& one) { return one.find("create ") == 0; };
   EXPECT_EQ(std::count_if(told.begin(), told.end(), isCreation), 1) << joined(told);
   mirror.receive(flush.sent);
   carry();
   ASSERT_TRUE(leaf->twigHas(Level::low));
   ASSERT_TRUE(copy->leaf(1)->twigHas(Level::low));
   EXPECT_EQ(copy->leaf(1)->twig(Level::low)->weight(), 5);
}

/// Forged messages of a source: bodies of messages that make leaves.
class StreamForgedSource : public StreamTest {
protected:
   StreamForgedSource() {
      mount();
      root->leafIs(1, true, KivTest::Opaque(1))->twigIs(KivTest::Level::low);
      carry();
   }
   ~StreamForgedSource() override { EXPECT_EQ(mirror.session->closeReason(), ""); }

   Bytes create(U32 handle, U32 key) const {
      return message(Opcode::create, root->streamHandle(), idOf(Stem::kivTypeImpl, "leaf"),
                     concat(u32(handle), u32(key), Bytes{1}, Bytes{0x3f, 0xf0, 0, 0, 0, 0, 0, 0}));
   }
   Bytes erase(U32 key) const {
      return message(Opcode::erase, root->streamHandle(), idOf(Stem::kivTypeImpl, "leaf"),
                     u32(key));
   }
   static Bytes twig(Opcode opcode, U32 handle) {
      return message(opcode, handle, idOf(KivTest::Leaf::kivTypeImpl, "twig"), {});
   }
};

TEST_F(StreamForgedSource, ReplaysACollectionAnewUnderAnotherHandleWhenTheFirstIsGivenAway) {
   U32 const first = root->leaf(1)->streamHandle();
   mirror.receive(twig(Opcode::collectionBegin, first));
   mirror.receive(create(first, 2));
   mirror.receive(create(0x01000050, 1));
   mirror.receive(twig(Opcode::collectionBegin, 0x01000050));
   mirror.receive(twig(Opcode::collectionEnd, 0x01000050));
   EXPECT_EQ(copy->leaf(1)->twigCount(), 0u);
}

TEST_F(StreamForgedSource, ReplaysACollectionAnewWhenItsEntityGetsAnotherHandle) {
   mirror.receive(twig(Opcode::collectionBegin, root->leaf(1)->streamHandle()));
   mirror.receive(create(0x01000050, 1));
   mirror.receive(twig(Opcode::collectionBegin, 0x01000050));
   mirror.receive(twig(Opcode::collectionEnd, 0x01000050));
   EXPECT_EQ(copy->leaf(1)->twigCount(), 0u);
}

TEST_F(StreamForgedSource, ReplaysACollectionOfAnEntityInThePlaceOfOneThatIsGone) {
   for (U32 i = 0; i != 8; ++i) {  // one of them gets the address of the last one
      mirror.receive(create(0x01000060 + i, 3));
      mirror.receive(twig(Opcode::collectionBegin, 0x01000060 + i));
      mirror.receive(erase(3));
   }
   EXPECT_FALSE(copy->leafHas(3));
}

TEST_F(StreamForgedSource, ReplaysACollectionOfAnEntityInThePlaceOfOneThatAWriterHasRemoved) {
   mirror.connect();
   source.connect();
   mount(MountMode::writer);
   for (U32 i = 0; i != 8; ++i) {
      mirror.receive(create(0x01000060 + i, 3));
      mirror.receive(twig(Opcode::collectionBegin, 0x01000060 + i));
      copy->leafDel(3);
   }
   EXPECT_FALSE(copy->leafHas(3));
}

class StreamNarrowWalk : public StreamTest {
protected:
   StreamNarrowWalk() : StreamTest(narrow(1000)) {}
};

TEST_F(StreamNarrowWalk, AKeyThatIsDeletedAndMadeAgainIsToldBehindItsCollection) {
   for (U32 i = 0; i != 60; ++i) {
      root->leafIs(i, true, KivTest::Opaque(1));
   }
   mirror.session->mountIs(copy);
   source.receive(mirror.take());
   Bytes all;
   auto const some = [&] {
      Bytes const bytes = carryPiece();
      all = concat(all, bytes);
      return !bytes.empty();
   };
   while (copy->leafCount() < 10) {
      some();
   }
   // Half of what is still to be sent is removed and recreated; one leaf is recreated with a child.
   std::vector<U32> again;
   for (U32 i = 0; i != 60; ++i) {
      if (!copy->leafHas(i) && i % 2 == 0) {
         root->leafDel(i);
         root->leafIs(i, false, KivTest::Opaque(2))->twigIs(KivTest::Level::high);
         again.push_back(i);
      }
   }
   ASSERT_GT(again.size(), 10u);
   while (some()) {
   }
   std::vector<std::string> const told = lines(all);
   std::string const id = "." + std::to_string(idOf(Stem::kivTypeImpl, "leaf"));
   auto const end = std::find(told.begin(), told.end(), "collectionEnd 01000000" + id);
   ASSERT_NE(end, told.end());
   // Leaves that were already in the output when they were removed also arrive before the end.
   auto const made = [&](auto from, auto to) {
      return std::count_if(from, to, [&](std::string const& one) {
         return one.find("create 01000000" + id) == 0 &&
                one.find("4000000000000000") != std::string::npos;
      });
   };
   EXPECT_EQ(made(told.begin(), end), 0);
   EXPECT_EQ(made(end, told.end()), static_cast<std::ptrdiff_t>(again.size()));
   expectEqual();
}

}  // namespace

// The replacement of a named child is published once, at the source and at the mirror.
#include "KivTest/Stream.test.h"

using namespace StreamTesting;

namespace {

/// Records what a root publishes about its badge, and which badge is there at that moment.
struct Watcher final : Kiv::Observer {
   explicit Watcher(Stem& observed) : root(observed) { root.observerAdd(*this); }
   ~Watcher() { root.observerDel(*this); }
   void onChange(Kiv::Change const& change) override {
      if (root.kivType().field(change.attributeId)->name != std::string_view("badge")) {
         return;
      }
      auto const* const old = static_cast<Sarn::Ptr<Kiv::Entity> const*>(change.oldValue);
      seen.push_back((old != nullptr ? *Kiv::entityName(**old) : "none") + " -> " +
                     (root.badge() ? root.badge()->nameString() : "none"));
   }
   std::string all() {
      std::string const text = joined(seen);
      seen.clear();
      return text;
   }

   Stem& root;
   std::vector<std::string> seen;
};

class StreamNamedChild : public StreamTest, public testing::WithParamInterface<MountMode> {
protected:
   StreamNamedChild() {
      mount(GetParam());
      root->badgeIs("a")->brightnessIs(1);
      carry();
   }
};

INSTANTIATE_TEST_SUITE_P(Modes, StreamNamedChild,
                         testing::Values(MountMode::reader, MountMode::writer));

TEST_P(StreamNamedChild, IsReplacedInOneStepLive) {
   Watcher there(*root);
   Watcher here(*copy);
   Sarn::Ptr<KivTest::Badge> const old = copy->badge();
   root->badgeIs("b")->brightnessIs(2);
   carry();
   EXPECT_EQ(there.all(), "a -> b");
   EXPECT_EQ(here.all(), "a -> b");
   EXPECT_EQ(old->userCount(), 1u);
   expectEqual();
}

TEST_P(StreamNamedChild, IsReplacedInOneStepWhenTheMirrorIsBehind) {
   Watcher here(*copy);
   Sarn::Ptr<KivTest::Badge> const old = copy->badge();
   source.session->blocked();
   while (source.session->upToDate()) {
      root->textIs(std::string(100000, static_cast<char>('a' + root->text().size() % 7)));
      root->textIs("short");
   }
   root->badgeIs("b")->brightnessIs(2);
   carry();
   EXPECT_EQ(here.all(), "a -> b");
   EXPECT_EQ(old->userCount(), 1u);
   expectEqual();
}

TEST_P(StreamNamedChild, IsReplacedInOneStepByAReplay) {
   Watcher here(*copy);
   source.connect();
   mirror.connect();
   root->badgeIs("b")->brightnessIs(2);
   mount(GetParam());
   EXPECT_EQ(here.all(), "a -> b");
   expectEqual();
}

TEST_P(StreamNamedChild, OfTheSameNameThatWasRemovedMeanwhileIsAnother) {
   Watcher here(*copy);
   root->badgeDel();
   root->badgeIs("a");
   carry();
   EXPECT_EQ(here.all(), "a -> none; none -> a");
   expectEqual();
   root->badgeIs("b");
   root->badgeIs("a");
   carry();
   EXPECT_EQ(here.all(), "a -> b; b -> a");
   expectEqual();
}

TEST_P(StreamNamedChild, BackUnderItsFormerNameWhileTheMirrorWasBehindIsEqual) {
   source.session->blocked();
   while (source.session->upToDate()) {
      root->textIs(std::string(100000, static_cast<char>('a' + root->text().size() % 7)));
      root->textIs("short");
   }
   root->badgeIs("b")->brightnessIs(2);
   root->badgeIs("a");
   carry();
   expectEqual();
   root->badge()->brightnessIs(77);
   carry();
   expectEqual();
}

TEST_F(StreamTest, AWriterReplacesANamedChildInOneStep) {
   mount(MountMode::writer);
   copy->badgeIs("a")->brightnessIs(1);
   carry();
   Watcher there(*root);
   copy->badgeIs("b")->brightnessIs(2);
   carry();
   EXPECT_EQ(there.all(), "a -> b");
   expectEqual();
}

class StreamNarrowNamedChild : public StreamTest {
protected:
   StreamNarrowNamedChild() : StreamTest(narrow(1000)) {}
   ~StreamNarrowNamedChild() override {
      carry();
      expectEqual();
      EXPECT_EQ(source.session->closeReason(), "");
      EXPECT_EQ(mirror.session->closeReason(), "");
   }
};

/// Otherwise the source would take it for the one that it has introduced, under a handle that the
/// writer has forgotten.
TEST_F(StreamNarrowNamedChild, OfAWriterThatIsBackUnderItsFormerNameIsAnotherAtTheSource) {
   mount(MountMode::writer);
   root->badgeIs("a")->brightnessIs(1);
   carry();
   Watcher there(*root);
   copy->textIs(std::string(980, 'x'));
   copy->badgeIs("b");
   copy->badgeIs("a")->brightnessIs(2);
   carry();
   EXPECT_EQ(there.all(), "a -> none; none -> a");
   root->badge()->brightnessIs(77);
   carry();
   EXPECT_EQ(copy->badge()->brightness(), 77);
}

TEST_F(StreamNarrowNamedChild, OfAWriterThatIsBehindIsReplacedInOneStep) {
   mount(MountMode::writer);
   root->badgeIs("a")->brightnessIs(1);
   carry();
   Watcher there(*root);
   copy->textIs(std::string(980, 'x'));
   copy->badgeIs("b")->brightnessIs(2);
   carry();
   EXPECT_EQ(there.all(), "a -> b");
}

TEST_F(StreamNarrowNamedChild, OfAWriterThatIsRemovedAndMadeAgainDuringItsReplayIsAnother) {
   root->textIs(std::string(950, 'x'));
   mirror.session->mountIs(copy, MountMode::writer);
   source.receive(mirror.take());
   carryPiece();  // up to the text
   copy->badgeIs("a")->brightnessIs(1);
   source.receive(mirror.take());
   ASSERT_TRUE(root->badge());
   Watcher here(*copy);
   root->badgeDel();
   root->badgeIs("a")->brightnessIs(9);
   carry();
   EXPECT_EQ(here.all(), "a -> none; none -> a");
   copy->badge()->brightnessIs(10);
   carry();
   EXPECT_EQ(root->badge()->brightness(), 10);
}

}  // namespace

// Trees of entities: who is notified of a change, and what happens when things die meanwhile.
#include <gtest/gtest.h>

#include <ctime>
#include <utility>

#include "Kiv/Path.h"
#include "KivTest/Observer.test.h"
#include "KivTest/TestTypes.h"
#include "KivTest/Witness.h"
#include "Sarn/FirstObserver.h"

namespace {

using namespace KivTest;
using Kiv::Scope;

class Entity : public testing::Test {
protected:
   Sarn::Ptr<Stem> root = stemFactory("test");
};

TEST_F(Entity, ASubtreeObserverHearsOfWhatIsMadeLater) {
   Witness published(*root, Scope::subtree);
   Sarn::Ptr<Leaf> const leaf = root->leafIs(1, false, Opaque());
   leaf->litIs(true);
   leaf->twigIs(Level::high)->weightIs(2.5);
   EXPECT_EQ(published.changes(),
             "leaf[1] was nothing; KivTest::Leaf.lit was false; KivTest::Leaf.twig[high] was "
             "nothing; KivTest::Twig.weight was 0");
}

TEST_F(Entity, ASubtreeObserverHearsNothingOfWhatWasRemoved) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(1, false, Opaque());
   Sarn::Ptr<Twig> const twig = leaf->twigIs(Level::high);
   Witness published(*root, Scope::subtree);
   root->leafDel(1);
   EXPECT_EQ(published.ids(), "289");
   EXPECT_FALSE(twig->watched());
   twig->weightIs(1);
   leaf->litIs(true);
   EXPECT_EQ(published.ids(), "");
}

TEST_F(Entity, ARemovedSubtreeKeepsItsOwnObservers) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(1, false, Opaque());
   Sarn::Ptr<Twig> const twig = leaf->twigIs(Level::high);
   Witness onRoot(*root, Scope::subtree);
   Witness onLeaf(*leaf, Scope::subtree);
   twig->weightIs(1);
   EXPECT_EQ(onRoot.ids(), "259");
   EXPECT_EQ(onLeaf.ids(), "259");
   root->leafDel(1);
   EXPECT_EQ(onRoot.ids(), "289");
   twig->weightIs(2);
   EXPECT_EQ(onRoot.ids(), "");
   EXPECT_EQ(onLeaf.ids(), "259");
}

TEST_F(Entity, NothingIsWatchedWhenTheLastSubtreeObserverHasGone) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(1, false, Opaque());
   Sarn::Ptr<Twig> const twig = leaf->twigIs(Level::high);
   {
      Witness const one(*root, Scope::subtree);
      Witness const two(*root, Scope::subtree);
      EXPECT_TRUE(twig->watched());
   }
   EXPECT_FALSE(root->watched());
   EXPECT_FALSE(leaf->watched());
   EXPECT_FALSE(twig->watched());
}

TEST_F(Entity, AnObserverBelowOutlivesOneAbove) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(1, false, Opaque());
   Sarn::Ptr<Twig> const twig = leaf->twigIs(Level::high);
   Witness onLeaf(*leaf, Scope::subtree);
   { Witness const onRoot(*root, Scope::subtree); }
   twig->weightIs(1);
   EXPECT_EQ(onLeaf.ids(), "259");
   EXPECT_FALSE(root->watched());
}

/// Counts what it is told at once, and by a publication.
struct Room final : Sarn::FirstObserver {
   void onChange(Kiv::Change const&) override { ++published; }
   U8* roomFor(Kiv::AttributeId, std::size_t, Sarn::Publisher const&) noexcept override {
      ++taken;
      return bytes;
   }
   std::string since() {
      return std::to_string(std::exchange(taken, 0)) + " taken, " +
             std::to_string(std::exchange(published, 0)) + " published";
   }
   int taken = 0;
   int published = 0;
   U8 bytes[8] = {};
};

TEST_F(Entity, OnlyAFirstObserverThatNobodyElseJoinsIsToldAtOnce) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(1, false, Opaque());
   Sarn::Ptr<Twig> const twig = leaf->twigIs(Level::high);
   double weight = 0;
   auto const set = [&] { twig->weightIs(++weight); };
   Room room;
   root->observerAddFirst(room);
   set();
   EXPECT_EQ(room.since(), "1 taken, 0 published");
   for (auto const& [entity, scope] : {std::pair<Kiv::Entity*, Scope>(root.get(), Scope::entity),
                                       {leaf.get(), Scope::subtree},
                                       {twig.get(), Scope::entity}}) {
      Witness witness(*entity, scope);
      set();
      EXPECT_EQ(room.since(), "0 taken, 1 published") << entity->kivType().name;
   }
   {
      Witness hearsOfTheLeafAlone(*leaf);
      set();
      EXPECT_EQ(room.since(), "1 taken, 0 published");
   }
   leaf->twigIs(Level::low);
   room.since();
   leaf->twig(Level::low)->weightIs(1);
   EXPECT_EQ(room.since(), "1 taken, 0 published") << "made later";
   root->leafDel(1);
   room.since();
   set();
   EXPECT_EQ(room.since(), "0 taken, 0 published") << "removed";
   root->observerDel(room, Scope::subtree);
}

TEST_F(Entity, RemovingAnUnknownObserverSaysSo) {
   Witness observer(*root);
   EXPECT_FALSE(root->observerDel(observer, Scope::subtree));
   EXPECT_FALSE(root->medal()->observerDel(observer));
}

TEST_F(Entity, ChangesMadeInsideAreHeardInOrderByEverybodyInTheTree) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(1, false, Opaque());
   Witness first(*root, Scope::subtree);
   Hears const reacts(*leaf, [&](Kiv::Change const& change) {
      if (change.attributeId == 259) {
         root->u8Is(1);
         leaf->ticksInc(1);
         root->byNumberIs(3, "three");
      }
   });
   Witness last(*root, Scope::subtree);
   leaf->litIs(true);
   char const* const order =
         "KivTest::Leaf.lit was false; u8 was 200; KivTest::Leaf.ticks was 0; "
         "byNumber[3] was nothing";
   EXPECT_EQ(first.changes(), order);
   EXPECT_EQ(last.changes(), order);
}

TEST_F(Entity, MayDieInsideItsOwnSetter) {
   Hears hears(*root, [&](Kiv::Change const&) { root.reset(); });
   Stem& raw = *root;
   raw.u8Is(1);
   hears.entityGone();
   EXPECT_EQ(root, nullptr);
}

TEST_F(Entity, ThePathLeadsFromTheRootWithKeys) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(7, false, Opaque());
   Sarn::Ptr<Twig> const twig = leaf->twigIs(Level::high);
   EXPECT_EQ(Kiv::entityPath(*root), "test");
   EXPECT_EQ(Kiv::entityPath(*twig), "test.leaf[7].twig[high]");
   EXPECT_EQ(Kiv::entityPath(*root->medal()), "test.medal");
   root->leafDel(7);
   EXPECT_EQ(Kiv::entityPath(*twig), "KivTest::Leaf.twig[high]");
}

TEST_F(Entity, ThePathOfAChildIsFoundWithoutTheOthers) {
   auto const seconds = [](U32 children) {
      Sarn::Ptr<Stem> const parent = KivTest::stemFactory("test");
      for (U32 i = 0; i != children; ++i) {
         parent->leafIs(i, false, Opaque());
      }
      Sarn::Ptr<Leaf> const leaf = parent->leaf(children / 2);
      std::string const expected = "test.leaf[" + std::to_string(children / 2) + "]";
      std::clock_t const begin = std::clock();
      for (int i = 0; i != 1000; ++i) {
         EXPECT_EQ(Kiv::entityPath(*leaf), expected);
      }
      return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
   };
   double const few = seconds(10);
   double const many = seconds(20000);
   EXPECT_LT(many, 20 * few + 0.1) << few << " s, then " << many << " s";
}

TEST_F(Entity, IsHeldByItsParentAndThePointersThatAskedForIt) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(7, false, Opaque());
   EXPECT_EQ(leaf->userCount(), 2u);
   EXPECT_EQ(root->userCount(), 1u) << "a child holds no parent";
   root->leafDel(7);
   EXPECT_EQ(leaf->userCount(), 1u);
}

}  // namespace

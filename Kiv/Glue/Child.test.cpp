// Singleton children, plain and named.
#include <gtest/gtest.h>

#include "KivTest/Observer.test.h"
#include "KivTest/TestTypes.h"
#include "KivTest/Witness.h"

namespace {

using namespace KivTest;

class Child : public testing::Test {
protected:
   Sarn::Ptr<Stem> root = stemFactory("test");
};

TEST_F(Child, IsAbsentUntilItIsMade) {
   EXPECT_EQ(root->core(), nullptr);
   EXPECT_EQ(root->badge(), nullptr);
   Sarn::Ptr<Core> const core = root->coreIs();
   EXPECT_EQ(root->core(), core);
   EXPECT_EQ(core->parent(), root.get());
   EXPECT_EQ(core->temperature(), 293.15f);
   EXPECT_EQ(core->label(), "core");
}

TEST_F(Child, IsAttachedAndWholeWhenObserversHearOfIt) {
   int heard = 0;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      ++heard;
      EXPECT_EQ(change.attributeId, 286);
      EXPECT_EQ(change.key, nullptr);
      EXPECT_EQ(change.oldValue, nullptr);
      EXPECT_EQ(change.keyCompare, nullptr);
      ASSERT_TRUE(root->core());
      EXPECT_EQ(root->core()->parent(), root.get());
      EXPECT_EQ(root->core()->label(), "core");
   });
   root->coreIs();
   EXPECT_EQ(heard, 1);
}

TEST_F(Child, MakingItAgainGivesTheSameAndPublishesNothing) {
   Sarn::Ptr<Core> const core = root->coreIs();
   Witness published(*root);
   EXPECT_EQ(root->coreIs(), core);
   EXPECT_EQ(published.ids(), "");
}

TEST_F(Child, IsDetachedWhenObserversHearOfItsRemovalAndHandedBack) {
   Sarn::Ptr<Core> const core = root->coreIs();
   int heard = 0;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      ++heard;
      EXPECT_EQ(change.attributeId, 286);
      EXPECT_EQ(change.key, nullptr);
      ASSERT_NE(change.oldValue, nullptr);
      EXPECT_EQ(*static_cast<Sarn::Ptr<Kiv::Entity> const*>(change.oldValue), core);
      EXPECT_EQ(root->core(), nullptr);
      EXPECT_EQ(core->parent(), nullptr);
   });
   EXPECT_EQ(root->coreDel(), core);
   EXPECT_EQ(root->coreDel(), nullptr);
   EXPECT_EQ(heard, 1);
   EXPECT_EQ(core->userCount(), 1u);
}

TEST_F(Child, LosesItsParentWithTheParentsDeath) {
   Sarn::Ptr<Core> const core = root->coreIs();
   Sarn::Ptr<Badge> const medal = root->medal();
   Sarn::Ptr<Leaf> const leaf = root->leafIs(1, true, Opaque());
   Sarn::Ptr<Twig> const twig = leaf->twigIs(Level::high);
   root.reset();
   EXPECT_EQ(core->parent(), nullptr);
   EXPECT_EQ(medal->parent(), nullptr);
   EXPECT_EQ(leaf->parent(), nullptr);
   EXPECT_EQ(twig->parent(), leaf.get());
}

TEST_F(Child, ANamedOneIsMadeWithItsName) {
   Witness published(*root);
   Sarn::Ptr<Badge> const badge = root->badgeIs("gold");
   EXPECT_EQ(badge->nameString(), "gold");
   EXPECT_EQ(badge->parent(), root.get());
   EXPECT_EQ(badge->brightness(), 5);
   EXPECT_EQ(root->badgeIs("gold"), badge);
   EXPECT_EQ(published.changes(), "badge was nothing");
}

TEST_F(Child, AnotherNameReplacesANamedOne) {
   Sarn::Ptr<Badge> const gold = root->badgeIs("gold");
   Witness published(*root);
   Sarn::Ptr<Badge> const silver = root->badgeIs("silver");
   EXPECT_NE(silver, gold);
   EXPECT_EQ(root->badge(), silver);
   EXPECT_EQ(gold->parent(), nullptr);
   EXPECT_EQ(silver->parent(), root.get());
   EXPECT_EQ(published.changes(), "badge was KivTest::Badge");
   EXPECT_EQ(root->badgeDel(), silver);
}

TEST_F(Child, OneThatIsMadeAtConstructionIsThereFromTheStart) {
   ASSERT_TRUE(root->medal());
   EXPECT_EQ(root->medal()->nameString(), "medal");
   EXPECT_EQ(root->medal()->parent(), root.get());
   Sarn::Ptr<Badge> const medal = root->medalDel();
   EXPECT_EQ(medal->nameString(), "medal");
   EXPECT_EQ(root->medal(), nullptr);
}

TEST_F(Child, MayBeRemovedByAnObserverThatHearsOfItsCreation) {
   Hears const hears(*root, [&](Kiv::Change const&) { root->coreDel(); });
   Sarn::Ptr<Core> const core = root->coreIs();
   ASSERT_TRUE(core);
   EXPECT_EQ(core->parent(), nullptr);
   EXPECT_EQ(root->core(), nullptr);
}

}  // namespace

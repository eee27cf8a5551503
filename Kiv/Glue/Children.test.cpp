// Instantiating collections of children.
#include <gtest/gtest.h>

#include <set>

#include "KivTest/Observer.test.h"
#include "KivTest/TestTypes.h"
#include "KivTest/Witness.h"

namespace {

using namespace KivTest;

class Children : public testing::Test {
protected:
   Sarn::Ptr<Stem> root = stemFactory("test");
};

TEST_F(Children, AreMadeWithKeyAndArguments) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(7, true, Opaque(1.5));
   EXPECT_EQ(leaf->number(), 7u);
   EXPECT_TRUE(leaf->lit());
   EXPECT_EQ(leaf->origin(), Opaque(1.5));
   EXPECT_EQ(leaf->parent(), root.get());
   EXPECT_EQ(root->leaf(7), leaf);
   EXPECT_EQ(root->leaf(8), nullptr);
   EXPECT_TRUE(root->leafHas(7));
   EXPECT_FALSE(root->leafHas(8));
   EXPECT_EQ(root->leafCount(), 1u);
}

TEST_F(Children, OneIsAttachedAndWholeWhenObserversHearOfIt) {
   int heard = 0;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      ++heard;
      EXPECT_EQ(change.attributeId, 289);
      EXPECT_EQ(change.oldValue, nullptr);
      ASSERT_NE(change.key, nullptr);
      U32 const key = *static_cast<U32 const*>(change.key);
      U32 const other = 8;
      EXPECT_EQ(key, 7u);
      EXPECT_TRUE(change.keyCompare(change.key, &key));
      EXPECT_FALSE(change.keyCompare(change.key, &other));
      ASSERT_TRUE(root->leaf(key));
      EXPECT_EQ(root->leaf(key)->parent(), root.get());
      EXPECT_TRUE(root->leaf(key)->lit());
   });
   root->leafIs(7, true, Opaque(1.5));
   EXPECT_EQ(heard, 1);
}

TEST_F(Children, OneIsDetachedWhenObserversHearOfItsRemovalAndHandedBack) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(7, true, Opaque(1.5));
   int heard = 0;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      ++heard;
      EXPECT_EQ(change.attributeId, 289);
      EXPECT_EQ(*static_cast<U32 const*>(change.key), 7u);
      EXPECT_EQ(*static_cast<Sarn::Ptr<Kiv::Entity> const*>(change.oldValue), leaf);
      EXPECT_FALSE(root->leafHas(7));
      EXPECT_EQ(leaf->parent(), nullptr);
   });
   EXPECT_EQ(root->leafDel(7), leaf);
   EXPECT_EQ(root->leafDel(7), nullptr);
   EXPECT_EQ(heard, 1);
}

TEST_F(Children, RemovalTakesTheChildsOwnKey) {
   root->leafIs(7, true, Opaque());
   Sarn::Ptr<Twig> const twig = root->leaf(7)->twigIs(Level::high);
   Witness published(*root->leaf(7));
   root->leaf(7)->twigDel(twig->level());
   EXPECT_EQ(published.changes(), "twig[high] was KivTest::Twig");
}

TEST_F(Children, AnExistingOneIsBroughtToTheGivenValuesThroughItsSetters) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(7, true, Opaque(1.5));
   Witness published(*root, Kiv::Scope::subtree);
   EXPECT_EQ(root->leafIs(7, true, Opaque(1.5)), leaf);
   EXPECT_EQ(published.changes(), "");
   EXPECT_EQ(root->leafIs(7, false, Opaque(1.5)), leaf);
   EXPECT_EQ(published.changes(), "KivTest::Leaf.lit was true");
}

TEST_F(Children, AnotherConstantArgumentThrowsAndChangesNothing) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(7, true, Opaque(1.5));
   Witness published(*root, Kiv::Scope::subtree);
   try {
      root->leafIs(7, false, Opaque(2.5));
      FAIL() << "nothing thrown";
   } catch (Kiv::MutatorReinstValException const& error) {
      EXPECT_EQ(error.argument(), 260);
      EXPECT_EQ(error.collection(), 289);
      EXPECT_STREQ(error.what(),
                   "KivTest::Stem::leaf (289): the child exists with another "
                   "KivTest::Leaf::origin (260): KivTest::Opaque(content=1.5), "
                   "not KivTest::Opaque(content=2.5)");
   }
   EXPECT_EQ(published.changes(), "");
   EXPECT_TRUE(leaf->lit());
   EXPECT_EQ(root->leaf(7), leaf);
}

TEST_F(Children, DelAllTellsOfOneRemovalAfterTheOther) {
   for (U32 i = 0; i != 100; ++i) {
      root->leafIs(i, true, Opaque());
   }
   std::set<U32> removed;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      U32 const key = *static_cast<U32 const*>(change.key);
      EXPECT_FALSE(root->leafHas(key));
      EXPECT_TRUE(removed.insert(key).second);
      EXPECT_EQ(root->leafCount(), 100 - removed.size());
   });
   root->leafDelAll();
   EXPECT_EQ(removed.size(), 100u);
   EXPECT_EQ(root->leafCount(), 0u);
}

TEST_F(Children, DelAllWithNobodyToTellClearsParentLinksAllTheSame) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(1, true, Opaque());
   root->leafIs(2, true, Opaque());
   root->leafDelAll();
   EXPECT_EQ(root->leafCount(), 0u);
   EXPECT_EQ(leaf->parent(), nullptr);
   EXPECT_EQ(leaf->userCount(), 1u);
}

TEST_F(Children, DelAllTellsAnObserverOfASubtreeFurtherUp) {
   Sarn::Ptr<Leaf> const leaf = root->leafIs(1, true, Opaque());
   leaf->twigIs(Level::low);
   leaf->twigIs(Level::high);
   Witness published(*root, Kiv::Scope::subtree);
   leaf->twigDelAll();
   EXPECT_EQ(published.ids(), "262 262");
}

TEST_F(Children, DelAllSurvivesObserversThatChangeTheCollection) {
   for (U32 i = 0; i != 50; ++i) {
      root->leafIs(i, true, Opaque());
   }
   int heard = 0;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      U32 const key = *static_cast<U32 const*>(change.key);
      ++heard;
      root->leafDel(key ^ 1);
   });
   root->leafDelAll();
   EXPECT_EQ(root->leafCount(), 0u);
   EXPECT_EQ(heard, 50);
}

TEST_F(Children, DelAllSurvivesTheDeathOfTheOwner) {
   for (U32 i = 0; i != 50; ++i) {
      root->leafIs(i, true, Opaque());
   }
   int heard = 0;
   Hears hears(*root, [&](Kiv::Change const&) {
      ++heard;
      root.reset();
   });
   root->leafDelAll();
   hears.entityGone();
   EXPECT_EQ(heard, 50);
   EXPECT_EQ(root, nullptr);
}

TEST_F(Children, AreVisitedOnceEach) {
   for (U32 i = 0; i != 30; ++i) {
      root->leafIs(i, i % 2 == 0, Opaque());
   }
   std::set<U32> seen;
   for (Sarn::Ptr<Leaf> const& leaf : root->leafAll()) {
      EXPECT_TRUE(seen.insert(leaf->number()).second);
   }
   EXPECT_EQ(seen.size(), 30u);
   std::size_t visited = 0;
   Kiv::forEachChild(
         *root, [&](Kiv::Entity& child, Kiv::FieldDescriptor const& field, void const* key) {
            visited += field.fieldId == 289 &&
                       static_cast<Leaf&>(child).number() == *static_cast<U32 const*>(key);
         });
   EXPECT_EQ(visited, 30u);
}

TEST_F(Children, LiveOnWhenSomebodyHoldsThemAfterTheParentsDeath) {
   std::vector<Sarn::Ptr<Leaf>> held;
   for (U32 i = 0; i != 10; ++i) {
      held.push_back(root->leafIs(i, true, Opaque()));
   }
   root.reset();
   for (Sarn::Ptr<Leaf> const& leaf : held) {
      EXPECT_EQ(leaf->parent(), nullptr);
      EXPECT_EQ(leaf->userCount(), 1u);
      leaf->litIs(false);
   }
}

TEST_F(Children, DelAllRemovesWhatWasThereOnceAndLeavesWhatObserversPutBack) {
   for (U32 i = 0; i != 50; ++i) {
      root->leafIs(i, true, Opaque());
   }
   int removed = 0;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      if (change.oldValue != nullptr && ++removed <= 1000) {
         U32 const key = *static_cast<U32 const*>(change.key);
         root->leafIs(key, false, Opaque());
         root->leafIs(key + 1000, false, Opaque());
      }
   });
   root->leafDelAll();
   EXPECT_EQ(removed, 50);
   EXPECT_EQ(root->leafCount(), 100u);
   EXPECT_FALSE(root->leaf(7)->lit());
   EXPECT_EQ(root->leaf(7)->parent(), root.get());
}

TEST_F(Children, DelAllLeavesAChildThatReplacedOneOfThose) {
   for (U32 i = 0; i != 2; ++i) {
      root->leafIs(i, true, Opaque());
   }
   int removed = 0;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      if (change.oldValue != nullptr && ++removed == 1) {
         U32 const other = 1 - *static_cast<U32 const*>(change.key);
         root->leafDel(other);
         root->leafIs(other, false, Opaque());
      }
   });
   root->leafDelAll();
   EXPECT_EQ(removed, 2);
   EXPECT_EQ(root->leafCount(), 1u);
}

TEST_F(Children, DelAllRemovesAllThoughObserversThrowAndThrowsTheFirst) {
   for (U32 i = 0; i != 50; ++i) {
      root->leafIs(i, true, Opaque());
   }
   int heard = 0;
   Hears const hears(*root, [&](Kiv::Change const&) {
      throw std::runtime_error("removal " + std::to_string(++heard));
   });
   EXPECT_EQ(thrown<std::runtime_error>([&] { root->leafDelAll(); }), "removal 1");
   EXPECT_EQ(heard, 50);
   EXPECT_EQ(root->leafCount(), 0u);
}

}  // namespace

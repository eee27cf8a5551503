// Collections of values: hash maps with their keys outside and inside, ordered maps.
#include <gtest/gtest.h>

#include <set>

#include "KivTest/Observer.test.h"
#include "KivTest/TestTypes.h"
#include "KivTest/Witness.h"

namespace {

using namespace KivTest;

class Map : public testing::Test {
protected:
   Sarn::Ptr<Stem> root = stemFactory("test");
};

TEST_F(Map, GivesTheDefaultForAnAbsentKey) {
   EXPECT_EQ(root->byNumber(1), "");
   EXPECT_EQ(root->byText("a"), 0u);
   EXPECT_EQ(root->byPair(Pair()), Pair());
   EXPECT_EQ(root->byPair(Pair()).second(), -1);
   EXPECT_FALSE(root->byLevel(Level::high));
   EXPECT_EQ(root->record(3), Record());
   EXPECT_EQ(root->sorted(-1), "");
   EXPECT_EQ(root->sortedText("a"), Colour::green) << "the default of the enumeration";
   EXPECT_FALSE(root->byNumberHas(1));
}

TEST_F(Map, AnInsertionIsPublishedWithKeyComparisonAndNoOldValue) {
   int heard = 0;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      ++heard;
      EXPECT_EQ(change.attributeId, 291);
      EXPECT_EQ(*static_cast<Sarn::String const*>(change.key), "a");
      EXPECT_EQ(change.oldValue, nullptr);
      Sarn::String const same = "a";
      Sarn::String const other = "b";
      EXPECT_TRUE(change.keyCompare(change.key, &same));
      EXPECT_FALSE(change.keyCompare(change.key, &other));
      EXPECT_EQ(root->byText("a"), 5u);
   });
   root->byTextIs("a", 5);
   EXPECT_EQ(heard, 1);
   EXPECT_TRUE(root->byTextHas("a"));
   EXPECT_EQ(root->byTextCount(), 1u);
}

TEST_F(Map, AnUpdateIsPublishedWithTheOldValue) {
   root->byNumberIs(1, "one");
   root->byPairIs(Pair(1, 1), Pair(2, 2));
   Witness published(*root);
   root->byNumberIs(1, "uno");
   root->byPairIs(Pair(1, 1), Pair(3, 3));
   EXPECT_EQ(published.changes(),
             "byNumber[1] was \"one\"; byPair[KivTest::Pair(first=1, second=1)] was "
             "KivTest::Pair(first=2, second=2)");
   EXPECT_EQ(root->byNumber(1), "uno");
}

TEST_F(Map, StoringTheSameValuePublishesNothing) {
   root->byNumberIs(1, "one");
   root->byLevelIs(Level::low, false);
   root->recordIs(Record(1, Pair(), std::nullopt, "n", Colour::red, 2));
   root->sortedIs(1, "one");
   Witness published(*root);
   root->byNumberIs(1, "one");
   root->byLevelIs(Level::low, false);
   root->recordIs(Record(1, Pair(), std::nullopt, "n", Colour::red, 2));
   root->sortedIs(1, "one");
   EXPECT_EQ(published.ids(), "");
}

TEST_F(Map, AStoredDefaultIsAnElementAllTheSame) {
   Witness published(*root);
   root->byLevelIs(Level::low, false);
   EXPECT_TRUE(root->byLevelHas(Level::low));
   EXPECT_EQ(published.changes(), "byLevel[low] was nothing");
}

TEST_F(Map, ARemovalIsPublishedWithTheRemovedValueAndGivesItBack) {
   root->byNumberIs(1, "one");
   int heard = 0;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      ++heard;
      EXPECT_EQ(*static_cast<U32 const*>(change.key), 1u);
      EXPECT_EQ(*static_cast<Sarn::String const*>(change.oldValue), "one");
      EXPECT_FALSE(root->byNumberHas(1));
   });
   EXPECT_EQ(root->byNumberDel(1), "one");
   EXPECT_EQ(heard, 1);
}

TEST_F(Map, RemovingAnAbsentKeyGivesTheDefaultAndPublishesNothing) {
   Witness published(*root);
   EXPECT_EQ(root->byNumberDel(1), "");
   EXPECT_EQ(root->sortedTextDel("a"), Colour::green);
   EXPECT_EQ(root->recordDel(1), Record());
   EXPECT_EQ(published.ids(), "");
}

TEST_F(Map, DelAllTellsOfOneRemovalAfterTheOther) {
   for (U32 i = 0; i != 60; ++i) {
      root->byNumberIs(i, std::to_string(i));
   }
   std::set<U32> keys;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      U32 const key = *static_cast<U32 const*>(change.key);
      EXPECT_EQ(*static_cast<Sarn::String const*>(change.oldValue), std::to_string(key));
      EXPECT_TRUE(keys.insert(key).second);
      EXPECT_EQ(root->byNumberCount(), 60 - keys.size());
   });
   root->byNumberDelAll();
   EXPECT_EQ(keys.size(), 60u);
}

TEST_F(Map, DelAllWithNobodyToTellJustEmptiesIt) {
   root->byNumberIs(1, "one");
   root->recordIs(Record());
   root->sortedIs(1, "one");
   root->byNumberDelAll();
   root->recordDelAll();
   root->sortedDelAll();
   EXPECT_EQ(root->byNumberCount() + root->recordCount() + root->sortedCount(), 0u);
}

TEST_F(Map, DelAllSurvivesTheDeathOfTheOwner) {
   for (int kind = 0; kind != 3; ++kind) {
      root = stemFactory("test");
      for (int i = 0; i != 20; ++i) {
         root->byNumberIs(static_cast<U32>(i), "x");
         root->sortedIs(i, "x");
         root->samplesEnq(i);
      }
      int heard = 0;
      Hears hears(*root, [&](Kiv::Change const&) {
         ++heard;
         root.reset();
      });
      if (kind == 0) {
         root->byNumberDelAll();
      } else if (kind == 1) {
         root->sortedDelAll();
      } else {
         root->samplesDelAll();
      }
      hears.entityGone();
      EXPECT_EQ(heard, 20) << kind;
   }
}

TEST_F(Map, AnElementsOwnKeyMayGoWhileOthersAreToBeTold) {
   std::string const longKey = "a key that is too long to lie in the string object itself";
   root->byTextIs(longKey, 1);
   root->sortedTextIs(longKey, Colour::red);
   std::vector<std::string> told;
   Hears const remover(*root, [&](Kiv::Change const& change) {
      if (change.attributeId == 291) {
         root->byTextDelAll();
      } else {
         root->sortedTextDelAll();
      }
   });
   Witness published(*root);
   root->byTextIs(root->byTextAll().iterator().key(), 2);
   EXPECT_EQ(published.changes(),
             "byText[\"" + longKey + "\"] was 1; byText[\"" + longKey + "\"] was 2");
   root->sortedTextIs(root->sortedTextAll().begin()->key, Colour::blue);
   EXPECT_EQ(published.changes(),
             "sortedText[\"" + longKey + "\"] was red; sortedText[\"" + longKey + "\"] was blue");
}

TEST_F(Map, AValueWithItsKeyInsideIsPublishedUnderThatKey) {
   Record const first(7, Pair(1, 1), U8{3}, "first", Colour::red, 1);
   Record const second(7, Pair(1, 1), U8{3}, "second", Colour::red, 1);
   Witness published(*root);
   root->recordIs(first);
   root->recordIs(second);
   root->recordIs(Record(8, Pair(), std::nullopt, "", Colour::blue, 9));
   EXPECT_EQ(root->recordCount(), 2u);
   EXPECT_EQ(root->record(7), second);
   EXPECT_EQ(root->recordDel(7), second);
   EXPECT_EQ(published.changes(),
             "record[7] was nothing; "
             "record[7] was KivTest::Record(key=7, pair=KivTest::Pair(first=1, second=1), mark=3, "
             "note=\"first\", colour=red, stamp=1); "
             "record[8] was nothing; "
             "record[7] was KivTest::Record(key=7, pair=KivTest::Pair(first=1, second=1), mark=3, "
             "note=\"second\", colour=red, stamp=1)");
}

TEST_F(Map, AnOrderedMapIsVisitedInTheOrderOfItsKeys) {
   for (S32 const key : {5, -7, 0, 2147483647, -2147483647 - 1, 3}) {
      root->sortedIs(key, std::to_string(key));
   }
   std::vector<S32> keys;
   for (auto const& [key, value] : root->sortedAll()) {
      EXPECT_EQ(value, std::to_string(key));
      keys.push_back(key);
   }
   EXPECT_EQ(keys, (std::vector<S32>{-2147483647 - 1, -7, 0, 3, 5, 2147483647}));
}

TEST_F(Map, AnOrderedMapRemovesByIterator) {
   root->sortedIs(1, "one");
   root->sortedIs(2, "two");
   Witness published(*root);
   EXPECT_EQ(root->sortedDel(root->sortedAll().begin()), "one");
   EXPECT_EQ(published.changes(), "sorted[1] was \"one\"");
   EXPECT_FALSE(root->sortedHas(1));
   EXPECT_TRUE(root->sortedHas(2));
}

TEST_F(Map, AnOrderedMapsDelAllGoesInKeyOrder) {
   for (S32 const key : {3, 1, 2}) {
      root->sortedIs(key, "x");
   }
   Witness published(*root);
   root->sortedDelAll();
   EXPECT_EQ(published.changes(), "sorted[1] was \"x\"; sorted[2] was \"x\"; sorted[3] was \"x\"");
}

Record recordOf(U32 key, std::string_view note) {
   return Record(key, Pair(), std::nullopt, note, Colour::red, 2);
}

TEST_F(Map, DelAllRemovesWhatWasThereOnceAndLeavesWhatObserversPutBack) {
   for (U32 i = 0; i != 50; ++i) {
      root->byNumberIs(i, "old");
      root->recordIs(recordOf(i, "old"));
      root->sortedIs(static_cast<S32>(i), "old");
   }
   int removed = 0;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      if (change.oldValue == nullptr || ++removed > 1000) {
         return;
      }
      if (change.attributeId == 290) {
         U32 const key = *static_cast<U32 const*>(change.key);
         root->byNumberIs(key, "new");
         root->byNumberIs(key + 1000, "new");
      } else if (change.attributeId == 294) {
         U32 const key = static_cast<Record const*>(change.oldValue)->key();
         root->recordIs(recordOf(key, "new"));
         root->recordIs(recordOf(key + 1000, "new"));
      } else {
         S32 const key = *static_cast<S32 const*>(change.key);
         root->sortedIs(key, "new");
         root->sortedIs(key + 1000, "new");
      }
   });
   root->byNumberDelAll();
   EXPECT_EQ(removed, 50);
   EXPECT_EQ(root->byNumberCount(), 100u);
   EXPECT_EQ(root->byNumber(7), "new");
   removed = 0;
   root->recordDelAll();
   EXPECT_EQ(removed, 50);
   EXPECT_EQ(root->recordCount(), 100u);
   removed = 0;
   root->sortedDelAll();
   EXPECT_EQ(removed, 50);
   EXPECT_EQ(root->sortedCount(), 100u);
   EXPECT_EQ(root->sorted(1007), "new");
}

TEST_F(Map, DelAllRemovesAllThoughObserversThrowAndThrowsTheFirst) {
   for (U32 i = 0; i != 50; ++i) {
      root->byNumberIs(i, "a");
      root->sortedIs(static_cast<S32>(i), "a");
   }
   int heard = 0;
   Hears const hears(*root, [&](Kiv::Change const&) {
      throw std::runtime_error("removal " + std::to_string(++heard));
   });
   EXPECT_EQ(thrown<std::runtime_error>([&] { root->byNumberDelAll(); }), "removal 1");
   EXPECT_EQ(heard, 50);
   EXPECT_EQ(root->byNumberCount(), 0u);
   EXPECT_EQ(thrown<std::runtime_error>([&] { root->sortedDelAll(); }), "removal 51");
   EXPECT_EQ(heard, 100);
   EXPECT_EQ(root->sortedCount(), 0u);
}

}  // namespace

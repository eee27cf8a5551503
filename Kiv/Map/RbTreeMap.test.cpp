#include "Kiv/Map/RbTreeMap.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kiv/Map/Collection.test.h"

namespace CollectionTest::RbTreeMapTesting {

using Map = Kiv::RbTreeMap<U64, Tracked>;

std::vector<U64> keysOf(Map const& map) {
   std::vector<U64> keys;
   for (auto const& [key, value] : map) {
      keys.push_back(key);
   }
   return keys;
}

TEST(RbTreeMap, IteratesInAscendingOrderBothWays) {
   Map map;
   for (U64 const k : std::vector<U64>{5, 1, 9, 3, 7}) {
      map.insert(k, k);
   }
   EXPECT_EQ(keysOf(map), (std::vector<U64>{1, 3, 5, 7, 9}));
   std::vector<U64> backwards;
   for (auto at = map.end(); at != map.begin();) {
      backwards.push_back((--at)->key);
   }
   EXPECT_EQ(backwards, (std::vector<U64>{9, 7, 5, 3, 1}));
}

TEST(RbTreeMap, ValuesAreChangedThroughIterators) {
   Map map;
   map.insert(1, 10);
   for (auto& [key, value] : map) {
      value = Tracked(11);
   }
   map.begin()->value = Tracked(map.begin()->value.v() + 1);
   EXPECT_EQ(map.find(1)->v(), 12u);
}

TEST(RbTreeMap, BoundsAreWhereTheStandardPutsThem) {
   Map map;
   std::map<U64, U64> model;
   for (U64 k = 10; k <= 90; k += 10) {
      map.insert(k, k);
      model[k] = k;
   }
   for (U64 k = 0; k <= 100; ++k) {
      auto const lower = model.lower_bound(k);
      auto const upper = model.upper_bound(k);
      ASSERT_EQ(map.lowerBound(k) == map.end(), lower == model.end());
      ASSERT_EQ(map.upperBound(k) == map.end(), upper == model.end());
      if (lower != model.end()) {
         ASSERT_EQ(map.lowerBound(k)->key, lower->first);
      }
      if (upper != model.end()) {
         ASSERT_EQ(std::as_const(map).upperBound(k)->key, upper->first);
      }
      ASSERT_EQ(map.iteratorAt(k) != map.end(), model.contains(k));
   }
}

TEST(RbTreeMap, ErasingByIteratorGoesOnAtTheNext) {
   Map map;
   for (U64 k = 0; k < 10; ++k) {
      map.insert(k, k);
   }
   for (auto at = map.begin(); at != map.end();) {
      at = at->key % 3 == 0 ? map.erase(at) : std::next(at);
   }
   EXPECT_EQ(keysOf(map), (std::vector<U64>{1, 2, 4, 5, 7, 8}));
}

TEST(RbTreeMap, OtherElementsStayWhereTheyAre) {
   Map map;
   std::map<U64, Tracked const*> places;
   std::mt19937_64 random(11);
   for (int i = 0; i < 3000; ++i) {
      U64 const k = random() % 300;
      if (random() % 2 == 0) {
         auto const [value, added] = map.insert(k, k);
         ASSERT_EQ(places.emplace(k, value).second, added);
      } else {
         ASSERT_EQ(map.erase(k).has_value(), places.erase(k) == 1);
      }
      if (i % 50 == 0) {
         for (auto const& [key, place] : places) {
            ASSERT_EQ(map.find(key), place);
         }
      }
   }
}

TEST(RbTreeMap, IsARedBlackTreeAfterEveryChange) {
   U64 const seed = std::random_device()();
   SCOPED_TRACE("seed " + std::to_string(seed));
   std::mt19937_64 random(seed);
   for (U64 const range : {U64{4}, U64{16}, U64{500}}) {
      Map map;
      for (int i = 0; i < 3000; ++i) {
         U64 const k = random() % range;
         if (random() % 16 < (i / 500 % 2 == 0 ? 11u : 5u)) {
            map.insert(k, k);
         } else {
            map.erase(k);
         }
         ASSERT_TRUE(map.isValid()) << "after change " << i;
      }
   }
   EXPECT_EQ(Tracked::live, 0);
}

TEST(RbTreeMap, StaysBalancedWhenFilledInOrder) {
   Map map;
   for (U64 k = 0; k < 10'000; ++k) {
      map.insert(k, k);
   }
   EXPECT_TRUE(map.isValid());
   EXPECT_EQ(map.size(), 10'000u);
   for (U64 k = 10'000; k-- > 0;) {
      ASSERT_TRUE(map.erase(k).has_value());
   }
   EXPECT_TRUE(map.empty());
}

TEST(RbTreeMap, StringsAreLookedUpByView) {
   Kiv::RbTreeMap<Sarn::String, int> map;
   map.insert("beta", 2);
   map.insert(std::string_view("alpha"), 1);
   EXPECT_EQ(*map.find(std::string_view("alpha")), 1);
   EXPECT_EQ(map.lowerBound("b")->key, "beta");
   EXPECT_EQ(map.erase("alpha"), 1);
}

TEST(RbTreeMap, AnInsertionThatThrowsChangesNothing) {
   struct Throwing {
      Throwing() = default;
      Throwing(Throwing const&) { throw std::runtime_error("no copy"); }
      Throwing& operator=(Throwing const&) = default;
   };
   Kiv::RbTreeMap<U64, Throwing> map;
   Throwing const value;
   EXPECT_THROW(map.insert(1, value), std::runtime_error);
   EXPECT_TRUE(map.empty());
   EXPECT_EQ((Kiv::allocTrackerOf<Kiv::RbTreeMap<U64, Throwing>>.liveObjects()), 0u);
}

TEST(RbTreeMap, EachNodeIsCountedAsAnObject) {
   auto& tracker = Kiv::allocTrackerOf<Map>;
   Map map;
   map.insert(1, 1);
   map.insert(2, 2);
   EXPECT_EQ(tracker.liveObjects(), 2u);
   map.erase(1);
   EXPECT_EQ(tracker.liveObjects(), 1u);
   map.clear();
   EXPECT_EQ(tracker.liveObjects(), 0u);
}

}  // namespace CollectionTest::RbTreeMapTesting

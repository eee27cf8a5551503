// The checked iterator across everything that can happen to its map.
#include <gtest/gtest.h>

#include <list>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Kiv/HashMap2018.h"
#include "Kiv/HashMap2018NodeInternalKey.h"
#include "Kiv/Map/Collection.test.h"
#include "Kiv/Map/HSet.h"

namespace CollectionTest::HashMap2018IteratorTesting {

using Map = Kiv::HashMap2018<U64, Tracked, 0x5B266113>;

void fill(Map& map, U64 count, U64 from = 0) {
   for (U64 i = from; i < from + count; ++i) {
      map.insert(i, Tracked(i));
   }
}

TEST(HashMap2018Iterator, VisitsEachElementOnce) {
   Map map;
   fill(map, 100);
   std::set<U64> seen;
   for (auto it = map.iterator(); it; ++it) {
      EXPECT_EQ(it.value().v(), it.key());
      EXPECT_EQ(it->key, (*it).key);
      EXPECT_TRUE(seen.insert(it.key()).second);
   }
   EXPECT_EQ(seen.size(), 100u);
}

TEST(HashMap2018Iterator, IsAtItsEndOnAnEmptyMap) {
   Map map;
   EXPECT_FALSE(map.iterator());
   EXPECT_FALSE(Map::Iterator());
   EXPECT_FALSE(map.iteratorAt(1));
}

TEST(HashMap2018Iterator, KeepsTheKeyOfItsErasedElement) {
   Kiv::HashMap2018<Sarn::String, int, 1> map;
   map.insert("a key that is too long for the string object", 1);
   map.insert("b", 2);
   auto const it = map.iteratorAt("a key that is too long for the string object");
   EXPECT_FALSE(it.markedForDeletion());
   map.erase(it.key());
   EXPECT_TRUE(it);
   EXPECT_TRUE(it.markedForDeletion());
   EXPECT_EQ(it.key(), "a key that is too long for the string object");
}

TEST(HashMap2018Iterator, TheKeyOutlivesTheErasedChild) {
   Kiv::HashMap2018NodeInternalKey<ChildPtr, ChildKeyFunktor, 1> map;
   map.insert(ChildPtr(new Child(5, 50), Sarn::adopt));
   auto const it = map.iterator();
   map.erase(it);
   EXPECT_EQ(Child::live, 0);
   EXPECT_EQ(it.key(), 5u);
}

TEST(HashMap2018Iterator, AnElementPutBackUnderTheKeyIsAnother) {
   Map map;
   fill(map, 1);
   auto const it = map.iterator();
   map.erase(0);
   fill(map, 1);
   EXPECT_TRUE(it.markedForDeletion());
}

TEST(HashMap2018Iterator, SaysWhenReferencesMayBeStale) {
   Map map;
   fill(map, 10);
   auto it = map.iterator();
   EXPECT_FALSE(it.currNodeMaybeStale());
   *map.find(3) = Tracked(33);
   EXPECT_FALSE(it.currNodeMaybeStale());
   fill(map, 100, 10);
   EXPECT_TRUE(it.currNodeMaybeStale());
   ++it;
   EXPECT_FALSE(it.currNodeMaybeStale());
}

TEST(HashMap2018Iterator, ErasingEachElementWhileWalkingEmptiesTheMap) {
   Map map;
   fill(map, 1000);
   U64 visited = 0;
   for (auto it = map.iterator(); it; ++it) {
      U64 const key = it.key();
      EXPECT_EQ(map.erase(it)->v(), key);
      ++visited;
   }
   EXPECT_EQ(visited, 1000u);
   EXPECT_TRUE(map.empty());
}

TEST(HashMap2018Iterator, IsAtItsEndAfterClearing) {
   Map map;
   fill(map, 100);
   auto it = map.iterator();
   U64 const key = it.key();
   map.clear();
   EXPECT_EQ(Tracked::live, 0);
   EXPECT_TRUE(it.markedForDeletion());
   EXPECT_EQ(it.key(), key);
   fill(map, 10);
   ++it;
   EXPECT_FALSE(it);
}

TEST(HashMap2018Iterator, OutlivesItsMap) {
   auto map = std::make_unique<Map>();
   fill(*map, 100);
   auto it = map->iterator();
   auto copy = it;
   U64 const key = it.key();
   map.reset();
   EXPECT_EQ(Tracked::live, 0);
   EXPECT_EQ(copy.key(), key);
   EXPECT_FALSE(++copy);
   EXPECT_EQ(it.key(), key);
}

TEST(HashMap2018Iterator, FollowsAMapThatIsMoved) {
   Map map;
   fill(map, 100);
   auto it = map.iterator();
   Map const taken = std::move(map);
   U64 visited = 0;
   for (; it; ++it) {
      EXPECT_NE(taken.find(it.key()), nullptr);
      ++visited;
   }
   EXPECT_EQ(visited, 100u);
}

TEST(HashMap2018Iterator, CanBeKeptCopiedAndAssigned) {
   Map map;
   Map other;
   fill(map, 50);
   fill(other, 5, 1000);
   std::vector<Map::Iterator> kept;
   std::vector<U64> keys;
   for (auto it = map.iterator(); it; ++it) {
      kept.push_back(it);  // the vector copies them as it grows
      keys.push_back(it.key());
   }
   map.erase(keys[7]);
   for (std::size_t i = 0; i < kept.size(); ++i) {
      EXPECT_EQ(kept[i].key(), keys[i]);
      EXPECT_EQ(kept[i].markedForDeletion(), i == 7);
   }
   kept[3] = kept[7];
   EXPECT_TRUE(kept[3].markedForDeletion());
   EXPECT_EQ(kept[3].key(), keys[7]);
   ++kept[3];
   EXPECT_EQ(kept[3].key(), keys[8]);
   kept[3] = other.iterator();
   EXPECT_GE(kept[3].key(), 1000u);
   kept[3] = Map::Iterator();
   EXPECT_FALSE(kept[3]);
}

TEST(HashMap2018Iterator, TheBucketArrayIsReleasedWithItsLastUser) {
   auto& tracker = Kiv::allocTrackerOf<Kiv::HashMap2018<U64, Tracked, 0x5B266113>>;
   ASSERT_EQ(tracker.liveObjects(), 0u);
   std::optional<Map::Iterator> it;
   {
      Map map;
      fill(map, 100);
      it = map.iterator();
      EXPECT_EQ(tracker.liveObjects(), 1u);
      fill(map, 1000);
      EXPECT_EQ(tracker.liveObjects(), 1u);  // it moved along to the new array
   }
   EXPECT_EQ(tracker.liveObjects(), 1u);
   it.reset();
   EXPECT_EQ(tracker.liveObjects(), 0u);
}

/// Iterators at all positions while the map changes at random: an iterator visits each element that
/// is there from its start to its end once, and none after its removal.
template <class TestMap, class MakeKey>
void survive(U64 seed, U64 range, MakeKey&& makeKey) {
   SCOPED_TRACE("seed " + std::to_string(seed) + " range " + std::to_string(range));
   struct Walk {
      typename TestMap::Iterator it;
      std::set<U64> due;      // present since the start, not yet visited
      std::set<U64> visited;  // of those present at the start
   };
   std::mt19937_64 random(seed);
   TestMap map;
   std::map<U64, U64> model;
   std::list<Walk> walks;
   auto const visit = [&](Walk& w) {
      if (w.it && !w.it.markedForDeletion()) {
         U64 const k = w.it.value().v();
         ASSERT_TRUE(model.contains(k)) << "an erased element was visited";
         ASSERT_FALSE(w.visited.contains(k)) << "an element was visited twice";
         if (w.due.erase(k) != 0) {
            w.visited.insert(k);
         }
      }
   };
   auto const start = [&] {
      walks.push_back({map.iterator(), {}, {}});
      for (auto const& [k, v] : model) {
         walks.back().due.insert(k);
      }
      visit(walks.back());
   };
   for (int step = 0; step < 4000; ++step) {
      bool const growing = step / 500 % 2 == 0;
      U64 const k = random() % range;
      U64 const what = random() % 100;
      if (what < (growing ? 45u : 10u)) {
         if (map.insert(makeKey(k), Tracked(k)).second) {
            model[k] = k;
         }
      } else if (what < 60) {
         map.erase(makeKey(k));
         model.erase(k);
         for (Walk& w : walks) {
            w.due.erase(k);
            w.visited.erase(k);  // inserted again, it is another element and may be visited
         }
      } else if (what < 70) {
         if (walks.size() < 6) {
            start();
         }
      } else if (!walks.empty()) {
         auto at = walks.begin();
         std::advance(at, static_cast<std::ptrdiff_t>(random() % walks.size()));
         if (what < 72 && at->it && !at->it.markedForDeletion()) {
            U64 const current = at->it.value().v();
            map.erase(at->it);
            model.erase(current);
            for (Walk& w : walks) {
               w.due.erase(current);
               w.visited.erase(current);
            }
         } else if (what == 72 && step % 40 == 0) {
            map.clear();
            model.clear();
            for (Walk& w : walks) {
               w.due.clear();
               w.visited.clear();
            }
         }
         if (at->it) {
            ++at->it;
            visit(*at);
         }
         if (!at->it) {
            ASSERT_TRUE(at->due.empty()) << at->due.size() << " elements were left out";
            walks.erase(at);
         }
      }
      ASSERT_EQ(map.size(), model.size());
      if (testing::Test::HasFatalFailure()) {
         return;
      }
   }
   for (Walk& w : walks) {
      while (w.it) {
         ++w.it;
         ASSERT_NO_FATAL_FAILURE(visit(w));
      }
      ASSERT_TRUE(w.due.empty());
   }
}

TEST(HashMap2018Iterator, SurvivesRandomChanges) {
   U64 const seed = std::random_device()();
   for (U64 i = 0; i < 60; ++i) {
      U64 const range = std::vector<U64>{4, 20, 200, 2000}[i % 4];
      ASSERT_NO_FATAL_FAILURE(survive<Map>(seed + i, range, [](U64 k) { return k; }));
      ASSERT_EQ(Tracked::live, 0);
   }
}

TEST(HashMap2018Iterator, SurvivesRandomChangesAmongKeysOfEqualHash) {
   using PoorMap = Kiv::HashMap2018<PoorKey, Tracked, 1>;
   U64 const seed = std::random_device()();
   for (U64 i = 0; i < 30; ++i) {
      ASSERT_NO_FATAL_FAILURE(survive<PoorMap>(seed + i, i % 2 == 0 ? 12 : 150,
                                               [](U64 k) { return PoorKey{static_cast<U32>(k)}; }));
      ASSERT_EQ(Tracked::live, 0);
   }
}

TEST(HSet, AddsAndRemovesKeysOnce) {
   Kiv::HSet<Sarn::String> set;
   EXPECT_EQ(sizeof set, sizeof(void*));
   EXPECT_TRUE(set.insert("one"));
   EXPECT_FALSE(set.insert(std::string_view("one")));
   EXPECT_TRUE(set.has("one"));
   EXPECT_EQ(set.size(), 1u);
   EXPECT_TRUE(set.erase("one"));
   EXPECT_FALSE(set.erase("one"));
   EXPECT_TRUE(set.empty());
}

TEST(HSet, AgreesWithTheStandardSetOverLongRandomRuns) {
   U64 const seed = std::random_device()();
   SCOPED_TRACE("seed " + std::to_string(seed));
   std::mt19937_64 random(seed);
   Kiv::HSet<Tracked> set;
   std::set<U64> model;
   for (int i = 0; i < 20'000; ++i) {
      U64 const k = random() % (i / 2000 % 2 == 0 ? 1000 : 10);
      if (random() % 2 == 0) {
         ASSERT_EQ(set.insert(k), model.insert(k).second);
      } else {
         ASSERT_EQ(set.erase(k), model.erase(k) == 1);
      }
      ASSERT_EQ(set.has(k), model.contains(k));
      ASSERT_EQ(set.size(), model.size());
   }
   std::set<U64> keys;
   for (Tracked const& k : set) {
      keys.insert(k.v());
   }
   EXPECT_EQ(keys, model);
   set.clear();
   EXPECT_EQ(Tracked::live, 0);
}

TEST(HSet, IsEmptiedWhileItIsWalked) {
   Kiv::HSet<U8> set;
   for (U8 i = 0; i < 200; ++i) {
      set.insert(i);
   }
   std::set<U8> seen;
   for (auto it = set.iterator(); it; ++it) {
      seen.insert(it.key());
      EXPECT_EQ(*it, it.key());
      set.erase(it);
   }
   EXPECT_EQ(seen.size(), 200u);
   EXPECT_TRUE(set.empty());
}

/// Three keys have the same hash, and so the same place.
struct Triple {
   U32 v = 0;

   bool operator==(Triple const&) const = default;
   U32 hash(U32 seed) const { return Kiv::hashSingleAttr(seed, v / 3); }
};

/// At nearly the full load, many blocks have displaced elements, which move when others come and
/// go.
TEST(HashMap2018Iterator, VisitsWhatStaysExactlyOnceWhileElementsMoveBetweenFullBlocks) {
   using Set = Kiv::HSet<Triple>;
   constexpr U32 staying = 1450;  // of at most 1536 in an array of 2048
   Set set;
   std::mt19937 random(11);
   for (U32 v = 0; v < staying * 2; v += 2) {
      set.insert({v});
   }
   struct Walk {
      Set::Iterator at;
      std::vector<int> visits = std::vector<int>(staying * 2);
   };
   std::vector<Walk> walks(3);
   int completed = 0;
   for (int step = 0; step < 60'000; ++step) {
      U32 const coming = static_cast<U32>(random()) % staying * 2 + 1;
      bool const crowded = set.size() > (step % 20'000 < 19'000 ? 1530 : 1700);
      if (crowded || !set.insert({coming})) {
         set.erase({coming});
      }
      Walk& walk = walks[random() % walks.size()];
      if (!walk.at) {
         walk.at = set.iterator();
      }
      Triple const key = walk.at.key();
      if (!walk.at.markedForDeletion()) {
         EXPECT_TRUE(set.has(key)) << key.v;
         ++walk.visits[key.v];
         if (key.v % 2 == 1 && step % 2 == 0) {
            set.erase(walk.at);
         }
      }
      ++walk.at;
      if (!walk.at) {
         ++completed;
         for (U32 v = 0; v < staying * 2; v += 2) {
            ASSERT_EQ(walk.visits[v], 1) << v << ", step " << step;
         }
         walk.visits.assign(staying * 2, 0);
      }
   }
   EXPECT_GE(completed, 30);
}

TEST(HashMap2018Iterator, SkipsNoKeyOfEqualHashWhenTheCurrentOneAndAnEarlierOneAreErased) {
   struct Same {
      U32 v = 0;
      bool operator==(Same const&) const = default;
      U32 hash(U32) const { return 7; }
   };
   Kiv::HSet<Same> set;
   for (U32 v = 0; v < 40; ++v) {
      set.insert({v});
   }
   auto at = set.iterator();
   while (at.key().v != 5) {
      ++at;
   }
   set.erase(at);
   set.erase({2});
   for (U32 v = 6; v < 40; ++v) {
      ++at;
      ASSERT_TRUE(at);
      EXPECT_EQ(at.key().v, v);
   }
   ++at;
   EXPECT_FALSE(at);
}

}  // namespace CollectionTest::HashMap2018IteratorTesting

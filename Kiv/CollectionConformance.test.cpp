// What all keyed collections have in common, each checked against the standard library's.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "Kiv/HashMap2018.h"
#include "Kiv/HashMap2018NodeInternalKey.h"
#include "Kiv/Map/Collection.test.h"
#include "Kiv/Map/HSet.h"
#include "Kiv/Map/RbTreeMap.h"

namespace CollectionTest::CollectionConformanceTesting {

template <class KeyType>
struct Keys {
   static KeyType key(U64 n) { return static_cast<KeyType>(n); }
   static U64 number(KeyType const& key) { return static_cast<U64>(key); }
};
template <>
struct Keys<Tracked> {
   static Tracked key(U64 n) { return Tracked(n); }
   static U64 number(Tracked const& key) { return key.v(); }
};
template <>
struct Keys<PoorKey> {
   static PoorKey key(U64 n) { return {static_cast<U32>(n)}; }
   static U64 number(PoorKey const& key) { return key.v; }
};
template <>
struct Keys<Sarn::String> {
   static Sarn::String key(U64 n) {
      // Some fit into the string object, others do not. Seven digits sort like the numbers.
      return std::to_string(1'000'000 + n) +
             (n % 2 == 0 ? "" : " with a long name that is allocated");
   }
   static U64 number(Sarn::String const& key) { return std::stoul(key) - 1'000'000; }
};

/// One interface to all collections: keys and values are numbers.
template <class MapType, class K>
struct ExternalKey {
   using Map = MapType;
   using Key = Keys<K>;
   static bool insert(Map& m, U64 k, U64 v) { return m.insert(Key::key(k), v).second; }
   static std::optional<U64> find(Map const& m, U64 k) {
      auto const* const v = m.find(Key::key(k));
      return v != nullptr ? std::optional<U64>(valueOf(*v)) : std::nullopt;
   }
   static std::optional<U64> erase(Map& m, U64 k) {
      auto const v = m.erase(Key::key(k));
      return v ? std::optional<U64>(valueOf(*v)) : std::nullopt;
   }
   static void replace(Map& m, U64 k, U64 v) { *m.find(Key::key(k)) = v; }
   static std::vector<std::pair<U64, U64>> elements(Map const& m) {
      std::vector<std::pair<U64, U64>> all;
      for (auto const& [k, v] : m) {
         all.emplace_back(Key::number(k), valueOf(v));
      }
      return all;
   }
   static U64 valueOf(U64 v) { return v; }
   static U64 valueOf(Tracked const& v) { return v.v(); }
};

struct InternalKey {
   using Map = Kiv::HashMap2018NodeInternalKey<Record, RecordKeyFunktor, 3>;
   static bool insert(Map& m, U64 k, U64 v) { return m.insert(Record{k, v}).second; }
   static std::optional<U64> find(Map const& m, U64 k) {
      auto const* const r = m.find(k);
      return r != nullptr ? std::optional<U64>(r->value) : std::nullopt;
   }
   static std::optional<U64> erase(Map& m, U64 k) {
      auto const r = m.erase(k);
      return r ? std::optional<U64>(r->value) : std::nullopt;
   }
   static void replace(Map& m, U64 k, U64 v) { *m.find(k) = Record{k, v}; }
   static std::vector<std::pair<U64, U64>> elements(Map const& m) {
      std::vector<std::pair<U64, U64>> all;
      for (Record const& r : m) {
         all.emplace_back(r.key.v(), r.value);
      }
      return all;
   }
};

struct Children {
   using Map = Kiv::HashMap2018NodeInternalKey<ChildPtr, ChildKeyFunktor, 0x5B266113>;
   static ChildPtr child(U64 k, U64 v) { return {new Child(k, v), Sarn::adopt}; }
   static bool insert(Map& m, U64 k, U64 v) { return m.insert(child(k, v)).second; }
   static std::optional<U64> find(Map const& m, U64 k) {
      auto const* const c = m.find(k);
      return c != nullptr ? std::optional<U64>((*c)->value()) : std::nullopt;
   }
   static std::optional<U64> erase(Map& m, U64 k) {
      auto const c = m.erase(k);
      return c ? std::optional<U64>((*c)->value()) : std::nullopt;
   }
   static void replace(Map& m, U64 k, U64 v) { *m.find(k) = child(k, v); }
   static std::vector<std::pair<U64, U64>> elements(Map const& m) {
      std::vector<std::pair<U64, U64>> all;
      for (ChildPtr const& c : m) {
         all.emplace_back(c->key(), c->value());
      }
      return all;
   }
};

template <class Face>
class KeyedCollection : public testing::Test {
protected:
   void TearDown() override {
      EXPECT_EQ(Tracked::live, 0);
      EXPECT_EQ(Child::live, 0);
   }

   using Model = std::map<U64, U64>;
   void expectEqual(typename Face::Map const& map, Model const& model) {
      ASSERT_EQ(map.size(), model.size());
      auto elements = Face::elements(map);
      std::sort(elements.begin(), elements.end());
      ASSERT_EQ(elements, (std::vector<std::pair<U64, U64>>(model.begin(), model.end())));
   }

   /// Makes random changes with keys below `range`, and compares each result with the model's.
   void change(typename Face::Map& map, Model& model, std::mt19937_64& random, U64 range, int steps,
               unsigned insertions) {
      for (int i = 0; i < steps; ++i) {
         U64 const k = random() % range;
         U64 const v = random() % 1000;
         auto const at = model.find(k);
         std::optional<U64> const known =
               at != model.end() ? std::optional<U64>(at->second) : std::nullopt;
         if (unsigned const what = random() % 16; what < insertions) {
            ASSERT_EQ(Face::insert(map, k, v), model.emplace(k, v).second);
         } else if (what < 14) {
            ASSERT_EQ(Face::erase(map, k), known);
            model.erase(k);
         } else if (what < 15 && known) {
            Face::replace(map, k, v);
            at->second = v;
         } else {
            ASSERT_EQ(Face::find(map, k), known);
            ASSERT_EQ(map.has(keyFor(k)), known.has_value());
         }
         ASSERT_EQ(map.size(), model.size());
      }
   }

   static auto keyFor(U64 k) {
      if constexpr (requires { Face::Key::key(k); }) {
         return Face::Key::key(k);
      } else {
         return k;
      }
   }
};

using Faces =
      testing::Types<ExternalKey<Kiv::HashMap2018<U64, U64, 1>, U64>,
                     ExternalKey<Kiv::HashMap2018<U16, Tracked, 0xDE80331F>, U16>,
                     ExternalKey<Kiv::HashMap2018<Tracked, Tracked, 2>, Tracked>,
                     ExternalKey<Kiv::HashMap2018<Sarn::String, U64, 0x121B02A4>, Sarn::String>,
                     ExternalKey<Kiv::HashMap2018<PoorKey, U64, 4>, PoorKey>, InternalKey, Children,
                     ExternalKey<Kiv::RbTreeMap<U64, U64>, U64>,
                     ExternalKey<Kiv::RbTreeMap<U16, Tracked>, U16>,
                     ExternalKey<Kiv::RbTreeMap<Tracked, Tracked>, Tracked>,
                     ExternalKey<Kiv::RbTreeMap<Sarn::String, U64>, Sarn::String>>;
TYPED_TEST_SUITE(KeyedCollection, Faces);

TYPED_TEST(KeyedCollection, IsOnePointerInSize) {
   EXPECT_EQ(sizeof(typename TypeParam::Map), sizeof(void*));
}

TYPED_TEST(KeyedCollection, StartsEmpty) {
   typename TypeParam::Map map;
   EXPECT_EQ(map.size(), 0u);
   EXPECT_TRUE(map.empty());
   EXPECT_EQ(TypeParam::find(map, 1), std::nullopt);
   EXPECT_EQ(TypeParam::erase(map, 1), std::nullopt);
   EXPECT_TRUE(TypeParam::elements(map).empty());
   map.clear();
   EXPECT_TRUE(map.empty());
}

TYPED_TEST(KeyedCollection, AnInsertionOfAPresentKeyChangesNothing) {
   typename TypeParam::Map map;
   EXPECT_TRUE(TypeParam::insert(map, 7, 70));
   EXPECT_FALSE(TypeParam::insert(map, 7, 71));
   EXPECT_EQ(TypeParam::find(map, 7), 70u);
   EXPECT_EQ(map.size(), 1u);
}

TYPED_TEST(KeyedCollection, AnErasedElementIsGivenBackOnce) {
   typename TypeParam::Map map;
   TypeParam::insert(map, 7, 70);
   EXPECT_EQ(TypeParam::erase(map, 7), 70u);
   EXPECT_EQ(TypeParam::erase(map, 7), std::nullopt);
   EXPECT_TRUE(map.empty());
}

TYPED_TEST(KeyedCollection, AValueIsReplacedInPlace) {
   typename TypeParam::Map map;
   TypeParam::insert(map, 7, 70);
   TypeParam::replace(map, 7, 71);
   EXPECT_EQ(TypeParam::find(map, 7), 71u);
}

TYPED_TEST(KeyedCollection, ElementsAreFoundAtEverySizeOnTheWayUpAndDown) {
   typename TypeParam::Map map;
   constexpr U64 count = 300;
   for (U64 i = 0; i < count; ++i) {
      ASSERT_TRUE(TypeParam::insert(map, i, i * 10));
      for (U64 j = 0; j <= count; ++j) {
         ASSERT_EQ(TypeParam::find(map, j).has_value(), j <= i);
      }
   }
   for (U64 i = 0; i < count; ++i) {
      ASSERT_EQ(TypeParam::erase(map, i), i * 10);
      for (U64 j = 0; j < count; ++j) {
         ASSERT_EQ(TypeParam::find(map, j).has_value(), j > i);
      }
   }
   EXPECT_TRUE(map.empty());
}

TYPED_TEST(KeyedCollection, ClearingDropsEverythingAndLeavesAUsableCollection) {
   typename TypeParam::Map map;
   for (U64 i = 0; i < 100; ++i) {
      TypeParam::insert(map, i, i);
   }
   map.clear();
   EXPECT_TRUE(map.empty());
   EXPECT_EQ(TypeParam::find(map, 5), std::nullopt);
   EXPECT_TRUE(TypeParam::insert(map, 5, 50));
   EXPECT_EQ(TypeParam::find(map, 5), 50u);
}

TYPED_TEST(KeyedCollection, MovingTakesTheElementsAlong) {
   typename TypeParam::Map map;
   TypeParam::insert(map, 1, 10);
   TypeParam::insert(map, 2, 20);
   typename TypeParam::Map taken = std::move(map);
   EXPECT_EQ(taken.size(), 2u);
   EXPECT_TRUE(map.empty());  // NOLINT(bugprone-use-after-move): that is what is tested
   typename TypeParam::Map assigned;
   TypeParam::insert(assigned, 3, 30);
   assigned = std::move(taken);
   EXPECT_EQ(TypeParam::find(assigned, 2), 20u);
   EXPECT_EQ(TypeParam::find(assigned, 3), std::nullopt);
}

TYPED_TEST(KeyedCollection, LongRandomRunsAgreeWithTheStandardMap) {
   for (U64 const range : {U64{3}, U64{12}, U64{100}, U64{3000}}) {
      U64 const seed = std::random_device()();
      SCOPED_TRACE("seed " + std::to_string(seed) + " range " + std::to_string(range));
      std::mt19937_64 random(seed);
      typename TypeParam::Map map;
      typename TestFixture::Model model;
      for (int round = 0; round < 6; ++round) {
         // Grows, stays, shrinks, twice.
         unsigned const insertions[] = {12, 7, 2};
         this->change(map, model, random, range, 1500, insertions[round % 3]);
         ASSERT_NO_FATAL_FAILURE(this->expectEqual(map, model));
      }
   }
}

TYPED_TEST(KeyedCollection, TheTrackerCountsWhatIsHeld) {
   Kiv::AllocTrackTypeInfo& tracker = Kiv::allocTrackerOf<typename TypeParam::Map>;
   if constexpr (std::is_same_v<TypeParam, Children>) {
      EXPECT_NE(tracker.typeName().find("HashMap2018NodeInternalKey"), std::string_view::npos);
   }
   U64 const before = tracker.liveObjects();
   {
      typename TypeParam::Map map;
      for (U64 i = 0; i < 100; ++i) {
         TypeParam::insert(map, i, i);
      }
      EXPECT_GT(tracker.liveObjects(), before);
      EXPECT_GT(tracker.liveBytes(), 100u);
   }
   EXPECT_EQ(tracker.liveObjects(), before);
   EXPECT_EQ(tracker.liveBytes(), 0u);
}

}  // namespace CollectionTest::CollectionConformanceTesting

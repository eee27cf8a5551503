#include "Kiv/HashMap2018.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Kiv/HashMap2018NodeInternalKey.h"
#include "Kiv/Map/Collection.test.h"
#include "Kiv/Map/HSet.h"

namespace CollectionTest::HashMap2018Testing {

using Map = Kiv::HashMap2018<U64, U64, 0x5B266113>;

TEST(HashMap2018, HoldsNoMemoryBeforeTheFirstAndAfterTheLastElement) {
   Map map;
   EXPECT_EQ(map.memoryUsed(), 0u);
   map.insert(1, 1);
   EXPECT_GT(map.memoryUsed(), 0u);
   map.erase(1);
   EXPECT_EQ(map.memoryUsed(), 0u);
   map.reserve(100);
   map.clear();
   EXPECT_EQ(map.memoryUsed(), 0u);
}

TEST(HashMap2018, GrowsAndShrinksWithItsContents) {
   Map map;
   constexpr U64 count = 10'000;
   for (U64 i = 0; i < count; ++i) {
      map.insert(i, i);
   }
   std::size_t const full = map.memoryUsed();
   // At most three quarters full, at least three eighths: 21 bytes for a slot and its element.
   EXPECT_GT(full, count * 21);
   EXPECT_LT(full, count * 21 * 3);
   for (U64 i = 100; i < count; ++i) {
      map.erase(i);
   }
   EXPECT_LT(map.memoryUsed(), full / 8);
   for (U64 i = 0; i < 100; ++i) {
      ASSERT_NE(map.find(i), nullptr);
   }
}

TEST(HashMap2018, AFewElementsTakeLittleMoreThanThemselves) {
   Map map;
   map.insert(1, 1);
   EXPECT_LE(map.memoryUsed(), 128u);
   map.insert(2, 1);
   EXPECT_LE(map.memoryUsed(), 128u);
   map.insert(3, 1);
   EXPECT_LE(map.memoryUsed(), 176u);
}

TEST(HashMap2018, ReservedRoomIsNotAllocatedAgain) {
   Map map;
   map.reserve(1000);
   std::size_t const room = map.memoryUsed();
   U64 const* first = nullptr;
   for (U64 i = 0; i < 1000; ++i) {
      map.insert(i, i);
      first = first == nullptr ? map.find(0) : first;
   }
   EXPECT_EQ(map.memoryUsed(), room);
   map.reserve(10);
   EXPECT_EQ(map.memoryUsed(), room);
}

TEST(HashMap2018, StructuralChangesAloneChangeTheVersion) {
   Map map;
   map.insert(1, 10);
   U64 const version = map.version();
   *map.find(1) = 11;
   map.insert(1, 12);
   map.erase(2);
   EXPECT_EQ(map.version(), version);
   map.insert(2, 20);
   U64 const grown = map.version();
   EXPECT_NE(grown, version);
   map.erase(2);
   EXPECT_NE(map.version(), grown);
}

TEST(HashMap2018, NoVersionComesBackAfterClearing) {
   Map map;
   map.insert(1, 10);
   U64 const version = map.version();
   map.clear();
   EXPECT_NE(map.version(), version);
   map.insert(1, 10);
   EXPECT_NE(map.version(), version);
}

TEST(HashMap2018, KeysAndValuesMayComeFromTheMapItself) {
   Kiv::HashMap2018<Sarn::String, Sarn::String, 1> map;
   map.insert("origin", "a value that is too long for the string object itself");
   for (int i = 0; i < 200; ++i) {
      // Each insertion may move the value that it copies.
      map.insert("copy " + std::to_string(i), *map.find("origin"));
   }
   for (int i = 0; i < 200; ++i) {
      ASSERT_EQ(*map.find("copy " + std::to_string(i)), *map.find("origin"));
   }
   auto const it = map.iteratorAt("origin");
   EXPECT_TRUE(map.erase(it.key()).has_value());
   EXPECT_EQ(map.find("origin"), nullptr);
}

TEST(HashMap2018, ValuesMayBeMoveOnly) {
   Kiv::HashMap2018<U16, std::unique_ptr<int>, 1> map;
   for (U16 i = 0; i < 50; ++i) {
      map.insert(i, std::make_unique<int>(i));
   }
   std::optional<std::unique_ptr<int>> const taken = map.erase(20);
   ASSERT_TRUE(taken.has_value());
   EXPECT_EQ(**taken, 20);
   EXPECT_EQ(**map.find(30), 30);
}

TEST(HashMap2018, AValueThatIsNotInsertedIsNotTouched) {
   Kiv::HashMap2018<U16, std::unique_ptr<int>, 1> map;
   map.insert(1, std::make_unique<int>(1));
   auto second = std::make_unique<int>(2);
   EXPECT_FALSE(map.insert(1, std::move(second)).second);
   EXPECT_NE(second, nullptr);  // NOLINT(bugprone-use-after-move): that is what is tested
}

TEST(HashMap2018, AHashThatSpreadsNothingCostsTimeButNotMemory) {
   Kiv::HashMap2018<PoorKey, U32, 1> map;
   constexpr U32 count = 2000;
   for (U32 i = 0; i < count; ++i) {
      map.insert({i}, i);
   }
   EXPECT_LT(map.memoryUsed(), std::size_t{count} * 13 * 6);
   for (U32 i = 0; i < count; ++i) {
      ASSERT_EQ(*map.find({i}), i);
   }
   for (U32 i = 0; i < count; i += 2) {
      ASSERT_EQ(map.erase({i}), i);
   }
   for (U32 i = 0; i < count; ++i) {
      ASSERT_EQ(map.has({i}), i % 2 == 1);
   }
}

/// Its copy constructor throws after a given number of copies.
struct Fragile {
   static inline int copiesLeft = -1;

   explicit Fragile(U64 n = 0) : v(n) {}
   Fragile(Fragile const& other) : v(other.v) {
      if (copiesLeft >= 0 && copiesLeft-- == 0) {
         throw std::runtime_error("no copy");
      }
   }
   Fragile(Fragile&&) noexcept = default;
   Fragile& operator=(Fragile const&) = default;
   Fragile& operator=(Fragile&&) noexcept = default;
   U64 v;
   Tracked tracked;
};

TEST(HashMap2018, AnInsertionThatThrowsChangesNothing) {
   {
      Kiv::HashMap2018<U64, Fragile, 1> map;
      for (U64 i = 0; i < 40; ++i) {
         Fragile const value(i);
         U64 const version = map.version();
         Fragile::copiesLeft = 0;
         EXPECT_THROW(map.insert(i, value), std::runtime_error);
         Fragile::copiesLeft = -1;
         EXPECT_EQ(map.version(), version);
         EXPECT_EQ(map.find(i), nullptr);
         EXPECT_TRUE(map.insert(i, value).second);
      }
      EXPECT_EQ(map.size(), 40u);
   }
   EXPECT_EQ(Tracked::live, 0);
}

/// Reads the map in its destructor.
struct Witness {
   Kiv::HashMap2018<U64, Witness, 1>* map = nullptr;
   std::vector<std::size_t>* seen = nullptr;
   Witness(Kiv::HashMap2018<U64, Witness, 1>* m, std::vector<std::size_t>* s) : map(m), seen(s) {}
   Witness(Witness&& other) noexcept : map(other.map), seen(std::exchange(other.seen, nullptr)) {}
   Witness& operator=(Witness&&) = delete;
   ~Witness() {
      if (seen != nullptr) {
         seen->push_back(map->size());
      }
   }
};

TEST(HashMap2018, DestructorsOfElementsSeeTheMapWithoutThem) {
   std::vector<std::size_t> seen;
   Kiv::HashMap2018<U64, Witness, 1> map;
   map.insert(1, Witness(&map, &seen));
   map.insert(2, Witness(&map, &seen));
   map.insert(3, Witness(&map, &seen));
   map.erase(2);
   EXPECT_EQ(seen, (std::vector<std::size_t>{2}));
   map.clear();
   EXPECT_EQ(seen, (std::vector<std::size_t>{2, 0, 0}));
}

TEST(HashMap2018, ErasingAChildReleasesIt) {
   Kiv::HashMap2018NodeInternalKey<ChildPtr, ChildKeyFunktor, 1> children;
   ChildPtr const kept(new Child(1, 10), Sarn::adopt);
   children.insert(kept);
   children.insert(ChildPtr(new Child(2, 20), Sarn::adopt));
   EXPECT_EQ(kept->userCount(), 2u);
   children.erase(2);
   EXPECT_EQ(Child::live, 1);
   children.clear();
   EXPECT_EQ(kept->userCount(), 1u);
}

TEST(HashMap2018, AKeyFunktorMayMakeItsKey) {
   struct LowByte {
      U8 operator()(U64 const& v) const { return static_cast<U8>(v); }
   };
   Kiv::HashMap2018NodeInternalKey<U64, LowByte, 1> map;
   EXPECT_TRUE(map.insert(U64{0x101}).second);
   EXPECT_FALSE(map.insert(U64{0x201}).second);
   EXPECT_EQ(*map.find(1), 0x101u);
   auto const it = map.iterator();
   EXPECT_EQ(it.key(), 1);
   map.erase(1);
   EXPECT_EQ(it.key(), 1);
}

TEST(HashMap2018UnsafeIterator, VisitsEachElementOnce) {
   for (U64 const count : std::vector<U64>{0, 1, 2, 3, 8, 9, 16, 17, 1000}) {
      Map map;
      for (U64 i = 0; i < count; ++i) {
         map.insert(i, i * 2);
      }
      std::vector<bool> seen(count);
      for (auto const& [k, v] : map) {
         ASSERT_FALSE(seen[k]);
         ASSERT_EQ(v, k * 2);
         seen[k] = true;
      }
      ASSERT_EQ(std::count(seen.begin(), seen.end(), true), static_cast<std::ptrdiff_t>(count));
   }
}

TEST(HashMap2018UnsafeIterator, ReplacingAValueIsNoChange) {
   Map map;
   map.insert(1, 10);
   auto const it = map.begin();
   *map.find(1) = 11;
   EXPECT_EQ(it->value, 11u);
}

TEST(HashMap2018UnsafeIterator, ChecksThatTheMapHasNotChanged) {
   Map map;
   map.insert(1, 10);
   map.insert(2, 20);
   auto it = map.begin();
   map.insert(3, 30);
   EXPECT_DEATH(static_cast<void>(*it), "version_ == hashMap_->version\\(\\)");
   EXPECT_DEATH(++it, "version_ == hashMap_->version\\(\\)");
   auto again = map.begin();
   map.clear();
   EXPECT_DEATH(++again, "version_ == hashMap_->version\\(\\)");
}

TEST(HashMap2018, ShrinksToTheMemoryOfAMapThatWasAlwaysSmall) {
   Map small;
   for (U64 key = 0; key < 6; ++key) {
      small.insert(key, key);
   }
   Map map;
   for (U64 key = 0; key < 60; ++key) {
      map.insert(key, key);
   }
   std::size_t const full = map.memoryUsed();
   for (U64 key = 0; key < 57; ++key) {
      map.erase(key);
   }
   EXPECT_LT(map.memoryUsed(), full);
   EXPECT_EQ(map.memoryUsed(), small.memoryUsed());
}

TEST(BucketArray, ChecksThatAnElementIsShiftedByOneBlock) {
   using Kiv::Impl::BucketArray;
   using Kiv::Impl::HashSizeStep;
   auto& tracker = Kiv::allocTrackerOf<BucketArray>;
   auto const step = HashSizeStep::forCount(40);
   BucketArray* const array = BucketArray::create(tracker, step, step.slots(), 8, 8);
   array->tags()[2] = 5;
   array->moveByOne(19, 2);
   EXPECT_EQ(array->tags()[19], 5);
   array->moveByOne(15, 19);
   EXPECT_EQ(array->tags()[15], 5);
   EXPECT_DEATH(array->moveByOne(3, 2), "slotsToShift == 1");
   EXPECT_DEATH(array->moveByOne(32, 15), "slotsToShift == 1");
   array->release(tracker, 8, 8);
}

}  // namespace CollectionTest::HashMap2018Testing

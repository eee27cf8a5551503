// What collections allocate, and what they do not: this program's `operator new` counts.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "Kiv/HashMap2018.h"
#include "Kiv/HashMap2018NodeInternalKey.h"
#include "Kiv/Map/Collection.test.h"
#include "Kiv/Map/HSet.h"
#include "Kiv/Map/RbTreeMap.h"
#include "Sarn/RQueue.h"
#include "Sarn/Slab.h"
#include "tests/CountedNew.h"

namespace CollectionTest::CollectionMemoryTesting {

using CountedNew::allocationsOf;

TEST(CollectionMemory, TheCounterCounts) {
   EXPECT_GE(allocationsOf([] { delete new std::string(100, 'x'); }), 2);
}

TEST(CollectionMemory, LookingUpAndReplacingInPlaceAllocateNothing) {
   Kiv::HashMap2018<Sarn::String, U64, 1> hashed;
   Kiv::RbTreeMap<Sarn::String, U64> ordered;
   Kiv::HSet<Sarn::String> set;
   Kiv::HashMap2018NodeInternalKey<ChildPtr, ChildKeyFunktor, 1> children;
   std::vector<Sarn::String> keys;
   for (U64 i = 0; i < 500; ++i) {
      keys.push_back("an interface name that needs memory of its own " + std::to_string(i));
      hashed.insert(keys.back(), i);
      ordered.insert(keys.back(), i);
      set.insert(keys.back());
      children.insert(ChildPtr(new Child(i, i), Sarn::adopt));
   }
   EXPECT_EQ(allocationsOf([&] {
                U64 wrong = 0;
                for (U64 i = 0; i < 500; ++i) {
                   std::string_view const key = keys[i];
                   *hashed.find(key) += 1;
                   *ordered.find(key) += 1;
                   wrong += *hashed.find(key) != i + 1 || *ordered.find(key) != i + 1;
                   wrong += !set.has(key) || set.has("another name that needs memory of its own");
                   wrong += (*children.find(i))->value() != i;
                   wrong += hashed.insert(key, U64{0}).second || set.insert(key);
                }
                EXPECT_EQ(wrong, 0u);
             }),
             0);
}

TEST(CollectionMemory, WalkingAllocatesNothing) {
   Kiv::HashMap2018<Sarn::String, U64, 1> map;
   Kiv::RbTreeMap<U64, U64> ordered;
   for (U64 i = 0; i < 500; ++i) {
      map.insert("an interface name that needs memory of its own " + std::to_string(i), i);
      ordered.insert(i, i);
   }
   EXPECT_EQ(allocationsOf([&] {
                U64 visited = 0;
                for (auto const& [key, value] : map) {
                   visited += value < 500;
                }
                for (auto it = map.iterator(); it; ++it) {
                   visited += it.key().size() > 20;
                }
                for (auto const& [key, value] : ordered) {
                   visited += key == value;
                }
                EXPECT_EQ(visited, 1500u);
             }),
             0);
}

TEST(CollectionMemory, ComingAndGoingAtASteadySizeAllocatesNothing) {
   if (Sarn::slabPassesThrough) {
      GTEST_SKIP() << "slabs are left out under AddressSanitizer";
   }
   Kiv::HashMap2018<U64, U64, 1> map;
   Kiv::RbTreeMap<U64, U64> ordered;
   Sarn::RQueue<double> queue;
   Kiv::HSet<U16> set;
   auto const round = [&](U64 i) {
      map.insert(i + 40, i);
      map.erase(i);
      ordered.insert(i + 40, i);
      ordered.erase(i);
      queue.enq(1.0);
      if (queue.size() > 10) {
         queue.deq();
      }
      set.insert(static_cast<U16>(i));  // from empty, and back to it
      set.erase(static_cast<U16>(i));
   };
   for (U64 i = 0; i < 40; ++i) {
      map.insert(i, i);
      ordered.insert(i, i);
   }
   for (U64 i = 0; i < 100; ++i) {
      round(i);
   }
   EXPECT_EQ(allocationsOf([&] {
                for (U64 i = 100; i < 5000; ++i) {
                   round(i);
                }
             }),
             0);
}

}  // namespace CollectionTest::CollectionMemoryTesting

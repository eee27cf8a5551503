#include "Sarn/Slab.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Sarn/AllocTrack.h"

namespace {

using Sarn::Slab;

std::uintptr_t address(void const* p) {
   return reinterpret_cast<std::uintptr_t>(p);
}

TEST(Slab, FreshSlotsLieOneAfterTheOther) {
   Slab slab(48);
   std::vector<void*> slots;
   for (int i = 0; i < 600; ++i) {
      slots.push_back(slab.allocate());
      EXPECT_EQ(address(slots.back()) % Sarn::slabAlignment, 0u);
      if (i > 0) {
         ASSERT_EQ(address(slots[static_cast<std::size_t>(i)]) -
                         address(slots[static_cast<std::size_t>(i) - 1]),
                   48u);
      }
   }
   EXPECT_EQ(slab.chunks(), 1u);
   for (void* const p : slots) {
      slab.free(p);
   }
   slab.releaseEmpty();
}

TEST(Slab, AFreedSlotIsTheNextToBeUsed) {
   Slab slab(16);
   void* const first = slab.allocate();
   void* const second = slab.allocate();
   slab.free(first);
   EXPECT_EQ(slab.allocate(), first);
   slab.free(first);
   slab.free(second);
   slab.releaseEmpty();
}

TEST(Slab, KeepsOneEmptyChunkAndGivesTheOthersBack) {
   Slab slab(2048);
   EXPECT_EQ(slab.chunks(), 0u);
   std::vector<void*> slots;
   slots.reserve(200);
   for (int i = 0; i < 200; ++i) {
      slots.push_back(slab.allocate());
   }
   U32 const full = slab.chunks();
   EXPECT_GE(full, 6u);
   for (void* const p : slots) {
      slab.free(p);
   }
   EXPECT_EQ(slab.chunks(), 1u);
   void* const p = slab.allocate();
   EXPECT_EQ(slab.chunks(), 1u);
   slab.free(p);
   slab.releaseEmpty();
   EXPECT_EQ(slab.chunks(), 0u);
}

TEST(Slab, AChunkThatWasEmptiedIsInOrderAgain) {
   Slab slab(64);
   std::vector<void*> slots;
   slots.reserve(100);
   for (int i = 0; i < 100; ++i) {
      slots.push_back(slab.allocate());
   }
   std::vector<void*> shuffled = slots;
   std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(5));
   for (void* const p : shuffled) {
      slab.free(p);
   }
   for (void* const p : slots) {
      EXPECT_EQ(slab.allocate(), p);
   }
   for (void* const p : slots) {
      slab.free(p);
   }
   slab.releaseEmpty();
}

TEST(Slab, SlotsNeverOverlapOverLongRandomRuns) {
   unsigned const seed = std::random_device()();
   SCOPED_TRACE("seed " + std::to_string(seed));
   std::mt19937 random(seed);
   for (U32 const size : {16u, 112u, 1040u}) {
      Slab slab(size);
      std::vector<std::pair<unsigned char*, unsigned char>> live;
      for (int i = 0; i < 20'000; ++i) {
         bool const growing = i / 2500 % 2 == 0;
         if (live.empty() || random() % 16 < (growing ? 11u : 5u)) {
            auto* const p = static_cast<unsigned char*>(slab.allocate());
            auto const mark = static_cast<unsigned char>(random());
            std::memset(p, mark, size);
            live.emplace_back(p, mark);
         } else {
            std::swap(live[random() % live.size()], live.back());
            auto const [p, mark] = live.back();
            live.pop_back();
            ASSERT_TRUE(std::all_of(p, p + size, [m = mark](unsigned char c) { return c == m; }));
            slab.free(p);
         }
      }
      for (auto const& [p, mark] : live) {
         slab.free(p);
      }
      EXPECT_EQ(slab.chunks(), 1u);
      slab.releaseEmpty();
   }
}

TEST(Slab, MayBeUsedFromSeveralThreads) {
   Slab slab(32);
   auto const work = [&slab](unsigned char mark) {
      std::mt19937 random(mark);
      std::vector<unsigned char*> live;
      for (int i = 0; i < 20'000; ++i) {
         if (live.size() < 100 && random() % 2 == 0) {
            live.push_back(static_cast<unsigned char*>(slab.allocate()));
            std::memset(live.back(), mark, 32);
         } else if (!live.empty()) {
            unsigned char* const p = live.back();
            live.pop_back();
            if (!std::all_of(p, p + 32, [mark](unsigned char c) { return c == mark; })) {
               return false;
            }
            slab.free(p);
         }
      }
      for (unsigned char* const p : live) {
         slab.free(p);
      }
      return true;
   };
   bool good[4] = {};
   std::vector<std::thread> threads;
   threads.reserve(4);
   for (unsigned i = 0; i < 4; ++i) {
      threads.emplace_back([&, i] { good[i] = work(static_cast<unsigned char>(i + 1)); });
   }
   for (std::thread& t : threads) {
      t.join();
   }
   EXPECT_TRUE(std::all_of(std::begin(good), std::end(good), std::identity()));
   EXPECT_EQ(slab.chunks(), 1u);
   slab.releaseEmpty();
}

TEST(Slab, EverySizeAndAlignmentIsServed) {
   for (std::size_t size = 0; size < 5000; size += 7) {
      for (std::size_t const alignment : {std::size_t{1}, std::size_t{16}, std::size_t{64}}) {
         void* const p = Sarn::slabAllocate(size, alignment);
         ASSERT_NE(p, nullptr);
         ASSERT_EQ(address(p) % alignment, 0u);
         std::memset(p, 1, size);
         Sarn::slabFree(p, size, alignment);
      }
   }
   Sarn::slabFree(nullptr, 16);
   Sarn::slabFree(nullptr, 5000);
}

Sarn::AllocTrackRecord records[3] = {Sarn::AllocTrackRecord("First"),
                                     Sarn::AllocTrackRecord("Second"),
                                     Sarn::AllocTrackRecord("NeverUsed")};

std::multiset<std::string> knownNames() {
   std::multiset<std::string> names;
   Sarn::AllocTrackRecord::forEach([&](auto const& r) { names.insert(std::string(r.typeName())); });
   return names;
}

TEST(AllocTrackRecord, CountsLiveObjectsAndBytes) {
   Sarn::AllocTrackRecord& record = records[0];
   record.allocated(100, 16);
   record.allocated(50, 16);
   EXPECT_EQ(record.liveObjects(), 2u);
   EXPECT_EQ(record.liveBytes(), 150u);
   EXPECT_EQ(record.alignment(), 16u);
   record.released(100);
   EXPECT_EQ(record.liveObjects(), 1u);
   EXPECT_EQ(record.liveBytes(), 50u);
   record.released(50);
   EXPECT_EQ(record.liveObjects(), 0u);
   EXPECT_EQ(record.allocations(), 2u);
}

TEST(AllocTrackRecord, IsListedOnceItHasBeenUsed) {
   records[0].allocated(8, 8);
   records[0].released(8);
   records[1].allocated(8, 8);
   records[1].released(8);
   std::multiset<std::string> const names = knownNames();
   EXPECT_EQ(names.count("First"), 1u);
   EXPECT_EQ(names.count("Second"), 1u);
   EXPECT_EQ(names.count("NeverUsed"), 0u);
}

TEST(AllocTrackRecord, IsForgottenWithItsSharedObject) {
   records[0].allocated(8, 8);
   records[1].allocated(8, 8);
   Sarn::AllocTrackRecord::forget(&records[0], &records[1]);
   EXPECT_EQ(knownNames().count("First"), 0u);
   EXPECT_EQ(knownNames().count("Second"), 1u);
   records[0].allocated(8, 8);
   EXPECT_EQ(knownNames().count("First"), 1u);
   for (int i = 0; i < 2; ++i) {
      while (records[i].liveObjects() != 0) {
         records[i].released(8);
      }
   }
}

TEST(AllocTrackRecord, CountsExactlyFromSeveralThreads) {
   static Sarn::AllocTrackRecord record("Shared");
   std::vector<std::thread> threads;
   threads.reserve(4);
   for (int i = 0; i < 4; ++i) {
      threads.emplace_back([] {
         for (int n = 0; n < 10'000; ++n) {
            record.allocated(16, 8);
            if (n % 2 == 0) {
               record.released(16);
            }
         }
      });
   }
   for (std::thread& t : threads) {
      t.join();
   }
   EXPECT_EQ(record.liveObjects(), 20'000u);
   EXPECT_EQ(record.liveBytes(), 320'000u);
   EXPECT_EQ(knownNames().count("Shared"), 1u);
}

template <class T>
struct Named {};

TEST(TypeName, IsThatOfTheType) {
   EXPECT_EQ(Sarn::typeNameOf<int>(), "int");
   std::string_view const name = Sarn::typeNameOf<Named<Named<int[3]>>>();
   EXPECT_NE(name.find("Named<"), std::string_view::npos);
   EXPECT_NE(name.find("int"), std::string_view::npos);
   EXPECT_EQ(name.back(), '>');
}

}  // namespace

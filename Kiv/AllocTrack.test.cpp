// Allocation counts by type, read while the program runs.
#include <gtest/gtest.h>

#include <map>

#include "KivTest/Observer.test.h"
#include "KivTest/TestTypes.h"

namespace {

using namespace KivTest;

struct Live {
   U64 objects;
   U64 bytes;
   bool operator==(Live const&) const = default;
};

std::map<std::string, Live> everything() {
   std::map<std::string, Live> all;
   Sarn::AllocTrackRecord::forEach([&](Sarn::AllocTrackRecord const& record) {
      Live& live = all[std::string(record.typeName())];
      live.objects += record.liveObjects();
      live.bytes += record.liveBytes();
   });
   return all;
}

Live of(Kiv::AllocTrackTypeInfo const& info) {
   return {info.liveObjects(), info.liveBytes()};
}

TEST(AllocTrack, CountsObjectsAndBytesOfEachType) {
   Live const before = of(Leaf::memAllocationTracker_);
   Sarn::Ptr<Stem> const root = stemFactory("test");
   for (U32 i = 0; i != 10; ++i) {
      root->leafIs(i, true, Opaque());
   }
   EXPECT_EQ(of(Leaf::memAllocationTracker_),
             (Live{before.objects + 10, before.bytes + 10 * sizeof(Leaf)}));
   root->leafDel(3);
   EXPECT_EQ(of(Leaf::memAllocationTracker_),
             (Live{before.objects + 9, before.bytes + 9 * sizeof(Leaf)}));
   root->leafDelAll();
   EXPECT_EQ(of(Leaf::memAllocationTracker_), before);
}

TEST(AllocTrack, IsFoundByWalkingAllThatIsTracked) {
   Sarn::Ptr<Stem> const root = stemFactory("test");
   auto const all = everything();
   ASSERT_TRUE(all.contains("KivTest::Stem"));
   EXPECT_GE(all.at("KivTest::Stem").objects, 1u);
   EXPECT_GE(all.at("KivTest::Stem").bytes, sizeof(Stem));
   EXPECT_EQ(&Stem::kivTypeImpl.tracker(), &Stem::memAllocationTracker_);
}

/// A tree with members of every kind leaves nothing behind.
TEST(AllocTrack, ComesBackToWhatItWas) {
   auto fill = [] {
      Sarn::Ptr<Stem> const root = stemFactory("test");
      root->coreIs();
      root->badgeIs("a badge with a name that is longer than the string object itself");
      for (U32 i = 0; i != 50; ++i) {
         root->leafIs(i, true, Opaque())->twigIs(Level::low);
         root->byNumberIs(i, "n");
         root->byTextIs(std::to_string(i), i);
         root->byPairIs(Pair(i, 0), Pair());
         root->recordIs(Record(i, Pair(), std::nullopt, "", Colour::red, 0));
         root->sortedIs(static_cast<S32>(i), "s");
         root->sortedTextIs(std::to_string(i), Colour::red);
         root->samplesEnq(i);
      }
   };
   fill();  // enters each type's record into the list
   auto const before = everything();
   fill();
   EXPECT_EQ(everything(), before);
}

TEST(AllocTrack, TracksBucketArraysNodesAndChunksOfCollections) {
   Sarn::Ptr<Stem> const root = stemFactory("test");
   auto total = [] {
      U64 bytes = 0;
      for (auto const& [name, live] : everything()) {
         bytes += live.bytes;
      }
      return bytes;
   };
   U64 last = total();
   auto grew = [&] {
      U64 const now = total();
      bool const more = now > last;
      last = now;
      return more;
   };
   root->byNumberIs(1, "");
   EXPECT_TRUE(grew()) << "bucket array";
   root->sortedIs(1, "");
   EXPECT_TRUE(grew()) << "node";
   root->samplesEnq(1);
   EXPECT_TRUE(grew()) << "chunk";
}

}  // namespace

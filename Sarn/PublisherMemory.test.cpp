// What observers cost: the program's `operator new` counts.
#include <gtest/gtest.h>

#include "Sarn/Publisher.test.h"
#include "tests/CountedNew.h"

namespace {

using CountedNew::allocations;
using CountedNew::blocks;
using Sarn::Scope;

/// Counts only, so that it allocates nothing itself.
struct Counter : Sarn::Observer {
   void onChange(Sarn::Change const&) override {
      ++count;
      if (again != nullptr) {
         again->observerDel(*this);
         again->observerAdd(*this);
      }
      if (leave != nullptr) {
         leave->observerDel(*this);
      }
   }
   int count = 0;
   SarnTest::Source* again = nullptr;
   SarnTest::Source* leave = nullptr;
};

TEST(PublisherMemory, APublisherIsTwoPointersAndAByte) {
   EXPECT_LE(sizeof(Sarn::Publisher), 3 * sizeof(void*));
}

TEST(PublisherMemory, NothingIsAllocatedWithoutObservers) {
   SarnTest::Source source("s");
   long const before = allocations();
   source.change(1);
   EXPECT_EQ(allocations(), before);
}

TEST(PublisherMemory, ThePublicationsThemselvesAllocateNothing) {
   SarnTest::Source above("a");
   SarnTest::Source source("s");
   source.parentIs(&above);
   Counter own;
   Counter subtree;
   source.observerAdd(own);
   above.observerAdd(subtree, Scope::subtree);
   long const before = allocations();
   for (int i = 0; i != 1000; ++i) {
      source.change(1);
   }
   EXPECT_EQ(allocations(), before);
   EXPECT_EQ(own.count, 1000);
   EXPECT_EQ(subtree.count, 1000);
}

TEST(PublisherMemory, TheListGoesWithTheLastObserver) {
   SarnTest::Source source("s");
   Counter one;
   Counter two;
   long const before = blocks();
   source.observerAdd(one);
   source.observerAdd(two, Scope::subtree);
   EXPECT_GT(blocks(), before);
   source.observerDel(one);
   EXPECT_GT(blocks(), before);
   source.observerDel(two, Scope::subtree);
   EXPECT_EQ(blocks(), before);
}

TEST(PublisherMemory, TheListGoesWithTheLastObserverThatRemovesItselfInside) {
   SarnTest::Source source("s");
   Counter one;
   one.leave = &source;
   long const before = blocks();
   source.observerAdd(one);
   source.change(1);
   EXPECT_EQ(one.count, 1);
   EXPECT_EQ(blocks(), before);
}

/// An observer that asks for one more change each time must not make the list grow.
TEST(PublisherMemory, ComingAndGoingInsideNotificationsDoesNotGrowTheList) {
   SarnTest::Source source("s");
   Counter stays;
   Counter comes;
   comes.again = &source;
   source.observerAdd(stays);
   source.observerAdd(comes);
   source.change(1);
   long const before = allocations();
   for (int i = 0; i != 1000; ++i) {
      source.change(1);
   }
   EXPECT_EQ(comes.count, 1001);
   EXPECT_EQ(stays.count, 1001);
   EXPECT_EQ(allocations(), before);
}

TEST(PublisherMemory, AListWithObserversGoesWithItsPublisher) {
   Counter one;
   long const before = blocks();
   {
      SarnTest::Source source("s");
      source.observerAdd(one);
   }
   EXPECT_EQ(blocks(), before);
}

}  // namespace

#include "Sarn/Node.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "Sarn/Ptr.h"

namespace {

/// A node that counts how often it was told that its last user has gone.
class Watched : public Sarn::Node {
public:
   explicit Watched(int& lastUserGone) : lastUserGone_(lastUserGone) {}

protected:
   void lastUserGoneImpl() noexcept override {
      ++lastUserGone_;
      Node::lastUserGoneImpl();
   }

private:
   int& lastUserGone_;
};

TEST(Node, UsersTakeAllBitsOfTheCountWordButTwo) {
   EXPECT_EQ(Sarn::Node::userMask, 0x9fffffffu);
   EXPECT_EQ(Sarn::Node::flagMask, 0x60000000u);
}

TEST(Node, HasOneUserWhenFresh) {
   int gone = 0;
   auto* const node = new Watched(gone);
   EXPECT_EQ(node->userCount(), 1u);
   EXPECT_EQ(node->nodeFlags(), 0u);
   node->userDec();
   EXPECT_EQ(gone, 1);
}

TEST(Node, GoesWithItsLastUserAndNotBefore) {
   int gone = 0;
   auto* const node = new Watched(gone);
   node->userInc();
   node->userInc();
   EXPECT_EQ(node->userCount(), 3u);
   node->userDec();
   node->userDec();
   EXPECT_EQ(node->userCount(), 1u);
   EXPECT_EQ(gone, 0);
   node->userDec();
   EXPECT_EQ(gone, 1);
}

TEST(Node, FlagsNeitherCountNorAreCountedOver) {
   int gone = 0;
   auto* const node = new Watched(gone);
   for (U32 const flags : {0x20000000u, 0x40000000u, 0x60000000u, 0u, 0x60000000u}) {
      node->nodeFlagsIs(flags);
      node->userInc();
      EXPECT_EQ(node->nodeFlags(), flags);
      EXPECT_EQ(node->userCount(), 2u);
      node->userDec();
      EXPECT_EQ(node->nodeFlags(), flags);
      EXPECT_EQ(node->userCount(), 1u);
   }
   EXPECT_EQ(gone, 0);
   node->userDec();
   EXPECT_EQ(gone, 1) << "flags held the node";
}

TEST(Node, KeepsItsFlagsThroughManyUsers) {
   int gone = 0;
   auto* const node = new Watched(gone);
   node->nodeFlagsIs(0x40000000);
   constexpr U32 many = 100000;
   for (U32 i = 0; i != many; ++i) {
      node->userInc();
   }
   EXPECT_EQ(node->userCount(), many + 1);
   EXPECT_EQ(node->nodeFlags(), 0x40000000u);
   for (U32 i = 0; i != many + 1; ++i) {
      node->userDec();
   }
   EXPECT_EQ(gone, 1);
}

TEST(Node, KnowsThatThreadsExistFromTheFirstOneOn) {
   bool seen = false;
   std::thread([&seen] { seen = Sarn::threadsExist(); }).join();
   EXPECT_TRUE(seen);
}

/// Counted plainly before the first thread, atomically by many at once, then to the end.
TEST(Node, LosesNoCountBetweenThreads) {
   int gone = 0;
   Sarn::Ptr<Watched> const node(new Watched(gone), Sarn::adopt);
   node->nodeFlagsIs(0x20000000);
   Sarn::Ptr<Watched> const before = node;
   std::vector<std::thread> threads;
   for (int t = 0; t != 4; ++t) {
      threads.emplace_back([&node] {
         for (int i = 0; i != 20000; ++i) {
            Sarn::Ptr<Watched> const one = node;
            Sarn::Ptr<Watched> const other = one;
         }
      });
   }
   for (std::thread& thread : threads) {
      thread.join();
   }
   EXPECT_EQ(node->userCount(), 2u);
   EXPECT_EQ(node->nodeFlags(), 0x20000000u);
   EXPECT_EQ(gone, 0);
}

/// Whichever thread comes last destroys the node, once, and sees what the others wrote to it.
TEST(Node, IsDestroyedOnceByTheThreadThatComesLast) {
   struct Slots : Watched {
      using Watched::Watched;
      ~Slots() override {
         for (int const value : values) {
            EXPECT_EQ(value, 7);
         }
      }
      int values[4] = {};
   };
   for (int round = 0; round != 200; ++round) {
      int gone = 0;
      {
         Sarn::Ptr<Slots> node(new Slots(gone), Sarn::adopt);
         std::vector<std::thread> threads;
         for (int t = 0; t != 4; ++t) {
            threads.emplace_back([own = node, t]() mutable {
               own->values[t] = 7;
               own.reset();
            });
         }
         node.reset();
         for (std::thread& thread : threads) {
            thread.join();
         }
      }
      ASSERT_EQ(gone, 1);
   }
}

}  // namespace

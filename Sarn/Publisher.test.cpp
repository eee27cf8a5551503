#include "Sarn/Publisher.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <time.h>

#include <array>
#include <memory>
#include <stdexcept>

#include "Sarn/Publisher.test.h"

namespace {

using Sarn::Change;
using Sarn::Scope;
using SarnTest::Scripted;
using SarnTest::Source;

/// Three observers, a root, and a child with a child of its own.
class Publisher : public testing::Test {
protected:
   Publisher() {
      child.parentIs(&root);
      leaf.parentIs(&child);
   }

   /// What was told since the last call.
   std::string told() {
      std::string all;
      for (std::string const& one : log_) {
         all += (all.empty() ? "" : " ") + one;
      }
      log_.clear();
      return all;
   }

   std::vector<std::string> log_;
   Scripted a{"a", log_};
   Scripted b{"b", log_};
   Scripted c{"c", log_};
   Source root{"root"};
   Source child{"child"};
   Source leaf{"leaf"};
};

TEST_F(Publisher, TellsNobodyWithoutObservers) {
   EXPECT_FALSE(root.watched());
   root.change(258);
   EXPECT_EQ(told(), "");
}

TEST_F(Publisher, HandsOverSourceIdKeyOldValueAndComparison) {
   int key = 0;
   int old = 0;
   Sarn::KeyCompare const compare = [](void const*, void const*) { return true; };
   a.script = [&](Change const& change) {
      EXPECT_EQ(&change.source, &child);
      EXPECT_EQ(change.attributeId, 300);
      EXPECT_EQ(change.key, &key);
      EXPECT_EQ(change.oldValue, &old);
      EXPECT_EQ(change.keyCompare, compare);
   };
   child.observerAdd(a);
   child.publishChangeRecursive(300, &key, &old, compare);
   EXPECT_EQ(told(), "a:child.300");
}

TEST_F(Publisher, TellsInTheOrderOfRegistration) {
   root.observerAdd(b);
   root.observerAdd(a);
   root.observerAdd(c);
   root.change(1);
   EXPECT_EQ(told(), "b:root.1 a:root.1 c:root.1");
   EXPECT_TRUE(root.observerDel(a));
   EXPECT_FALSE(root.observerDel(a));
   root.observerAddFirst(a);
   root.change(2);
   EXPECT_EQ(told(), "a:root.2 b:root.2 c:root.2");
}

TEST_F(Publisher, ReachesSubtreeObserversFromTheSourceUpwards) {
   root.observerAdd(a, Scope::subtree);
   child.observerAdd(b, Scope::subtree);
   leaf.observerAdd(c);
   leaf.change(1);
   EXPECT_EQ(told(), "c:leaf.1 b:leaf.1 a:leaf.1");
   child.change(2);
   EXPECT_EQ(told(), "b:child.2 a:child.2");
   root.change(3);
   EXPECT_EQ(told(), "a:root.3");
}

TEST_F(Publisher, AnEntityObserverHearsNothingFromBelow) {
   root.observerAdd(a);
   child.observerAdd(b);
   leaf.change(1);
   EXPECT_EQ(told(), "");
   EXPECT_FALSE(leaf.watched());
   child.change(1);
   EXPECT_EQ(told(), "b:child.1");
}

TEST_F(Publisher, TellsOneObserverOnceForEachScope) {
   root.observerAdd(a);
   root.observerAdd(a, Scope::subtree);
   root.change(1);
   EXPECT_EQ(told(), "a:root.1 a:root.1");
   child.change(2);
   EXPECT_EQ(told(), "a:child.2");
   EXPECT_TRUE(root.observerDel(a));
   EXPECT_FALSE(root.hasObserver(a, Scope::entity));
   EXPECT_TRUE(root.hasObserver(a, Scope::subtree));
   root.change(3);
   EXPECT_EQ(told(), "a:root.3");
}

TEST_F(Publisher, IsWatchedOnlyAsLongAsSomebodyWatches) {
   leaf.observerAdd(a);
   EXPECT_TRUE(leaf.watched());
   leaf.observerDel(a);
   EXPECT_FALSE(leaf.watched());
   root.observerAdd(a, Scope::subtree);
   EXPECT_TRUE(leaf.watched());
   EXPECT_TRUE(leaf.subtreeWatched());
   child.parentIs(nullptr);
   EXPECT_FALSE(leaf.watched());
   EXPECT_TRUE(root.watched());
}

TEST_F(Publisher, AnObserverMayRemoveItself) {
   a.script = [&](Change const&) { root.observerDel(a); };
   root.observerAdd(a);
   root.observerAdd(b);
   root.change(1);
   root.change(2);
   EXPECT_EQ(told(), "a:root.1 b:root.1 b:root.2");
}

TEST_F(Publisher, TheLastObserverMayRemoveItself) {
   a.script = [&](Change const&) { root.observerDel(a); };
   root.observerAdd(a);
   root.change(1);
   root.change(2);
   EXPECT_EQ(told(), "a:root.1");
   EXPECT_FALSE(root.watched());
}

TEST_F(Publisher, AnObserverThatWasRemovedInsideIsNotTold) {
   a.script = [&](Change const&) {
      root.observerDel(b);
      child.observerDel(c, Scope::subtree);
   };
   root.observerAdd(a, Scope::subtree);
   root.observerAdd(b, Scope::subtree);
   root.change(1);
   EXPECT_EQ(told(), "a:root.1 b:root.1");
   root.observerDel(b, Scope::subtree);
   root.observerAdd(b);
   child.observerAdd(c, Scope::subtree);
   root.change(2);
   EXPECT_EQ(told(), "a:root.2");
   leaf.change(3);
   EXPECT_EQ(told(), "a:leaf.3");
}

TEST_F(Publisher, AnObserverThatWasAddedInsideIsToldOfLaterChanges) {
   a.script = [&](Change const& change) {
      if (change.attributeId == 1) {
         root.observerAddFirst(b);
         root.observerAdd(c);
         root.change(2);
      }
   };
   root.observerAdd(a);
   root.change(1);
   EXPECT_EQ(told(), "a:root.1 b:root.2 a:root.2 c:root.2");
}

TEST_F(Publisher, AnObserverThatWasAddedAboveInsideIsToldOfThisChangeToo) {
   a.script = [&](Change const&) { root.observerAdd(c, Scope::subtree); };
   for (bool const alone : {true, false}) {
      leaf.observerAdd(a);
      if (!alone) {
         leaf.observerAdd(b);
      }
      leaf.change(1);
      EXPECT_EQ(told(), alone ? "a:leaf.1 c:leaf.1" : "a:leaf.1 b:leaf.1 c:leaf.1");
      leaf.observerDel(a);
      root.observerDel(c, Scope::subtree);
   }
}

/// The list of two is replaced by a longer one, and its memory used for something else.
TEST_F(Publisher, TheListMayGrowInsideANotification) {
   root.observerAdd(a);
   root.observerAdd(b);
   std::vector<std::unique_ptr<std::array<std::uintptr_t, 3>>> others;
   a.script = [&](Change const&) {
      root.observerAdd(c);
      for (int i = 0; i != 16; ++i) {
         others.push_back(std::make_unique<std::array<std::uintptr_t, 3>>());
      }
   };
   root.change(1);
   EXPECT_EQ(told(), "a:root.1 b:root.1");
}

TEST_F(Publisher, ManyComeAndGoInsideOneNotification) {
   std::vector<std::string> log;
   std::vector<std::unique_ptr<Scripted>> crowd;
   a.script = [&](Change const&) {
      for (int i = 0; i != 100; ++i) {
         crowd.push_back(std::make_unique<Scripted>("x", log));
         if (i % 2 == 0) {
            root.observerAddFirst(*crowd.back());
         } else {
            root.observerAdd(*crowd.back(), Scope::subtree);
         }
      }
      for (auto const& one : crowd) {
         root.observerDel(*one, Scope::subtree);
      }
   };
   root.observerAdd(a);
   root.observerAdd(b);
   root.change(1);
   EXPECT_EQ(told(), "a:root.1 b:root.1");
   EXPECT_TRUE(log.empty());
}

TEST_F(Publisher, AChangeMadeInsideIsToldAfterTheChangeBeingTold) {
   b.script = [&](Change const& change) {
      if (change.attributeId == 1) {
         root.change(2);
         root.change(3);
      }
   };
   root.observerAdd(a);
   root.observerAdd(b);
   root.observerAdd(c);
   root.change(1);
   EXPECT_EQ(told(),
             "a:root.1 b:root.1 c:root.1 a:root.2 b:root.2 c:root.2 "
             "a:root.3 b:root.3 c:root.3");
}

TEST_F(Publisher, TheOrderHoldsAcrossTheEntitiesOfATree) {
   a.script = [&](Change const& change) {
      if (&change.source == &leaf) {
         child.change(2);
      }
   };
   b.script = [&](Change const& change) {
      if (&change.source == &child) {
         root.change(3);
      }
   };
   leaf.observerAdd(a);
   child.observerAdd(b, Scope::subtree);
   root.observerAdd(c, Scope::subtree);
   leaf.change(1);
   EXPECT_EQ(told(), "a:leaf.1 b:leaf.1 c:leaf.1 b:child.2 c:child.2 c:root.3");
}

TEST_F(Publisher, MayDieInsideItsOwnNotification) {
   auto gone = std::make_unique<Source>("gone");
   gone->parentIs(&root);
   a.script = [&](Change const&) { gone.reset(); };
   root.observerAdd(c, Scope::subtree);
   gone->observerAdd(a);
   gone->observerAdd(b);
   gone->change(1);
   EXPECT_EQ(told(), "a:gone.1");
}

TEST_F(Publisher, MayLoseItsParentInsideItsNotification) {
   auto above = std::make_unique<Source>("above");
   Source below("below");
   below.parentIs(above.get());
   a.script = [&](Change const&) { above.reset(); };
   below.observerAdd(a);
   below.observerAdd(b);
   above->observerAdd(c, Scope::subtree);
   below.change(1);
   EXPECT_EQ(told(), "a:below.1 b:below.1");
   EXPECT_EQ(below.parent(), nullptr);
   EXPECT_FALSE(below.subtreeWatched());
}

TEST_F(Publisher, TheParentMayDieWhileItsObserversAreTold) {
   auto above = std::make_unique<Source>("above");
   above->parentIs(&root);
   Source below("below");
   below.parentIs(above.get());
   a.script = [&](Change const&) { above.reset(); };
   above->observerAdd(a, Scope::subtree);
   above->observerAdd(b, Scope::subtree);
   root.observerAdd(c, Scope::subtree);
   below.change(1);
   EXPECT_EQ(told(), "a:below.1");
}

TEST_F(Publisher, IsBypassedOnlyWhileNobodyButTheFirstListensOnTheWayUp) {
   EXPECT_EQ(leaf.bypass(1, 8), nullptr);
   root.observerAddFirst(a);
   EXPECT_TRUE(leaf.mayBypass());
   EXPECT_EQ(leaf.bypass(1, 8), a.room);
   EXPECT_EQ(root.bypass(2, 4), a.room);
   EXPECT_EQ(told(), "a takes 8 bytes of leaf.1 a takes 4 bytes of root.2");

   for (Source* const at : {&root, &leaf}) {
      at->observerAdd(b);
      EXPECT_EQ(at->bypass(1, 8), nullptr) << at->name;
      EXPECT_FALSE(at->mayBypass()) << at->name;
      at->observerDel(b);
      EXPECT_EQ(leaf.bypass(1, 8), a.room) << at->name;
   }
   child.observerAdd(b);
   EXPECT_EQ(leaf.bypass(1, 8), a.room) << "nobody at the child hears of the leaf";
   child.observerDel(b);
   EXPECT_EQ(child.bypass(1, 8), a.room);
   child.observerAdd(b, Scope::subtree);
   EXPECT_EQ(leaf.bypass(1, 8), nullptr);
   EXPECT_EQ(root.bypass(1, 8), a.room);
   child.observerDel(b, Scope::subtree);

   Source above("above");
   root.parentIs(&above);
   EXPECT_EQ(leaf.bypass(1, 8), nullptr) << "somebody above may listen";
   root.parentIs(nullptr);
   root.observerDel(a, Scope::subtree);
   EXPECT_FALSE(leaf.watched());
}

TEST_F(Publisher, IsNotBypassedByAnObserverThatIsOneOfTheOthers) {
   root.observerAdd(a, Scope::subtree);
   EXPECT_EQ(leaf.bypass(1, 8), nullptr);
   EXPECT_EQ(told(), "");
}

TEST_F(Publisher, IsNotBypassedInsideANotification) {
   root.observerAddFirst(a);
   bool asked = false;
   a.script = [&](Sarn::Change const&) {
      asked = true;
      EXPECT_EQ(root.bypass(1, 8), nullptr);
   };
   root.change(1);
   EXPECT_TRUE(asked);
   EXPECT_EQ(root.bypass(1, 8), a.room);
}

TEST_F(Publisher, TellsEverybodyThoughOneThrows) {
   a.script = [](Change const& change) {
      throw std::runtime_error("a" + std::to_string(change.attributeId));
   };
   b.script = [](Change const&) { throw std::runtime_error("b"); };
   leaf.observerAdd(a);
   leaf.observerAdd(b);
   root.observerAdd(c, Scope::subtree);
   try {
      leaf.change(1);
      FAIL() << "nothing came out";
   } catch (std::runtime_error const& error) {
      EXPECT_STREQ(error.what(), "a1");
   }
   EXPECT_EQ(told(), "a:leaf.1 b:leaf.1 c:leaf.1");
   EXPECT_THROW(leaf.change(2), std::runtime_error);
   EXPECT_EQ(told(), "a:leaf.2 b:leaf.2 c:leaf.2");
}

TEST_F(Publisher, TellsThoseAboveThoughTheOnlyObserverThrows) {
   a.script = [](Change const&) { throw std::runtime_error("a"); };
   leaf.observerAdd(a);
   root.observerAdd(c, Scope::subtree);
   EXPECT_THROW(leaf.change(1), std::runtime_error);
   EXPECT_EQ(told(), "a:leaf.1 c:leaf.1");
}

TEST_F(Publisher, CountsThePublicationsFromWhichAnExceptionCame) {
   a.script = [&](Change const& change) {
      if (change.attributeId == 1) {
         throw std::runtime_error("a");
      }
   };
   U32 const before = Sarn::Publisher::observersThrew();
   root.observerAdd(a);
   root.change(2);
   EXPECT_EQ(Sarn::Publisher::observersThrew(), before);
   EXPECT_THROW(root.change(1), std::runtime_error);
   EXPECT_EQ(Sarn::Publisher::observersThrew(), before + 1);
   root.observerAdd(b);
   EXPECT_THROW(root.change(1), std::runtime_error);
   EXPECT_EQ(Sarn::Publisher::observersThrew(), before + 2);
   b.script = [&](Change const& change) {
      if (change.attributeId == 2) {
         root.change(1);
      }
   };
   EXPECT_THROW(root.change(2), std::runtime_error);
   EXPECT_EQ(Sarn::Publisher::observersThrew(), before + 4);
}

/// The inner change is made by the first observer while the second has still to be told of the
/// outer one, and throws then.
TEST_F(Publisher, AnExceptionSwallowsNoChangeMadeInside) {
   std::string inside;
   a.script = [&](Change const& change) {
      if (change.attributeId == 1) {
         try {
            root.change(2);
         } catch (std::runtime_error const& error) {
            inside = error.what();
         }
      }
   };
   b.script = [](Change const& change) {
      throw std::runtime_error("b" + std::to_string(change.attributeId));
   };
   root.observerAdd(a);
   root.observerAdd(b);
   root.observerAdd(c);
   root.change(1);
   EXPECT_EQ(inside, "b1");
   EXPECT_EQ(told(), "a:root.1 b:root.1 c:root.1 a:root.2 b:root.2 c:root.2");
}

/// Of three open publications the newest loses its source while the oldest is told: the one between
/// them is told of all the same, and in its turn.
TEST_F(Publisher, ADeadSourceDoesNotHoldUpWhatIsOlder) {
   auto gone = std::make_unique<Source>("gone");
   Scripted d("d", log_);
   gone->observerAdd(d);
   a.script = [&](Change const& change) {
      if (change.attributeId == 1) {
         root.change(2);
      }
   };
   b.script = [&](Change const& change) {
      if (change.attributeId == 1) {
         gone->change(3);
      }
   };
   c.script = [&](Change const& change) {
      if (change.attributeId == 1) {
         gone.reset();
      }
   };
   root.observerAdd(a);
   root.observerAdd(b);
   root.observerAdd(c);
   root.change(1);
   EXPECT_EQ(told(), "a:root.1 b:root.1 c:root.1 a:root.2 b:root.2 c:root.2");
}

/// Publications inside publications, each of which looked at all that are below it, would take
/// 200 million steps; these are a few milliseconds' worth.
TEST_F(Publisher, StacksPublicationsAsDeepAsThereIsStack) {
#ifdef __SANITIZE_THREAD__
   static constexpr U16 depth = 5'000;  // it follows no more than 65,536 nested calls
#else
   static constexpr U16 depth = 20'000;
#endif
   a.script = [this](Change const& change) {
      log_.clear();
      if (change.attributeId != depth) {
         root.change(static_cast<U16>(change.attributeId + 1));
      }
   };
   root.observerAdd(a);
   pthread_attr_t attributes;
   ASSERT_EQ(pthread_attr_init(&attributes), 0);
   ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{1} << 30), 0);
   struct Work {
      Source& root;
      double seconds = 0;
   } work{root};
   pthread_t thread;
   ASSERT_EQ(pthread_create(
                   &thread, &attributes,
                   [](void* given) -> void* {
                      auto& [source, seconds] = *static_cast<Work*>(given);
                      source.change(1);
                      timespec used{};
                      clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
                      seconds = static_cast<double>(used.tv_sec) +
                                1e-9 * static_cast<double>(used.tv_nsec);
                      return nullptr;
                   },
                   &work),
             0);
   pthread_join(thread, nullptr);
   pthread_attr_destroy(&attributes);
   // No measurement of speed: a hundred times of what it takes, a fifth of what it took by looking
   // at all.
   EXPECT_LT(work.seconds, 1.0);
}

}  // namespace

// Two ends that change the same small thing, in every order. PTPLIB_TEST_MORE_CHANGES adds to the
// number of changes; without it, this takes some seconds in all.
#include "KivTest/Exploration.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "KivTest/TestTypes.h"

using Kiv::NamedEntity;
using KivTest::Exploration;
using KivTest::ExplorationPlan;
using KivTest::Hedge;
using KivTest::Level;
using KivTest::Opaque;
using KivTest::Stem;

namespace {

using Changes = std::vector<ExplorationPlan::Change>;

Stem& root(NamedEntity& entity) {
   return static_cast<Stem&>(entity);
}

/// Runs the plan with `changes` changes, plus those that the environment adds.
void explore(ExplorationPlan plan, unsigned changes, unsigned stops = 1) {
   char const* const more = std::getenv("PTPLIB_TEST_MORE_CHANGES");
   plan.mostStops = stops;
   plan.mostChanges =
         changes + (more != nullptr ? static_cast<unsigned>(std::strtoul(more, nullptr, 10)) : 0);
   unsigned long long states = 0;
   unsigned long long compared = 0;
   unsigned long long runs = 0;
   static constexpr std::size_t rooms[] = {0, 40};
   for (std::size_t const room : rooms) {
      if (stops == 0 && room != 0) {
         continue;
      }
      plan.room = room;
      Exploration exploration(plan);
      ASSERT_EQ(exploration.run(), "") << "with room for " << room << " bytes";
      states += exploration.states();
      compared += exploration.compared();
      runs += exploration.runs();
   }
   std::printf("   %u changes: %llu states, %llu at rest, %llu runs\n", plan.mostChanges, states,
               compared, runs);
}

/// A child, and a child of that child.
Changes const childAndElement = {
      {"makes the child",
       [](NamedEntity& r, unsigned) {
          bool const absent = !root(r).leafHas(1);
          root(r).leafIs(1, true, Opaque(1));
          return absent;
       }},
      {"deletes the child", [](NamedEntity& r, unsigned) { return root(r).leafDel(1) != nullptr; }},
      {"makes the element",
       [](NamedEntity& r, unsigned) {
          bool const can = root(r).leafHas(1) && !root(r).leaf(1)->twigHas(Level::low);
          if (can) {
             root(r).leaf(1)->twigIs(Level::low);
          }
          return can;
       }},
      {"deletes the element",
       [](NamedEntity& r, unsigned) {
          return root(r).leafHas(1) && root(r).leaf(1)->twigDel(Level::low) != nullptr;
       }},
      {"sets the child's value",
       [](NamedEntity& r, unsigned side) {
          if (root(r).leafHas(1)) {
             root(r).leaf(1)->ticksIs(static_cast<U16>(root(r).leaf(1)->ticks() + 10 + side));
          }
          return root(r).leafHas(1);
       }},
};

ExplorationPlan planOf(Changes const& changes) {
   ExplorationPlan plan;
   plan.type = "KivTest::Stem";
   plan.changes = changes;
   return plan;
}

/// A value, and an element of a map.
Changes const valueAndElement = {
      {"sets the value",
       [](NamedEntity& r, unsigned side) {
          root(r).u32Is(root(r).u32() + 10 + side);
          return true;
       }},
      {"puts the element",
       [](NamedEntity& r, unsigned side) {
          root(r).byNumberIs(1, side == 0 ? "source" : "writer");
          return true;
       }},
      {"deletes the element",
       [](NamedEntity& r, unsigned) {
          bool const there = root(r).byNumberHas(1);
          root(r).byNumberDel(1);
          return there;
       }},
};

/// Singleton children: one without arguments, and one for which each end chooses another name.
Changes const singletons = {
      {"makes the core",
       [](NamedEntity& r, unsigned) {
          bool const absent = root(r).core() == nullptr;
          root(r).coreIs();
          return absent;
       }},
      {"deletes the core", [](NamedEntity& r, unsigned) { return root(r).coreDel() != nullptr; }},
      {"sets the core's label",
       [](NamedEntity& r, unsigned side) {
          if (root(r).core() != nullptr) {
             root(r).core()->labelIs(side == 0 ? "source" : "writer");
          }
          return root(r).core() != nullptr;
       }},
      {"makes the badge",
       [](NamedEntity& r, unsigned side) {
          root(r).badgeIs(side == 0 ? "source" : "writer");
          return true;
       }},
      {"sets the badge's brightness",
       [](NamedEntity& r, unsigned side) {
          if (root(r).badge() != nullptr) {
             root(r).badge()->brightnessIs(
                   static_cast<U8>(root(r).badge()->brightness() + 10 + side));
          }
          return root(r).badge() != nullptr;
       }},
};

/// A child whose constant depends on which end made it.
Changes const childOfEither = {
      {"makes the child",
       [](NamedEntity& r, unsigned side) {
          bool const absent = !root(r).leafHas(1);
          if (absent) {
             root(r).leafIs(1, true, Opaque(side));
          }
          return absent;
       }},
      childAndElement[1],
      childAndElement[2],
      childAndElement[4],
};

Changes const queue = {
      {"appends",
       [](NamedEntity& r, unsigned side) {
          root(r).samplesEnq(side);
          return true;
       }},
      {"takes the first",
       [](NamedEntity& r, unsigned) {
          bool const any = root(r).samplesCount() != 0;
          root(r).samplesDeq();
          return any;
       }},
};

TEST(Exploration, ChildAndElementThatAreNotThereAtFirst) {
   explore(planOf(childAndElement), 3);
}

TEST(Exploration, ChildAndElementThatBothHave) {
   ExplorationPlan plan = planOf(childAndElement);
   plan.common = {0, 2};
   explore(plan, 2);
}

TEST(Exploration, ChildWhoseConstantDiffersWithWhoMadeIt) {
   ExplorationPlan plan = planOf(childOfEither);
   explore(plan, 2);
   plan.common = {0};
   explore(plan, 2);
}

TEST(Exploration, ValueAndElementOfAMap) {
   explore(planOf(valueAndElement), 2);
}

TEST(Exploration, SingletonChildren) {
   explore(planOf(singletons), 2);
}

TEST(Exploration, Queue) {
   ExplorationPlan plan = planOf(queue);
   explore(plan, 2);
   plan.common = {0, 0};
   explore(plan, 2);
}

TEST(Exploration, AMirrorThatHasAnotherChildWhenItIsMounted) {
   ExplorationPlan plan = planOf(childAndElement);
   plan.common = {0};
   plan.ofTheMirror = {2, 4};
   plan.mounted = false;
   explore(plan, 1, 0);
}

}  // namespace

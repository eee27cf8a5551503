#include "Holt/State/Match.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Holt/Failure.h"
#include "KivTest/TestTypes/Stem.h"

namespace Holt {
namespace {

using testing::ElementsAre;

TEST(Match, AStarStandsForAnyCharactersOfAKey) {
   EXPECT_TRUE(keyFits("*", ""));
   EXPECT_TRUE(keyFits("*", "Ethernet1,100"));
   EXPECT_TRUE(keyFits("Ethernet1,*", "Ethernet1,100"));
   EXPECT_FALSE(keyFits("Ethernet1,*", "Ethernet1"));
   EXPECT_TRUE(keyFits("E*t*1", "Ethernet11"));
   EXPECT_FALSE(keyFits("E*t*1", "Ethernet12"));
   EXPECT_FALSE(keyFits("Eth", "Ethernet1"));
   EXPECT_TRUE(keyFits("*\"*\"", "\"*\""));
   EXPECT_FALSE(keyFits("*\"*\"", "\"x\""));
}

TEST(Match, AStarInQuotesIsItself) {
   EXPECT_TRUE(hasWildcard("a*"));
   EXPECT_FALSE(hasWildcard("\"a*\""));
   EXPECT_TRUE(hasWildcard("\"a\\\"*\"*"));
   EXPECT_FALSE(hasWildcard("\"a\\\"*\""));
}

TEST(Match, ChangesConcernWhatIsThereBelowAndAround) {
   EXPECT_TRUE(concerns("r.a[1].b", "r"));
   EXPECT_TRUE(concerns("r.a[1].b", "r.a"));
   EXPECT_TRUE(concerns("r.a[1].b", "r.a[1]"));
   EXPECT_TRUE(concerns("r.a[1]", "r.a[1].b"));
   EXPECT_FALSE(concerns("r.ab[1]", "r.a"));
   EXPECT_FALSE(concerns("r.a[10].b", "r.a[1]"));
   EXPECT_FALSE(concerns("r.a", "r.a[1]"));
}

TEST(Match, AStarInAWatchedPathStaysWithinItsKey) {
   EXPECT_TRUE(concerns("r.a[1].b", "r.a[*].b"));
   EXPECT_TRUE(concerns("r.a[\"x].b\"].b", "r.a[*].b"));
   EXPECT_FALSE(concerns("r.a[1].c[2].b", "r.a[*].b"));
   EXPECT_TRUE(concerns("r.a[1]", "r.a[*].b"));
   EXPECT_TRUE(concerns("root[old.x[1]", "root[old.x[*]")) << "a root may have any name";
}

TEST(Match, FindsPlacesInTheOrderOfDumpsAndLeavesOutMissingChildren) {
   auto const root = KivTest::stemFactory("r");
   for (U32 number : {10U, 2U, 1U}) {
      root->leafIs(number, true, KivTest::Opaque(1));
   }
   root->leaf(10)->twigIs(KivTest::Level::high);
   root->leaf(2)->twigIs(KivTest::Level::low);
   auto const found = [&](std::string_view steps) {
      std::vector<std::string> all;
      try {
         for (Path const& path : matchesOf(root, {{"KivTest::Stem", "r"}, parseSteps(steps)})) {
            all.push_back(Place(root, "r", path.steps).path());
         }
      } catch (Failure const& error) {
         all.emplace_back(error.what());
      }
      return all;
   };
   EXPECT_THAT(found(".leaf[*].lit"),
               ElementsAre("r.leaf[1].lit", "r.leaf[2].lit", "r.leaf[10].lit"));
   EXPECT_THAT(found(".leaf[*].twig[*].weight"),
               ElementsAre("r.leaf[2].twig[low].weight", "r.leaf[10].twig[high].weight"));
   EXPECT_THAT(found(".leaf[*].twig[high].weight"), ElementsAre("r.leaf[10].twig[high].weight"));
   EXPECT_THAT(found(".leaf[7*]"), ElementsAre("r.leaf[7*]: nothing fits"));
   EXPECT_THAT(found(".leaf[*].nothing"),
               ElementsAre("r.leaf[*]: KivTest::Leaf has no attribute 'nothing'"));
   EXPECT_THAT(found(".u8[*]"), ElementsAre("r.u8: is not a collection; it takes no key"));
}

}  // namespace
}  // namespace Holt

#include "tools/ptpstate/record/Series.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace Ptpstate {

namespace {

constexpr U64 aSecond = 1'000'000'000;

TEST(SeriesTest, KeepsEverySampleOfAFewInOrder) {
   Series series;
   std::vector<Sample> const given{{aSecond, 1.0}, {2 * aSecond, {}}, {3 * aSecond, -4.5}};
   for (Sample const& sample : given) {
      series.add(sample);
   }
   EXPECT_EQ(series.samples(), given);
}

TEST(SeriesTest, OfAMillisecondKeepsTheFirstTheLastTheExtremesAndTheFirstGap) {
   Series series;
   std::vector<Sample> const given{{100, 5.0}, {101, 9.0}, {102, 6.0}, {103, {}},
                                   {104, {}},  {105, 1.0}, {106, 3.0}, {107, 4.0}};
   for (Sample const& sample : given) {
      series.add(sample);
   }
   EXPECT_EQ(series.samples(),
             (std::vector<Sample>{{100, 5.0}, {101, 9.0}, {103, {}}, {105, 1.0}, {107, 4.0}}));
}

TEST(SeriesTest, KeepsTheExtremesAndTheGapOfAnyNumberOfSamplesInBoundedMemory) {
   std::mt19937_64 random(7);
   Series series;
   U64 wall = 1'795'000'000 * aSecond;
   U64 const begin = wall;
   double least = 0;
   double greatest = 0;
   U64 gap = 0;
   for (int i = 0; i != 2'000'000; ++i) {
      wall += 1 + random() % (aSecond / 10);
      if (i == 1'234'567) {
         gap = wall;
         series.add({wall, {}});
         continue;
      }
      double const value = static_cast<double>(S64(random() >> 40) - (1 << 23));
      least = std::min(least, value);
      greatest = std::max(greatest, value);
      series.add({wall, value});
   }
   std::vector<Sample> const kept = series.samples();
   EXPECT_GT(kept.size(), Series::most);
   EXPECT_LE(kept.size(), 4 * Series::most + 1);
   EXPECT_TRUE(std::is_sorted(kept.begin(), kept.end(),
                              [](Sample const& a, Sample const& b) { return a.wall < b.wall; }));
   EXPECT_LT(kept.front().wall, begin + aSecond);
   EXPECT_EQ(kept.back().wall, wall);
   auto const byValue = [](Sample const& a, Sample const& b) {
      return a.value.value_or(0) < b.value.value_or(0);
   };
   auto const [low, high] = std::minmax_element(kept.begin(), kept.end(), byValue);
   EXPECT_EQ(low->value, least);
   EXPECT_EQ(high->value, greatest);
   EXPECT_EQ(std::count(kept.begin(), kept.end(), Sample{gap, {}}), 1);
}

}  // namespace

}  // namespace Ptpstate

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Kiv/HashMap2018.h"
#include "Kiv/Map/HSet.h"

/// What the order of a hash table reveals, and that no order of insertions and removals makes it
/// slow. The tests count work instead of timing it: comparisons of keys, and moves of elements.
namespace HashMap2018OrderTesting {

U64 comparisons = 0;
U64 moves = 0;

struct Key {
   U64 v = 0;

   bool operator==(Key const& other) const {
      ++comparisons;
      return v == other.v;
   }
   U32 hash(U32 seed) const { return Kiv::hashSingleAttr(seed, v); }
};

struct Value {
   Value() = default;
   Value(Value const&) = default;
   Value(Value&&) noexcept { ++moves; }
   Value& operator=(Value const&) = default;
};

using Map = Kiv::HashMap2018<Key, Value, 0x5B266113>;

constexpr U64 count = 40'000;

void fill(Map& map, U64 size = count) {
   for (U64 i = 0; i < size; ++i) {
      map.insert({i}, Value());
   }
}

std::vector<U64> orderOf(Map const& map) {
   std::vector<U64> order;
   for (auto const& [key, value] : map) {
      order.push_back(key.v);
   }
   return order;
}

/// Counts the comparisons and moves of `work`, per element.
template <class Work>
std::pair<double, double> costPerElement(U64 elements, Work&& work) {
   comparisons = 0;
   moves = 0;
   work();
   return {static_cast<double>(comparisons) / static_cast<double>(elements),
           static_cast<double>(moves) / static_cast<double>(elements)};
}

// A hit compares one key, plus one more for every 255 slots, where the tag agrees by chance.
constexpr double fewComparisons = 1.5;
// Growth moves an element at most three times, and insertions and removals shift a few others.
constexpr double fewMoves = 12;

TEST(HashMap2018Order, IsAnotherInEachMapOfTheSameKeys) {
   Map first;
   Map second;
   fill(first, 1000);
   fill(second, 1000);
   EXPECT_NE(orderOf(first), orderOf(second));
}

TEST(HashMap2018Order, IsAnotherInAMapThatWasEmptyMeanwhile) {
   Map map;
   fill(map, 1000);
   auto const before = orderOf(map);
   map.clear();
   fill(map, 1000);
   EXPECT_NE(orderOf(map), before);
}

TEST(HashMap2018Order, IsAnotherInTheNextMapsOfAForkedProcess) {
   int ends[2];
   ASSERT_EQ(pipe(ends), 0);
   pid_t const child = fork();
   ASSERT_GE(child, 0);
   Map map;
   fill(map, 1000);
   auto const order = orderOf(map);
   std::size_t const bytes = order.size() * sizeof order[0];
   if (child == 0) {
      _exit(write(ends[1], order.data(), bytes) == static_cast<ssize_t>(bytes) ? 0 : 1);
   }
   std::vector<U64> childsOrder(order.size());
   EXPECT_EQ(read(ends[0], childsOrder.data(), bytes), static_cast<ssize_t>(bytes));
   int status = 1;
   waitpid(child, &status, 0);
   EXPECT_EQ(status, 0);
   EXPECT_NE(childsOrder, order);
   EXPECT_TRUE(std::is_permutation(order.begin(), order.end(), childsOrder.begin()));
   close(ends[0]);
   close(ends[1]);
}

/// The map's order shows nothing of the order of the hashes: a key's position in one says nothing
/// about its position in the other.
TEST(HashMap2018Order, HasNothingToDoWithThatOfTheHashes) {
   Map map;
   fill(map);
   std::vector<std::pair<U32, U64>> byHash;
   for (U64 i = 0; i < count; ++i) {
      byHash.emplace_back(Key{i}.hash(Kiv::HashHelper::hashSeed32() ^ 0x5B266113), i);
   }
   std::sort(byHash.begin(), byHash.end());
   std::vector<U64> rank(count);
   for (U64 i = 0; i < count; ++i) {
      rank[byHash[i].second] = i;
   }
   // The ranks by hash of two neighbours in the map's order differ by a third of the range on
   // average, as those of random neighbours do.
   double sum = 0;
   auto const order = orderOf(map);
   for (U64 i = 1; i < count; ++i) {
      U64 const a = rank[order[i - 1]];
      U64 const b = rank[order[i]];
      sum += static_cast<double>(a < b ? b - a : a - b);
   }
   double const distance = sum / static_cast<double>(count) / static_cast<double>(count);
   EXPECT_GT(distance, 0.1);
}

TEST(HashMap2018Order, FillingAMapInAnothersOrderIsLinear) {
   Map source;
   fill(source);
   Map copy;
   auto const [compared, moved] = costPerElement(count, [&] {
      for (auto const& [key, value] : source) {
         copy.insert(key, value);
      }
   });
   EXPECT_LT(compared, fewComparisons);
   EXPECT_LT(moved, fewMoves);
   EXPECT_EQ(copy.size(), count);
}

TEST(HashMap2018Order, EmptyingAMapInItsOwnOrderIsLinear) {
   Map map;
   fill(map);
   auto const [compared, moved] = costPerElement(count, [&] {
      while (!map.empty()) {
         map.erase(map.begin()->key);
      }
   });
   EXPECT_LT(compared, fewComparisons);
   EXPECT_LT(moved, fewMoves);
}

TEST(HashMap2018Order, EmptyingAMapByACheckedIteratorIsLinear) {
   Map map;
   fill(map);
   auto const [compared, moved] = costPerElement(count, [&] {
      for (auto at = map.iterator(); at; ++at) {
         map.erase(at);
      }
   });
   EXPECT_LT(compared, fewComparisons);
   EXPECT_LT(moved, fewMoves);
   EXPECT_TRUE(map.empty());
}

TEST(HashMap2018Order, EmptyingAMapFromItsEndIsLinear) {
   Map map;
   fill(map);
   auto order = orderOf(map);
   std::reverse(order.begin(), order.end());
   auto const [compared, moved] = costPerElement(count, [&] {
      for (U64 const key : order) {
         map.erase({key});
      }
   });
   EXPECT_LT(compared, fewComparisons);
   EXPECT_LT(moved, fewMoves);
}

TEST(HashMap2018Order, AMapThatKeepsOneStretchOfItsOrderIsSmallAndFast) {
   Map map;
   fill(map);
   std::size_t const full = map.memoryUsed();
   auto order = orderOf(map);
   std::vector<U64> const kept(order.begin() + count / 2, order.begin() + count / 2 + 1000);
   order.erase(order.begin() + count / 2, order.begin() + count / 2 + 1000);
   for (U64 const key : order) {
      map.erase({key});
   }
   EXPECT_EQ(map.size(), 1000u);
   EXPECT_LT(map.memoryUsed(), full / 8);
   auto const [compared, moved] = costPerElement(kept.size(), [&] {
      for (U64 const key : kept) {
         ASSERT_TRUE(map.has({key}));
         ASSERT_TRUE(map.erase({key}).has_value());
      }
   });
   EXPECT_LT(compared, 2 * fewComparisons);
   EXPECT_LT(moved, fewMoves);
}

/// An attacker who chooses keys can see which ones are adjacent, remove everything around them from
/// the map, and insert them again.
TEST(HashMap2018Order, KeysThatWereSeenTogetherDoNotSlowTheMapDown) {
   Map map;
   fill(map, 20 * count);
   auto const order = orderOf(map);
   std::vector<U64> chosen(order.begin() + 8 * count, order.begin() + 9 * count);
   std::shuffle(chosen.begin(), chosen.end(), std::mt19937_64(5));
   for (U64 const key : chosen) {
      map.erase({key});
   }
   for (U64 i = 0; i < 20 * count; ++i) {
      if (i % 20 != 0) {
         map.erase({i});
      }
   }
   auto const [compared, moved] = costPerElement(chosen.size(), [&] {
      for (U64 const key : chosen) {
         map.insert({key}, Value());
      }
   });
   EXPECT_LT(compared, 2 * fewComparisons);
   EXPECT_LT(moved, 200);  // most of them before it changes its order
}

TEST(HashMap2018Order, AnIteratorOnItsWayPutsShrinkingOffUntilItIsGone) {
   Map map;
   fill(map);
   std::size_t const full = map.memoryUsed();
   {
      auto at = map.iterator();
      while (map.size() > 1000) {
         map.erase(at);
         ++at;
      }
      EXPECT_EQ(map.memoryUsed(), full);
      U64 left = 0;
      for (; at; ++at) {
         ++left;
      }
      EXPECT_EQ(left, 1000u);
   }
   map.erase({map.begin()->key});
   EXPECT_LT(map.memoryUsed(), full / 8);
}

TEST(HashMap2018Order, KeysOfEqualHashKeepTheOrderOfTheirInsertion) {
   struct Same {
      U32 v = 0;
      bool operator==(Same const&) const = default;
      U32 hash(U32) const { return 7; }
   };
   Kiv::HSet<Same> set;
   for (U32 i = 0; i < 3000; ++i) {
      set.insert({i});
   }
   for (U32 i = 0; i < 2900; ++i) {
      set.erase({i});
   }
   U32 next = 2900;
   for (Same const& key : set) {
      EXPECT_EQ(key.v, next++);
   }
   EXPECT_EQ(next, 3000u);
}

/// An even factor would map different hashes to the same place.
TEST(HashMap2018Order, HasAnOddFactor) {
   for (U64 number = 1; number != 65; ++number) {
      EXPECT_EQ(Kiv::Impl::orderFactor(number) % 2, 1u) << number;
   }
}

TEST(HashSecret, StaysTheSameInAForkedProcessWhichFindsWhatWasThere) {
   Map map;
   fill(map, 1000);
   pid_t const child = fork();
   ASSERT_GE(child, 0);
   if (child == 0) {
      U64 found = 0;
      for (U64 i = 0; i < 1000; ++i) {
         found += map.has({i}) ? 1 : 0;
      }
      _exit(found == 1000 ? 0 : 1);
   }
   int status = 1;
   waitpid(child, &status, 0);
   EXPECT_EQ(status, 0);
}

/// Prints, in the process of a death test, what the test compares.
template <class Says>
[[noreturn]] void sayAndExit(Says const& says) {
   std::string const there = says();
   _exit(write(STDERR_FILENO, there.data(), there.size()) > 0 ? 0 : 1);
}

/// Expects that another process prints a line with the same first word, but not the same rest.
template <class Says>
void expectAnotherInEachProcess(Says const& says) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   std::string const here = says();
   std::string const begin = here.substr(0, here.find(' '));
   EXPECT_EXIT(sayAndExit(says), testing::ExitedWithCode(0),
               testing::AllOf(testing::HasSubstr(begin), testing::Not(testing::HasSubstr(here))));
}

/// Another process hashes the same key with the same seed to a different value, so knowing or
/// guessing the seed does not suffice to compute hashes.
TEST(HashSecret, IsAnotherInEachProcess) {
   expectAnotherInEachProcess([] {
      return "hashes " + std::to_string(Kiv::hashSingleAttr(1, U64{1})) + ' ' +
             std::to_string(Kiv::hashSingleAttr(1, "Ethernet1")) + ' ' +
             std::to_string(Kiv::hashFields(1, U64{1}, U16{2})) + '\n';
   });
}

/// Nor does it suffice to compute places in a table.
TEST(HashSecret, OfOrdersIsAnotherInEachProcess) {
   expectAnotherInEachProcess(
         [] { return "order " + std::to_string(Kiv::Impl::orderFactor(1)) + '\n'; });
}

TEST(HashSeed, ThatIsFixedGivesEveryProcessTheSameHashesAndOrdersFromEachCallOn) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   auto const says = [] {
      std::string text;
      for (int call = 0; call != 2; ++call) {
         Kiv::HashHelper::hashSeed32Is(7);
         text += std::to_string(Kiv::hashSingleAttr(1, U64{1})) + ':';
         for (int i = 0; i != 2; ++i) {
            Map map;
            fill(map, 8);
            for (auto at = map.iterator(); at; ++at) {
               text += ' ' + std::to_string(at.key().v);
            }
            text += ';';
         }
      }
      return text;
   };
   std::string const each = "1022184365: 4 6 1 5 2 3 7 0; 7 1 4 2 3 0 6 5;";
   EXPECT_EXIT(sayAndExit(says), testing::ExitedWithCode(0), testing::HasSubstr(each + each));
}

}  // namespace HashMap2018OrderTesting

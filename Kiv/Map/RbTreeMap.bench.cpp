#include "Kiv/Map/RbTreeMap.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

/// `RbTreeMap` beside `std::map`, from 64-bit keys to 64-bit values. Arguments are numbers of
/// elements; times are per element.
namespace {

struct StdTree {
   std::map<U64, U64> map;

   void insert(U64 key, U64 value) { map.emplace(key, value); }
   bool has(U64 key) const { return map.find(key) != map.end(); }
   void erase(U64 key) { map.erase(key); }
   U64 sum() const {
      U64 total = 0;
      for (auto const& [key, value] : map) {
         total += value;
      }
      return total;
   }
};

struct KivTree {
   Kiv::RbTreeMap<U64, U64> map;

   void insert(U64 key, U64 value) { map.insert(key, value); }
   bool has(U64 key) const { return map.find(key) != nullptr; }
   void erase(U64 key) { map.erase(key); }
   U64 sum() const {
      U64 total = 0;
      for (auto const& [key, value] : map) {
         total += value;
      }
      return total;
   }
};

/// Even keys, in random order; the odd ones are for misses.
std::vector<U64> makeKeys(std::int64_t count) {
   std::vector<U64> keys(static_cast<std::size_t>(count));
   for (std::size_t i = 0; i < keys.size(); ++i) {
      keys[i] = i * 2;
   }
   std::shuffle(keys.begin(), keys.end(), std::mt19937_64(20));
   return keys;
}

template <class Map>
Map filled(std::vector<U64> const& keys) {
   Map m;
   for (U64 const key : keys) {
      m.insert(key, key);
   }
   return m;
}

/// Lookups in random order, so many that no branch predictor learns them by heart.
template <class Map>
void lookUp(benchmark::State& state, U64 offset) {
   std::vector<U64> const keys = makeKeys(state.range(0));
   Map const map = filled<Map>(keys);
   std::mt19937_64 random(7);
   std::vector<U64> wanted(std::max<std::size_t>(keys.size(), 16'384));
   for (U64& key : wanted) {
      key = keys[random() % keys.size()] + offset;
   }
   std::size_t found = 0;
   for (auto _ : state) {
      for (U64 const key : wanted) {
         found += map.has(key);
      }
   }
   if (found != (offset == 0 ? wanted.size() * state.iterations() : 0)) {
      state.SkipWithError("wrong number of hits");
   }
   state.SetItemsProcessed(static_cast<std::int64_t>(wanted.size() * state.iterations()));
}

template <class Map>
void BM_TreeHit(benchmark::State& state) {
   lookUp<Map>(state, 0);
}

template <class Map>
void BM_TreeMiss(benchmark::State& state) {
   lookUp<Map>(state, 1);
}

/// From empty, and in another order one by one until empty again.
template <class Map>
void BM_TreeInsertErase(benchmark::State& state) {
   std::vector<U64> const keys = makeKeys(state.range(0));
   std::vector<U64> order = keys;
   std::shuffle(order.begin(), order.end(), std::mt19937_64(3));
   for (auto _ : state) {
      Map map = filled<Map>(keys);
      for (U64 const key : order) {
         map.erase(key);
      }
      benchmark::DoNotOptimize(&map);
      benchmark::ClobberMemory();
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

template <class Map>
void BM_TreeIterate(benchmark::State& state) {
   Map const map = filled<Map>(makeKeys(state.range(0)));
   for (auto _ : state) {
      benchmark::DoNotOptimize(map.sum());
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

void sizes(benchmark::internal::Benchmark* b) {
   b->Arg(8)->Arg(64)->Arg(10'000)->Arg(100'000);
}

BENCHMARK(BM_TreeHit<StdTree>)->Apply(sizes);
BENCHMARK(BM_TreeHit<KivTree>)->Apply(sizes);
BENCHMARK(BM_TreeMiss<StdTree>)->Apply(sizes);
BENCHMARK(BM_TreeMiss<KivTree>)->Apply(sizes);
BENCHMARK(BM_TreeInsertErase<StdTree>)->Apply(sizes);
BENCHMARK(BM_TreeInsertErase<KivTree>)->Apply(sizes);
BENCHMARK(BM_TreeIterate<StdTree>)->Apply(sizes);
BENCHMARK(BM_TreeIterate<KivTree>)->Apply(sizes);

}  // namespace

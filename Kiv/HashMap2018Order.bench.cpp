#include <benchmark/benchmark.h>

#include <unordered_map>
#include <vector>

#include "Kiv/HashMap2018.h"

/// The orders that make a table sorted by hash quadratic unless it takes care: filling one map in
/// the order of another, as a mirror in the same process does; and emptying a map in its own order,
/// by keys as `xDelAll` does with an observer, or by a checked iterator as when the changed keys of
/// a collection are sent. Times are per element. Compared with a map whose elements stay in place,
/// they must not grow with the size by more than caches account for.
namespace {

struct Hash64 {
   std::size_t operator()(U64 key) const noexcept {
      return Kiv::hashSingleAttr(Kiv::HashHelper::hashSeed32(), key);
   }
};

struct Std {
   std::unordered_map<U64, U64, Hash64> map;

   void insert(U64 key, U64 value) { map.emplace(key, value); }
   void erase(U64 key) { map.erase(key); }
   void forEach(auto&& visit) const {
      for (auto const& [key, value] : map) {
         visit(key, value);
      }
   }
   void emptyByIterator() {
      for (auto at = map.begin(); at != map.end();) {
         at = map.erase(at);
      }
   }
   std::size_t size() const { return map.size(); }
};

struct Kiv2018 {
   Kiv::HashMap2018<U64, U64, 1> map;

   void insert(U64 key, U64 value) { map.insert(key, value); }
   void erase(U64 key) { map.erase(key); }
   void forEach(auto&& visit) const {
      for (auto const& [key, value] : map) {
         visit(key, value);
      }
   }
   void emptyByIterator() {
      for (auto at = map.iterator(); at; ++at) {
         map.erase(at);
      }
   }
   std::size_t size() const { return map.size(); }
};

template <class Map>
Map filled(std::int64_t count) {
   Map map;
   for (std::int64_t i = 0; i < count; ++i) {
      map.insert(static_cast<U64>(i), static_cast<U64>(i));
   }
   return map;
}

template <class Map>
void BM_FillInAnothersOrder(benchmark::State& state) {
   Map const source = filled<Map>(state.range(0));
   for (auto _ : state) {
      Map copy;
      source.forEach([&](U64 key, U64 value) { copy.insert(key, value); });
      benchmark::DoNotOptimize(copy.size());
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

template <class Map>
void BM_EmptyInItsOrderByKeys(benchmark::State& state) {
   for (auto _ : state) {
      state.PauseTiming();
      Map map = filled<Map>(state.range(0));
      state.ResumeTiming();
      std::vector<U64> keys;
      keys.reserve(map.size());
      map.forEach([&](U64 key, U64) { keys.push_back(key); });
      for (U64 const key : keys) {
         map.erase(key);
      }
      benchmark::DoNotOptimize(map.size());
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

template <class Map>
void BM_EmptyInItsOrderByIterator(benchmark::State& state) {
   for (auto _ : state) {
      state.PauseTiming();
      Map map = filled<Map>(state.range(0));
      state.ResumeTiming();
      map.emptyByIterator();
      benchmark::DoNotOptimize(map.size());
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

void sizes(benchmark::internal::Benchmark* b) {
   b->Arg(10'000)->Arg(100'000)->Arg(1'000'000);
}

BENCHMARK(BM_FillInAnothersOrder<Std>)->Apply(sizes);
BENCHMARK(BM_FillInAnothersOrder<Kiv2018>)->Apply(sizes);
BENCHMARK(BM_EmptyInItsOrderByKeys<Std>)->Apply(sizes);
BENCHMARK(BM_EmptyInItsOrderByKeys<Kiv2018>)->Apply(sizes);
BENCHMARK(BM_EmptyInItsOrderByIterator<Std>)->Apply(sizes);
BENCHMARK(BM_EmptyInItsOrderByIterator<Kiv2018>)->Apply(sizes);

}  // namespace

#include <benchmark/benchmark.h>

#include <memory>
#include <unordered_map>
#include <vector>

#include "Kiv/HashMap2018NodeInternalKey.h"

/// Walks over maps of children. Times are per child.
namespace {

/// What a map of children points to: objects scattered in memory, in an order unrelated to the
/// map's.
struct Object {
   U64 key = 0;
   U64 members[47] = {};

   U64 sum() const { return key + members[7] + members[15] + members[23] + members[31]; }
};
struct ObjectKeyFunktor {
   U64 operator()(std::unique_ptr<Object> const& object) const { return object->key; }
};

template <class Insert>
void fillWithObjects(std::int64_t count, Insert&& insert) {
   for (std::int64_t i = 0; i < count; ++i) {
      auto object = std::make_unique<Object>();
      object->key = static_cast<U64>(i);
      insert(std::move(object));
   }
}

/// Reads some members of every child, as the replay to a new reader does.
void BM_WalkChildrenStd(benchmark::State& state) {
   std::unordered_map<U64, std::unique_ptr<Object>> map;
   fillWithObjects(state.range(0), [&](std::unique_ptr<Object> object) {
      U64 const key = object->key;
      map.emplace(Kiv::hashSingleAttr(1, key), std::move(object));
   });
   for (auto _ : state) {
      U64 total = 0;
      for (auto const& [key, object] : map) {
         total += object->sum();
      }
      benchmark::DoNotOptimize(total);
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

/// The lower bound: an array of pointers to the objects, walked in the order of memory.
void BM_WalkChildrenInOrder(benchmark::State& state) {
   std::vector<std::unique_ptr<Object>> objects;
   fillWithObjects(state.range(0),
                   [&](std::unique_ptr<Object> object) { objects.push_back(std::move(object)); });
   for (auto _ : state) {
      U64 total = 0;
      for (auto const& object : objects) {
         total += object->sum();
      }
      benchmark::DoNotOptimize(total);
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

using Children = Kiv::HashMap2018NodeInternalKey<std::unique_ptr<Object>, ObjectKeyFunktor, 1>;

void BM_WalkChildren(benchmark::State& state) {
   Children map;
   fillWithObjects(state.range(0),
                   [&](std::unique_ptr<Object> object) { map.insert(std::move(object)); });
   for (auto _ : state) {
      U64 total = 0;
      for (auto const& object : map) {
         total += object->sum();
      }
      benchmark::DoNotOptimize(total);
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

void BM_WalkChildrenChecked(benchmark::State& state) {
   Children map;
   fillWithObjects(state.range(0),
                   [&](std::unique_ptr<Object> object) { map.insert(std::move(object)); });
   for (auto _ : state) {
      U64 total = 0;
      for (auto it = map.iterator(); it; ++it) {
         total += it.value()->sum();
      }
      benchmark::DoNotOptimize(total);
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

BENCHMARK(BM_WalkChildrenInOrder)->Arg(10'000)->Arg(100'000);
BENCHMARK(BM_WalkChildrenStd)->Arg(10'000)->Arg(100'000);
BENCHMARK(BM_WalkChildren)->Arg(10'000)->Arg(100'000);
BENCHMARK(BM_WalkChildrenChecked)->Arg(10'000)->Arg(100'000);

}  // namespace

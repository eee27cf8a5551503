#include "Kiv/HashMap2018.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#if defined(PTPLIB_BENCH_ROBIN_MAP)
#   include <tsl/robin_map.h>
#endif
#if defined(PTPLIB_BENCH_BOOST)
#   include <boost/unordered/unordered_flat_map.hpp>
#endif
#if defined(PTPLIB_BENCH_ABSL)
#   include <absl/container/flat_hash_map.h>
#endif

/// `HashMap2018` compared with `std::unordered_map` with the same hash function. Like a port's key,
/// the keys have ten significant bytes in sixteen. Arguments are numbers of elements; times are per
/// element.
namespace {

struct PortKey {
   U64 intf = 0;
   U16 vlan = 0;

   bool operator==(PortKey const&) const = default;
   U32 hash(U32 seed) const { return Kiv::hashFields(seed, intf, vlan); }
   auto hashParts() const { return std::tie(intf, vlan); }
};

/// For the other maps: as much work as for ours, keyed with the same secret, and 64 bits, which
/// they need.
struct PeerHash {
   using is_avalanching = void;  // Boost need not mix it again

   std::size_t operator()(PortKey const& key) const noexcept {
      U64 const secret = Kiv::Impl::hashSecret;
      return Kiv::Impl::foldedMultiply(secret ^ key.intf,
                                       secret ^ Kiv::Impl::hashMultiplier ^ key.vlan);
   }
};

/// A map with the interface of the standard library's.
template <class Map>
struct Peer {
   Map map;

   bool insert(PortKey const& key, U64 value) { return map.emplace(key, value).second; }
   U64 const* find(PortKey const& key) const {
      auto const it = map.find(key);
      return it != map.end() ? &it->second : nullptr;
   }
   bool erase(PortKey const& key) { return map.erase(key) != 0; }
   U64 sum() const {
      U64 total = 0;
      for (auto const& [key, value] : map) {
         total += value;
      }
      return total;
   }
};

struct Std : Peer<std::unordered_map<PortKey, U64, PeerHash>> {};
#if defined(PTPLIB_BENCH_ROBIN_MAP)
struct PeerRobin : Peer<tsl::robin_map<PortKey, U64, PeerHash>> {};
#endif
#if defined(PTPLIB_BENCH_BOOST)
struct PeerBoost : Peer<boost::unordered_flat_map<PortKey, U64, PeerHash>> {};
#endif
#if defined(PTPLIB_BENCH_ABSL)
struct PeerAbsl : Peer<absl::flat_hash_map<PortKey, U64, PeerHash>> {};
#endif

/// The limit of iteration: the same elements in an array.
struct BareArray {
   std::vector<std::pair<PortKey, U64>> elements;

   void insert(PortKey const& key, U64 value) { elements.emplace_back(key, value); }
   U64 sum() const {
      U64 total = 0;
      for (auto const& [key, value] : elements) {
         total += value;
      }
      return total;
   }
};

struct Kiv2018 {
   Kiv::HashMap2018<PortKey, U64, 0x5B266113> map;

   bool insert(PortKey const& key, U64 value) { return map.insert(key, value).second; }
   U64 const* find(PortKey const& key) const { return map.find(key); }
   bool erase(PortKey const& key) { return map.erase(key).has_value(); }
   U64 sum() const {
      U64 total = 0;
      for (auto const& [key, value] : map) {
         total += value;
      }
      return total;
   }
};

/// Distinct keys that look like real ones: interface numbers close together, some with VLANs. The
/// first half is for insertion, the second for misses; both are in random order.
std::vector<PortKey> makeKeys(std::size_t count) {
   std::vector<PortKey> keys;
   keys.reserve(count);
   for (std::size_t i = 0; i < count; ++i) {
      keys.push_back({0x0301'0000'0000 + i / 4 * 0x100, static_cast<U16>(i % 4 * 100)});
   }
   std::shuffle(keys.begin(), keys.end(), std::mt19937_64(20));
   return keys;
}

template <class Map>
Map filled(std::vector<PortKey> const& keys) {
   Map m;
   U64 value = 0;
   for (PortKey const& key : keys) {
      m.insert(key, ++value);
   }
   return m;
}

/// Looks up in random order, with so many keys that no branch predictor can memorise them. The
/// lookups are independent, as they are when changes to many ports arrive.
template <class Map>
void lookUp(benchmark::State& state, bool present) {
   auto const count = static_cast<std::size_t>(state.range(0));
   std::vector<PortKey> keys = makeKeys(count * 2);
   std::vector<PortKey> absent(keys.begin() + static_cast<std::ptrdiff_t>(count), keys.end());
   keys.resize(count);
   Map const map = filled<Map>(keys);
   std::mt19937_64 random(7);
   std::vector<PortKey> wanted(std::max<std::size_t>(count, 16'384));
   for (PortKey& key : wanted) {
      key = (present ? keys : absent)[random() % count];
   }
   std::size_t found = 0;
   for (auto _ : state) {
      for (PortKey const& key : wanted) {
         found += map.find(key) != nullptr;
      }
   }
   if (found != (present ? wanted.size() * state.iterations() : 0)) {
      state.SkipWithError("wrong number of hits");
   }
   state.SetItemsProcessed(static_cast<std::int64_t>(wanted.size() * state.iterations()));
}

template <class Map>
void BM_Hit(benchmark::State& state) {
   lookUp<Map>(state, true);
}

template <class Map>
void BM_Miss(benchmark::State& state) {
   lookUp<Map>(state, false);
}

/// Fills a map from empty, growing on the way, and destroys it.
template <class Map>
void BM_Insert(benchmark::State& state) {
   auto const keys = makeKeys(static_cast<std::size_t>(state.range(0)));
   for (auto _ : state) {
      Map const map = filled<Map>(keys);
      benchmark::DoNotOptimize(&map);
      benchmark::ClobberMemory();
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

/// Fills a map from empty, and erases the elements one by one in another order.
template <class Map>
void BM_InsertErase(benchmark::State& state) {
   auto const keys = makeKeys(static_cast<std::size_t>(state.range(0)));
   auto order = keys;
   std::shuffle(order.begin(), order.end(), std::mt19937_64(3));
   for (auto _ : state) {
      Map map = filled<Map>(keys);
      for (PortKey const& key : order) {
         map.erase(key);
      }
      benchmark::DoNotOptimize(&map);
      benchmark::ClobberMemory();
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

/// Erases one element and inserts another, at constant size.
template <class Map>
void BM_Replace(benchmark::State& state) {
   auto const count = static_cast<std::size_t>(state.range(0));
   std::vector<PortKey> const keys = makeKeys(count * 2);
   Map map = filled<Map>({keys.begin(), keys.begin() + static_cast<std::ptrdiff_t>(count)});
   std::size_t next = 0;
   for (auto _ : state) {
      map.erase(keys[next]);
      map.insert(keys[(next + count) % keys.size()], next);
      next = (next + 1) % keys.size();
   }
}

template <class Map>
void BM_Iterate(benchmark::State& state) {
   Map const map = filled<Map>(makeKeys(static_cast<std::size_t>(state.range(0))));
   for (auto _ : state) {
      benchmark::DoNotOptimize(map.sum());
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

/// The checked iterator, which stays valid when the map changes.
void BM_IterateChecked(benchmark::State& state) {
   auto const map = filled<Kiv2018>(makeKeys(static_cast<std::size_t>(state.range(0))));
   for (auto _ : state) {
      U64 total = 0;
      for (auto it = map.map.iterator(); it; ++it) {
         total += it.value();
      }
      benchmark::DoNotOptimize(total);
   }
   state.SetItemsProcessed(state.range(0) * static_cast<std::int64_t>(state.iterations()));
}

void sizes(benchmark::internal::Benchmark* b) {
   b->Arg(64)->Arg(10'000)->Arg(1'000'000);
}

/// Every map, so that each line of ours has the same work by the others beside it.
#define BENCHMARK_MAPS(work)           \
   BENCHMARK(work<Std>)->Apply(sizes); \
   BENCHMARK_ROBIN(work)               \
   BENCHMARK_BOOST(work)               \
   BENCHMARK_ABSL(work)                \
   BENCHMARK(work<Kiv2018>)->Apply(sizes)
#if defined(PTPLIB_BENCH_ROBIN_MAP)
#   define BENCHMARK_ROBIN(work) BENCHMARK(work<PeerRobin>)->Apply(sizes);
#else
#   define BENCHMARK_ROBIN(work)
#endif
#if defined(PTPLIB_BENCH_BOOST)
#   define BENCHMARK_BOOST(work) BENCHMARK(work<PeerBoost>)->Apply(sizes);
#else
#   define BENCHMARK_BOOST(work)
#endif
#if defined(PTPLIB_BENCH_ABSL)
#   define BENCHMARK_ABSL(work) BENCHMARK(work<PeerAbsl>)->Apply(sizes);
#else
#   define BENCHMARK_ABSL(work)
#endif

BENCHMARK_MAPS(BM_Hit);
BENCHMARK_MAPS(BM_Miss);
BENCHMARK_MAPS(BM_Insert);
BENCHMARK_MAPS(BM_InsertErase);
BENCHMARK_MAPS(BM_Replace);
BENCHMARK_MAPS(BM_Iterate);
BENCHMARK(BM_Iterate<BareArray>)->Apply(sizes);
BENCHMARK(BM_IterateChecked)->Apply(sizes);

}  // namespace

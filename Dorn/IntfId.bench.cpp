#include "Dorn/IntfId.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

// An interface id compared with what it replaces: the name as a string.

namespace {

using Dorn::IntfId;

constexpr std::array<std::string_view, 8> names = {"Ethernet3/1/2", "Ethernet48", "PortChannel12",
                                                   "Vlan100",       "eth0",       "enp129s0f1np1",
                                                   "bond0.100",     "veth1a2b3c4"};

std::vector<Sarn::String> manyNames() {
   std::vector<Sarn::String> many;
   for (int slot = 1; slot <= 32; ++slot) {
      for (int port = 1; port <= 32; ++port) {
         many.push_back("Ethernet" + std::to_string(slot) + "/" + std::to_string(port));
      }
   }
   std::shuffle(many.begin(), many.end(), std::mt19937(1));
   return many;
}

/// Baseline: a copy of the name, as a string key would need.
void BM_NameToString(benchmark::State& state) {
   std::size_t i = 0;
   for (auto _ : state) {
      Sarn::String name(names[i++ % names.size()]);
      benchmark::DoNotOptimize(name);
   }
}
BENCHMARK(BM_NameToString);

void BM_NameToId(benchmark::State& state) {
   std::size_t i = 0;
   for (auto _ : state) {
      benchmark::DoNotOptimize(IntfId(names[i++ % names.size()]));
   }
}
BENCHMARK(BM_NameToId);

void BM_IdToName(benchmark::State& state) {
   std::array<IntfId, names.size()> ids;
   std::transform(names.begin(), names.end(), ids.begin(), [](auto name) { return IntfId(name); });
   Sarn::String out;
   std::size_t i = 0;
   for (auto _ : state) {
      out.clear();
      ids[i++ % ids.size()].print(out);
      benchmark::DoNotOptimize(out);
   }
}
BENCHMARK(BM_IdToName);

/// What a received id costs: all checks before it is accepted.
void BM_IdFromBits(benchmark::State& state) {
   std::array<U64, names.size()> bits{};
   std::transform(names.begin(), names.end(), bits.begin(),
                  [](auto name) { return IntfId(name).bits(); });
   std::size_t i = 0;
   for (auto _ : state) {
      benchmark::DoNotOptimize(IntfId::fromBits(bits[i++ % bits.size()]));
   }
}
BENCHMARK(BM_IdFromBits);

/// Baseline: strings sort by bytes, which is not even the order that people expect.
void BM_SortStrings(benchmark::State& state) {
   auto const many = manyNames();
   for (auto _ : state) {
      auto copy = many;
      std::sort(copy.begin(), copy.end());
      benchmark::DoNotOptimize(copy.data());
   }
}
BENCHMARK(BM_SortStrings);

void BM_SortIds(benchmark::State& state) {
   std::vector<IntfId> many;
   for (Sarn::String const& name : manyNames()) {
      many.emplace_back(name);
   }
   for (auto _ : state) {
      auto copy = many;
      std::sort(copy.begin(), copy.end());
      benchmark::DoNotOptimize(copy.data());
   }
}
BENCHMARK(BM_SortIds);

}  // namespace

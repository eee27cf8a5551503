// What a setter costs: with the same value and another one, without and with observers.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>

#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"
#include "bench/Baseline.h"

namespace {

constexpr std::size_t many = 10000;

struct Plain {
   Baseline::Listeners listeners;
   Baseline::Intf intf;

   [[gnu::always_inline]] void linkDelayThresholdIs(U64 v) {
      if (intf.linkDelayThreshold == v) {
         return;
      }
      U64 const old = intf.linkDelayThreshold;
      intf.linkDelayThreshold = v;
      listeners.tell(284, &old);
   }
};

Sarn::Ptr<Ptp::IntfConfig> makeIntf() {
   return Ptp::intfConfigFactory(Dorn::IntfId("Ethernet1"), true, false);
}

class Sum final : public Kiv::Observer {
public:
   void onChange(Kiv::Change const& change) override {
      sum += *static_cast<U64 const*>(change.oldValue) + change.attributeId;
   }
   U64 sum = 0;
};

[[gnu::noinline]] void plainSum(void* context, U16 attribute, void const* old) {
   *static_cast<U64*>(context) += *static_cast<U64 const*>(old) + attribute;
}

void SameValue_Baseline(benchmark::State& state) {
   Plain plain;
   U64 v = 7;
   plain.linkDelayThresholdIs(v);
   benchmark::DoNotOptimize(&plain);
   for (auto _ : state) {
      benchmark::DoNotOptimize(v);
      plain.linkDelayThresholdIs(v);
      benchmark::ClobberMemory();
   }
}
BENCHMARK(SameValue_Baseline);

void SameValue(benchmark::State& state) {
   Sarn::Ptr<Ptp::IntfConfig> const intf = makeIntf();
   U64 v = 7;
   intf->linkDelayThresholdIs(v);
   for (auto _ : state) {
      benchmark::DoNotOptimize(v);
      intf->linkDelayThresholdIs(v);
      benchmark::ClobberMemory();
   }
}
BENCHMARK(SameValue);

void OtherValue_Baseline(benchmark::State& state) {
   Plain plain;
   benchmark::DoNotOptimize(&plain);
   U64 v = 0;
   for (auto _ : state) {
      plain.linkDelayThresholdIs(++v);
      benchmark::ClobberMemory();
   }
}
BENCHMARK(OtherValue_Baseline);

void OtherValue(benchmark::State& state) {
   Sarn::Ptr<Ptp::IntfConfig> const intf = makeIntf();
   U64 v = 0;
   for (auto _ : state) {
      intf->linkDelayThresholdIs(++v);
      benchmark::ClobberMemory();
   }
}
BENCHMARK(OtherValue);

template <class T>
std::vector<T> shuffled(std::vector<T> order) {
   std::shuffle(order.begin(), order.end(),
                std::mt19937(1));  // NOLINT(cert-msc32-c,cert-msc51-cpp): every run alike
   return order;
}

void OtherValueRandomOrder_Baseline(benchmark::State& state) {
   std::vector<Baseline::Intf> intfs(many);
   std::vector<Baseline::Intf*> order;
   for (Baseline::Intf& intf : intfs) {
      order.push_back(&intf);
   }
   order = shuffled(order);
   U64 v = 0;
   for (auto _ : state) {
      ++v;
      for (Baseline::Intf* const intf : order) {
         if (intf->linkDelayThreshold != v) {
            intf->linkDelayThreshold = v;
         }
      }
      benchmark::ClobberMemory();
   }
   state.SetItemsProcessed(static_cast<S64>(state.iterations() * many));
}
BENCHMARK(OtherValueRandomOrder_Baseline);

void OtherValueRandomOrder(benchmark::State& state) {
   std::vector<Sarn::Ptr<Ptp::IntfConfig>> intfs;
   std::vector<Ptp::IntfConfig*> order;
   for (std::size_t i = 0; i != many; ++i) {
      intfs.push_back(makeIntf());
      order.push_back(intfs.back().get());
   }
   order = shuffled(order);
   U64 v = 0;
   for (auto _ : state) {
      ++v;
      for (Ptp::IntfConfig* const intf : order) {
         intf->linkDelayThresholdIs(v);
      }
      benchmark::ClobberMemory();
   }
   state.SetItemsProcessed(static_cast<S64>(state.iterations() * many));
}
BENCHMARK(OtherValueRandomOrder);

void Observers_Baseline(benchmark::State& state) {
   Plain plain;
   U64 sum = 0;
   for (S64 i = 0; i != state.range(0); ++i) {
      plain.listeners.entries.push_back({&plainSum, &sum});
   }
   benchmark::DoNotOptimize(&plain);
   U64 v = 0;
   for (auto _ : state) {
      plain.linkDelayThresholdIs(++v);
      benchmark::ClobberMemory();
   }
   benchmark::DoNotOptimize(sum);
}
BENCHMARK(Observers_Baseline)->Arg(1)->Arg(8);

void Observers(benchmark::State& state) {
   Sarn::Ptr<Ptp::IntfConfig> const intf = makeIntf();
   std::vector<Sum> sums(static_cast<std::size_t>(state.range(0)));
   for (Sum& sum : sums) {
      intf->observerAdd(sum);
   }
   U64 v = 0;
   for (auto _ : state) {
      intf->linkDelayThresholdIs(++v);
      benchmark::ClobberMemory();
   }
   for (Sum& sum : sums) {
      intf->observerDel(sum);
   }
}
BENCHMARK(Observers)->Arg(1)->Arg(8);

}  // namespace

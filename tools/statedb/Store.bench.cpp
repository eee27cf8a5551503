// What keeping a configuration costs: a change, and the wait for its confirmation.
#include "tools/statedb/Store.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>

#include "Holt/Loop.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"
#include "tools/statedb/DatabaseFile.h"

namespace Statedb {
namespace {

constexpr int ports = 64;
constexpr int perTurn = 1000;

/// A configuration of 64 ports in a database below $TMPDIR, /var/tmp or, if they are missing, here.
struct Kept {
   explicit Kept(Sync sync) {
      char const* const place = std::getenv("TMPDIR");
      std::string path = std::string(place != nullptr ? place : "/var/tmp") + "/statedb-XXXXXX";
      directory = ::mkdtemp(path.data());
      file = std::make_unique<DatabaseFile>(DatabaseFile::Options{directory + "/state.db", sync});
      for (int i = 0; i != ports; ++i) {
         all.push_back(
               config->intfConfigIs(Dorn::IntfId("Ethernet" + std::to_string(i)), true, false));
      }
      S64 const number = file->database().keep(*config).number;
      store = std::make_unique<Store>(file->database(), Store::Options{.sync = sync});
      store->rootIs(config, number);
      loop.add(*store);
   }
   ~Kept() {
      store->finish();
      store.reset();
      file.reset();
      std::filesystem::remove_all(directory);
   }

   std::string directory;
   std::unique_ptr<DatabaseFile> file;
   Sarn::Ptr<Ptp::Config> config = Ptp::configFactory("ptp/config");
   std::vector<Sarn::Ptr<Ptp::IntfConfig>> all;
   std::unique_ptr<Store> store;
   Holt::Loop loop;
};

/// A thousand changes of one attribute of each port in turn, as a busy turn of the loop has them.
void changeAll(std::vector<Sarn::Ptr<Ptp::IntfConfig>> const& all, int& next) {
   for (int i = 0; i != perTurn; ++i, ++next) {
      all[static_cast<std::size_t>(next % ports)]->logSyncIntervalIs(
            static_cast<S8>(next / ports % 2));
   }
}

void BM_changes_notKept(benchmark::State& state) {
   auto const config = Ptp::configFactory("ptp/config");
   std::vector<Sarn::Ptr<Ptp::IntfConfig>> all;
   for (int i = 0; i != ports; ++i) {
      all.push_back(
            config->intfConfigIs(Dorn::IntfId("Ethernet" + std::to_string(i)), true, false));
   }
   int next = 0;
   for (auto _ : state) {
      changeAll(all, next);
   }
   state.SetItemsProcessed(state.iterations() * perTurn);
}

void changes(benchmark::State& state, Sync sync) {
   Kept kept(sync);
   int next = 0;
   for (auto _ : state) {
      changeAll(kept.all, next);
      kept.loop.turn(-1, std::chrono::milliseconds::zero());
   }
   state.SetItemsProcessed(state.iterations() * perTurn);
   state.counters["transactions"] = static_cast<double>(kept.store->written());
}

void BM_changes_never(benchmark::State& state) {
   changes(state, Sync::never);
}
void BM_changes_interval(benchmark::State& state) {
   changes(state, Sync::interval);
}
void BM_changes_always(benchmark::State& state) {
   changes(state, Sync::always);
}

/// From a change to its confirmation.
void confirmation(benchmark::State& state, Sync sync) {
   Kept kept(sync);
   int next = 0;
   for (auto _ : state) {
      ++next;
      kept.config->priority1Is(static_cast<U8>(next));
      U64 const ticket = kept.store->syncAsked();
      do {
         kept.loop.turn(-1, ticket > kept.store->written() ? std::chrono::milliseconds(1000)
                                                           : std::chrono::milliseconds::zero());
      } while (ticket > kept.store->written());
   }
}

void BM_confirmation_never(benchmark::State& state) {
   confirmation(state, Sync::never);
}
void BM_confirmation_interval(benchmark::State& state) {
   confirmation(state, Sync::interval);
}
void BM_confirmation_always(benchmark::State& state) {
   confirmation(state, Sync::always);
}

BENCHMARK(BM_changes_notKept)->Name("BM_changesBaseline")->UseRealTime();
BENCHMARK(BM_changes_never)->Name("BM_changes<never>")->UseRealTime();
BENCHMARK(BM_changes_interval)->Name("BM_changes<interval>")->UseRealTime();
BENCHMARK(BM_changes_always)->Name("BM_changes<always>")->UseRealTime();
BENCHMARK(BM_confirmation_never)->Name("BM_confirmationBaseline")->UseRealTime();
BENCHMARK(BM_confirmation_interval)->Name("BM_confirmation<interval>")->UseRealTime();
BENCHMARK(BM_confirmation_always)->Name("BM_confirmation<always>")->UseRealTime();

}  // namespace
}  // namespace Statedb

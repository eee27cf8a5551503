// Stops and faults of the disk at every call of a run. Whatever was acknowledged is there
// afterwards, and nothing is half there.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "Holt/Failure.h"
#include "tools/statedb/FaultDisk.test.h"
#include "tools/statedb/Workload.test.h"

namespace Statedb {
namespace {

constexpr int steps = 9;

/// The state after each step.
std::vector<std::vector<std::string>> const& expected() {
   static auto const states = [] {
      std::vector<std::vector<std::string>> all;
      auto const config = Ptp::configFactory(workloadRoot);
      all.push_back(textOf(*config));
      for (int step = 1; step <= steps; ++step) {
         makeStep(*config, step);
         all.push_back(textOf(*config));
      }
      return all;
   }();
   return states;
}

/// A process that makes the steps, and restarts between two of them.
class Worker {
public:
   explicit Worker(FaultDisk& disk) : disk_(disk) {}

   /// Returns the last step that was acknowledged; -1 if not even the first state was. `insists`: a
   /// step that fails is written again until it is.
   int to(int last, bool insists = false) {
      int acknowledged = -1;
      try {
         if (!disk_.exists(file)) {
            Database::create(file, disk_.vfs());
            disk_.syncDirectory();
         }
         auto config = Ptp::configFactory(workloadRoot);
         auto database = std::make_unique<Database>(file, Sync::always, disk_.vfs());
         S64 number = database->keep(*config).number;
         acknowledged = 0;
         auto recorder = std::make_unique<Recorder>(config, number);
         for (int step = 1; step <= last; ++step) {
            if (step == 5) {
               recorder.reset();
               database.reset();
               config = Ptp::configFactory(workloadRoot);
               database = std::make_unique<Database>(file, Sync::always, disk_.vfs());
               number = database->keep(*config).number;
               recorder = std::make_unique<Recorder>(config, number);
            }
            makeStep(*config, step);
            Batch batch;
            batch.at = "2026-11-21T13:03:59.120Z";
            recorder->take(batch);
            write(*database, batch, insists);
            acknowledged = step;
         }
      } catch (SqliteError const&) {
      }
      return acknowledged;
   }

private:
   static void write(Database& database, Batch const& batch, bool insists) {
      for (int attempt = 0;; ++attempt) {
         try {
            database.write(batch);
            return;
         } catch (SqliteError const&) {
            if (!insists || attempt == 20) {
               throw;
            }
         }
      }
   }

   FaultDisk& disk_;
};

/// What a new process finds.
std::vector<std::string> found(FaultDisk& disk) {
   Database database(file, Sync::always, disk.vfs());
   auto const config = Ptp::configFactory(workloadRoot);
   Kept const kept = database.keep(*config);
   EXPECT_TRUE(kept.rejected.empty());
   return textOf(*config);
}

/// The number of calls of a run without faults.
U64 callsOfARun() {
   FaultDisk disk;
   EXPECT_EQ(Worker(disk).to(steps), steps);
   return disk.calls();
}

void stopAtEveryCall(Crash how, U32 seeds) {
   U64 const calls = callsOfARun();
   ASSERT_GT(calls, 100U);
   for (U32 seed = 0; seed != seeds; ++seed) {
      for (U64 call = 1; call <= calls + 1; ++call) {
         FaultDisk disk;
         disk.stopAt(call);
         int const acknowledged = Worker(disk).to(steps);
         disk.crash(how, seed * 100'000 + static_cast<U32>(call));
         if (acknowledged < 0) {
            continue;  // the file gets its name only when it has been made and closed
         }
         std::vector<std::string> const state = found(disk);
         auto const begun = static_cast<std::size_t>(std::min(acknowledged + 1, steps));
         ASSERT_TRUE(state == expected()[static_cast<std::size_t>(acknowledged)] ||
                     state == expected()[begun])
               << "stopped at call " << call << ", seed " << seed << ", after step "
               << acknowledged;
      }
   }
}

TEST(Faults, AKillAtEveryCallLosesNothingAcknowledged) {
   stopAtEveryCall(Crash::process, 1);
}

TEST(Faults, APowerFailureAtEveryCallLosesNothingAcknowledged) {
   stopAtEveryCall(Crash::lost, 1);
}

TEST(Faults, TornAndReorderedWritesAtEveryCallLoseNothingAcknowledged) {
   stopAtEveryCall(Crash::torn, 3);
}

/// That the tests above can fail: without syncs, a power failure takes what was acknowledged.
TEST(Faults, APowerFailureTakesWhatWasNotSynced) {
   FaultDisk disk;
   auto const config = Ptp::configFactory(workloadRoot);
   Database::create(file, disk.vfs());
   {
      Database database(file, Sync::never, disk.vfs());
      Recorder recorder(config, database.keep(*config).number);
      makeStep(*config, 1);
      Batch batch;
      recorder.take(batch);
      database.write(batch);
      disk.stopAt(disk.calls() + 1);
   }
   disk.crash(Crash::lost, 0);
   auto const restored = Ptp::configFactory(workloadRoot);
   Database(file, Sync::always, disk.vfs()).keep(*restored);
   EXPECT_EQ(restored->priority1(), 128);
}

/// With `Sync::never`, the file is sound even so, and holds the state after some step.
TEST(Faults, WithoutSyncsATornFileIsTheStateAfterSomeStep) {
   for (U32 seed = 0; seed != 60; ++seed) {
      FaultDisk disk;
      Database::create(file, disk.vfs());
      disk.crash(Crash::process, 0);
      {
         auto const config = Ptp::configFactory(workloadRoot);
         Database database(file, Sync::never, disk.vfs());
         Recorder recorder(config, database.keep(*config).number);
         for (int step = 1; step <= steps; ++step) {
            makeStep(*config, step);
            Batch batch;
            recorder.take(batch);
            database.write(batch);
         }
         disk.stopAt(disk.calls() + 1);
      }
      disk.crash(Crash::torn, seed);
      std::vector<std::string> const state = found(disk);
      ASSERT_NE(std::find(expected().begin(), expected().end(), state), expected().end())
            << "seed " << seed;
   }
}

void failAtEveryCall(int code, U64 count) {
   U64 const calls = callsOfARun();
   U64 reached = 0;
   for (U64 call = 1; call <= calls; ++call) {
      FaultDisk disk;
      disk.failFrom(call, count, code);
      int const acknowledged = Worker(disk).to(steps, true);
      disk.crash(Crash::torn, static_cast<U32>(call));
      if (acknowledged < 0) {
         continue;
      }
      reached += acknowledged == steps ? 1 : 0;
      std::vector<std::string> const state = found(disk);
      auto const begun = static_cast<std::size_t>(std::min(acknowledged + 1, steps));
      ASSERT_TRUE(state == expected()[static_cast<std::size_t>(acknowledged)] ||
                  state == expected()[begun])
            << "failed from call " << call << " on, after step " << acknowledged;
   }
   EXPECT_GT(reached, calls / 2);  // most runs go on when the disk works again
}

TEST(Faults, AFullDiskAtEveryCallLosesNothingAcknowledged) {
   failAtEveryCall(SQLITE_FULL, 1);
   failAtEveryCall(SQLITE_FULL, 6);
}

TEST(Faults, AFailedWriteAtEveryCallLosesNothingAcknowledged) {
   failAtEveryCall(SQLITE_IOERR_WRITE, 1);
   failAtEveryCall(SQLITE_IOERR_WRITE, 6);
}

TEST(Faults, AFailedSyncAtEveryCallLosesNothingAcknowledged) {
   failAtEveryCall(SQLITE_IOERR_FSYNC, 1);
   failAtEveryCall(SQLITE_IOERR_FSYNC, 6);
}

TEST(Faults, AReadOnlyDiskRefusesWrites) {
   FaultDisk disk;
   ASSERT_EQ(Worker(disk).to(3), 3);
   Database database(file, Sync::always, disk.vfs());
   auto const config = Ptp::configFactory(workloadRoot);
   Recorder recorder(config, database.keep(*config).number);
   disk.failFrom(disk.calls() + 1, 1'000'000, SQLITE_READONLY);
   makeStep(*config, 4);
   Batch batch;
   recorder.take(batch);
   EXPECT_THROW(database.write(batch), SqliteError);
   EXPECT_THROW(database.write(batch), SqliteError);
   disk.failFrom(0, 0, 0);
   database.write(batch);
   EXPECT_EQ(textOf(database.rows(1)), expected()[4]);
}

TEST(Faults, AFileThatIsCutAnywhereIsRefused) {
   FaultDisk disk;
   ASSERT_EQ(Worker(disk).to(4), 4);
   ASSERT_FALSE(disk.exists("/state.db-wal"));  // it was closed
   std::vector<U8> const whole = disk.bytes(file);
   for (std::size_t size = 0; size != whole.size(); ++size) {
      disk.bytes(file).assign(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      disk.remove("/state.db-wal");
      bool refused = false;
      try {
         Database const database(file, Sync::always, disk.vfs());
      } catch (SqliteError const&) {
         refused = true;
      } catch (Holt::Failure const&) {
         refused = true;
      }
      ASSERT_TRUE(refused) << "cut to " << size << " bytes of " << whole.size();
   }
   disk.remove("/state.db-wal");
   disk.bytes(file) = whole;
   EXPECT_EQ(found(disk), expected()[4]);
}

TEST(Faults, AJournalThatIsCutAnywhereLeavesTheStateAfterSomeStep) {
   FaultDisk disk;
   Database::create(file, disk.vfs());
   std::vector<U8> whole;
   std::vector<U8> journal;
   {
      auto const config = Ptp::configFactory(workloadRoot);
      { Database(file, Sync::always, disk.vfs()).keep(*config); }
      Database database(file, Sync::always, disk.vfs());
      Recorder recorder(config, 1);
      for (int step = 1; step <= 2; ++step) {
         makeStep(*config, step);
         Batch batch;
         recorder.take(batch);
         database.write(batch);
      }
      whole = disk.bytes(file);
      journal = disk.bytes("/state.db-wal");
   }
   std::size_t last = 0;
   constexpr std::size_t header = 32;
   constexpr std::size_t frame = 24 + 4096;
   for (std::size_t size = 0; size <= journal.size(); ++size) {
      // Every byte near the beginning and the end of a frame, and some of its checksummed content.
      std::size_t const in = size < header ? 0 : (size - header) % frame;
      if (in > 40 && in < frame - 8 && in % 61 != 0) {
         continue;
      }
      disk.bytes(file) = whole;
      disk.files()["/state.db-wal"] = {};
      disk.bytes("/state.db-wal")
            .assign(journal.begin(), journal.begin() + static_cast<std::ptrdiff_t>(size));
      std::vector<std::string> const state = [&] {
         Database database(file, Sync::always, disk.vfs());
         return textOf(database.rows(1));
      }();
      auto const at = std::find(expected().begin(), expected().end(), state);
      ASSERT_NE(at, expected().end()) << "cut to " << size << " bytes of " << journal.size();
      auto const step = static_cast<std::size_t>(at - expected().begin());
      ASSERT_GE(step, last);
      last = step;
   }
   EXPECT_EQ(last, 2U);
}

}  // namespace
}  // namespace Statedb

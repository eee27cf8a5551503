// What a recorder writes is the state, whatever has changed in whatever order.
#include "tools/statedb/Recorder.h"

#include <gtest/gtest.h>

#include "KivTest/SimulationChange.h"
#include "KivTest/TestTypes/Stem.h"
#include "tools/ptpstate/ProgramUnderTest.h"
#include "tools/statedb/FaultDisk.test.h"
#include "tools/statedb/Workload.test.h"

namespace Statedb {
namespace {

/// The first line that only one has.
std::string difference(std::vector<std::string> a, std::vector<std::string> b) {
   // Setters take them for equal, so the sign of a default does not come back.
   for (std::vector<std::string>* const lines : {&a, &b}) {
      for (std::string& line : *lines) {
         line = Ptpstate::replaced(line, "-0.0", "0.0");
      }
   }
   auto const [inA, inB] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
   return (inA == a.end() ? "" : *inA) + (inB == b.end() ? "" : ", not " + *inB);
}

class RecorderTest : public testing::Test {
protected:
   RecorderTest() {
      Database::create(file, disk.vfs());
      database = std::make_unique<Database>(file, Sync::never, disk.vfs());
   }

   void write(Recorder& recorder) {
      Batch batch;
      recorder.take(batch);
      database->write(batch);
   }

   FaultDisk disk;
   std::unique_ptr<Database> database;
};

TEST_F(RecorderTest, RandomChangesOfEveryKindOfMemberComeBack) {
   for (U64 seed = 1; seed != 40; ++seed) {
      KivTest::Chance chance(seed);
      std::string const name = "stem" + std::to_string(seed);
      auto const stem = KivTest::stemFactory(name);
      Recorder recorder(stem, database->keep(*stem).number);
      for (int turn = 0; turn != 12; ++turn) {
         for (std::size_t left = chance.below(30); left != 0; --left) {
            try {
               KivTest::changeAtRandom(*stem, chance);
            } catch (Kiv::Exception const&) {
               // a value out of bounds
            }
         }
         write(recorder);
         EXPECT_FALSE(recorder.hasChanges());
         auto const restored = KivTest::stemFactory(name);
         Kept const kept = database->keep(*restored);
         ASSERT_TRUE(kept.rejected.empty())
               << kept.rejected[0].path << ": " << kept.rejected[0].reason;
         ASSERT_EQ(difference(textOf(*restored), textOf(*stem)), "")
               << "seed " << seed << ", turn " << turn;
         ASSERT_EQ(difference(textOf(database->rows(kept.number)), textOf(*stem)), "");
      }
   }
}

TEST_F(RecorderTest, APlaceThatChangesOftenIsWrittenOnce) {
   auto const config = Ptp::configFactory(workloadRoot);
   Recorder recorder(config, database->keep(*config).number);
   for (int i = 0; i != 1000; ++i) {
      config->priority1Is(static_cast<U8>(i));
   }
   Batch batch;
   recorder.take(batch);
   ASSERT_EQ(batch.changes.size(), 1U);
   EXPECT_EQ(batch.changes[0].value, (ValueRow{"", "priority1", "", "231"}));
}

TEST_F(RecorderTest, ForgetsEntitiesThatComeAndGo) {
   auto const config = Ptp::configFactory(workloadRoot);
   Recorder recorder(config, database->keep(*config).number);
   for (int i = 0; i != 20'000; ++i) {
      Dorn::IntfId const name("Ethernet" + std::to_string(i));
      config->intfConfigIs(name, true, false)->logSyncIntervalIs(-2);
      config->intfConfigDel(name);
   }
   EXPECT_LE(recorder.entities(), 1100U);
   Batch batch;
   recorder.take(batch);
   EXPECT_LE(batch.changes.size(), 1200U);
   database->write(batch);
   EXPECT_EQ(textOf(database->rows(1)), textOf(*config));
}

TEST_F(RecorderTest, AValueOutOfRangeIsNamedAndKeptAside) {
   auto const config = Ptp::configFactory(workloadRoot);
   database->keep(*config);
   Batch batch;
   batch.changes.push_back({RowChange::Kind::putValue, 1, {}, {"", "priority1", "", "300"}});
   batch.changes.push_back({RowChange::Kind::putValue, 1, {}, {"", "sinceRemoved", "", "true"}});
   batch.changes.push_back({RowChange::Kind::putValue, 1, {}, {"", "priority2", "", "7"}});
   database->write(batch);
   auto const restored = Ptp::configFactory(workloadRoot);
   Kept const kept = database->keep(*restored);
   ASSERT_EQ(kept.rejected.size(), 2U);
   EXPECT_EQ(kept.rejected[0].root, "Ptp::Config=ptp/config");
   EXPECT_EQ(kept.rejected[0].path, "priority1");
   EXPECT_EQ(kept.rejected[0].value, "300");
   EXPECT_NE(kept.rejected[0].reason.find("300"), std::string::npos) << kept.rejected[0].reason;
   EXPECT_EQ(kept.rejected[1].path, "sinceRemoved");
   EXPECT_EQ(restored->priority1(), 128);
   EXPECT_EQ(restored->priority2(), 7);
   EXPECT_EQ(textOf(database->rows(1)), textOf(*restored));
   EXPECT_TRUE(database->keep(*Ptp::configFactory(workloadRoot)).rejected.empty());
   Sqlite db(file, false, disk.vfs());
   EXPECT_EQ(db.number("SELECT count(*) FROM rejected"), 2);
   EXPECT_EQ(db.text("SELECT value FROM rejected WHERE path = 'priority1'"), "300");
}

}  // namespace
}  // namespace Statedb

#include "tools/ptpexport/Metrics/Counters.h"

#include <gtest/gtest.h>

#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace Ptpexport::MetricsTest {
namespace {

class CountersTest : public testing::Test {
protected:
   Ptp::PortDSKey const key{Dorn::IntfId("eth0"), Bridging::VlanIdOrNone()};
   Sarn::Ptr<Ptp::Status> status = Ptp::statusFactory("ptp/status");
   Counters counters;
   double created = counters.begin(1000, 5000);
   double cleared = 0;

   Sarn::Ptr<Ptp::PortDS> port() { return status->portDSIs(key, Ptp::PortIdentity()); }
   Counters::Value take(U64 raw, unsigned bits = 32) {
      return counters.take(*port(), 0, 2, raw, bits, cleared, created);
   }
   U64 total(U64 raw, unsigned bits = 32) { return take(raw, bits).total; }
};

TEST_F(CountersTest, BeginAtWhatTheSourceShowsAndGrowWithIt) {
   EXPECT_EQ(total(17), 17u);
   EXPECT_EQ(total(17), 17u);
   EXPECT_EQ(total(20), 20u);
}

TEST_F(CountersTest, GoOnWhenTheSourceWrapsAround) {
   EXPECT_EQ(total(0xFFFFFFF0), 0xFFFFFFF0u);
   EXPECT_EQ(total(4), 0x100000004u);
   EXPECT_EQ(total(0xFFFFFFFF), 0x1FFFFFFFFu);
   EXPECT_EQ(total(0), 0x200000000u);
}

TEST_F(CountersTest, GoOnWhenANarrowCounterWrapsAround) {
   EXPECT_EQ(total(250, 8), 250u);
   EXPECT_EQ(total(3, 8), 259u);
}

TEST_F(CountersTest, AddWhatIsCountedAfterTheSourceWasSetBack) {
   EXPECT_EQ(total(1000), 1000u);
   EXPECT_EQ(total(7), 1007u);
   // Two thirds of the range: nobody counts a third of it between two scrapes.
   EXPECT_EQ(total(3'000'000'000), 3'000'001'000u);
   EXPECT_EQ(total(10), 3'000'001'010u);
}

TEST_F(CountersTest, AddAllAfterAClearThatTheSourceTells) {
   EXPECT_EQ(total(1000), 1000u);
   cleared = 4321;
   EXPECT_EQ(total(1500), 2500u) << "it has counted beyond the old number since";
   EXPECT_EQ(total(1501), 2501u);
   EXPECT_EQ(total(0xFFFFFFFF), 0x100000000u + 999);
   cleared = 4322;
   EXPECT_EQ(total(2), 0x100000000u + 1001) << "not a turn of the counter";
}

TEST_F(CountersTest, NeverGoBackwardsWhateverTheSourceShows) {
   U64 last = 0;
   U32 raw = 1;
   for (int i = 0; i != 100'000; ++i) {
      raw = raw * 1664525 + 1013904223;
      U64 const now = total(i % 3 == 0 ? raw >> 20 : raw);
      ASSERT_GE(now, last) << i;
      last = now;
   }
}

TEST_F(CountersTest, CountersOfAnEntityAreApart) {
   counters.take(*port(), 0, 2, 5, 32, 0, created);
   EXPECT_EQ(counters.take(*port(), 1, 2, 7, 32, 0, created).total, 7u);
   EXPECT_EQ(counters.take(*port(), 0, 2, 6, 32, 0, created).total, 6u);
}

TEST_F(CountersTest, WereCreatedWithTheSourceIfTheyAreThereAtFirst) {
   EXPECT_EQ(take(17).created, 1000);
   created = counters.begin(1000, 5015);
   EXPECT_EQ(take(18).created, 1000);
}

TEST_F(CountersTest, ALaterEntityWasCreatedWhenItWasMet) {
   created = counters.begin(1000, 5015);
   EXPECT_EQ(take(17).created, 5015);
}

TEST_F(CountersTest, ASourceOfUnknownAgeWasMetNow) {
   Counters others;
   EXPECT_EQ(others.begin(0, 5000), 5000);
   EXPECT_EQ(others.begin(0, 5015), 5015);
}

TEST_F(CountersTest, ARestartOfTheSourceBeginsNewSeries) {
   EXPECT_EQ(total(1000), 1000u);
   created = counters.begin(6000, 6015);
   EXPECT_EQ(take(2000).total, 2000u);
   EXPECT_EQ(take(2000).created, 6000);
}

TEST_F(CountersTest, APortThatIsCreatedAnewBeginsANewSeries) {
   EXPECT_EQ(total(1000), 1000u);
   status->portDSDel(key);
   EXPECT_EQ(total(2), 2u) << "even before the next scrape, and if it had the same address";
   created = counters.begin(1000, 5015);
   EXPECT_EQ(total(3), 3u);
   EXPECT_EQ(counters.entities(), 1u);
}

TEST_F(CountersTest, RemovedEntitiesAreForgottenAtTheNextScrape) {
   EXPECT_EQ(total(1000), 1000u);
   status->portDSDel(key);
   EXPECT_EQ(counters.entities(), 1u);
   counters.begin(1000, 5015);
   EXPECT_EQ(counters.entities(), 0u);
}

}  // namespace
}  // namespace Ptpexport::MetricsTest

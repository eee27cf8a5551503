#include "PtpLib/PtpStatusStatedbTypes/CurrentDS.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "KivTest/Observer.test.h"
#include "KivTest/Witness.h"

namespace Ptp {
namespace {

using KivTest::Witness;

class CurrentDSTest : public testing::Test {
protected:
   Sarn::Ptr<CurrentDS> dataSet = currentDSFactory();
};

TEST_F(CurrentDSTest, ResetOfAFreshOneMakesGeneration1AndNothingElse) {
   Witness published(*dataSet);
   dataSet->reset();
   EXPECT_EQ(published.changes(), "genId was Brim::Generation(count=0, flag=false)");
   EXPECT_EQ(dataSet->genId(), Brim::Generation(1, false));
   dataSet->reset();
   EXPECT_EQ(published.ids(), "");
}

TEST_F(CurrentDSTest, ResetPublishesWhatItChangesInItsOwnOrder) {
   dataSet->reset();
   dataSet->offsetFromMasterIs(5);
   dataSet->skewIs(2.0);
   Witness published(*dataSet);
   dataSet->reset();
   EXPECT_EQ(published.ids(), "259 270");
}

TEST_F(CurrentDSTest, ResetOfAWhollyChangedOneKeepsToItsOrder) {
   dataSet->stepsRemovedIs(Dorn::NetU16(3));
   dataSet->offsetFromMasterIs(1);
   dataSet->offsetFromHardwareIs(2);
   dataSet->meanPathDelayIs(3);
   dataSet->pathDelaySnapshotIs(4);
   dataSet->lastSyncLocalTimeIs(5);
   dataSet->realLastSyncLocalTimeIs(6);
   dataSet->lastSyncSystemTimeIs(7.5);
   dataSet->lastSyncSeqIdIs(8);
   dataSet->lastUpdatePortKeyIs(PortDSKey(Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone()));
   dataSet->skewNumeratorIs(9);
   dataSet->skewDenominatorIs(10);
   dataSet->skewIs(0.9);
   dataSet->gmPresentIs(true);
   dataSet->gptpRateRatioIs(1.1);
   dataSet->gptpCumulativeRateOffsetIs(12);
   dataSet->neighborRateRatioIs(1.2);
   dataSet->localClockMeanPathDelayIs(13);
   dataSet->pathTraceIs(0, Kiv::fromText<ClockIdentity>("00:11:22:ff:fe:33:44:55"));
   dataSet->genIdIs(Brim::Generation(7, true));
   Witness published(*dataSet);
   dataSet->reset();
   EXPECT_EQ(published.ids(), "260 259 263 264 265 268 269 270 261 274 275 272 273 262 279");
   EXPECT_EQ(dataSet->genId(), Brim::Generation(8, false));
   EXPECT_EQ(dataSet->stepsRemoved(), Dorn::NetU16(3));
   EXPECT_EQ(dataSet->lastSyncSeqId(), 8);
   EXPECT_EQ(dataSet->lastUpdatePortKey().intf(), Dorn::IntfId("Ethernet1"));
   EXPECT_TRUE(dataSet->gmPresent());
   EXPECT_EQ(dataSet->pathTraceLen(), 1u);
   dataSet->reset();
   EXPECT_EQ(published.ids(), "");
}

TEST_F(CurrentDSTest, ResetReplacesNotANumber) {
   dataSet->reset();
   double const notANumber = std::numeric_limits<double>::quiet_NaN();
   dataSet->lastSyncSystemTimeIs(notANumber);
   dataSet->skewIs(notANumber);
   dataSet->neighborRateRatioIs(notANumber);
   dataSet->gptpRateRatioIs(notANumber);
   Witness published(*dataSet);
   dataSet->reset();
   EXPECT_EQ(published.ids(), "265 270 274 272");
   EXPECT_EQ(dataSet->skew(), 1.0);
}

TEST_F(CurrentDSTest, ResetMakesGeneration7WithItsFlagGeneration8Without) {
   dataSet->genIdIs(Brim::Generation(7, true));
   Witness published(*dataSet);
   dataSet->reset();
   EXPECT_EQ(dataSet->genId(), Brim::Generation(8, false));
   EXPECT_EQ(published.changes(), "genId was Brim::Generation(count=7, flag=true)");
}

TEST_F(CurrentDSTest, ResetLeavesAGenerationWithoutFlagAlone) {
   dataSet->genIdIs(Brim::Generation(7, false));
   Witness published(*dataSet);
   dataSet->reset();
   EXPECT_EQ(published.ids(), "");
   dataSet->genIdIs(Brim::Generation(4294967295, true));
   dataSet->reset();
   EXPECT_EQ(dataSet->genId(), Brim::Generation(0, false));
}

TEST_F(CurrentDSTest, EqualIdentityInThePathTraceIsPublishedOnce) {
   auto const identity = Kiv::fromText<ClockIdentity>("00:11:22:ff:fe:33:44:55");
   Witness published(*dataSet);
   dataSet->pathTraceIs(0, identity);
   dataSet->pathTraceIs(0, identity);
   EXPECT_EQ(published.changes(), "pathTrace[0] was nothing");
   EXPECT_EQ(dataSet->pathTrace(0), identity);
   EXPECT_EQ(dataSet->pathTrace(1), ClockIdentity());
   dataSet->pathTraceIs(0, ClockIdentity());
   EXPECT_EQ(published.changes(), "pathTrace[0] was 00:11:22:ff:fe:33:44:55");
   dataSet->pathTraceDel(0);
   EXPECT_EQ(published.ids(), "276");
   dataSet->pathTraceDel(0);
   EXPECT_EQ(published.ids(), "");
}

TEST_F(CurrentDSTest, PathTraceHoldsAsManyAsThereArePositions) {
   for (int position = 0; position < 256; ++position) {
      dataSet->pathTraceIs(static_cast<U8>(position), ClockIdentity());
   }
   EXPECT_EQ(dataSet->pathTraceLen(), 256u);
   dataSet->pathTraceDelAll();
   EXPECT_EQ(dataSet->pathTraceLen(), 0u);
}

TEST_F(CurrentDSTest, ResetFinishesThoughObserversThrowAndThrowsTheFirst) {
   dataSet->reset();
   dataSet->offsetFromHardwareIs(2);
   dataSet->offsetFromMasterIs(1);
   dataSet->pathDelaySnapshotIs(4);
   dataSet->genIdIs(Brim::Generation(7, true));
   KivTest::Hears const hears(*dataSet, [](Kiv::Change const& change) {
      throw std::runtime_error("notified of " + std::to_string(change.attributeId));
   });
   EXPECT_EQ(KivTest::thrown<std::runtime_error>([&] { dataSet->reset(); }), "notified of 260");
   EXPECT_EQ(dataSet->offsetFromHardware(), 0);
   EXPECT_EQ(dataSet->offsetFromMaster(), 0);
   EXPECT_EQ(dataSet->pathDelaySnapshot(), 0);
   EXPECT_EQ(dataSet->genId(), Brim::Generation(8, false));
}

TEST_F(CurrentDSTest, ResetFinishesThoughAnObserverDropsTheLastReference) {
   dataSet->reset();
   dataSet->offsetFromHardwareIs(2);
   dataSet->offsetFromMasterIs(1);
   std::string told;
   KivTest::Hears hears(*dataSet, [&](Kiv::Change const& change) {
      told += std::to_string(change.attributeId) + ' ';
      dataSet.reset();
   });
   dataSet->reset();
   hears.entityGone();
   EXPECT_EQ(told, "260 259 ");
}

}  // namespace
}  // namespace Ptp

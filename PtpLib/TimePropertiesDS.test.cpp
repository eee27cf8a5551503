#include "PtpLib/PtpStatusStatedbTypes/TimePropertiesDS.h"

#include <gtest/gtest.h>

#include "KivTest/Observer.test.h"
#include "KivTest/Witness.h"

namespace Ptp {
namespace {

using KivTest::Witness;

class TimePropertiesDSTest : public testing::Test {
protected:
   Sarn::Ptr<TimePropertiesDS> dataSet = timePropertiesDSFactory();
};

TEST_F(TimePropertiesDSTest, FlagFieldSetsAllSixFlagsFromBit0Up) {
   Witness published(*dataSet);
   dataSet->flagFieldIs(0x3f);
   EXPECT_EQ(published.ids(), "261 260 259 264 262 263");
   EXPECT_EQ(dataSet->flagField(), 0x3f);
   dataSet->flagFieldIs(0x3f);
   EXPECT_EQ(published.ids(), "");
   dataSet->flagFieldIs(0);
   EXPECT_EQ(published.ids(), "261 260 259 264 262 263");
   EXPECT_EQ(dataSet->flagField(), 0);
}

TEST_F(TimePropertiesDSTest, FlagFieldIgnoresBits6And7) {
   Witness published(*dataSet);
   dataSet->flagFieldIs(0xc0);
   EXPECT_EQ(published.ids(), "");
   EXPECT_EQ(dataSet->flagField(), 0);
   dataSet->flagFieldIs(0xff);
   EXPECT_EQ(dataSet->flagField(), 0x3f);
}

TEST_F(TimePropertiesDSTest, FlagFieldPublishesOnlyWhatChanges) {
   dataSet->flagFieldIs(0x15);
   Witness published(*dataSet);
   dataSet->flagFieldIs(0x29);
   EXPECT_EQ(published.ids(), "259 264 262 263");
}

TEST_F(TimePropertiesDSTest, EachFlagHasItsBit) {
   using Get = bool (TimePropertiesDS::*)() const;
   using Set = void (TimePropertiesDS::*)(bool);
   struct Row {
      U8 bit;
      Get get;
      Set set;
   };
   Row const rows[] = {
         {0x01, &TimePropertiesDS::leap61, &TimePropertiesDS::leap61Is},
         {0x02, &TimePropertiesDS::leap59, &TimePropertiesDS::leap59Is},
         {0x04, &TimePropertiesDS::currentUtcOffsetValid,
          &TimePropertiesDS::currentUtcOffsetValidIs},
         {0x08, &TimePropertiesDS::ptpTimescale, &TimePropertiesDS::ptpTimescaleIs},
         {0x10, &TimePropertiesDS::timeTraceable, &TimePropertiesDS::timeTraceableIs},
         {0x20, &TimePropertiesDS::frequencyTraceable, &TimePropertiesDS::frequencyTraceableIs},
   };
   for (auto const& row : rows) {
      ((*dataSet).*row.set)(true);
      EXPECT_EQ(dataSet->flagField(), row.bit);
      dataSet->flagFieldIs(0);
      EXPECT_FALSE(((*dataSet).*row.get)());
      dataSet->flagFieldIs(row.bit);
      EXPECT_TRUE(((*dataSet).*row.get)());
      dataSet->flagFieldIs(0);
   }
}

TEST_F(TimePropertiesDSTest, FlagFieldSetsAllFlagsThoughObserversThrowAndThrowsTheFirst) {
   KivTest::Hears const hears(*dataSet, [](Kiv::Change const& change) {
      throw std::runtime_error("notified of " + std::to_string(change.attributeId));
   });
   EXPECT_EQ(KivTest::thrown<std::runtime_error>([&] { dataSet->flagFieldIs(0x3f); }),
             "notified of 261");
   EXPECT_EQ(dataSet->flagField(), 0x3f);
}

}  // namespace
}  // namespace Ptp

#include "Brim/Generation.h"

#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Brim::Generation;

namespace {

static_assert(Generation() == Generation(0, false));
static_assert(Generation(1, true) < Generation(2, false));

class GenerationProperties : public SeededTest {};

TEST(Generation, PrintsItsFieldsByName) {
   EXPECT_EQ(printed(Generation()), "Brim::Generation(count=0, flag=false)");
   EXPECT_EQ(printed(Generation(4294967295, true)),
             "Brim::Generation(count=4294967295, flag=true)");
}

TEST(Generation, ReadsWithBlanksAroundEveryToken) {
   EXPECT_EQ(Generation("Brim::Generation(count=1,flag=true)"), Generation(1, true));
   EXPECT_EQ(Generation(" Brim::Generation ( count = 1 , flag = true ) "), Generation(1, true));
}

TEST(Generation, TravelsAsCountThenFlag) {
   EXPECT_EQ(encoded(Generation(0x01020304, true)), (Bytes{1, 2, 3, 4, 1}));
   EXPECT_EQ(faultMessage<Generation>({0, 0, 0, 0, 2}), "a bool is neither 0 nor 1 at offset 4");
}

TEST(Generation, FieldThatDoesNotFitIsNamed) {
   EXPECT_EQ(rangeMessage<Generation>("Brim::Generation(count=4294967296, flag=false)"),
             "count: 4294967296 does not fit U32 (0 to 4294967295)");
}

TEST(Generation, BrokenStructureIsToldWithItsPlace) {
   EXPECT_EQ(parseMessage<Generation>(""), "at position 0: expected \"Brim::Generation\"");
   EXPECT_EQ(parseMessage<Generation>("Brim::Generation(1, false)"),
             "at position 17: expected \"count\"");
   EXPECT_EQ(parseMessage<Generation>("Brim::Generation(count=1)"),
             "at position 24: expected \",\"");
   EXPECT_EQ(parseMessage<Generation>("Brim::Generation(count=1, flag=1)"),
             "at position 31: expected true or false");
   EXPECT_EQ(parseMessage<Generation>("Brim::Generation(count=1, flag=true"),
             "at position 35: expected \")\"");
   EXPECT_EQ(parseMessage<Generation>("Brim::Generation(count=1, flag=true))"),
             "at position 36: text follows the value");
}

TEST(Generation, SettersSet) {
   Generation v;
   v.countIs(3);
   v.flagIs(true);
   EXPECT_EQ(v, Generation(3, true));
   EXPECT_EQ(v.count(), 3u);
   EXPECT_TRUE(v.flag());
}

TEST_F(GenerationProperties, EveryValueRoundTripsAndOrderingLawsHold) {
   std::vector<Generation> values{Generation(), Generation(0, true), Generation(1, false)};
   for (int i = 0; i < 3000; ++i) {
      Generation const v(static_cast<U32>(random()), (random() & 1) != 0);
      ASSERT_NO_FATAL_FAILURE(expectRoundTrips(v));
      if (i < 30) {
         values.push_back(v);
      }
   }
   expectOrderingLaws(values);
}

}  // namespace

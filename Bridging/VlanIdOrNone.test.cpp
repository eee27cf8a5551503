#include "Bridging/VlanIdOrNone.h"

#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Bridging::VlanIdOrNone;

namespace {

static_assert(VlanIdOrNone().isNone() && VlanIdOrNone(0).isNone());
static_assert(VlanIdOrNone(4094).value() == 4094 && VlanIdOrNone() < VlanIdOrNone(1));
static_assert(!std::is_convertible_v<U16, VlanIdOrNone>);

TEST(VlanIdOrNone, NoneIsTheDefaultAndZero) {
   EXPECT_TRUE(VlanIdOrNone().isNone());
   EXPECT_EQ(VlanIdOrNone().value(), 0);
   EXPECT_EQ(printed(VlanIdOrNone()), "none");
   EXPECT_EQ(encoded(VlanIdOrNone()), (Bytes{0, 0}));
   EXPECT_EQ(VlanIdOrNone("none"), VlanIdOrNone());
   expectRoundTrips(VlanIdOrNone());
}

TEST(VlanIdOrNone, EveryVlanRoundTripsAndEveryOtherNumberIsRefused) {
   for (U32 i = 1; i < 65536; ++i) {
      auto const id = static_cast<U16>(i);
      Bytes const bytes{static_cast<U8>(i >> 8), static_cast<U8>(i)};
      if (i <= 4094) {
         VlanIdOrNone const v(id);
         ASSERT_EQ(printed(v), std::to_string(i));
         ASSERT_EQ(encoded(v), bytes);
         ASSERT_NO_FATAL_FAILURE(expectRoundTrips(v));
         ASSERT_LT(VlanIdOrNone(static_cast<U16>(i - 1)), v);
      } else {
         if (i % 16 == 15) {
            ASSERT_THROW(VlanIdOrNone v(id), Kiv::RangeException) << i;
            ASSERT_THROW(VlanIdOrNone v(std::to_string(i)), Kiv::RangeException) << i;
         }
         ASSERT_THROW(decoded<VlanIdOrNone>(bytes), Kiv::NboAttrLog::FaultException) << i;
      }
   }
}

TEST(VlanIdOrNone, MessagesGiveTheRange) {
   EXPECT_EQ(rangeMessage<VlanIdOrNone>("4095"), "4095 is not a VLAN id (1 to 4094, or none)");
   EXPECT_EQ(rangeMessage<VlanIdOrNone>("0"), "0 is not a VLAN id (1 to 4094, or none)");
   EXPECT_EQ(messageOf<Kiv::RangeException>([] { VlanIdOrNone v(U16{4095}); }),
             "4095 is not a VLAN id (1 to 4094, or none)");
   EXPECT_EQ(faultMessage<VlanIdOrNone>({0x0f, 0xff}),
             "a VLAN id of 4095 exceeds 4094 at offset 0");
   for (std::string_view const text : {"", "None", "nonesuch", "none_", "none-1", "vlan1", "+1"}) {
      EXPECT_EQ(parseMessage<VlanIdOrNone>(text), "at position 0: expected a VLAN id or none")
            << text;
   }
   EXPECT_EQ(parseMessage<VlanIdOrNone>("1x"),
             "at position 0: expected a number of type Bridging::VlanIdOrNone");
}

TEST(VlanIdOrNone, OrderingLawsHold) {
   std::vector<VlanIdOrNone> values;
   for (U16 id = 0; id <= 4094; id = static_cast<U16>(id * 2 + 1)) {
      values.emplace_back(id);
      values.emplace_back(id);
   }
   expectOrderingLaws(values);
}

}  // namespace

#include <cstring>

#include "Dorn/NetU16.h"
#include "Dorn/NetU64.h"
#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Dorn::NetU16;
using Dorn::NetU64;

namespace {

static_assert(NetU16(0x1234).value() == 0x1234);
static_assert(NetU64(0x123456789abcdef0).value() == 0x123456789abcdef0);
static_assert(NetU16(2) < NetU16(256) && NetU64(2) < NetU64(256));
static_assert(!std::is_convertible_v<U16, NetU16> && !std::is_convertible_v<NetU16, U16>);
static_assert(!std::is_convertible_v<U64, NetU64> && !std::is_convertible_v<NetU64, U64>);
static_assert(sizeof(NetU16) == 2 && sizeof(NetU64) == 8);

class NetIntProperties : public SeededTest {};

TEST(NetU16, HoldsTheBytesOfTheWireInMemory) {
   NetU16 const v(0x1234);
   U8 bytes[2];
   std::memcpy(bytes, &v, sizeof v);
   EXPECT_EQ(bytes[0], 0x12);
   EXPECT_EQ(bytes[1], 0x34);
   EXPECT_EQ(encoded(v), (Bytes{0x12, 0x34}));
}

TEST(NetU64, HoldsTheBytesOfTheWireInMemory) {
   NetU64 const v(0x0102030405060708);
   U8 bytes[8];
   std::memcpy(bytes, &v, sizeof v);
   EXPECT_EQ(Bytes(bytes, bytes + 8), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
   EXPECT_EQ(encoded(v), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(NetU16, EveryValueRoundTripsAndOrdersAsTheNumber) {
   for (U32 i = 0; i < 65536; ++i) {
      NetU16 const v(static_cast<U16>(i));
      ASSERT_EQ(v.value(), i);
      ASSERT_EQ(printed(v), std::to_string(i));
      ASSERT_EQ(NetU16(std::string_view(printed(v))), v);
      ASSERT_EQ(decoded<NetU16>(encoded(v)), v);
      if (i % 64 < 2) {
         ASSERT_NO_FATAL_FAILURE(expectRoundTrips(v));
      }
      ASSERT_TRUE(i == 0 || NetU16(static_cast<U16>(i - 1)) < v);
   }
}

TEST(NetU16, WhatDoesNotFitIsARangeError) {
   EXPECT_EQ(rangeMessage<NetU16>("65536"), "65536 does not fit Dorn::NetU16 (0 to 65535)");
   EXPECT_EQ(rangeMessage<NetU16>("-1"), "-1 does not fit Dorn::NetU16 (0 to 65535)");
   EXPECT_EQ(parseMessage<NetU16>("x"), "at position 0: expected a number of type Dorn::NetU16");
   EXPECT_EQ(parseMessage<NetU16>("1 2"), "at position 2: text follows the value");
}

TEST(NetU64, WhatDoesNotFitIsARangeError) {
   EXPECT_EQ(NetU64("18446744073709551615").value(), ~U64{0});
   EXPECT_EQ(rangeMessage<NetU64>("18446744073709551616"),
             "18446744073709551616 does not fit Dorn::NetU64 (0 to 18446744073709551615)");
}

TEST_F(NetIntProperties, SixtyFourBitsRoundTripAndOrderAsTheNumber) {
   U64 before = 0;
   for (int i = 0; i < 4000; ++i) {
      U64 const number = random() >> random() % 64;
      NetU64 const v(number);
      ASSERT_EQ(v.value(), number);
      ASSERT_EQ(printed(v), std::to_string(number));
      ASSERT_NO_FATAL_FAILURE(expectRoundTrips(v));
      ASSERT_EQ(NetU64(before) <=> v, before <=> number);
      before = number;
   }
}

TEST_F(NetIntProperties, OrderingLawsHold) {
   std::vector<NetU64> values{NetU64(), NetU64(1), NetU64(1), NetU64(256), NetU64(~U64{0})};
   for (int i = 0; i < 30; ++i) {
      values.emplace_back(random() >> random() % 64);
   }
   expectOrderingLaws(values);
}

}  // namespace

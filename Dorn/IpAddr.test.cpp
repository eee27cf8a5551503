#include "Dorn/IpAddr.h"

#include <arpa/inet.h>

#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Dorn::IpAddr;

namespace {

constexpr IpAddr general("224.0.1.129");
static_assert(general == IpAddr(224, 0, 1, 129));
static_assert(general.value() == 0xe0000181 && general.isMulticast());
static_assert(IpAddr() == IpAddr("0.0.0.0") && !IpAddr("10.0.0.1").isMulticast());

class IpAddrProperties : public SeededTest {};

TEST(IpAddr, PrintsADottedQuad) {
   EXPECT_EQ(printed(IpAddr()), "0.0.0.0");
   EXPECT_EQ(printed(general), "224.0.1.129");
   EXPECT_EQ(printed(IpAddr(0xffffffff)), "255.255.255.255");
}

TEST(IpAddr, TravelsAsFourBytesInTransmissionOrder) {
   EXPECT_EQ(encoded(general), (Bytes{224, 0, 1, 129}));
}

TEST(IpAddr, MessagesSayWhatIsWrong) {
   EXPECT_EQ(rangeMessage<IpAddr>("10.0.0.256"),
             "\"10.0.0.256\" is not an IPv4 address: a number exceeds 255");
   EXPECT_EQ(rangeMessage<IpAddr>("10.0.0"),
             "\"10.0.0\" is not an IPv4 address: it needs four numbers with dots between them");
   EXPECT_EQ(rangeMessage<IpAddr>("10.0.0.01"),
             "\"10.0.0.01\" is not an IPv4 address: a number has a leading zero");
   EXPECT_EQ(rangeMessage<IpAddr>("10.0.0.1.5"),
             "\"10.0.0.1.5\" is not an IPv4 address: there is text after the fourth number");
   EXPECT_EQ(parseMessage<IpAddr>(" ("), "at position 1: expected an IPv4 address");
   EXPECT_EQ(parseMessage<IpAddr>("10.0.0.1/8"), "at position 8: text follows the value");
}

TEST(IpAddr, RefusesEveryOtherSpelling) {
   for (std::string_view const text :
        {"1", "1.2", "1.2.3", "1.2.3.", ".1.2.3", "1..2.3", "00.0.0.0", "1.2.3.4x", "0x1.2.3.4",
         "-1.2.3.4", "1.2.3.-4", "1.2.3.4.", "99999999999999999999.1.1.1", "1.2.3.4294967296",
         "none", "::1"}) {
      EXPECT_THROW(IpAddr v(text), Kiv::RangeException) << text;
   }
}

TEST(IpAddr, OrdersAsANumber) {
   expectAscending<IpAddr>({IpAddr(), IpAddr("9.255.255.255"), IpAddr("10.0.0.2"),
                            IpAddr("10.0.0.10"), IpAddr("128.0.0.0"), IpAddr("255.255.255.255")});
}

TEST_F(IpAddrProperties, EveryAddressRoundTripsAndAgreesWithTheSystem) {
   for (int i = 0; i < 3000; ++i) {
      IpAddr const v(static_cast<U32>(random()));
      ASSERT_NO_FATAL_FAILURE(expectRoundTrips(v));
      in_addr system{};
      ASSERT_EQ(inet_pton(AF_INET, printed(v).c_str(), &system), 1);
      ASSERT_EQ(ntohl(system.s_addr), v.value());
   }
}

TEST_F(IpAddrProperties, AcceptsWhatTheSystemAccepts) {
   static constexpr std::string_view alphabet = "0012345689..";
   int accepted = 0;
   for (int i = 0; i < 50000; ++i) {
      Sarn::String text;
      for (int part = 0; part < 4; ++part) {
         text += part == 0 ? "" : ".";
         for (U64 n = random() % 3 + 1; n > 0; --n) {
            text += alphabet[random() % (i % 2 == 0 ? 10 : 12)];
         }
      }
      in_addr system{};
      bool const valid = inet_pton(AF_INET, text.c_str(), &system) == 1;
      U32 value = 0;
      ASSERT_EQ(IpAddr::misspelling(text, value) == nullptr, valid) << text;
      if (valid) {
         ++accepted;
         ASSERT_EQ(value, ntohl(system.s_addr)) << text;
      }
   }
   EXPECT_GT(accepted, 500);
}

TEST_F(IpAddrProperties, OrderingLawsHold) {
   std::vector<IpAddr> values{IpAddr(), general, general};
   for (int i = 0; i < 40; ++i) {
      values.emplace_back(static_cast<U32>(random()));
   }
   expectOrderingLaws(values);
}

}  // namespace

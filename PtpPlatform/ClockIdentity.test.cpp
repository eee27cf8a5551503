#include "PtpPlatform/ClockIdentity.h"

#include "PtpPlatform/Ip6Groups.h"
#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Ptp::ClockIdentity;

namespace {

constexpr ClockIdentity fromMac(Dorn::EthAddr("00:11:22:33:44:55"));
static_assert(fromMac == ClockIdentity(U64{0x001122fffe334455}));
static_assert(ClockIdentity(fromMac.bytes()) == fromMac);
static_assert(ClockIdentity() < fromMac);
static_assert(ClockIdentity(fromMac.identity()) == fromMac);

class ClockIdentityProperties : public SeededTest {};

TEST(ClockIdentity, DefaultIsAllZero) {
   EXPECT_EQ(printed(ClockIdentity()), "00:00:00:00:00:00:00:00");
}

TEST(ClockIdentity, OfAMacAddressHasFffeInTheMiddle) {
   EXPECT_EQ(printed(fromMac), "00:11:22:ff:fe:33:44:55");
   EXPECT_EQ(printed(ClockIdentity(Dorn::EthAddr("ff:ff:ff:00:00:00"))), "ff:ff:ff:ff:fe:00:00:00");
}

TEST(ClockIdentity, ReadsTheThreeSpellingsInEitherCase) {
   for (std::string_view const text :
        {"00:11:22:ff:fe:33:44:55", "00:11:22:FF:FE:33:44:55", "00-11-22-FF-FE-33-44-55",
         "001122.fffe.334455", "001122.FFFE.334455", "  001122.fffe.334455  "}) {
      EXPECT_EQ(ClockIdentity(text), fromMac) << text;
   }
   EXPECT_EQ(ClockIdentity("00:11:22:33:44:55:66:77").value(), 0x0011223344556677u);
}

TEST(ClockIdentity, TravelsAsEightBytesInTransmissionOrder) {
   EXPECT_EQ(encoded(fromMac), (Bytes{0, 0x11, 0x22, 0xff, 0xfe, 0x33, 0x44, 0x55}));
   EXPECT_EQ(ClockIdentity::kivMaxEncodedSize, 8u);
}

TEST(ClockIdentity, RefusesEverythingElse) {
   EXPECT_EQ(rangeMessage<ClockIdentity>("00:11:22:33:44:55"),
             "\"00:11:22:33:44:55\" is not a clock identity, such as 00:11:22:ff:fe:33:44:55");
   EXPECT_EQ(parseMessage<ClockIdentity>(""), "at position 0: expected a clock identity");
   EXPECT_EQ(parseMessage<ClockIdentity>("001122.fffe.334455/1"),
             "at position 18: text follows the value");
   for (std::string_view const text :
        {"00:11:22:ff:fe:33:44:5", "00:11:22:ff:fe:33:44:555", "00:11:22:ff:fe:33:44-55",
         "0011.22ff.fe33.4455", "001122fffe334455", "001122:fffe:334455", "0:1:2:f:e:3:4:5",
         "001122.fffe.33445g", "00:11:22:ff:fe:33:44:55:"}) {
      EXPECT_THROW(ClockIdentity v(text), Kiv::RangeException) << text;
   }
}

TEST(ClockIdentity, OrdersAsANumber) {
   expectAscending<ClockIdentity>({ClockIdentity(), ClockIdentity("00:00:00:00:00:00:00:ff"),
                                   ClockIdentity("00:00:00:00:00:00:01:00"), fromMac,
                                   ClockIdentity("ff:00:00:00:00:00:00:00")});
}

TEST_F(ClockIdentityProperties, EveryIdentityRoundTripsAndOrderingLawsHold) {
   std::vector<ClockIdentity> values{ClockIdentity(), fromMac, fromMac};
   for (int i = 0; i < 1500; ++i) {
      ClockIdentity const v(U64{random()});
      ASSERT_NO_FATAL_FAILURE(expectRoundTrips(v));
      ASSERT_EQ(ClockIdentity(v.bytes()), v);
      if (i < 30) {
         values.push_back(v);
      }
   }
   expectOrderingLaws(values);
}

TEST(Ip6Groups, AreThoseOfTheStandard) {
   EXPECT_EQ(printed(Ptp::ptpMcastIp6Addr()), "ff0e::181");
   EXPECT_EQ(printed(Ptp::ptpPdelayIp6Addr()), "ff02::6b");
}

}  // namespace

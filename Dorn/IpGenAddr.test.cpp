#include "Dorn/IpGenAddr.h"

#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Dorn::Ip6Addr;
using Dorn::IpAddr;
using Dorn::IpGenAddr;

namespace {

static_assert(!IpGenAddr().isSet());
static_assert(IpGenAddr() != IpGenAddr(IpAddr()));
static_assert(IpGenAddr() != IpGenAddr(Ip6Addr()));
static_assert(IpGenAddr(IpAddr()) != IpGenAddr(Ip6Addr()));
static_assert(IpGenAddr() < IpGenAddr(IpAddr()));
static_assert(IpGenAddr(IpAddr(0xffffffff)) < IpGenAddr(Ip6Addr()));
static_assert(IpGenAddr(IpAddr(10, 0, 0, 1)).v4() == IpAddr(10, 0, 0, 1));

class IpGenAddrProperties : public SeededTest {
protected:
   IpGenAddr any() {
      switch (random() % 8) {
         case 0:
            return IpGenAddr();
         case 1:
         case 2:
         case 3:
            return IpGenAddr(IpAddr(static_cast<U32>(random() >> random() % 64)));
         default:
            return IpGenAddr(Ip6Addr(random() >> random() % 64, random() >> random() % 64));
      }
   }
};

TEST(IpGenAddr, UnsetDiffersFromTheZeroAddressOfEitherFamily) {
   IpGenAddr const unset;
   IpGenAddr const zero4("0.0.0.0");
   IpGenAddr const zero6("::");
   EXPECT_EQ(printed(unset), "none");
   EXPECT_EQ(printed(zero4), "0.0.0.0");
   EXPECT_EQ(printed(zero6), "::");
   expectAscending<IpGenAddr>({unset, zero4, zero6});
   EXPECT_NE(unset.hash(1), zero4.hash(1));
   EXPECT_NE(unset.hash(1), zero6.hash(1));
   EXPECT_NE(zero4.hash(1), zero6.hash(1));
   EXPECT_EQ(IpGenAddr("none"), unset);
}

TEST(IpGenAddr, FamilyComesFromTheText) {
   EXPECT_TRUE(IpGenAddr("224.0.1.129").isV4());
   EXPECT_TRUE(IpGenAddr("ff0e::181").isV6());
   EXPECT_TRUE(IpGenAddr("::ffff:192.0.2.1").isV6());
   EXPECT_EQ(IpGenAddr("224.0.1.129").family(), IpGenAddr::Family::v4);
}

TEST(IpGenAddr, AccessorOfTheOtherFamilyIsZero) {
   EXPECT_EQ(IpGenAddr("224.0.1.129").v4(), IpAddr("224.0.1.129"));
   EXPECT_EQ(IpGenAddr("224.0.1.129").v6(), Ip6Addr());
   EXPECT_EQ(IpGenAddr("ff0e::181").v6(), Ip6Addr("ff0e::181"));
   EXPECT_EQ(IpGenAddr("ff0e::181").v4(), IpAddr());
   EXPECT_EQ(IpGenAddr().v4(), IpAddr());
   EXPECT_EQ(IpGenAddr().v6(), Ip6Addr());
   EXPECT_TRUE(IpGenAddr("224.0.1.129").isMulticast());
   EXPECT_TRUE(IpGenAddr("ff0e::181").isMulticast());
   EXPECT_FALSE(IpGenAddr().isMulticast());
   EXPECT_FALSE(IpGenAddr("10.0.0.1").isMulticast());
}

TEST(IpGenAddr, OrdersUnsetThenV4ThenV6) {
   expectAscending<IpGenAddr>({IpGenAddr(), IpGenAddr("0.0.0.0"), IpGenAddr("9.0.0.0"),
                               IpGenAddr("10.0.0.0"), IpGenAddr("255.255.255.255"), IpGenAddr("::"),
                               IpGenAddr("::1"), IpGenAddr("1::"), IpGenAddr("ff0e::181")});
}

TEST(IpGenAddr, TravelsAsFamilyAndAddress) {
   EXPECT_EQ(encoded(IpGenAddr()), (Bytes{0, 0, 0, 0}));
   EXPECT_EQ(encoded(IpGenAddr("10.0.0.1")), (Bytes{0, 0, 0, 4, 10, 0, 0, 1}));
   EXPECT_EQ(encoded(IpGenAddr("ff0e::181")),
             (Bytes{0, 0, 0, 6, 0xff, 0x0e, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0x81}));
   EXPECT_EQ(IpGenAddr::kivMaxEncodedSize, 20u);
}

TEST(IpGenAddr, AnotherFamilyInTheStreamIsAFault) {
   EXPECT_EQ(faultMessage<IpGenAddr>({0, 0, 0, 5, 1, 2, 3, 4}),
             "an address family of 5 is not 0, 4 or 6 at offset 0");
   EXPECT_EQ(faultMessage<IpGenAddr>({4, 0, 0, 0}),
             "an address family of 67108864 is not 0, 4 or 6 at offset 0");
   for (U32 family = 0; family < 4096; ++family) {
      Bytes bytes(20);
      bytes[2] = static_cast<U8>(family >> 8);
      bytes[3] = static_cast<U8>(family);
      bytes.resize(family == 0 ? 4 : family == 4 ? 8 : 20);
      if (family == 0 || family == 4 || family == 6) {
         EXPECT_EQ(decoded<IpGenAddr>(bytes).bitCount() / 8u + 4, bytes.size());
      } else {
         ASSERT_THROW(decoded<IpGenAddr>(bytes), Kiv::NboAttrLog::FaultException) << family;
      }
   }
}

TEST(IpGenAddr, MalformedTextIsARangeErrorThatAFieldsNameCanGoBefore) {
   EXPECT_EQ(rangeMessage<IpGenAddr>("10.0.0.256"),
             "\"10.0.0.256\" is not an IPv4 address: a number exceeds 255");
   EXPECT_EQ(rangeMessage<IpGenAddr>("1:2"),
             "\"1:2\" is not an IPv6 address: it has fewer than eight groups and no \"::\"");
   EXPECT_EQ(rangeMessage<IpGenAddr>("unset"),
             "\"unset\" is not an IPv4 address: it needs four numbers with dots between them");
   EXPECT_EQ(parseMessage<IpGenAddr>(""), "at position 0: expected an IP address or none");
   EXPECT_THROW(IpGenAddr("None"), Kiv::RangeException);
   EXPECT_THROW(IpGenAddr("none4"), Kiv::RangeException);
}

TEST_F(IpGenAddrProperties, EveryValueRoundTrips) {
   for (int i = 0; i < 3000; ++i) {
      ASSERT_NO_FATAL_FAILURE(expectRoundTrips(any()));
   }
}

TEST_F(IpGenAddrProperties, OrderingLawsHold) {
   std::vector<IpGenAddr> values{IpGenAddr(), IpGenAddr(), IpGenAddr(IpAddr()),
                                 IpGenAddr(Ip6Addr())};
   for (int i = 0; i < 40; ++i) {
      values.push_back(any());
   }
   expectOrderingLaws(values);
}

}  // namespace

#include "Dorn/IpGenAddrWithMask.h"

#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Dorn::Ip6Addr;
using Dorn::IpAddr;
using Dorn::IpGenAddr;
using Dorn::IpGenAddrWithMask;

namespace {

class IpGenAddrWithMaskProperties : public SeededTest {
protected:
   IpGenAddrWithMask any() {
      switch (random() % 8) {
         case 0:
            return IpGenAddrWithMask();
         case 1:
         case 2:
         case 3:
            return {IpGenAddr(IpAddr(static_cast<U32>(random()))), static_cast<U8>(random() % 33)};
         default:
            return {IpGenAddr(Ip6Addr(random(), random())), static_cast<U8>(random() % 129)};
      }
   }
};

TEST(IpGenAddrWithMask, PrintsAddressAndLength) {
   EXPECT_EQ(printed(IpGenAddrWithMask()), "none");
   EXPECT_EQ(printed(IpGenAddrWithMask("10.0.0.0/8")), "10.0.0.0/8");
   EXPECT_EQ(printed(IpGenAddrWithMask("2001:DB8::/32")), "2001:db8::/32");
   EXPECT_EQ(printed(IpGenAddrWithMask(" 0.0.0.0/0 ")), "0.0.0.0/0");
   EXPECT_EQ(printed(IpGenAddrWithMask("::/0")), "::/0");
}

TEST(IpGenAddrWithMask, AddressAloneIsThatOneAddress) {
   EXPECT_EQ(IpGenAddrWithMask("10.1.2.3"), IpGenAddrWithMask("10.1.2.3/32"));
   EXPECT_EQ(IpGenAddrWithMask("2001:db8::1"), IpGenAddrWithMask("2001:db8::1/128"));
   EXPECT_EQ(IpGenAddrWithMask("none"), IpGenAddrWithMask());
}

TEST(IpGenAddrWithMask, KeepsTheBitsBeyondTheMask) {
   IpGenAddrWithMask const v("10.1.2.3/8");
   EXPECT_EQ(printed(v), "10.1.2.3/8");
   EXPECT_NE(v, IpGenAddrWithMask("10.0.0.0/8"));
   EXPECT_EQ(v.network(), IpGenAddrWithMask("10.0.0.0/8"));
   EXPECT_EQ(v.address(), IpGenAddr("10.1.2.3"));
   EXPECT_EQ(v.length(), 8);
   EXPECT_EQ(IpGenAddrWithMask("2001:db8:ffff::1/33").network(),
             IpGenAddrWithMask("2001:db8:8000::/33"));
   EXPECT_EQ(IpGenAddrWithMask("1:2:3:4:ffff::1/65").network(),
             IpGenAddrWithMask("1:2:3:4:8000::/65"));
   EXPECT_EQ(IpGenAddrWithMask("1:2:3:4:5:6:7:8/64").network(), IpGenAddrWithMask("1:2:3:4::/64"));
   EXPECT_EQ(IpGenAddrWithMask("1.2.3.4/0").network(), IpGenAddrWithMask("0.0.0.0/0"));
   EXPECT_EQ(IpGenAddrWithMask().network(), IpGenAddrWithMask());
}

TEST(IpGenAddrWithMask, ContainsWhatAgreesInTheLeadingBits) {
   IpGenAddrWithMask const v("10.1.2.3/8");
   EXPECT_TRUE(v.contains(IpGenAddr("10.255.0.1")));
   EXPECT_FALSE(v.contains(IpGenAddr("11.0.0.0")));
   EXPECT_FALSE(v.contains(IpGenAddr("::10.1.2.3")));
   EXPECT_FALSE(v.contains(IpGenAddr()));
   EXPECT_TRUE(IpGenAddrWithMask("0.0.0.0/0").contains(IpGenAddr("255.255.255.255")));
   EXPECT_FALSE(IpGenAddrWithMask("0.0.0.0/0").contains(IpGenAddr("::")));
   EXPECT_TRUE(IpGenAddrWithMask("2001:db8::/32").contains(IpGenAddr("2001:db8:ffff::1")));
   EXPECT_FALSE(IpGenAddrWithMask().contains(IpGenAddr()));
}

TEST(IpGenAddrWithMask, LengthBeyondTheAddressIsRefused) {
   EXPECT_EQ(rangeMessage<IpGenAddrWithMask>("10.0.0.0/33"),
             "a mask of 33 bits exceeds the address's 32");
   EXPECT_EQ(rangeMessage<IpGenAddrWithMask>("::/129"),
             "a mask of 129 bits exceeds the address's 128");
   EXPECT_EQ(rangeMessage<IpGenAddrWithMask>("::/99999999999999999999999"),
             "a mask of 99999999999999999999999 bits exceeds the address's 128");
   EXPECT_EQ(messageOf<Kiv::RangeException>([] { IpGenAddrWithMask v(IpGenAddr("1.2.3.4"), 33); }),
             "a mask of 33 bits exceeds the address's 32");
   EXPECT_EQ(messageOf<Kiv::RangeException>([] { IpGenAddrWithMask v(IpGenAddr(), 1); }),
             "a mask of 1 bits exceeds the address's 0");
}

TEST(IpGenAddrWithMask, BrokenTextIsToldWithItsPlace) {
   EXPECT_EQ(parseMessage<IpGenAddrWithMask>("10.0.0.0/"),
             "at position 9: expected the number of leading bits");
   EXPECT_EQ(parseMessage<IpGenAddrWithMask>("10.0.0.0/-1"),
             "at position 9: expected the number of leading bits");
   EXPECT_EQ(parseMessage<IpGenAddrWithMask>("10.0.0.0/8.0"),
             "at position 9: expected a number of type U8");
   EXPECT_EQ(parseMessage<IpGenAddrWithMask>("none/0"), "at position 4: text follows the value");
   EXPECT_EQ(parseMessage<IpGenAddrWithMask>("10.0.0.0 /8"),
             "at position 9: text follows the value");
   EXPECT_EQ(rangeMessage<IpGenAddrWithMask>("10.0.0/8"),
             "\"10.0.0\" is not an IPv4 address: it needs four numbers with dots between them");
}

TEST(IpGenAddrWithMask, TravelsAsAddressThenLength) {
   EXPECT_EQ(encoded(IpGenAddrWithMask()), (Bytes{0, 0, 0, 0, 0}));
   EXPECT_EQ(encoded(IpGenAddrWithMask("10.0.0.0/8")), (Bytes{0, 0, 0, 4, 10, 0, 0, 0, 8}));
   EXPECT_EQ(IpGenAddrWithMask::kivMaxEncodedSize, 21u);
   EXPECT_EQ(faultMessage<IpGenAddrWithMask>({0, 0, 0, 4, 10, 0, 0, 0, 33}),
             "a mask of 33 bits exceeds the address's 32 at offset 8");
   EXPECT_EQ(faultMessage<IpGenAddrWithMask>({0, 0, 0, 0, 1}),
             "a mask of 1 bits exceeds the address's 0 at offset 4");
}

TEST(IpGenAddrWithMask, OrdersByAddressThenLength) {
   expectAscending<IpGenAddrWithMask>(
         {IpGenAddrWithMask(), IpGenAddrWithMask("0.0.0.0/0"), IpGenAddrWithMask("10.0.0.0/8"),
          IpGenAddrWithMask("10.0.0.0/16"), IpGenAddrWithMask("10.0.0.1/8"),
          IpGenAddrWithMask("::/0"), IpGenAddrWithMask("2001:db8::/32")});
}

TEST(IpGenAddrWithMask, EveryLengthRoundTrips) {
   for (unsigned length = 0; length <= 128; ++length) {
      expectRoundTrips(IpGenAddrWithMask(IpGenAddr("1:2:3:4:5:6:7:8"), static_cast<U8>(length)),
                       ",)] \t");
      if (length <= 32) {
         expectRoundTrips(IpGenAddrWithMask(IpGenAddr("1.2.3.4"), static_cast<U8>(length)),
                          ",)] \t/");
      }
   }
}

TEST_F(IpGenAddrWithMaskProperties, EveryValueRoundTrips) {
   for (int i = 0; i < 3000; ++i) {
      ASSERT_NO_FATAL_FAILURE(expectRoundTrips(any()));
   }
}

TEST_F(IpGenAddrWithMaskProperties, NetworkAgreesWithBitByBit) {
   for (int i = 0; i < 3000; ++i) {
      IpGenAddrWithMask const v(IpGenAddr(Ip6Addr(random(), random())),
                                static_cast<U8>(random() % 129));
      Ip6Addr::Bytes bytes = v.address().v6().bytes();
      for (unsigned bit = v.length(); bit < 128; ++bit) {
         bytes[bit / 8] = static_cast<U8>(bytes[bit / 8] & ~(0x80u >> bit % 8));
      }
      ASSERT_EQ(v.network().address().v6(), Ip6Addr(bytes)) << printed(v);
      ASSERT_TRUE(v.contains(v.address()));
      if (v.length() > 0) {
         unsigned const flip = v.length() - 1u;
         bytes[flip / 8] = static_cast<U8>(bytes[flip / 8] ^ (0x80u >> flip % 8));
         ASSERT_FALSE(v.contains(IpGenAddr(Ip6Addr(bytes)))) << printed(v);
      }
   }
}

TEST_F(IpGenAddrWithMaskProperties, OrderingLawsHold) {
   std::vector<IpGenAddrWithMask> values{IpGenAddrWithMask(), IpGenAddrWithMask("1.2.3.4/8"),
                                         IpGenAddrWithMask("1.2.3.4/9")};
   for (int i = 0; i < 40; ++i) {
      values.push_back(any());
   }
   values.push_back(values.back());
   expectOrderingLaws(values);
}

}  // namespace

#include "Dorn/EthAddr.h"

#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Dorn::EthAddr;

namespace {

constexpr EthAddr pdelay("01:80:c2:00:00:0e");
static_assert(pdelay == EthAddr(0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e));
static_assert(pdelay.value() == 0x0180c200000e);
static_assert(EthAddr("0180.C200.000e") == pdelay);
static_assert(EthAddr() < pdelay && pdelay.isMulticast() && !EthAddr().isMulticast());

class EthAddrProperties : public SeededTest {
protected:
   EthAddr any() {
      EthAddr::Bytes bytes;
      for (U8& byte : bytes) {
         byte = static_cast<U8>(random());
      }
      return EthAddr(bytes);
   }
};

TEST(EthAddr, DefaultIsAllZero) {
   EXPECT_EQ(printed(EthAddr()), "00:00:00:00:00:00");
   EXPECT_EQ(EthAddr().value(), 0u);
}

TEST(EthAddr, ReadsTheThreeSpellingsInEitherCase) {
   for (std::string_view const text :
        {"01:80:c2:00:00:0e", "01:80:C2:00:00:0E", "01-80-C2-00-00-0E", "01-80-c2-00-00-0e",
         "0180.c200.000e", "0180.C200.000E", "  01-80-C2-00-00-0E "}) {
      EXPECT_EQ(EthAddr(text), pdelay) << text;
   }
}

TEST(EthAddr, PrintsLowerCaseWithColons) {
   EXPECT_EQ(printed(EthAddr("01-80-C2-00-00-0E")), "01:80:c2:00:00:0e");
}

TEST(EthAddr, TravelsAsSixBytesInTransmissionOrder) {
   EXPECT_EQ(encoded(pdelay), (Bytes{0x01, 0x80, 0xc2, 0, 0, 0x0e}));
   EXPECT_EQ(EthAddr::kivMaxEncodedSize, 6u);
}

TEST(EthAddr, RefusesEverythingElseByRange) {
   EXPECT_EQ(rangeMessage<EthAddr>("01:80:c2:00:00:0g"),
             "\"01:80:c2:00:00:0g\" is not a MAC address, such as 01:80:c2:00:00:0e");
   for (std::string_view const text :
        {"01:80:c2:00:00", "01:80:c2:00:00:0e:01", "01:80-c2:00:00:0e", "01-80-c2-00-00:0e",
         "180.c200.000e", "0180:c200:000e", "0180-c200-000e", "0180c200000e", "01.80.c2.00.00.0e",
         "1:80:c2:0:0:e", "01:80:c2:00:00:0e:", ":1:80:c2:00:00:0e", "01::80:c2:00:0:0e", "none",
         "0180.c200.00.0"}) {
      EXPECT_THROW(EthAddr v(text), Kiv::RangeException) << text;
   }
}

TEST(EthAddr, NoWordIsABrokenStructure) {
   EXPECT_EQ(parseMessage<EthAddr>(""), "at position 0: expected a MAC address");
   EXPECT_EQ(parseMessage<EthAddr>("  ,"), "at position 2: expected a MAC address");
   EXPECT_EQ(parseMessage<EthAddr>("01:80:c2:00:00:0e x"),
             "at position 18: text follows the value");
}

TEST(EthAddr, ShortMessageIsAFault) {
   EXPECT_EQ(faultMessage<EthAddr>({1, 2, 3, 4, 5}),
             "bytes <= readableBytes(): a value of 6 bytes stands where the message has 5 left at "
             "offset 0");
}

TEST(EthAddr, OrdersAsANumber) {
   expectAscending<EthAddr>({EthAddr(), EthAddr("00:00:00:00:00:ff"), EthAddr("00:00:00:00:01:00"),
                             EthAddr("7f:ff:ff:ff:ff:ff"), EthAddr("80:00:00:00:00:00"),
                             EthAddr("ff:ff:ff:ff:ff:ff")});
}

TEST_F(EthAddrProperties, EveryAddressRoundTripsInEverySpelling) {
   for (int i = 0; i < 1500; ++i) {
      EthAddr const v = any();
      ASSERT_NO_FATAL_FAILURE(expectRoundTrips(v));
      auto const& b = v.bytes();
      char text[32];
      std::snprintf(text, sizeof text, "%02X-%02X-%02x-%02X-%02x-%02X", b[0], b[1], b[2], b[3],
                    b[4], b[5]);
      ASSERT_EQ(EthAddr(std::string_view(text)), v);
      std::snprintf(text, sizeof text, "%02x%02X.%02x%02X.%02x%02x", b[0], b[1], b[2], b[3], b[4],
                    b[5]);
      ASSERT_EQ(EthAddr(std::string_view(text)), v);
   }
}

TEST_F(EthAddrProperties, EveryOneByteChangeIsAnotherValueOrRefused) {
   Sarn::String const text = printed(any());
   for (std::size_t i = 0; i < text.size(); ++i) {
      for (int c = 1; c < 256; ++c) {
         Sarn::String changed = text;
         changed[i] = static_cast<char>(c);
         try {
            EthAddr const v{std::string_view(changed)};
            ASSERT_EQ(v == EthAddr(std::string_view(text)), printed(v) == text) << changed;
            ASSERT_EQ(printed(v).size(), 17u);
         } catch (Kiv::Exception const&) {
         }
      }
   }
}

TEST_F(EthAddrProperties, OrderingLawsHold) {
   std::vector<EthAddr> values{EthAddr(), pdelay};
   for (int i = 0; i < 40; ++i) {
      values.push_back(any());
   }
   values.push_back(values.back());
   expectOrderingLaws(values);
}

}  // namespace

#include "Dorn/Ip6Addr.h"

#include <arpa/inet.h>

#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Dorn::Ip6Addr;

namespace {

static_assert(Ip6Addr(1, 2) == Ip6Addr(Ip6Addr(1, 2).bytes()));
static_assert(Ip6Addr() < Ip6Addr(0, 1) && Ip6Addr(0, ~U64{0}) < Ip6Addr(1, 0));
static_assert(Ip6Addr(0xff0e'0000'0000'0000, 0x181).isMulticast());

class Ip6AddrProperties : public SeededTest {
protected:
   /// Addresses with runs of zero groups at all positions, and groups of all lengths.
   Ip6Addr any() {
      Ip6Addr::Bytes bytes{};
      U64 const zeroGroups = random() & random();
      for (std::size_t i = 0; i < 8; ++i) {
         if ((zeroGroups >> i & 1) == 0) {
            U64 const group = (random() & 0xffff) >> (random() % 16);
            bytes[2 * i] = static_cast<U8>(group >> 8);
            bytes[2 * i + 1] = static_cast<U8>(group);
         }
      }
      return Ip6Addr(bytes);
   }
};

/// glibc also prints ::/96 with a dotted quad, which RFC 5952 reserves for known prefixes.
Sarn::String systemText(Ip6Addr const& v) {
   char text[INET6_ADDRSTRLEN];
   auto const bytes = v.bytes();
   inet_ntop(AF_INET6, bytes.data(), text, sizeof text);
   return text;
}

TEST(Ip6Addr, PrintsAsRfc5952Asks) {
   struct {
      char const* in;
      char const* out;
   } const cases[] = {
         {"::", "::"},
         {"0:0:0:0:0:0:0:0", "::"},
         {"::1", "::1"},
         {"1::", "1::"},
         {"2001:0db8::0001", "2001:db8::1"},
         {"2001:db8:0:0:0:0:2:1", "2001:db8::2:1"},
         {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},
         {"2001:db8::1:1:1:1:1", "2001:db8:0:1:1:1:1:1"},
         {"2001:0:0:1:0:0:0:1", "2001:0:0:1::1"},
         {"2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1"},
         {"2001:DB8:AAAA:BBBB:CCCC:DDDD:EEEE:1", "2001:db8:aaaa:bbbb:cccc:dddd:eeee:1"},
         {"0:0:1:0:0:0:0:0", "0:0:1::"},
         {"0:1:0:1:0:1:0:1", "0:1:0:1:0:1:0:1"},
         {"1:0:0:0:0:0:0:0", "1::"},
         {"::ffff:192.0.2.1", "::ffff:192.0.2.1"},
         {"::ffff:c000:201", "::ffff:192.0.2.1"},
         {"::FFFF:0:0", "::ffff:0.0.0.0"},
         {"64:ff9b::192.0.2.33", "64:ff9b::c000:221"},
         {"::13.1.68.3", "::d01:4403"},
         {"1:2:3:4:5:6:7.8.9.10", "1:2:3:4:5:6:708:90a"},
         {"1:2:3:4:5:6:7::", "1:2:3:4:5:6:7:0"},
         {"::2:3:4:5:6:7:8", "0:2:3:4:5:6:7:8"},
         {"ff0e::181", "ff0e::181"},
         {"FF02:0:0:0:0:0:0:6B", "ff02::6b"},
   };
   for (auto const& [in, out] : cases) {
      EXPECT_EQ(printed(Ip6Addr(std::string_view(in))), out) << in;
   }
}

TEST(Ip6Addr, TravelsAsSixteenBytesInTransmissionOrder) {
   EXPECT_EQ(encoded(Ip6Addr("102:304:506:708:90a:b0c:d0e:f10")),
             (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}));
   EXPECT_EQ(faultMessage<Ip6Addr>(Bytes(15)),
             "bytes <= readableBytes(): a value of 16 bytes stands where the message has 15 left "
             "at offset 0");
}

TEST(Ip6Addr, MessagesSayWhatIsWrong) {
   auto const message = [](std::string_view text) {
      Sarn::String const whole = rangeMessage<Ip6Addr>(text);
      Sarn::String const head = "\"" + Sarn::String(text) + "\" is not an IPv6 address: ";
      return whole.starts_with(head) ? whole.substr(head.size()) : "unexpected: " + whole;
   };
   EXPECT_EQ(message("1:2:3:4:5:6:7"), "it has fewer than eight groups and no \"::\"");
   EXPECT_EQ(message("1:2:3:4:5:6:7:8:9"), "it has more than eight groups");
   EXPECT_EQ(message("1:2:3:4:5:6:7:1.2.3.4"), "it has more than eight groups");
   EXPECT_EQ(message("12345::"), "a group has more than four digits");
   EXPECT_EQ(message("1:::2"), "a group is empty or not hexadecimal");
   EXPECT_EQ(message("fe80::g"), "a group is empty or not hexadecimal");
   EXPECT_EQ(message("1::2::3"), "a group is empty or not hexadecimal");
   EXPECT_EQ(message("1::2:3:4:5:6:7:8"), "its \"::\" replaces no group");
   EXPECT_EQ(message("::1.2.3.256"), "a number exceeds 255");
   EXPECT_EQ(message("1.2.3.4::"), "an IPv4 address is not at its end");
   EXPECT_EQ(parseMessage<Ip6Addr>(""), "at position 0: expected an IPv6 address");
   EXPECT_EQ(parseMessage<Ip6Addr>("fe80::1%eth0"), "at position 7: text follows the value");
}

TEST(Ip6Addr, RefusesEveryOtherSpelling) {
   for (std::string_view const text : {":",
                                       ":::",
                                       "1",
                                       "1:",
                                       ":1",
                                       ":1:2:3:4:5:6:7:8",
                                       "1:2:3:4:5:6:7:8:",
                                       "1:2:3:4:5:6:7:8::",
                                       "::1:2:3:4:5:6:7:8",
                                       "1.2.3.4",
                                       "::1.2.3",
                                       "::1.2.3.4:5",
                                       "::1.2.3.4.5",
                                       "::01.2.3.4",
                                       "::a.2.3.4",
                                       "::00001",
                                       "1::-2",
                                       "none",
                                       "1:2:3:4:5:6:7:8:1.2.3.4",
                                       "::12345.1.1.1"}) {
      EXPECT_THROW(Ip6Addr v(text), Kiv::RangeException) << text;
   }
}

TEST_F(Ip6AddrProperties, EveryAddressRoundTripsAndAgreesWithTheSystem) {
   for (int i = 0; i < 3000; ++i) {
      Ip6Addr const v = i % 5 == 0 ? Ip6Addr(random(), random()) : any();
      ASSERT_NO_FATAL_FAILURE(expectRoundTrips(v));
      if (v.high() != 0 || v.low() >> 32 != 0) {
         ASSERT_EQ(printed(v), systemText(v));
      }
      ASSERT_EQ(Ip6Addr(std::string_view(systemText(v))), v);
   }
}

TEST_F(Ip6AddrProperties, Ipv4MappedAddressesAgreeWithTheSystem) {
   for (int i = 0; i < 1500; ++i) {
      Ip6Addr const v(0, U64{0xffff} << 32 | (random() & 0xffffffff));
      ASSERT_EQ(printed(v), systemText(v));
      ASSERT_NO_FATAL_FAILURE(expectRoundTrips(v));
   }
}

TEST_F(Ip6AddrProperties, AcceptsWhatTheSystemAccepts) {
   static constexpr std::string_view pieces[] = {":",  ":",  ":",    ":",       "::", "0",
                                                 "1a", "ff", "1234", "1.2.3.4", ".",  "12345"};
   int accepted = 0;
   for (int i = 0; i < 150000; ++i) {
      Sarn::String text;
      if (i % 2 == 0) {
         // Often valid: groups with colons and one gap.
         U64 const groups = random() % 9;
         for (U64 g = 0; g < groups; ++g) {
            text += g == 0 ? "" : random() % 6 == 0 ? "::" : ":";
            text += pieces[5 + random() % (g + 1 == groups ? 5 : 4)];
         }
         text += random() % 8 == 0 ? "::" : "";
      } else {
         for (U64 n = random() % 17; n > 0; --n) {
            text += pieces[random() % 12];
         }
      }
      in6_addr system{};
      bool const valid = inet_pton(AF_INET6, text.c_str(), &system) == 1;
      Ip6Addr value;
      ASSERT_EQ(Ip6Addr::misspelling(text, value) == nullptr, valid) << text;
      if (valid) {
         ++accepted;
         Ip6Addr::Bytes bytes;
         std::memcpy(bytes.data(), &system, sizeof system);
         ASSERT_EQ(value, Ip6Addr(bytes)) << text;
      }
   }
   EXPECT_GT(accepted, 4000);
}

TEST_F(Ip6AddrProperties, OrderingLawsHold) {
   std::vector<Ip6Addr> values{Ip6Addr(), Ip6Addr("ff0e::181"), Ip6Addr("ff0e::181")};
   for (int i = 0; i < 40; ++i) {
      values.push_back(any());
   }
   expectOrderingLaws(values);
}

}  // namespace

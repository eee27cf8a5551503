#include <gtest/gtest.h>

#include <vector>

#include "Kiv/NboAttrLog.h"
#include "Kiv/Types.h"
#include "KivTest/ValueStream.test.h"
#include "PtpLib/PtpStatusStatedbTypes/FpgaAndSystemTime.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfDomainNumberInfo.h"
#include "PtpLib/PtpStatusStatedbTypes/LinuxTsOptions.h"
#include "PtpLib/PtpStatusStatedbTypes/ParentSourceAddresses.h"

namespace Ptp {
namespace {

using Dorn::EthAddr;
using Dorn::IpGenAddr;
using KivTest::encoded;
using KivTest::throughTheStream;

template <typename T>
void expectUnhashable(T const& value) {
   try {
      Kiv::typeOf<T>().genericIfHash(&value, 1);
      FAIL() << "hashed";
   } catch (Kiv::UnhashableException const& error) {
      EXPECT_NE(std::string(error.what()).find(T::kivTypeName), std::string::npos) << error.what();
   }
}

PortIdentity portIdentity(U16 number) {
   return {Kiv::fromText<ClockIdentity>("00:11:22:ff:fe:33:44:55"), number};
}

ParentSourceAddresses parent() {
   return {portIdentity(7), IpGenAddr("192.0.2.1"), EthAddr("00:11:22:33:44:55")};
}

// ---- ParentSourceAddresses ----

TEST(ParentSourceAddresses, DefaultIsAllZeroWithAnUnsetAddress) {
   ParentSourceAddresses const addresses;
   EXPECT_EQ(addresses.parentPortIdentity(), PortIdentity());
   EXPECT_FALSE(addresses.parentIpAddr().isSet());
   EXPECT_EQ(addresses.parentEthAddr(), EthAddr());
}

TEST(ParentSourceAddresses, EqualityAndOrderGoByFieldsInOrder) {
   // Ascending: each value differs from the previous one in the same field or an earlier one.
   ParentSourceAddresses const ascending[] = {
         {portIdentity(1), IpGenAddr("192.0.2.1"), EthAddr("00:00:00:00:00:01")},
         {portIdentity(1), IpGenAddr("192.0.2.1"), EthAddr("00:00:00:00:00:02")},
         {portIdentity(1), IpGenAddr("192.0.2.2"), EthAddr("00:00:00:00:00:01")},
         {portIdentity(1), IpGenAddr("2001:db8::1"), EthAddr()},
         {portIdentity(2), IpGenAddr(), EthAddr()},
   };
   for (auto const& a : ascending) {
      for (auto const& b : ascending) {
         EXPECT_EQ(a == b, &a == &b);
         EXPECT_EQ(a.isEq(b), &a == &b);
         EXPECT_EQ((a <=> b) < 0, &a < &b);
         EXPECT_EQ((a <=> b) > 0, &a > &b);
      }
   }
}

TEST(ParentSourceAddresses, HasNoHash) {
   expectUnhashable(ParentSourceAddresses());
}

TEST(ParentSourceAddresses, TravelsFieldByField) {
   std::vector<int> const bytes{0x00, 0x11, 0x22, 0xff, 0xfe, 0x33, 0x44, 0x55,
                                0x00, 0x07, 0,    0,    0,    4,    192,  0,
                                2,    1,    0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
   EXPECT_EQ(encoded(parent()), bytes);
   EXPECT_EQ(throughTheStream(parent()), parent());
   EXPECT_EQ(throughTheStream(ParentSourceAddresses()), ParentSourceAddresses());
}

constexpr char const* parentText =
      "Ptp::ParentSourceAddresses(parentPortIdentity=Ptp::PortIdentity(clockIdentity="
      "00:11:22:ff:fe:33:44:55, portNumber=7), parentIpAddr=192.0.2.1, "
      "parentEthAddr=00:11:22:33:44:55)";

TEST(ParentSourceAddresses, TextComesBack) {
   EXPECT_EQ(Kiv::strRep(parent()), parentText);
   EXPECT_EQ(Kiv::fromText<ParentSourceAddresses>(parentText), parent());
   EXPECT_EQ(Kiv::fromText<ParentSourceAddresses>(Kiv::strRep(ParentSourceAddresses())),
             ParentSourceAddresses());
}

std::string refusalOf(std::string_view from, std::string_view to) {
   std::string text = parentText;
   text.replace(text.find(from), from.size(), to);
   try {
      Kiv::fromText<ParentSourceAddresses>(text);
   } catch (Kiv::RangeException const& error) {
      return error.what();
   }
   return "accepted";
}

TEST(ParentSourceAddresses, MalformedFieldIsNamed) {
   EXPECT_EQ(refusalOf("192.0.2.1", "192.0.2.256").rfind("parentIpAddr: ", 0), 0u);
   EXPECT_EQ(refusalOf("=00:11:22:33:44:55", "=00:11:22:33:44").rfind("parentEthAddr: ", 0), 0u);
   EXPECT_EQ(
         refusalOf("portNumber=7", "portNumber=65536").rfind("parentPortIdentity: portNumber: ", 0),
         0u);
}

TEST(ParentSourceAddresses, BrokenStructureIsAParseErrorWithItsPosition) {
   std::string text = parentText;
   auto const at = text.find("parentIpAddr");
   text.replace(at, 12, "parentIpAdr");
   try {
      Kiv::fromText<ParentSourceAddresses>(text);
      FAIL() << "parsed";
   } catch (Kiv::ParseException const& error) {
      EXPECT_EQ(error.position(), at);
   }
}

// ---- LinuxTsOptions ----

TEST(LinuxTsOptions, IsABool) {
   EXPECT_FALSE(LinuxTsOptions().enabled());
   EXPECT_FALSE(LinuxTsOptions(true) == LinuxTsOptions(false));
   EXPECT_EQ(encoded(LinuxTsOptions(true)), std::vector<int>{1});
   EXPECT_EQ(throughTheStream(LinuxTsOptions(true)), LinuxTsOptions(true));
   EXPECT_EQ(Kiv::strRep(LinuxTsOptions(true)), "Ptp::LinuxTsOptions(enabled=true)");
   EXPECT_EQ(Kiv::fromText<LinuxTsOptions>("Ptp::LinuxTsOptions(enabled=true)"),
             LinuxTsOptions(true));
   EXPECT_THROW(Kiv::fromText<LinuxTsOptions>("Ptp::LinuxTsOptions(enabled=1)"),
                Kiv::ParseException);
}

TEST(LinuxTsOptions, HasNoHash) {
   expectUnhashable(LinuxTsOptions());
}

// ---- FpgaAndSystemTime ----

TEST(FpgaAndSystemTime, TravelsAsTwoU64) {
   FpgaAndSystemTime const reading(0x0102030405060708, 0x1112131415161718);
   EXPECT_EQ(encoded(reading), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 0x11, 0x12, 0x13, 0x14,
                                                 0x15, 0x16, 0x17, 0x18}));
   EXPECT_EQ(throughTheStream(reading), reading);
   EXPECT_EQ(Kiv::fromText<FpgaAndSystemTime>(Kiv::strRep(reading)), reading);
   EXPECT_FALSE(reading == FpgaAndSystemTime(0x0102030405060708, 0));
}

// ---- IntfDomainNumberInfo ----

TEST(IntfDomainNumberInfo, AbsentDomainIsASingleZeroByteBehindTheKey) {
   PortDSKey const key(Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone(10));
   IntfDomainNumberInfo const absent(key, std::nullopt);
   IntfDomainNumberInfo const zero(key, U8{0});
   auto bytes = encoded(key);
   ASSERT_EQ(bytes.size(), 10u);
   bytes.push_back(0);
   EXPECT_EQ(encoded(absent), bytes);
   bytes.back() = 1;
   bytes.push_back(0);
   EXPECT_EQ(encoded(zero), bytes);
   EXPECT_FALSE(absent == zero);
   EXPECT_EQ(throughTheStream(absent), absent);
   EXPECT_EQ(throughTheStream(zero), zero);
   EXPECT_NE(Kiv::strRep(absent).find("activeRegionDomain=none"), std::string::npos);
   EXPECT_EQ(Kiv::fromText<IntfDomainNumberInfo>(Kiv::strRep(absent)), absent);
   EXPECT_EQ(Kiv::fromText<IntfDomainNumberInfo>(Kiv::strRep(zero)), zero);
}

TEST(IntfDomainNumberInfo, KeyThatIsOutOfRangeIsNamed) {
   try {
      Kiv::fromText<IntfDomainNumberInfo>(
            "Ptp::IntfDomainNumberInfo(portDSKey=Ptp::PortDSKey(intf=Ethernet1, vlanId=65536), "
            "activeRegionDomain=none)");
      FAIL() << "parsed";
   } catch (Kiv::RangeException const& error) {
      EXPECT_EQ(std::string(error.what()).rfind("portDSKey: ", 0), 0u) << error.what();
   }
}

}  // namespace
}  // namespace Ptp

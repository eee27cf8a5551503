#include "PtpLib/Constants.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace Ptp {
namespace {

using Dorn::EthAddr;
using Dorn::Ip6Addr;
using Dorn::IpAddr;
using Dorn::IpGenAddr;

constexpr MessageTypeNumber type(int number) {
   return static_cast<MessageTypeNumber>(number);
}

template <typename T>
bool isLimit(T const& limit, std::type_identity_t<T> value) {
   return limit == value;
}

TEST(Constants, LimitsHaveTheTypeOfWhatTheyBound) {
   EXPECT_TRUE(isLimit<U8>(Constants::minDscp, 0));
   EXPECT_TRUE(isLimit<U8>(Constants::maxDscp, 63));
   EXPECT_TRUE(isLimit<U32>(Constants::mindriftLimit, 50));
   EXPECT_TRUE(isLimit<U32>(Constants::maxdriftLimit, 500000000));
   EXPECT_TRUE(isLimit<U8>(Constants::mpassMinTimeout, 3));
   EXPECT_TRUE(isLimit<U8>(Constants::mpassMaxTimeout, 128));
   EXPECT_TRUE(isLimit<U16>(Constants::mpassMinTimeoutSec, 8));
   EXPECT_TRUE(isLimit<U16>(Constants::mpassMaxTimeoutSec, 600));
   EXPECT_TRUE(isLimit<U32>(Constants::skewMinQueueSize, 3));
   EXPECT_TRUE(isLimit<U32>(Constants::skewMaxQueueSize, 128));
   EXPECT_TRUE(isLimit<U32>(Constants::delayEventMsgTimeoutMin, 5));
   EXPECT_TRUE(isLimit<U32>(Constants::delayEventMsgTimeoutMax, 4294967295));
   EXPECT_TRUE(isLimit<S16>(Constants::minlogMinDelayReqInterval, -7));
   EXPECT_TRUE(isLimit<S16>(Constants::maxlogMinDelayReqInterval, 8));
   EXPECT_TRUE(isLimit<U8>(Constants::minannounceReceiptTimeout, 2));
   EXPECT_TRUE(isLimit<U8>(Constants::maxannounceReceiptTimeout, 255));
   EXPECT_TRUE(isLimit<U8>(Constants::minsyncReceiptTimeout(), 2));
   // isLimit converts its argument, so the exact types are checked here.
   static_assert(std::is_same_v<decltype(Constants::minDscp), U8 const>);
   static_assert(std::is_same_v<decltype(Constants::maxDscp), U8 const>);
   static_assert(std::is_same_v<decltype(Constants::mindriftLimit), U32 const>);
   static_assert(std::is_same_v<decltype(Constants::maxdriftLimit), U32 const>);
   static_assert(std::is_same_v<decltype(Constants::mpassMinTimeout), U8 const>);
   static_assert(std::is_same_v<decltype(Constants::mpassMaxTimeout), U8 const>);
   static_assert(std::is_same_v<decltype(Constants::mpassMinTimeoutSec), U16 const>);
   static_assert(std::is_same_v<decltype(Constants::mpassMaxTimeoutSec), U16 const>);
   static_assert(std::is_same_v<decltype(Constants::skewMinQueueSize), U32 const>);
   static_assert(std::is_same_v<decltype(Constants::skewMaxQueueSize), U32 const>);
   static_assert(std::is_same_v<decltype(Constants::delayEventMsgTimeoutMin), U32 const>);
   static_assert(std::is_same_v<decltype(Constants::delayEventMsgTimeoutMax), U32 const>);
   static_assert(std::is_same_v<decltype(Constants::minlogMinDelayReqInterval), S16 const>);
   static_assert(std::is_same_v<decltype(Constants::maxlogMinDelayReqInterval), S16 const>);
   static_assert(std::is_same_v<decltype(Constants::minannounceReceiptTimeout), U8 const>);
   static_assert(std::is_same_v<decltype(Constants::maxannounceReceiptTimeout), U8 const>);
   static_assert(std::is_same_v<decltype(Constants::minsyncReceiptTimeout()), U8>);
}

struct MessageTypeRow {
   int number;
   bool event;
   bool pdelay;
   U8 controlField;
};

// Types 4 to 7, 14 and 15 are reserved; bit 3 classifies them, too.
constexpr MessageTypeRow messageTypes[] = {
      {0, true, false, 0},   {1, true, false, 1},   {2, true, true, 5},    {3, true, true, 5},
      {4, true, false, 5},   {5, true, false, 5},   {6, true, false, 5},   {7, true, false, 5},
      {8, false, false, 2},  {9, false, false, 3},  {10, false, true, 5},  {11, false, false, 5},
      {12, false, false, 5}, {13, false, false, 4}, {14, false, false, 5}, {15, false, false, 5},
};

TEST(Constants, Bit3TellsGeneralFromEventMessagesForReservedTypesToo) {
   for (auto const& row : messageTypes) {
      EXPECT_EQ(Constants::isEventPtpMessage(type(row.number)), row.event) << row.number;
      EXPECT_EQ(Constants::ptpUdpPort(type(row.number)), row.event ? 319 : 320) << row.number;
   }
}

TEST(Constants, ThreeMessageTypesAreOfThePeerDelayMechanism) {
   for (auto const& row : messageTypes) {
      EXPECT_EQ(Constants::isPdelayMessage(type(row.number)), row.pdelay) << row.number;
   }
}

TEST(Constants, ControlFieldIs5ForTypesWithoutOneOfTheirOwn) {
   for (auto const& row : messageTypes) {
      EXPECT_EQ(Constants::getControlField(type(row.number)), row.controlField) << row.number;
   }
   for (int number = 14; number <= 255; ++number) {
      EXPECT_EQ(Constants::getControlField(type(number)), 5) << number;
   }
}

TEST(Constants, Ip6GroupsAreThoseOfAnnexE) {
   EXPECT_EQ(Constants::ptpMcastIp6Addr(), Ip6Addr("ff0e::181"));
   EXPECT_EQ(Constants::ptpPdelayIp6Addr(), Ip6Addr("ff02::6b"));
}

TEST(Constants, IpGroupFollowsMessageTypeAndTransport) {
   for (auto const& row : messageTypes) {
      auto const messageType = type(row.number);
      EXPECT_EQ(Constants::ptpMcastIpAddr(messageType, TransportMode::ipv4),
                IpGenAddr(row.pdelay ? "224.0.0.107" : "224.0.1.129"))
            << row.number;
      EXPECT_EQ(Constants::ptpMcastIpAddr(messageType, TransportMode::ipv6),
                IpGenAddr(row.pdelay ? "ff02::6b" : "ff0e::181"))
            << row.number;
   }
}

TEST(Constants, MacGroupFollowsMessageTypeAndTransportInEveryModeButGeneralized) {
   for (auto const& row : messageTypes) {
      auto const messageType = type(row.number);
      for (int number = 0; number < 7; ++number) {
         auto const mode = static_cast<PtpMode>(number);
         auto const mac = [&](int transport) {
            return Constants::ptpMcastEthAddr(messageType, static_cast<TransportMode>(transport),
                                              mode);
         };
         EXPECT_EQ(mac(0), EthAddr(row.pdelay ? "01-80-C2-00-00-0E" : "01-1B-19-00-00-00"));
         EXPECT_EQ(mac(1), EthAddr(row.pdelay ? "01-00-5E-00-00-6B" : "01-00-5E-00-01-81"));
         for (int const transport : {2, 3, 5, 255}) {
            EXPECT_EQ(mac(transport),
                      EthAddr(row.pdelay ? "33-33-00-00-00-6B" : "33-33-00-00-01-81"));
         }
      }
   }
}

TEST(Constants, GeneralizedModeSendsEverythingOverEthernetToThePeerDelayGroup) {
   for (auto const& row : messageTypes) {
      EXPECT_EQ(Constants::ptpMcastEthAddr(type(row.number), TransportMode::layer2,
                                           PtpMode::ptpGeneralized),
                EthAddr("01-80-C2-00-00-0E"))
            << row.number;
   }
}

TEST(Constants, PeerDelayMessagesOverIpInGeneralizedModeGoToTheIpPeerDelayGroup) {
   for (int const number : {2, 3, 10}) {
      EXPECT_EQ(
            Constants::ptpMcastEthAddr(type(number), TransportMode::ipv4, PtpMode::ptpGeneralized),
            EthAddr("01-00-5E-00-00-6B"));
      EXPECT_EQ(
            Constants::ptpMcastEthAddr(type(number), TransportMode::ipv6, PtpMode::ptpGeneralized),
            EthAddr("33-33-00-00-00-6B"));
   }
}

TEST(Constants, FourIpGroupsAreOfPtp) {
   for (auto const* text : {"224.0.1.129", "224.0.0.107", "ff0e::181", "ff02::6b"}) {
      EXPECT_TRUE(Constants::isPtpMcastIpAddr(IpGenAddr(text))) << text;
   }
   for (auto const* text : {"none", "0.0.0.0", "::", "224.0.1.130", "224.0.0.108", "ff0e::182",
                            "ff02::181", "ff05::181", "::ffff:224.0.1.129"}) {
      EXPECT_FALSE(Constants::isPtpMcastIpAddr(IpGenAddr(text))) << text;
   }
}

TEST(Constants, MacGroupsOfPtpAreToldByLayer) {
   for (auto const* text : {"01-1B-19-00-00-00", "01-80-C2-00-00-0E"}) {
      EXPECT_TRUE(Constants::isPtpL2McastEthAddr(EthAddr(text))) << text;
      EXPECT_FALSE(Constants::isPtpL3McastEthAddr(EthAddr(text))) << text;
      EXPECT_TRUE(Constants::isPtpMcastEthAddr(EthAddr(text))) << text;
   }
   for (auto const* text :
        {"01-00-5E-00-01-81", "01-00-5E-00-00-6B", "33-33-00-00-01-81", "33-33-00-00-00-6B"}) {
      EXPECT_FALSE(Constants::isPtpL2McastEthAddr(EthAddr(text))) << text;
      EXPECT_TRUE(Constants::isPtpL3McastEthAddr(EthAddr(text))) << text;
      EXPECT_TRUE(Constants::isPtpMcastEthAddr(EthAddr(text))) << text;
   }
   for (auto const* text : {"00-00-00-00-00-00", "01-00-5E-00-01-82", "01-1B-19-00-00-01",
                            "33-33-00-00-01-6B", "FF-FF-FF-FF-FF-FF"}) {
      EXPECT_FALSE(Constants::isPtpL2McastEthAddr(EthAddr(text))) << text;
      EXPECT_FALSE(Constants::isPtpL3McastEthAddr(EthAddr(text))) << text;
      EXPECT_FALSE(Constants::isPtpMcastEthAddr(EthAddr(text))) << text;
   }
}

// glibc writes "PROGRAM: FILE:LINE: FUNCTION: Assertion `EXPRESSION' failed."
constexpr char const* noIpTransport =
      ": PtpLib/PtpStatusStatedbTypes:34: static Dorn::IpGenAddr "
      "Ptp::Constants::ptpMcastIpAddr\\(Ptp::MessageTypeNumber, Ptp::TransportMode\\): "
      "Assertion `transportMode == ipv6\\(\\)' failed\\.";
constexpr char const* generalizedOverIp =
      ": PtpLib/PtpStatusStatedbTypes:81: static Dorn::EthAddr "
      "Ptp::Constants::ptpMcastEthAddr\\(Ptp::MessageTypeNumber, Ptp::TransportMode, "
      "Ptp::PtpMode\\): Assertion `ptpMode != ptpGeneralized_' failed\\.";

TEST(ConstantsDeathTest, IpGroupOfATransportWithoutIpIsAnAssertion) {
   for (int const transport : {0, 3, 255}) {
      EXPECT_DEATH(Constants::ptpMcastIpAddr(type(0), static_cast<TransportMode>(transport)),
                   noIpTransport);
   }
   EXPECT_DEATH(Constants::ptpMcastIpAddr(type(2), TransportMode::layer2), noIpTransport);
}

TEST(ConstantsDeathTest, MacGroupOfGeneralizedModeOverIpIsAnAssertion) {
   for (int const transport : {1, 2, 5}) {
      EXPECT_DEATH(Constants::ptpMcastEthAddr(type(0), static_cast<TransportMode>(transport),
                                              PtpMode::ptpGeneralized),
                   generalizedOverIp);
   }
   EXPECT_DEATH(Constants::ptpMcastEthAddr(type(8), TransportMode::ipv4, PtpMode::ptpGeneralized),
                generalizedOverIp);
}

}  // namespace
}  // namespace Ptp

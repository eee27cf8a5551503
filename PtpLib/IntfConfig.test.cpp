#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"

#include <gtest/gtest.h>

#include "KivTest/Witness.h"
#include "PtpLib/PtpStatusStatedbTypes/RegionBoundaryIntfConfig.h"
#include "PtpLib/Range.test.h"

namespace Ptp {
namespace {

using Bridging::VlanIdOrNone;
using Dorn::IntfId;
using Dorn::IpGenAddr;
using Dorn::IpGenAddrWithMask;
using KivTest::Witness;

class IntfConfigTest : public testing::Test {
protected:
   Sarn::Ptr<IntfConfig> intf = intfConfigFactory(IntfId("Ethernet1"), true, false);
};

// ---- Ranges ----

TEST_F(IntfConfigTest, LogSyncIntervalIsFromMinus7To17) {
   checkRange<IntfConfig, S16>(
         *intf, {&IntfConfig::logSyncInterval,
                 &IntfConfig::logSyncIntervalIs,
                 {-7, 17},
                 {-8, 18, 32767, -32768},
                 "Ptp::IntfConfig::logSyncInterval < Ptp::IntfConfig::minlogSyncInterval or > "
                 "Ptp::IntfConfig::maxlogSyncInterval not allowed"});
}

TEST_F(IntfConfigTest, SyncReceiptTimeoutIsAtLeast2) {
   checkRange<IntfConfig, U8>(*intf, {&IntfConfig::syncReceiptTimeout,
                                      &IntfConfig::syncReceiptTimeoutIs,
                                      {2, 255},
                                      {0, 1},
                                      "Ptp::IntfConfig::syncReceiptTimeout < "
                                      "::Ptp::Constants::minsyncReceiptTimeout() not allowed"});
}

TEST_F(IntfConfigTest, LogMinDelayReqIntervalIsFromMinus7To8) {
   checkRange<IntfConfig, S16>(*intf, {&IntfConfig::logMinDelayReqInterval,
                                       &IntfConfig::logMinDelayReqIntervalIs,
                                       {-7, 8},
                                       {-8, 9, 32767, -32768},
                                       "Ptp::IntfConfig::logMinDelayReqInterval < "
                                       "Ptp::Constants::minlogMinDelayReqInterval or > "
                                       "Ptp::Constants::maxlogMinDelayReqInterval not allowed"});
}

TEST_F(IntfConfigTest, LogAnnounceIntervalIsFromMinus3To17) {
   checkRange<IntfConfig, S8>(*intf, {&IntfConfig::logAnnounceInterval,
                                      &IntfConfig::logAnnounceIntervalIs,
                                      {-3, 17},
                                      {-4, 18, 127, -128},
                                      "Ptp::IntfConfig::logAnnounceInterval < "
                                      "Ptp::IntfConfig::minlogAnnounceInterval or > "
                                      "Ptp::IntfConfig::maxlogAnnounceInterval not allowed"});
}

TEST_F(IntfConfigTest, AnnounceReceiptTimeoutIsAtLeast2) {
   checkRange<IntfConfig, U8>(*intf, {&IntfConfig::announceReceiptTimeout,
                                      &IntfConfig::announceReceiptTimeoutIs,
                                      {2, 255},
                                      {0, 1},
                                      "Ptp::IntfConfig::announceReceiptTimeout < "
                                      "Ptp::Constants::minannounceReceiptTimeout or > "
                                      "Ptp::Constants::maxannounceReceiptTimeout not allowed"});
}

TEST_F(IntfConfigTest, LogMinPdelayReqIntervalIsFromMinus3To17) {
   checkRange<IntfConfig, S8>(*intf, {&IntfConfig::logMinPdelayReqInterval,
                                      &IntfConfig::logMinPdelayReqIntervalIs,
                                      {-3, 17},
                                      {-4, 18, 127, -128},
                                      "Ptp::IntfConfig::logMinPdelayReqInterval < "
                                      "Ptp::IntfConfig::minlogMinPdelayReqInterval or > "
                                      "Ptp::IntfConfig::maxlogMinPdelayReqInterval not allowed"});
}

TEST_F(IntfConfigTest, DscpEventIsUpTo63) {
   checkRange<IntfConfig, U8>(*intf, {&IntfConfig::dscpEvent,
                                      &IntfConfig::dscpEventIs,
                                      {0, 63},
                                      {64, 255},
                                      "Ptp::IntfConfig::dscpEvent < Ptp::Constants::minDscp or > "
                                      "Ptp::Constants::maxDscp not allowed"});
}

TEST_F(IntfConfigTest, FreshOneHasDscpEvent21AndLogMinDelayReqInterval5) {
   EXPECT_EQ(intf->dscpEvent(), 21);
   EXPECT_EQ(intf->logMinDelayReqInterval(), 5);
}

TEST_F(IntfConfigTest, DscpGeneralIsUpTo63) {
   checkRange<IntfConfig, U8>(*intf, {&IntfConfig::dscpGeneral,
                                      &IntfConfig::dscpGeneralIs,
                                      {63, 0},
                                      {64, 255},
                                      "Ptp::IntfConfig::dscpGeneral < Ptp::Constants::minDscp or > "
                                      "Ptp::Constants::maxDscp not allowed"});
}

TEST_F(IntfConfigTest, LimitsAreReadableAsConstants) {
   EXPECT_EQ(intf->minlogSyncInterval(), -7);
   EXPECT_EQ(intf->maxlogSyncInterval(), 17);
   EXPECT_EQ(intf->minlogAnnounceInterval(), -3);
   EXPECT_EQ(intf->maxlogAnnounceInterval(), 17);
   EXPECT_EQ(intf->minlogMinPdelayReqInterval(), -3);
   EXPECT_EQ(intf->maxlogMinPdelayReqInterval(), 17);
}

// ---- Single values ----

TEST_F(IntfConfigTest, ConstructorArgumentsAreTheFirstValues) {
   auto const other = intfConfigFactory(IntfId("Ethernet2"), false, true);
   EXPECT_EQ(other->intf(), IntfId("Ethernet2"));
   EXPECT_FALSE(other->enabled());
   EXPECT_TRUE(other->mpassEnabled());
}

TEST_F(IntfConfigTest, PktTxMacAddressIsComparedInAllSixBytes) {
   Witness published(*intf);
   intf->pktTxMacAddressIs(Dorn::EthAddr("01:80:c2:00:00:0e"));
   EXPECT_EQ(published.ids(), "");
   intf->pktTxMacAddressIs(Dorn::EthAddr("01:80:c2:00:00:0f"));
   EXPECT_EQ(published.changes(), "pktTxMacAddress was 01:80:c2:00:00:0e");
   intf->pktTxMacAddressIs(Dorn::EthAddr("00:80:c2:00:00:0f"));
   EXPECT_EQ(published.ids(), "290");
}

TEST_F(IntfConfigTest, NotANumberAlwaysCountsAsAChange) {
   Witness published(*intf);
   intf->clearCountersRequestTimeIs(notANumber);
   intf->clearCountersRequestTimeIs(notANumber);
   EXPECT_EQ(published.ids(), "285 285");
}

// ---- Sets of VLANs ----

TEST_F(IntfConfigTest, VlanSetsKeepABoolPerVlan) {
   Witness published(*intf);
   intf->vlanIdsIs(VlanIdOrNone(10), true);
   intf->vlanIdsIs(VlanIdOrNone(10), true);
   intf->vlanIdsIs(VlanIdOrNone(10), false);
   EXPECT_EQ(published.changes(), "vlanIds[10] was nothing; vlanIds[10] was true");
   EXPECT_TRUE(intf->vlanIdsHas(VlanIdOrNone(10)));
   EXPECT_FALSE(intf->vlanIds(VlanIdOrNone(10)));
   EXPECT_FALSE(intf->vlanIdsHas(VlanIdOrNone(11)));
   EXPECT_FALSE(intf->vlanIdsDel(VlanIdOrNone(10)));
   EXPECT_EQ(published.ids(), "292");
   intf->vlanIdsDel(VlanIdOrNone(10));
   EXPECT_EQ(published.ids(), "");

   intf->isolatedSlaveVlanIdIs(VlanIdOrNone(1), false);
   intf->isolatedSlaveVlanIdIs(VlanIdOrNone(2), true);
   EXPECT_TRUE(intf->isolatedSlaveVlanIdHas(VlanIdOrNone(1)));
   EXPECT_TRUE(intf->isolatedSlaveVlanId(VlanIdOrNone(2)));
   intf->isolatedSlaveVlanIdDelAll();
   EXPECT_EQ(published.ids(), "274 274 274 274");
}

TEST_F(IntfConfigTest, VlanConfigIsMadeOnceAndDetachedWhenDeleted) {
   Witness published(*intf);
   auto const vlan = intf->vlanConfigIs(VlanIdOrNone(10));
   EXPECT_EQ(vlan->vlanId(), VlanIdOrNone(10));
   EXPECT_EQ(vlan->parent(), intf.get());
   EXPECT_EQ(intf->vlanConfigIs(VlanIdOrNone(10)), vlan);
   EXPECT_TRUE(intf->vlanConfigHas(VlanIdOrNone(10)));
   EXPECT_EQ(published.ids(), "291");
   EXPECT_EQ(intf->vlanConfigDel(VlanIdOrNone(10)), vlan);
   EXPECT_EQ(vlan->parent(), nullptr);
   EXPECT_EQ(published.changes(), "vlanConfig[10] was Ptp::VlanConfig");
   EXPECT_EQ(intf->vlanConfigDel(VlanIdOrNone(10)), nullptr);
   EXPECT_EQ(published.ids(), "");
}

// ---- Ordered maps ----

TEST_F(IntfConfigTest, TxMessageToIntfMapReplacesAnotherInterfaceOnly) {
   Witness published(*intf);
   intf->txMessageToIntfMapIs(MessageTypeNumber::sync, IntfId("Ethernet2"));
   intf->txMessageToIntfMapIs(MessageTypeNumber::sync, IntfId("Ethernet2"));
   EXPECT_EQ(published.changes(), "txMessageToIntfMap[sync] was nothing");
   intf->txMessageToIntfMapIs(MessageTypeNumber::sync, IntfId("Ethernet3"));
   EXPECT_EQ(published.changes(), "txMessageToIntfMap[sync] was Ethernet2");
   EXPECT_EQ(intf->txMessageToIntfMap(MessageTypeNumber::sync), IntfId("Ethernet3"));
   EXPECT_EQ(intf->txMessageToIntfMap(MessageTypeNumber::announce), IntfId());
}

TEST_F(IntfConfigTest, TxMessageToIntfMapIsEmptiedEntryByEntry) {
   intf->txMessageToIntfMapIs(MessageTypeNumber::sync, IntfId("Ethernet2"));
   intf->txMessageToIntfMapIs(MessageTypeNumber::announce, IntfId("Ethernet2"));
   Witness published(*intf);
   intf->txMessageToIntfMapDelAll();
   EXPECT_EQ(published.changes(),
             "txMessageToIntfMap[sync] was Ethernet2; txMessageToIntfMap[announce] was Ethernet2");
   EXPECT_FALSE(intf->txMessageToIntfMapHas(MessageTypeNumber::sync));
}

TEST_F(IntfConfigTest, GranteesAreInAscendingOrderWhateverTheOrderOfInsertion) {
   for (auto const* text : {"10.0.0.0/8", "2001:db8::/32", "192.0.2.0/24", "10.0.0.0/16"}) {
      intf->ucastNegGranteeIpToProfileMapIs(IpGenAddrWithMask(text), "p");
   }
   std::vector<IpGenAddrWithMask> keys;
   for (auto const& entry : intf->ucastNegGranteeIpToProfileMapAll()) {
      keys.push_back(entry.key);
   }
   ASSERT_EQ(keys.size(), 4u);
   EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
   intf->ucastNegGranteeIpToProfileMapDelAll();
   EXPECT_FALSE(intf->ucastNegGranteeIpToProfileMapHas(IpGenAddrWithMask("10.0.0.0/8")));
}

TEST_F(IntfConfigTest, GrantorsNameProfilesThatNeedNotExist) {
   Witness published(*intf);
   IpGenAddr const master("192.0.2.1");
   intf->ucastNegGrantorIpToProfileMapIs(master, "p");
   intf->ucastNegGrantorIpToProfileMapIs(master, "p");
   intf->ucastNegGrantorIpToProfileMapIs(master, "q");
   EXPECT_EQ(published.changes(),
             "ucastNegGrantorIpToProfileMap[192.0.2.1] was nothing; "
             "ucastNegGrantorIpToProfileMap[192.0.2.1] was \"p\"");
   EXPECT_EQ(intf->ucastNegGrantorIpToProfileMapDel(master), "q");
   EXPECT_EQ(published.ids(), "293");
   EXPECT_EQ(intf->ucastNegGrantorIpToProfileMapDel(master), "");
   EXPECT_EQ(published.ids(), "");
}

TEST_F(IntfConfigTest, EntryIsDeletedByIterator) {
   intf->ucastNegGrantorIpToProfileMapIs(IpGenAddr("192.0.2.1"), "p");
   intf->ucastNegGrantorIpToProfileMapIs(IpGenAddr("192.0.2.2"), "q");
   Witness published(*intf);
   intf->ucastNegGrantorIpToProfileMapDel(intf->ucastNegGrantorIpToProfileMapAll().begin());
   EXPECT_EQ(published.changes(), "ucastNegGrantorIpToProfileMap[192.0.2.1] was \"p\"");
   EXPECT_TRUE(intf->ucastNegGrantorIpToProfileMapHas(IpGenAddr("192.0.2.2")));
}

// ---- Region boundaries ----

class RegionBoundaryIntfConfigTest : public testing::Test {
protected:
   PortDSKey const key{IntfId("Ethernet1"), VlanIdOrNone(10)};
   Sarn::Ptr<RegionBoundaryIntfConfig> region = regionBoundaryIntfConfigFactory(key);
};

TEST_F(RegionBoundaryIntfConfigTest, FreshOneHasItsKeyAndNothingElse) {
   EXPECT_EQ(region->portDSKey(), key);
   EXPECT_FALSE(region->networkSideDomainNumber().has_value());
   EXPECT_FALSE(region->lockTime().has_value());
   EXPECT_THROW(region->lockTime().value(), std::bad_optional_access);
}

TEST_F(RegionBoundaryIntfConfigTest, AbsentAndZeroAreDifferent) {
   Witness published(*region);
   region->networkSideDomainNumberIs(std::nullopt);
   EXPECT_EQ(published.ids(), "");
   region->networkSideDomainNumberIs(U8{0});
   EXPECT_EQ(published.changes(), "networkSideDomainNumber was none");
   region->networkSideDomainNumberIs(U8{0});
   EXPECT_EQ(published.ids(), "");
   region->networkSideDomainNumberIs(std::nullopt);
   EXPECT_EQ(published.changes(), "networkSideDomainNumber was 0");
}

TEST_F(RegionBoundaryIntfConfigTest, NotANumberAlwaysCountsAsAChange) {
   Witness published(*region);
   region->lockTimeIs(1.5);
   region->lockTimeIs(1.5);
   region->lockTimeIs(notANumber);
   region->lockTimeIs(notANumber);
   EXPECT_EQ(published.ids(), "261 261 261");
}

}  // namespace
}  // namespace Ptp

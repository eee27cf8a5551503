#include "PtpLib/PtpStatusStatedbTypes/Status.h"

#include <gtest/gtest.h>

#include <type_traits>

#include "KivTest/Observer.test.h"
#include "KivTest/SimulationTree.h"
#include "KivTest/Witness.h"

namespace Ptp {
namespace {

using KivTest::Witness;

class StatusTest : public testing::Test {
protected:
   PortDSKey const key{Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone(10)};
   Sarn::Ptr<Status> status = statusFactory("ptp");
};

TEST_F(StatusTest, DataSetIsMadeOnceAndPublishedOnce) {
   Witness published(*status);
   auto const dataSet = status->defaultDSIs();
   EXPECT_EQ(status->defaultDSIs(), dataSet);
   EXPECT_EQ(dataSet->parent(), status.get());
   EXPECT_EQ(published.changes(), "defaultDS was nothing");
   EXPECT_EQ(status->defaultDSDel(), dataSet);
   EXPECT_EQ(published.changes(), "defaultDS was Ptp::DefaultDS");
   EXPECT_EQ(status->defaultDSDel(), nullptr);
   EXPECT_EQ(published.ids(), "");
}

TEST_F(StatusTest, DeletingADataSetThatIsNotThereGivesNullAndPublishesNothing) {
   Witness published(*status);
   EXPECT_EQ(status->defaultDSDel(), nullptr);
   EXPECT_EQ(published.ids(), "");
}

TEST_F(StatusTest, FreshOneHasAllTimestampBitsTheDefaultQualityAndNoChildren) {
   EXPECT_EQ(status->tcTimestampMask(), 0xffffffffffffffffu);
   EXPECT_EQ(status->localClockQuality(), ClockQuality(248, 0xfe, Dorn::NetU16(0xffff)));
   EXPECT_EQ(static_cast<int>(status->holdoverState()), 1);
   EXPECT_EQ(KivTest::entityCount(*status), 1u);
}

TEST_F(StatusTest, CollectionsHaveKeyFunktorsAndHashSeedsOfTheirOwn) {
   static_assert(
         std::is_same_v<Status::IntfStatusMap,
                        Kiv::ChildMap<IntfStatus, Status::IntfStatusKeyFunktor, 0x76DEA101>>);
   static_assert(
         std::is_same_v<Status::VlanStatusMap,
                        Kiv::ChildMap<VlanStatus, Status::VlanStatusKeyFunktor, 0x0CF4840D>>);
   static_assert(std::is_same_v<Status::PortDSMap,
                                Kiv::ChildMap<PortDS, Status::PortDSKeyFunktor, 0xE153C1F4>>);
   static_assert(
         std::is_same_v<
               IntfStatus::ForeignMasterDSMap,
               Kiv::ChildMap<ForeignMasterDS, IntfStatus::ForeignMasterDSKeyFunktor, 0x3D257E83>>);
   static_assert(std::is_same_v<
                 PtpMibData::PtpMibPortDataMap,
                 Kiv::ChildMap<PtpMibPortData, PtpMibData::PtpMibPortDataKeyFunktor, 0x5AE25C88>>);
   EXPECT_EQ(Status::IntfStatusKeyFunktor()(intfStatusFactory(key)), key);
   EXPECT_EQ(Status::VlanStatusKeyFunktor()(vlanStatusFactory(key, true, false)), key);
   EXPECT_EQ(Status::PortDSKeyFunktor()(portDSFactory(key, PortIdentity())), key);
   EXPECT_EQ(DomainNumberInfo::IntfDomainNumberInfoKeyFunktor()(
                   IntfDomainNumberInfo(key, std::nullopt)),
             key);
}

TEST_F(StatusTest, ChildrenOutliveTheRootWithoutAParentForAsLongAsTheyAreHeld) {
   auto const dataSet = status->defaultDSIs();
   auto const port = status->portDSIs(key, PortIdentity());
   status->aclStatusServiceIs("x");
   status.reset();
   EXPECT_EQ(dataSet->parent(), nullptr);
   EXPECT_EQ(port->parent(), nullptr);
   port->syncMessageReceivedInc(1);
   EXPECT_EQ(port->syncMessageReceived(), 1u);
}

TEST_F(StatusTest, ChangesBelowAreToldToObserversOfTheWholeTree) {
   auto const port = status->portDSIs(key, PortIdentity());
   auto const master = status->intfStatusIs(key)->foreignMasterDSIs(PortIdentity());
   Witness published(*status, Kiv::Scope::subtree);
   port->g8275_2Is()->blacklistDurationIs(5);
   master->foreignMasterAnnounceMessagesInc(1);
   EXPECT_EQ(published.changes(),
             "Ptp::PortDS.g8275_2 was nothing; Ptp::PortDS_G8275_2.blacklistDuration was 600; "
             "Ptp::ForeignMasterDS.foreignMasterAnnounceMessages was 1");
}

TEST_F(StatusTest, EverySingletonPublishesItsOwnId) {
   Witness published(*status);
   status->defaultDSIs();
   status->currentDSIs();
   status->parentDSIs();
   status->timePropertiesDSIs();
   status->domainStatusIs();
   status->ptpMibDataIs();
   EXPECT_EQ(published.ids(), "263 264 265 266 273 274");
   status->defaultDSDel();
   status->currentDSDel();
   status->parentDSDel();
   status->timePropertiesDSDel();
   status->domainStatusDel();
   status->ptpMibDataDel();
   EXPECT_EQ(published.ids(), "263 264 265 266 273 274");
}

TEST_F(StatusTest, VlanStatusOfAKnownPortOnlyBringsItsFlagsToTheGivenValues) {
   auto const vlan = status->vlanStatusIs(key, true, true);
   Witness ofStatus(*status);
   Witness ofVlan(*vlan);
   EXPECT_EQ(status->vlanStatusIs(key, true, false), vlan);
   EXPECT_EQ(ofVlan.ids(), "262");
   EXPECT_EQ(status->vlanStatusIs(key, false, true), vlan);
   EXPECT_EQ(ofVlan.ids(), "261 262");
   EXPECT_EQ(ofStatus.ids(), "");
}

TEST_F(StatusTest, VlanStatusShowsTheInterfaceAndVlanOfItsKey) {
   auto const vlan = vlanStatusFactory(key, true, false);
   EXPECT_EQ(vlan->intf(), Dorn::IntfId("Ethernet1"));
   EXPECT_EQ(vlan->vlanId(), Bridging::VlanIdOrNone(10));
}

TEST_F(StatusTest, AFreshVlanStatusThatWasNotCreatedPublishesNothingWhenThatIsSetAgain) {
   auto const vlan = vlanStatusFactory(key, true, false);
   EXPECT_TRUE(vlan->trunkAllowed());
   EXPECT_FALSE(vlan->vlanCreated());
   Witness published(*vlan);
   vlan->vlanCreatedIs(false);
   EXPECT_FALSE(vlan->vlanCreated());
   EXPECT_EQ(published.ids(), "");
}

TEST_F(StatusTest, PortDSOfAKnownPortWithTheSameIdentityPublishesNothingAtAll) {
   PortIdentity const identity(ClockIdentity(), 1);
   auto const port = status->portDSIs(key, identity);
   Witness published(*status, Kiv::Scope::subtree);
   EXPECT_EQ(status->portDSIs(key, identity), port);
   EXPECT_EQ(published.ids(), "");
   EXPECT_EQ(status->portDSCount(), 1u);
}

TEST_F(StatusTest, PortDSOfAKnownPortTakesTheGivenIdentity) {
   PortIdentity const first(ClockIdentity(), 1);
   PortIdentity const second(ClockIdentity(), 2);
   Witness ofStatus(*status);
   auto const port = status->portDSIs(key, first);
   EXPECT_EQ(ofStatus.ids(), "275");
   Witness ofPort(*port);
   EXPECT_EQ(status->portDSIs(key, first), port);
   EXPECT_EQ(ofPort.ids(), "");
   EXPECT_EQ(status->portDSIs(key, second), port);
   EXPECT_EQ(ofPort.ids(), "259");
   EXPECT_EQ(ofStatus.ids(), "");
   EXPECT_EQ(status->portDSDel(key), port);
   EXPECT_EQ(port->parent(), nullptr);
   EXPECT_EQ(status->portDS(key), nullptr);
}

TEST_F(StatusTest, AclServiceOfAnotherNameReplacesTheFirst) {
   Witness published(*status);
   auto const x = status->aclStatusServiceIs("x");
   status->aclStatusServiceIs("x");
   EXPECT_EQ(published.ids(), "277");
   status->aclStatusServiceIs("y");
   EXPECT_EQ(published.ids(), "277");
   EXPECT_EQ(x->parent(), nullptr);
}

TEST_F(StatusTest, DeletingAllPortsPublishesEachOfThem) {
   status->intfStatusIs(key);
   status->intfStatusIs(PortDSKey(Dorn::IntfId("Ethernet2"), Bridging::VlanIdOrNone()));
   Witness published(*status);
   status->intfStatusDelAll();
   EXPECT_EQ(published.ids(), "271 271");
   EXPECT_EQ(status->intfStatus(key), nullptr);
   EXPECT_EQ(status->intfStatusDel(key), nullptr);
   EXPECT_EQ(status->vlanStatusDel(key), nullptr);
   EXPECT_EQ(status->portDSDel(key), nullptr);
   EXPECT_EQ(published.ids(), "");
}

/// The state in which an observer finds a port when notified that it was created or removed.
struct PortLook final : Kiv::Observer {
   explicit PortLook(PortDSKey const& wanted) : key(wanted) {}
   void onChange(Kiv::Change const& change) override {
      auto const& status = static_cast<Status const&>(Kiv::entityOf(change));
      auto const* const removed = static_cast<Sarn::Ptr<Kiv::Entity> const*>(change.oldValue);
      auto const port = status.portDS(key);
      seen += port != nullptr ? (port->parent() == &status ? "attached" : "without parent")
                              : "absent";
      if (port != nullptr) {
         seen += " " + Kiv::strRep(port->portIdentity().portNumber());
      }
      if (removed != nullptr) {
         seen += (*removed)->parent() == nullptr ? ", old one detached" : ", old one attached";
      }
      seen += "; ";
   }
   PortDSKey key;
   std::string seen;
};

TEST_F(StatusTest, WhoHearsOfAPortFindsItWholeAndWhoHearsOfItsRemovalFindsItGone) {
   PortLook look(key);
   status->observerAdd(look);
   status->portDSIs(key, PortIdentity(ClockIdentity(), 7));
   status->portDSDel(key);
   status->observerDel(look);
   EXPECT_EQ(look.seen, "attached 7; absent, old one detached; ");
}

// ---- Ports ----

class IntfStatusTest : public testing::Test {
protected:
   Sarn::Ptr<IntfStatus> port =
         intfStatusFactory(PortDSKey(Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone()));
};

TEST_F(IntfStatusTest, ReasonIsInWordsUnlessMpassRuns) {
   char const* const words[] = {
         "MPASS not configured",         "Interface not part of MLAG",
         "PTP not enabled on interface", "PTP not enabled on MLAG peer-link",
         "PTP not in boundary mode",     "Delay mechanism not end to end",
         "Unicast negotiation enabled",  "MLAG interface disabled",
   };
   EXPECT_EQ(port->disabledReasonString(), words[0]);
   for (unsigned reason = 0; reason <= 255; ++reason) {
      port->mpassDisabledReasonIs(static_cast<Mpass::DisabledReason>(reason));
      port->mpassEnabledIs(false);
      EXPECT_EQ(port->disabledReasonString(), words[reason < 7 ? reason : 7]) << reason;
      port->mpassEnabledIs(true);
      EXPECT_EQ(port->disabledReasonString(), "") << reason;
   }
}

TEST_F(IntfStatusTest, ForeignMastersAreNotBoundedByTheLimitInForce) {
   PortIdentity const master(ClockIdentity(), 7);
   EXPECT_EQ(port->maxForeignRecords(), 0);
   Witness published(*port);
   auto const record = port->foreignMasterDSIs(master);
   ASSERT_NE(record, nullptr);
   EXPECT_EQ(port->foreignMasterDSIs(master), record);
   EXPECT_EQ(published.ids(), "259");
   EXPECT_EQ(record->foreignMasterAnnounceMessages(), 1u);
   EXPECT_EQ(record->foreignMasterIpAddr(), Dorn::IpGenAddr("0.0.0.0"));
   EXPECT_EQ(port->foreignMasterDSDel(PortIdentity(ClockIdentity(), 8)), nullptr);
   EXPECT_EQ(published.ids(), "");
   EXPECT_EQ(port->foreignMasterDSDel(master), record);
   EXPECT_EQ(published.ids(), "259");
}

TEST_F(IntfStatusTest, ForeignMasterMadeTwiceIsPublishedOnce) {
   PortIdentity const master(ClockIdentity(), 7);
   Witness published(*port);
   auto const record = port->foreignMasterDSIs(master);
   EXPECT_EQ(port->foreignMasterDSIs(master), record);
   EXPECT_EQ(published.ids(), "259");
   EXPECT_EQ(port->foreignMasterDSCount(), 1u);
}

TEST_F(IntfStatusTest, DeletingAForeignMasterThatIsNotThereGivesNullAndPublishesNothing) {
   Witness published(*port);
   EXPECT_EQ(port->foreignMasterDSDel(PortIdentity(ClockIdentity(), 7)), nullptr);
   EXPECT_EQ(published.ids(), "");
}

// ---- The rest ----

TEST(DefaultDS, SettingAPriorityToItsCurrentValuePublishesNothing) {
   auto const dataSet = defaultDSFactory();
   Witness published(*dataSet);
   dataSet->priority1Is(0);
   EXPECT_EQ(published.ids(), "");
   dataSet->priority1Is(128);
   dataSet->priority1Is(128);
   EXPECT_EQ(published.changes(), "priority1 was 0");
}

TEST(DefaultDS, IsSlaveOnlyWithClockClass255) {
   auto const dataSet = defaultDSFactory();
   EXPECT_FALSE(dataSet->slaveOnly());
   dataSet->clockQualityIs(ClockQuality(255, 254, Dorn::NetU16(65535)));
   EXPECT_TRUE(dataSet->slaveOnly());
}

TEST(ParentDS, FreshOneHasAnIp4ParentAndNoStatistics) {
   auto const dataSet = parentDSFactory();
   EXPECT_EQ(dataSet->parentSourceAddrs(),
             ParentSourceAddresses(PortIdentity(), Dorn::IpGenAddr("0.0.0.0"), Dorn::EthAddr()));
   EXPECT_EQ(dataSet->observedParentOffsetScaledLogVariance(), 0xffff);
   EXPECT_EQ(dataSet->observedParentClockPhaseChangeRate(), 0x7fffffff);
}

TEST(DomainNumberInfo, AbsentDomainAndDomain0AreDifferent) {
   PortDSKey const key(Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone());
   auto const info = domainNumberInfoFactory();
   Witness published(*info);
   info->intfDomainNumberInfoIs(IntfDomainNumberInfo(key, std::nullopt));
   info->intfDomainNumberInfoIs(IntfDomainNumberInfo(key, std::nullopt));
   EXPECT_EQ(published.ids(), "259");
   info->intfDomainNumberInfoIs(IntfDomainNumberInfo(key, U8{0}));
   EXPECT_EQ(published.ids(), "259");
   EXPECT_EQ(info->intfDomainNumberInfo(key).activeRegionDomain(), U8{0});
   info->intfDomainNumberInfoDel(key);
   info->intfDomainNumberInfoDel(key);
   EXPECT_EQ(published.ids(), "259");
}

TEST(DomainNumberInfo, DeletingAllPublishesEachPort) {
   auto const info = domainNumberInfoFactory();
   for (U16 vlan = 1; vlan <= 3; ++vlan) {
      PortDSKey const key(Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone(vlan));
      info->intfDomainNumberInfoIs(IntfDomainNumberInfo(key, U8{24}));
   }
   Witness published(*info);
   info->intfDomainNumberInfoDelAll();
   EXPECT_EQ(published.ids(), "259 259 259");
   EXPECT_EQ(info->intfDomainNumberInfoCount(), 0u);
}

TEST(PtpMibData, FreshOneHasClockState1AndNoPorts) {
   auto const data = ptpMibDataFactory();
   EXPECT_EQ(static_cast<int>(data->clockState()), 1);
   EXPECT_EQ(data->ptpMibPortDataCount(), 0u);
   EXPECT_EQ(data->ptpMibPortData(PortDSKey()), nullptr);
   EXPECT_EQ(data->numClockPorts(), 0u);
   EXPECT_EQ(KivTest::entityCount(*data), 1u);
}

TEST(PtpMibData, CountersCompareAll64Bits) {
   auto const data = ptpMibDataFactory();
   auto const port = data->ptpMibPortDataIs(PortDSKey());
   data->totalPacketsSentIs(1);
   port->totalPacketsReceivedIs(1);
   Witness ofData(*data);
   Witness ofPort(*port);
   data->totalPacketsSentIs(0x100000001);
   port->totalPacketsReceivedIs(0x100000001);
   EXPECT_EQ(ofData.changes(), "totalPacketsSent was 1");
   EXPECT_EQ(ofPort.changes(), "totalPacketsReceived was 1");
}

TEST(PtpMibData, RemovedPortsHaveNoParentAndArePublishedOneByOne) {
   PortDSKey const key(Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone());
   auto const data = ptpMibDataFactory();
   auto const port = data->ptpMibPortDataIs(key);
   data->ptpMibPortDataIs(PortDSKey());
   Witness published(*data);
   EXPECT_EQ(data->ptpMibPortDataDel(key), port);
   EXPECT_EQ(port->parent(), nullptr);
   EXPECT_EQ(data->ptpMibPortDataDel(key), nullptr);
   EXPECT_EQ(published.ids(), "263");
   data->ptpMibPortDataIs(key);
   published.clear();
   data->ptpMibPortDataDelAll();
   EXPECT_EQ(published.ids(), "263 263");
}

TEST(PtpMibData, PortsAreMadeOnceAndDomainsFollowThePorts) {
   PortDSKey const key(Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone());
   auto const data = ptpMibDataFactory();
   EXPECT_EQ(data->clockState(), ClockStateType::freerun);
   EXPECT_EQ(data->domainTotal(), 0u);
   Witness published(*data);
   auto const port = data->ptpMibPortDataIs(key);
   EXPECT_EQ(data->ptpMibPortDataIs(key), port);
   EXPECT_EQ(published.ids(), "263");
   data->numClockPortsIs(2);
   EXPECT_EQ(data->domainTotal(), 1u);
}

TEST_F(StatusTest, VlanStatusBringsAllFlagsToTheirValuesThoughObserversThrow) {
   auto const vlan = status->vlanStatusIs(key, true, true);
   KivTest::Hears const hears(*vlan, [](Kiv::Change const& change) {
      throw std::runtime_error("notified of " + std::to_string(change.attributeId));
   });
   EXPECT_EQ(KivTest::thrown<std::runtime_error>([&] { status->vlanStatusIs(key, false, false); }),
             "notified of 261");
   EXPECT_FALSE(vlan->trunkAllowed());
   EXPECT_FALSE(vlan->vlanCreated());
}

}  // namespace
}  // namespace Ptp

// Every attribute of the status as shown by the generic interface: id, kind, name, type and
// default.

#include <gtest/gtest.h>

#include "KivTest/Recorder.h"
#include "PtpLib/PtpStatusStatedbTypes/DomainNumberInfo.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfStatus.h"
#include "PtpLib/PtpStatusStatedbTypes/PtpMibData.h"
#include "PtpLib/PtpStatusStatedbTypes/PtpMibPortData.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"
#include "PtpLib/PtpStatusStatedbTypes/VlanStatus.h"

namespace {

using KivTest::attributeTable;

Ptp::PortDSKey const key(Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone(10));

TEST(StatusTable, Status) {
   auto const entity = Ptp::statusFactory("ptp");
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 enabled : bool = false
259 dc00 ptpSupported : bool = false
260 dc00 holdoverState : Ptp::HoldoverState = notInHoldover
261 dc00 holdoverSinceEpoch : double = 0
262 dc00 holdoverExpiry : double = 0
263 dd20 defaultDS : Ptp::DefaultDS (child) instantiation 010
264 dd20 currentDS : Ptp::CurrentDS (child) instantiation 010
265 dd20 parentDS : Ptp::ParentDS (child) instantiation 010
266 dd20 timePropertiesDS : Ptp::TimePropertiesDS (child)
267 dc00 unicastNegotiation : bool = false
268 dc00 managementEnabled : bool = false
269 dc00 netSyncMonitor : bool = false
270 dc00 syncTestModeEnabled : bool = false
271 dd21 intfStatus : Ptp::IntfStatus (children by Ptp::PortDSKey) instantiation 010
272 dd21 vlanStatus : Ptp::VlanStatus (children by Ptp::PortDSKey)
273 dd20 domainStatus : Ptp::DomainNumberInfo (child)
274 dd20 ptpMibData : Ptp::PtpMibData (child)
275 dd21 portDS : Ptp::PortDS (children by Ptp::PortDSKey) instantiation 010
276 dc00 g82751Enabled : bool = false
277 dd20 aclStatusService : Acl::StatusService (child)
278 dc00 tcTimestampMask : U64 = 18446744073709551615
279 dc00 clearCountersRequestCompleted : bool = false
280 dc00 localClockQuality : Ptp::ClockQuality = Ptp::ClockQuality(clockClass=248, clockAccuracy=254, offsetScaledLogVariance=65535)
281 dc00 parentTwoStepFlag : bool = false
)");
}

TEST(StatusTable, IntfStatus) {
   auto const entity = Ptp::intfStatusFactory(key);
   EXPECT_EQ(attributeTable(*entity), R"(
258 2c00 key : Ptp::PortDSKey = Ptp::PortDSKey(intf=Ethernet1, vlanId=10) const local
259 dd21 foreignMasterDS : Ptp::ForeignMasterDS (children by Ptp::PortIdentity)
260 dc00 maxForeignRecords : U8 = 0
261 dc00 mpassEnabled : bool = false
262 dc00 mpassStatus : Ptp::Mpass::Status = active
263 dc00 mpassDisabledReason : Ptp::Mpass::DisabledReason = notConfigured
264 2800 disabledReasonString : Kiv::String = "MPASS not configured" const local
265 dc00 mpassSyncExpiry : float = 0
266 dc00 mpassDelayReqExpiry : float = 0
)");
}

TEST(StatusTable, VlanStatus) {
   auto const entity = Ptp::vlanStatusFactory(key, true, false);
   EXPECT_EQ(attributeTable(*entity), R"(
258 2c00 portDSKey : Ptp::PortDSKey = Ptp::PortDSKey(intf=Ethernet1, vlanId=10) const local
259 2808 intf : Dorn::IntfId = Ethernet1 const local
260 2808 vlanId : Bridging::VlanIdOrNone = 10 const local
261 dc00 trunkAllowed : bool = true
262 dc00 vlanCreated : bool = false
)");
}

TEST(StatusTable, DomainNumberInfo) {
   auto const entity = Ptp::domainNumberInfoFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 globalDomain : U8 = 0
259 dc01 intfDomainNumberInfo : Ptp::IntfDomainNumberInfo (map by Ptp::PortDSKey)
)");
}

TEST(StatusTable, PtpMibData) {
   auto const entity = Ptp::ptpMibDataFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 2800 domainTotal : U32 = 0 const local
259 dc00 numClockPorts : U16 = 0
260 dc00 totalPacketsSent : U64 = 0
261 dc00 totalPacketsReceived : U64 = 0
262 dc00 clockState : Ptp::ClockStateType = freerun
263 dd21 ptpMibPortData : Ptp::PtpMibPortData (children by Ptp::PortDSKey)
)");
}

TEST(StatusTable, PtpMibPortData) {
   auto const entity = Ptp::ptpMibPortDataFactory(key);
   EXPECT_EQ(attributeTable(*entity), R"(
258 2c00 portDSKey : Ptp::PortDSKey = Ptp::PortDSKey(intf=Ethernet1, vlanId=10) const local
259 dc00 numAssociatedPorts : U32 = 0
260 dc00 totalPacketsSent : U64 = 0
261 dc00 totalPacketsReceived : U64 = 0
262 dc00 rxMode : PtpMib::RxTxMode = unicast
263 dc00 txMode : PtpMib::RxTxMode = unicast
264 dc00 clockRoleType : PtpMib::ClockRoleType = master
)");
}

}  // namespace

// Every attribute of the configuration as shown by the generic interface: id, kind, name, type and
// default.

#include <gtest/gtest.h>

#include "KivTest/Recorder.h"
#include "PtpLib/PtpStatusStatedbTypes/Config.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfConfig.h"
#include "PtpLib/PtpStatusStatedbTypes/ManagementIntfConfig.h"
#include "PtpLib/PtpStatusStatedbTypes/RegionBoundaryIntfConfig.h"
#include "PtpLib/PtpStatusStatedbTypes/SystemClockConfig.h"
#include "PtpLib/PtpStatusStatedbTypes/VlanConfig.h"

namespace {

using KivTest::attributeTable;

Dorn::IntfId const intf("Ethernet1");
Bridging::VlanIdOrNone const vlan(10);
Ptp::PortDSKey const key(Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone(10));

TEST(ConfigTable, Config) {
   auto const entity = Ptp::configFactory("ptp");
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 enabled : bool = false
259 dc00 ptpMode : Ptp::PtpMode = disabled
260 dc00 ptpProfile : Ptp::PtpProfile = ptpDefault
261 dc00 forwardPtpV1 : bool = false
262 dc00 forwardUnicast : bool = false
263 dc00 unicastNegotiation : bool = false
264 dc00 managementEnabled : bool = false
265 dc00 netSyncMonitor : bool = false
266 dc00 priority1 : U8 = 128
267 dc00 priority2 : U8 = 128
268 dc00 localPriority : U8 = 128
269 dc00 clockIdentity : Ptp::ClockIdentity = 00:00:00:00:00:00:00:00
270 dc00 clockIdentityConfigured : bool = false
271 dc00 clockQualityConfigured : bool = false
272 dc00 clockQuality : Ptp::ClockQuality = Ptp::ClockQuality(clockClass=248, clockAccuracy=254, offsetScaledLogVariance=65535)
273 dc00 domainNumber : U8 = 0
274 dc00 driftLimit : U32 = 500000000
275 dc00 srcIp4 : Dorn::IpAddr = 0.0.0.0
276 dc00 srcIp6 : Dorn::Ip6Addr = ::
277 dc00 holdPtpTimeInterval : U32 = 28800
278 dc00 holdPtpTimeInfinite : bool = false
279 dc00 ttl : U8 = 1
280 dc00 globalDscpEvent : U8 = 21
281 dc00 globalDscpGeneral : U8 = 0
282 dc00 monitorEnabled : bool = true
283 dd21 intfConfig : Ptp::IntfConfig (children by Dorn::IntfId)
284 dd21 intfRegionConfig : Ptp::RegionBoundaryIntfConfig (children by Ptp::PortDSKey)
285 dd20 serviceAclTypeVrfMap : Acl::ServiceAclTypeVrfMap (child)
286 dc00 offsetFromMasterThreshold : S64 = -1
287 dc00 meanPathDelayThreshold : S64 = -1
288 dc00 skewThreshold : double = -1
289 dc00 offsetFromMasterDropThreshold : S64 = -1
290 dc00 meanPathDelayDropThreshold : S64 = -1
291 dc00 skewDropThreshold : double = -1
292 dc01 ucastNegProfile : Ptp::UcastNegProfile (map by Kiv::String)
293 dc00 logMissingMessages : bool = false
294 dc01 missingSequenceThresholds : U16 (map by Ptp::MessageTypeNumber)
295 dc01 missingTimerThresholds : U16 (map by Ptp::MessageTypeNumber)
296 dc01 logMissingMessageTimer : bool (map by Ptp::MessageTypeNumber)
297 dc01 logMissingMessageSeqId : bool (map by Ptp::MessageTypeNumber)
298 dd20 dropCounterClearList : Ptp::DebugCounter::CounterClearList (child)
299 dd20 pktCounterClearList : Ptp::DebugCounter::CounterClearList (child)
300 dc00 clearCountersRequest : bool = false
301 dc00 mpassSyncTimeout : U8 = 64
302 dc00 mpassDelayReqTimeout : U16 = 64
303 dc00 syncFromSystemTime : bool = false
304 dc00 freeRunningQuiet : bool = false
305 dc00 numSkewSamplesToCalibrated : U32 = 128
306 dc00 stateDecisionTimeLimit : double = inf
307 dc00 delayEventMsgTimeout : U32 = 5
)");
}

TEST(ConfigTable, IntfConfig) {
   auto const entity = Ptp::intfConfigFactory(intf, true, false);
   EXPECT_EQ(attributeTable(*entity), R"(
258 2c00 intf : Dorn::IntfId = Ethernet1 const local
259 dc00 enabled : bool = true
260 dc00 mpassEnabled : bool = false
261 2800 minlogSyncInterval : S8 = -7 const local
262 2800 maxlogSyncInterval : S8 = 17 const local
263 dc00 logSyncInterval : S16 = 0
264 dc00 syncIntervalUseDeprecatedCmd : bool = false
265 dc00 syncReceiptTimeout : U8 = 3
266 dc00 logMinDelayReqInterval : S16 = 5
267 2800 minlogAnnounceInterval : S8 = -3 const local
268 2800 maxlogAnnounceInterval : S8 = 17 const local
269 dc00 logAnnounceInterval : S8 = 1
270 dc00 announceReceiptTimeout : U8 = 3
271 dc00 role : Ptp::Role = dynamic
272 dc00 syncTestEnabled : bool = false
273 dc00 isolatedSlaveEnabled : bool = false
274 dc01 isolatedSlaveVlanId : bool (map by Bridging::VlanIdOrNone)
275 dc00 disableManagementMessageForwarding : bool = false
276 dc00 disableManagementMessageMulticastForwardingBC : bool = false
277 2800 minlogMinPdelayReqInterval : S8 = -3 const local
278 2800 maxlogMinPdelayReqInterval : S8 = 17 const local
279 dc00 logMinPdelayReqInterval : S8 = 0
280 dc00 localPriority : U8 = 128
281 dc00 delayMechanism : Ptp::DelayMechanism = e2e
282 dc00 transportMode : Ptp::TransportMode = ipv4
283 dc00 timeStampingMode : Ptp::TimeStampingMode = hardware
284 dc00 linkDelayThreshold : U64 = 100000
285 dc00 clearCountersRequestTime : double = 0
286 dc00 dscpEvent : U8 = 21
287 dc00 dscpEventConfigured : bool = false
288 dc00 dscpGeneral : U8 = 0
289 dc00 dscpGeneralConfigured : bool = false
290 dc00 pktTxMacAddress : Dorn::EthAddr = 01:80:c2:00:00:0e
291 dd21 vlanConfig : Ptp::VlanConfig (children by Bridging::VlanIdOrNone)
292 dc01 vlanIds : bool (map by Bridging::VlanIdOrNone)
293 dc01 ucastNegGrantorIpToProfileMap : Kiv::String (ordered by Dorn::IpGenAddr)
294 dc01 ucastNegGranteeIpToProfileMap : Kiv::String (ordered by Dorn::IpGenAddrWithMask)
295 dc01 txMessageToIntfMap : Dorn::IntfId (ordered by Ptp::MessageTypeNumber)
296 dc00 domainNumber : U8 = 0
297 dc00 priority1 : U8 = 128
298 dc00 priority2 : U8 = 128
299 dc00 ttl : U8 = 1
300 dc00 loopbackSourceIntf : Dorn::IntfId = ""
)");
}

TEST(ConfigTable, VlanConfig) {
   auto const entity = Ptp::vlanConfigFactory(vlan);
   EXPECT_EQ(attributeTable(*entity), R"(
258 2c00 vlanId : Bridging::VlanIdOrNone = 10 const local
)");
}

TEST(ConfigTable, RegionBoundaryIntfConfig) {
   auto const entity = Ptp::regionBoundaryIntfConfigFactory(key);
   EXPECT_EQ(attributeTable(*entity), R"(
258 2c00 portDSKey : Ptp::PortDSKey = Ptp::PortDSKey(intf=Ethernet1, vlanId=10) const local
259 dc00 networkSideDomainNumber : Kiv::Optional<U8> = none
260 dc00 domainNumberMode : Ptp::PtpPortDomainMode = globalDomain
261 dc00 lockTime : Kiv::Optional<double> = none
)");
}

TEST(ConfigTable, SystemClockConfig) {
   auto const entity = Ptp::systemClockConfigFactory("ptp");
   EXPECT_EQ(attributeTable(*entity), R"(
258 dd21 managementIntfConfig : Ptp::ManagementIntfConfig (children by Dorn::IntfId)
259 dc00 systemClockSourceIntf : Dorn::IntfId = ""
)");
}

TEST(ConfigTable, ManagementIntfConfig) {
   auto const entity = Ptp::managementIntfConfigFactory(intf, true);
   EXPECT_EQ(attributeTable(*entity), R"(
258 2c00 intf : Dorn::IntfId = Ethernet1 const local
259 dc00 enabled : bool = true
260 dc00 mpassEnabled : bool = false
261 2800 minlogSyncInterval : S8 = -7 const local
262 2800 maxlogSyncInterval : S8 = 17 const local
263 dc00 logSyncInterval : S16 = 0
264 dc00 syncIntervalUseDeprecatedCmd : bool = false
265 dc00 syncReceiptTimeout : U8 = 3
266 dc00 logMinDelayReqInterval : S16 = 5
267 2800 minlogAnnounceInterval : S8 = -3 const local
268 2800 maxlogAnnounceInterval : S8 = 17 const local
269 dc00 logAnnounceInterval : S8 = 1
270 dc00 announceReceiptTimeout : U8 = 3
271 dc00 role : Ptp::Role = dynamic
272 dc00 syncTestEnabled : bool = false
273 dc00 isolatedSlaveEnabled : bool = false
274 dc01 isolatedSlaveVlanId : bool (map by Bridging::VlanIdOrNone)
275 dc00 disableManagementMessageForwarding : bool = false
276 dc00 disableManagementMessageMulticastForwardingBC : bool = false
277 2800 minlogMinPdelayReqInterval : S8 = -3 const local
278 2800 maxlogMinPdelayReqInterval : S8 = 17 const local
279 dc00 logMinPdelayReqInterval : S8 = 0
280 dc00 localPriority : U8 = 128
281 dc00 delayMechanism : Ptp::DelayMechanism = e2e
282 dc00 transportMode : Ptp::TransportMode = ipv4
283 dc00 timeStampingMode : Ptp::TimeStampingMode = hardware
284 dc00 linkDelayThreshold : U64 = 100000
285 dc00 clearCountersRequestTime : double = 0
286 dc00 dscpEvent : U8 = 21
287 dc00 dscpEventConfigured : bool = false
288 dc00 dscpGeneral : U8 = 0
289 dc00 dscpGeneralConfigured : bool = false
290 dc00 pktTxMacAddress : Dorn::EthAddr = 01:80:c2:00:00:0e
291 dd21 vlanConfig : Ptp::VlanConfig (children by Bridging::VlanIdOrNone)
292 dc01 vlanIds : bool (map by Bridging::VlanIdOrNone)
293 dc01 ucastNegGrantorIpToProfileMap : Kiv::String (ordered by Dorn::IpGenAddr)
294 dc01 ucastNegGranteeIpToProfileMap : Kiv::String (ordered by Dorn::IpGenAddrWithMask)
295 dc01 txMessageToIntfMap : Dorn::IntfId (ordered by Ptp::MessageTypeNumber)
296 dc00 domainNumber : U8 = 0
297 dc00 priority1 : U8 = 128
298 dc00 priority2 : U8 = 128
299 dc00 ttl : U8 = 1
300 dc00 loopbackSourceIntf : Dorn::IntfId = ""
386 dc00 freeRunning : bool = false
387 dc00 slaveOnly : bool = false
388 2800 udsAddress : Kiv::String = "/var/run/ptp4l@KestrelCove" const local
)");
}

}  // namespace

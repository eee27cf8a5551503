// Every attribute of the data sets as shown by the generic interface: id, kind, name, type and
// default.

#include <gtest/gtest.h>

#include "KivTest/Recorder.h"
#include "PtpLib/PtpStatusStatedbTypes/CurrentDS.h"
#include "PtpLib/PtpStatusStatedbTypes/DefaultDS.h"
#include "PtpLib/PtpStatusStatedbTypes/ForeignMasterDS.h"
#include "PtpLib/PtpStatusStatedbTypes/ParentDS.h"
#include "PtpLib/PtpStatusStatedbTypes/PortDS.h"
#include "PtpLib/PtpStatusStatedbTypes/PortDS_G8275_2.h"
#include "PtpLib/PtpStatusStatedbTypes/TimePropertiesDS.h"

namespace {

using KivTest::attributeTable;

Ptp::PortDSKey const key(Dorn::IntfId("Ethernet1"), Bridging::VlanIdOrNone(10));
Ptp::PortIdentity const identity(Kiv::fromText<Ptp::ClockIdentity>("00:11:22:ff:fe:33:44:55"), 7);

TEST(DataSetTable, DefaultDS) {
   auto const entity = Ptp::defaultDSFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 twoStepFlag : bool = true
259 dc00 clockIdentity : Ptp::ClockIdentity = 00:00:00:00:00:00:00:00
260 dc00 numberPorts : U32 = 0
261 dc00 clockQuality : Ptp::ClockQuality = Ptp::ClockQuality(clockClass=248, clockAccuracy=254, offsetScaledLogVariance=65535)
262 dc00 priority1 : U8 = 0
263 dc00 priority2 : U8 = 0
264 dc00 domainNumber : U8 = 0
265 2800 slaveOnly : bool = false const local
266 dc00 localPriority : U8 = 128
267 dc00 ptpMode : Ptp::PtpMode = disabled
268 dc00 driftLimit : U32 = 0
269 dc00 srcIp4 : Dorn::IpAddr = 0.0.0.0
270 dc00 srcIp6 : Dorn::Ip6Addr = ::
271 dc00 holdPtpTimeInterval : U32 = 0
272 dc00 ttl : U8 = 0
)");
}

TEST(DataSetTable, CurrentDS) {
   auto const entity = Ptp::currentDSFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 stepsRemoved : Dorn::NetU16 = 0
259 dc00 offsetFromMaster : S64 = 0
260 dc00 offsetFromHardware : S64 = 0
261 dc00 meanPathDelay : S64 = 0
262 dc00 pathDelaySnapshot : S64 = 0
263 dc00 lastSyncLocalTime : U64 = 0
264 dc00 realLastSyncLocalTime : U64 = 0
265 dc00 lastSyncSystemTime : double = 0
266 dc00 lastSyncSeqId : U16 = 0
267 dc00 lastUpdatePortKey : Ptp::PortDSKey = Ptp::PortDSKey(intf="", vlanId=none)
268 dc00 skewNumerator : U64 = 1
269 dc00 skewDenominator : U64 = 1
270 dc00 skew : double = 1
271 dc00 gmPresent : bool = false
272 dc00 gptpRateRatio : double = 1
273 dc00 gptpCumulativeRateOffset : S32 = 0
274 dc00 neighborRateRatio : double = 1
275 dc00 localClockMeanPathDelay : S64 = 0
276 dc01 pathTrace : Ptp::ClockIdentity (map by U8)
277 0810 pathTraceLen (op) local
278 0811 reset (op) local
279 dc00 genId : Brim::Generation = Brim::Generation(count=0, flag=false)
)");
}

TEST(DataSetTable, ParentDS) {
   auto const entity = Ptp::parentDSFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 parentSourceAddrs : Ptp::ParentSourceAddresses = Ptp::ParentSourceAddresses(parentPortIdentity=Ptp::PortIdentity(clockIdentity=00:00:00:00:00:00:00:00, portNumber=0), parentIpAddr=0.0.0.0, parentEthAddr=00:00:00:00:00:00)
259 dc00 parentStats : bool = false
260 dc00 observedParentOffsetScaledLogVariance : U16 = 65535
261 dc00 observedParentClockPhaseChangeRate : S32 = 2147483647
262 dc00 grandmasterIdentity : Ptp::ClockIdentity = 00:00:00:00:00:00:00:00
263 dc00 grandmasterClockQuality : Ptp::ClockQuality = Ptp::ClockQuality(clockClass=248, clockAccuracy=254, offsetScaledLogVariance=65535)
264 dc00 grandmasterPriority1 : U8 = 0
265 dc00 grandmasterPriority2 : U8 = 0
266 dc00 gptpCumulativeRateOffset : S32 = 0
)");
}

TEST(DataSetTable, TimePropertiesDS) {
   auto const entity = Ptp::timePropertiesDSFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 currentUtcOffset : Dorn::NetU16 = 0
259 dc00 currentUtcOffsetValid : bool = false
260 dc00 leap59 : bool = false
261 dc00 leap61 : bool = false
262 dc00 timeTraceable : bool = false
263 dc00 frequencyTraceable : bool = false
264 dc00 ptpTimescale : bool = false
265 dc00 timeSource : U8 = 0
266 0810 flagField (op) local
267 0811 flagFieldIs (op) local
268 dc00 userHasConfiged : bool = false
)");
}

TEST(DataSetTable, PortDS) {
   auto const entity = Ptp::portDSFactory(key, identity);
   EXPECT_EQ(attributeTable(*entity), R"(
258 2c00 portDSKey : Ptp::PortDSKey = Ptp::PortDSKey(intf=Ethernet1, vlanId=10) const local
259 dc00 portIdentity : Ptp::PortIdentity = Ptp::PortIdentity(clockIdentity=00:11:22:ff:fe:33:44:55, portNumber=7)
260 2808 intf : Dorn::IntfId = Ethernet1 const local
261 2808 vlanId : Bridging::VlanIdOrNone = 10 const local
262 dc00 portState : Ptp::PortState = initializing
263 dc00 logMinDelayReqInterval : S16 = 0
264 dc00 peerMeanPathDelay : S64 = 0
265 dc00 logAnnounceInterval : S8 = 0
266 dc00 announceReceiptTimeout : U8 = 0
267 dc00 logSyncInterval : S16 = 0
268 dc00 delayMechanism : Ptp::DelayMechanism = e2e
269 dc00 logMinPdelayReqInterval : S8 = 0
270 2800 versionNumber : U8 = 2 const local
271 dc00 asCapable : bool = false
272 dc00 neighborRateRatio : double = 0
273 dc00 syncReceiptTimeout : U8 = 0
274 dc00 lastSyncReceiptTimeout : double = inf
275 dc00 maxLostResponsesPeerDelay : U8 = 3
276 dd20 g8275_2 : Ptp::PortDS_G8275_2 (child)
277 dc00 localPriority : U8 = 128
278 dc00 numSlaveSessions : U32 = 0
279 dc00 numPotentialMasters : U32 = 0
280 dc00 syncMessageReceived : U32 = 0
281 0811 receiveSyncMessage (op) local
282 dc00 gptpFollowUpMessagesSentMissed : U32 = 0
283 dc00 lostResponsesPeerDelay : U32 = 0
284 dc00 stpDiscardedRxMessagesCount : U32 = 0
285 dc00 stpDiscardedTxMessagesCount : U32 = 0
286 dc00 ucastNegRequestTlvsReceived : U32 = 0
287 dc00 ucastNegRequestTlvsSent : U32 = 0
288 dc00 ucastNegGrantTlvsReceived : U32 = 0
289 dc00 ucastNegGrantTlvsSent : U32 = 0
290 dc00 ucastNegCancelTlvsReceived : U32 = 0
291 dc00 ucastNegCancelTlvsSent : U32 = 0
292 dc00 ucastNegAckCancelTlvsReceived : U32 = 0
293 dc00 ucastNegAckCancelTlvsSent : U32 = 0
294 dc00 ptpDiscardedTxArpExpireCount : U32 = 0
295 dc00 corruptedRxManagementMessagesCount : U32 = 0
296 dc00 netSyncMonitorDelayReqMessagesReceived : U32 = 0
297 dc00 netSyncMonitorDelayRespMessagesSent : U32 = 0
298 dc00 netSyncMonitorSyncMessagesSent : U32 = 0
299 dc00 netSyncMonitorFollowUpMessagesSent : U32 = 0
301 dc01 peerPathDelay : double (queue by U32)
302 0810 isManagementPktForwardingState (op) local
303 dc00 transportMode : Ptp::TransportMode = layer2
304 0810 getLogMessageInterval (op) local
305 dc00 precisePeerMeanPathDelay : double = 0
306 dc00 lastUpdateTimeAsCapable : double = 0
307 dc00 currentPDelayReqIntervalsNRR : U8 = 0
308 dc00 currentSimpleAverageCount : U8 = 0
309 dc00 firstSuccessfulPdelayTransactionTime : double = 0
310 dc00 maxCountTillSimpleAvg : U8 = 20
311 dc00 isMeasuringLinkDelay : bool = false
312 dc00 pDelayReqIntervalsNRR : U8 = 10
313 dc00 linkDelayThreshold : U64 = 100000
314 dc00 nrrValid : bool = false
315 dc00 minGptpResidenceTime : U64 = 0
316 dc00 maxGptpResidenceTime : U64 = 0
317 dc00 lastGptpResidenceTime : U64 = 0
318 dc00 clearCountersRequestTime : double = 0 local
319 dc00 lastClearTime : double = 0
320 0811 maybeClearCounters (op) local
321 0811 updateClearCountersRequestTime (op) local
322 dc00 role : Ptp::Role = dynamic
323 dc00 syncTestRole : Ptp::SyncTestRole = disabled
324 dc00 dscpEvent : U8 = 0
325 dc00 dscpGeneral : U8 = 0
326 dc00 faultyFlag : bool = false
327 dc00 txLagMember : Dorn::IntfId = ""
328 dc00 enabled : bool = false
329 dc00 adminDisabled : bool = true
330 dc01 disabledReason : bool (map by Ptp::PortDisabledReason)
331 dc00 initialized : bool = false
)");
}

TEST(DataSetTable, PortDS_G8275_2) {
   auto const entity = Ptp::portDS_G8275_2Factory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc01 signalFail : double (map by Dorn::IpGenAddr)
259 dc00 blacklistDuration : U32 = 600
260 dc00 missingDelayRespCounter : U8 = 0
261 dc00 maxMissingDelayResp : U8 = 100
262 dc00 announceTxSmCount : U32 = 0
)");
}

TEST(DataSetTable, ForeignMasterDS) {
   auto const entity = Ptp::foreignMasterDSFactory(identity);
   EXPECT_EQ(attributeTable(*entity), R"(
258 2c00 foreignMasterPortIdentity : Ptp::PortIdentity = Ptp::PortIdentity(clockIdentity=00:11:22:ff:fe:33:44:55, portNumber=7) const local
259 dc00 foreignMasterAnnounceMessages : U32 = 1
260 dc00 foreignMasterIpAddr : Dorn::IpGenAddr = 0.0.0.0
261 dc00 updateTime : double = 0
)");
}

}  // namespace

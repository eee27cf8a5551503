// Every attribute of the hardware as shown by the generic interface: id, kind, name, type and
// default.

#include <gtest/gtest.h>

#include "KivTest/Recorder.h"
#include "PtpLib/PtpStatusStatedbTypes/HwConfig.h"
#include "PtpLib/PtpStatusStatedbTypes/HwIntfConfig.h"
#include "PtpLib/PtpStatusStatedbTypes/HwIntfStatus.h"
#include "PtpLib/PtpStatusStatedbTypes/HwStatus.h"
#include "PtpLib/PtpStatusStatedbTypes/HwTime.h"

namespace {

using KivTest::attributeTable;

Dorn::IntfId const intf("Ethernet1");

TEST(HardwareTable, HwConfig) {
   auto const entity = Ptp::hwConfigFactory("ptp");
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 ptpMode : Ptp::PtpMode = disabled
259 dc00 forwardPtpV1 : bool = false
260 dc00 forwardUnicastApplicable : bool = false
261 dc01 delayMechanism : Ptp::DelayMechanism (map by Dorn::IntfId)
262 dd21 intfConfig : Ptp::HwIntfConfig (children by Dorn::IntfId)
263 dc00 g82751Enabled : bool = false
)");
}

TEST(HardwareTable, HwIntfConfig) {
   auto const entity = Ptp::hwIntfConfigFactory(intf);
   EXPECT_EQ(attributeTable(*entity), R"(
258 2c00 intf : Dorn::IntfId = Ethernet1 const local
259 dc00 enabled : bool = false
260 dc00 requestMacReset : bool = false
261 dc00 disableManagementMessageForwarding : bool = false
)");
}

TEST(HardwareTable, HwStatus) {
   auto const entity = Ptp::hwStatusFactory("ptp");
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 ptpSupported : bool = false
259 dc00 ptpBoundaryClockSupported : bool = false
260 dc00 ptpE2ETransparentClockSupported : bool = false
261 dc00 ptpP2PTransparentClockSupported : bool = false
262 dc00 ptpGptpClockSupported : bool = false
263 dc00 ptpOrdinaryMasterClockSupported : bool = false
264 dc00 ptpOneStepTransparentClockSupported : bool = false
265 dc00 ptpOneStepBoundaryClockSupported : bool = false
266 dc00 ptpForwardV1Supported : bool = false
267 dc00 ptpForwardUnicastSupported : bool = false
268 dc00 ptpOneStepBoundaryClockP2PSupported : bool = false
269 dc00 egressTimestampSequenceIdSupported : bool = false
270 dc00 ptpSyncFromSystemClockSupported : bool = false
271 dc00 clockQuality : Ptp::ClockQuality = Ptp::ClockQuality(clockClass=248, clockAccuracy=254, offsetScaledLogVariance=65535)
272 dc00 ptpG82751BCSupported : bool = false
273 dc00 ptpG82751TCSupported : bool = false
274 dc00 dropNegativeTimePackets : bool = true
275 dd21 intfStatus : Ptp::HwIntfStatus (children by Dorn::IntfId)
276 dc00 tcTimestampMask : U64 = 18446744073709551615
)");
}

TEST(HardwareTable, HwIntfStatus) {
   auto const entity = Ptp::hwIntfStatusFactory(intf, Ptp::LinuxTsOptions(true));
   EXPECT_EQ(attributeTable(*entity), R"(
258 2c00 intf : Dorn::IntfId = Ethernet1 const local
259 dc00 twoStepClock : bool = false
260 dc00 timestampAtPacketEnd : bool = false
261 dc00 timestampMultiplier : U16 = 0
262 dc00 timestampDivider : U16 = 0
263 dc00 zeroMsb32Bits : bool = false
264 dc00 hwReadyForPacket : bool = false
265 dc00 egressTimestampExpiryInterval : double = 0
266 dc00 negativeTsDeltaThreshold : S64 = 0
267 2c00 linuxTsOptions : Ptp::LinuxTsOptions = Ptp::LinuxTsOptions(enabled=true) const local
)");
}

TEST(HardwareTable, HwTime) {
   auto const entity = Ptp::hwTimeFactory("ptp");
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 fpgaAndSystemTime : Ptp::FpgaAndSystemTime = Ptp::FpgaAndSystemTime(fpgaTime=0, systemTime=0)
259 2808 fpgaTime : U64 = 0 const local
260 2808 systemTime : U64 = 0 const local
)");
}

}  // namespace

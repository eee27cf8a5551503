// Every attribute of the OpenConfig model as shown by the generic interface: id, kind, name, type
// and default.

#include <gtest/gtest.h>

#include "KivTest/Recorder.h"
#include "PtpLib/PtpOpenConfig/CurrentDS.h"
#include "PtpLib/PtpOpenConfig/CurrentDSState.h"
#include "PtpLib/PtpOpenConfig/DefaultDS.h"
#include "PtpLib/PtpOpenConfig/DefaultDSState.h"
#include "PtpLib/PtpOpenConfig/Instance.h"
#include "PtpLib/PtpOpenConfig/TimePropertiesDS.h"
#include "PtpLib/PtpOpenConfig/TimePropertiesDSState.h"
#include "PtpLib/PtpOpenConfig/TransparentClockDefaultDS.h"
#include "PtpLib/PtpOpenConfig/TransparentClockDefaultDSState.h"

namespace {

using KivTest::attributeTable;

TEST(OpenConfigTable, Instance) {
   auto const entity = Openconfig::Ptp::instanceFactory("ptp");
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 id : U32 = 0
259 dd20 defaultDs : Openconfig::Ptp::DefaultDS (child)
260 dd20 currentDs : Openconfig::Ptp::CurrentDS (child)
261 dd20 timePropertiesDs : Openconfig::Ptp::TimePropertiesDS (child)
)");
}

TEST(OpenConfigTable, DefaultDS) {
   auto const entity = Openconfig::Ptp::defaultDSFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dd20 state : Openconfig::Ptp::DefaultDSState (child)
259 dc00 clockQuality : Openconfig::Ptp::ClockQuality = Openconfig::Ptp::ClockQualityState(clockClass=0, clockAccuracy=0, offsetScaledLogVariance=0)
)");
}

TEST(OpenConfigTable, CurrentDS) {
   auto const entity = Openconfig::Ptp::currentDSFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dd20 state : Openconfig::Ptp::CurrentDSState (child)
)");
}

TEST(OpenConfigTable, TimePropertiesDS) {
   auto const entity = Openconfig::Ptp::timePropertiesDSFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dd20 state : Openconfig::Ptp::TimePropertiesDSState (child)
)");
}

TEST(OpenConfigTable, TransparentClockDefaultDS) {
   auto const entity = Openconfig::Ptp::transparentClockDefaultDSFactory("ptp");
   EXPECT_EQ(attributeTable(*entity), R"(
258 dd20 state : Openconfig::Ptp::TransparentClockDefaultDSState (child)
)");
}

TEST(OpenConfigTable, DefaultDSState) {
   auto const entity = Openconfig::Ptp::defaultDSStateFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 instanceType : Openconfig::Ptp::InstanceType = ordinary
259 dc00 clockIdentity : Kiv::String = ""
260 dc00 domainNumber : U8 = 0
261 dc00 numberPorts : U16 = 0
262 dc00 priority1 : U8 = 0
263 dc00 priority2 : U8 = 0
264 dc00 domainProfile : Ptp::PtpProfile = ptpDefault
)");
}

TEST(OpenConfigTable, CurrentDSState) {
   auto const entity = Openconfig::Ptp::currentDSStateFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 stepsRemoved : U16 = 0
259 dc00 offsetFromMaster : S64 = 0
260 dc00 meanPathDelay : S64 = 0
)");
}

TEST(OpenConfigTable, TimePropertiesDSState) {
   auto const entity = Openconfig::Ptp::timePropertiesDSStateFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 ptpTimescale : bool = false
259 dc00 currentUtcOffsetValid : bool = false
260 dc00 currentUtcOffset : S16 = 0
)");
}

TEST(OpenConfigTable, TransparentClockDefaultDSState) {
   auto const entity = Openconfig::Ptp::transparentClockDefaultDSStateFactory();
   EXPECT_EQ(attributeTable(*entity), R"(
258 dc00 primaryDomain : U8 = 0
259 dc00 twoStepFlag : bool = false
260 dc00 clockIdentity : Kiv::String = ""
261 dc00 numberPorts : U16 = 0
)");
}

}  // namespace

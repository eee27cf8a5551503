#include <gtest/gtest.h>

#include <limits>

#include "KivTest/Recorder.h"
#include "PtpLib/PtpStatusStatedbTypes/HwConfig.h"
#include "PtpLib/PtpStatusStatedbTypes/HwStatus.h"
#include "PtpLib/PtpStatusStatedbTypes/HwTime.h"
#include "PtpLib/PtpStatusStatedbTypes/SystemClockConfig.h"

namespace Ptp {
namespace {

using Dorn::IntfId;
using KivTest::Recorder;

IntfId const ethernet1("Ethernet1");

// ---- HwStatus ----

TEST(HwStatus, InterfaceWithTheSameOptionsIsReturned) {
   auto const status = hwStatusFactory("hw");
   Recorder published(*status);
   auto const intf = status->intfStatusIs(ethernet1, LinuxTsOptions(true));
   EXPECT_EQ(status->intfStatusIs(ethernet1, LinuxTsOptions(true)), intf);
   EXPECT_EQ(published.ids(), "275");
}

TEST(HwStatus, InterfaceWithOtherOptionsIsRefusedAndKept) {
   auto const status = hwStatusFactory("hw");
   auto const intf = status->intfStatusIs(ethernet1, LinuxTsOptions(true));
   Recorder published(*status);
   try {
      status->intfStatusIs(ethernet1, LinuxTsOptions(false));
      FAIL() << "accepted";
   } catch (Kiv::MutatorReinstValException const& error) {
      EXPECT_EQ(error.argument(), 267);
      EXPECT_EQ(error.collection(), 275);
      std::string const what = error.what();
      EXPECT_NE(what.find("Ptp::LinuxTsOptions(enabled=true)"), std::string::npos) << what;
      EXPECT_NE(what.find("Ptp::LinuxTsOptions(enabled=false)"), std::string::npos) << what;
   }
   EXPECT_EQ(status->intfStatus(ethernet1), intf);
   EXPECT_EQ(intf->linuxTsOptions(), LinuxTsOptions(true));
   EXPECT_EQ(published.ids(), "");
}

TEST(HwIntfStatus, NotANumberAlwaysCountsAsAChange) {
   auto const intf = hwIntfStatusFactory(ethernet1, LinuxTsOptions());
   Recorder published(*intf);
   intf->egressTimestampExpiryIntervalIs(std::numeric_limits<double>::quiet_NaN());
   intf->egressTimestampExpiryIntervalIs(std::numeric_limits<double>::quiet_NaN());
   EXPECT_EQ(published.ids(), "265 265");
}

// ---- HwConfig ----

TEST(HwConfig, DelayMechanismIsKeptByInterface) {
   auto const config = hwConfigFactory("hw");
   Recorder published(*config);
   config->delayMechanismIs(ethernet1, DelayMechanism::p2p);
   config->delayMechanismIs(ethernet1, DelayMechanism::p2p);
   config->delayMechanismIs(ethernet1, DelayMechanism::e2e);
   EXPECT_EQ(published.changes(),
             "delayMechanism[Ethernet1] was nothing; delayMechanism[Ethernet1] was p2p");
   EXPECT_EQ(config->delayMechanism(IntfId("Ethernet2")), DelayMechanism::e2e);
}

TEST(HwConfig, InterfaceIsMadeOnceAndDetachedWhenDeleted) {
   auto const config = hwConfigFactory("hw");
   Recorder published(*config);
   auto const intf = config->intfConfigIs(ethernet1);
   EXPECT_EQ(config->intfConfigIs(ethernet1), intf);
   EXPECT_EQ(intf->parent(), config.get());
   EXPECT_EQ(config->intfConfigDel(ethernet1), intf);
   EXPECT_EQ(intf->parent(), nullptr);
   EXPECT_EQ(published.ids(), "262 262");
}

// ---- HwTime ----

TEST(HwTime, BothReadingsChangeAsOneAndAreShownAlone) {
   auto const time = hwTimeFactory("hw");
   time->fpgaAndSystemTimeIs(FpgaAndSystemTime(1, 2));
   Recorder published(*time);
   time->fpgaAndSystemTimeIs(FpgaAndSystemTime(1, 2));
   EXPECT_EQ(published.ids(), "");
   time->fpgaAndSystemTimeIs(FpgaAndSystemTime(1, 3));
   EXPECT_EQ(published.changes(),
             "fpgaAndSystemTime was Ptp::FpgaAndSystemTime(fpgaTime=1, systemTime=2)");
   EXPECT_EQ(time->fpgaTime(), 1u);
   EXPECT_EQ(time->systemTime(), 3u);
}

// ---- SystemClockConfig ----

TEST(SystemClockConfig, ManagementInterfaceIsBroughtToTheGivenFlagAndNeverToMpass) {
   auto const config = systemClockConfigFactory("ptp");
   Recorder ofConfig(*config);
   IntfId const management("Management1");
   auto const intf = config->managementIntfConfigIs(management, true);
   EXPECT_FALSE(intf->mpassEnabled());
   Recorder ofIntf(*intf);
   EXPECT_EQ(config->managementIntfConfigIs(management, false), intf);
   EXPECT_FALSE(intf->enabled());
   EXPECT_FALSE(intf->mpassEnabled());
   EXPECT_EQ(ofIntf.ids(), "259");
   EXPECT_EQ(ofConfig.ids(), "258");
   config->systemClockSourceIntfIs(management);
   EXPECT_EQ(config->managementIntfConfigDel(management), intf);
   EXPECT_EQ(intf->parent(), nullptr);
   EXPECT_EQ(ofConfig.ids(), "259 258");
}

TEST(ManagementIntfConfig, SocketIsTheSameForEveryInterfaceAndCannotBeWritten) {
   auto const intf = managementIntfConfigFactory(IntfId("Management1"), true);
   EXPECT_EQ(intf->udsAddress(), "/var/run/ptp4l@KestrelCove");
   EXPECT_EQ(KivTest::attributeTextIs(*intf, 388, "\"/tmp/other\""), Kiv::statusRefused);
   EXPECT_EQ(intf->udsAddress(), "/var/run/ptp4l@KestrelCove");
   EXPECT_EQ(KivTest::attributeTextIs(*intf, 386, "true"), Kiv::statusOk);
   EXPECT_TRUE(intf->freeRunning());
}

TEST(ManagementIntfConfig, InheritsAttributesRangesAndTheirMessages) {
   auto const intf = managementIntfConfigFactory(IntfId("Management1"), true);
   Recorder published(*intf);
   intf->logSyncIntervalIs(-7);
   intf->slaveOnlyIs(true);
   EXPECT_EQ(published.ids(), "263 387");
   try {
      intf->dscpEventIs(64);
      FAIL() << "accepted";
   } catch (Kiv::RangeException const& error) {
      EXPECT_STREQ(error.what(),
                   "Ptp::IntfConfig::dscpEvent < Ptp::Constants::minDscp or > "
                   "Ptp::Constants::maxDscp not allowed");
   }
   EXPECT_EQ(KivTest::attributeText(*intf, 263), "-7");
}

}  // namespace
}  // namespace Ptp

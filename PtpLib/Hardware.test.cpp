#include <gtest/gtest.h>

#include <limits>

#include "Kiv/AttrOps.h"
#include "Kiv/Text.h"
#include "KivTest/Witness.h"
#include "PtpLib/PtpStatusStatedbTypes/HwConfig.h"
#include "PtpLib/PtpStatusStatedbTypes/HwIntfConfig.h"
#include "PtpLib/PtpStatusStatedbTypes/HwIntfStatus.h"
#include "PtpLib/PtpStatusStatedbTypes/HwStatus.h"
#include "PtpLib/PtpStatusStatedbTypes/HwTime.h"
#include "PtpLib/PtpStatusStatedbTypes/ManagementIntfConfig.h"
#include "PtpLib/PtpStatusStatedbTypes/SystemClockConfig.h"

namespace Ptp {
namespace {

using Dorn::IntfId;
using KivTest::Witness;

IntfId const ethernet1("Ethernet1");

// ---- HwStatus ----

TEST(HwStatus, AFreshOneReportsNoCapabilityAndDropsNegativeTimes) {
   auto const status = hwStatusFactory("hw");
   int capabilities = 0;
   Kiv::forEachField(status->kivType(), [&](Kiv::FieldDescriptor const& field) {
      std::string_view const name = field.name;
      if (name.size() > 9 && name.substr(name.size() - 9) == "Supported") {
         ++capabilities;
         EXPECT_EQ(KivTest::attributeText(*status, field.fieldId), "false") << name;
      }
   });
   EXPECT_EQ(capabilities, 15);
   EXPECT_TRUE(status->dropNegativeTimePackets());
   EXPECT_EQ(status->tcTimestampMask(), 0xFFFFFFFFFFFFFFFFu);
   EXPECT_EQ(status->clockQuality().clockClass(), 248);
   EXPECT_EQ(status->clockQuality().clockAccuracy(), 0xfe);
   EXPECT_EQ(status->clockQuality(), ClockQuality(248, 0xfe, Dorn::NetU16(0xffff)));
   EXPECT_EQ(status->intfStatusCount(), 0u);
}

TEST(HwStatus, EverySetterPublishesItsOwnIdOnceAndTheOldValue) {
   auto const status = hwStatusFactory("hw");
   Witness published(*status);
   for (int twice = 0; twice != 2; ++twice) {
      status->ptpSupportedIs(true);
      status->clockQualityIs(ClockQuality(6, 0x21, Dorn::NetU16(100)));
      status->dropNegativeTimePacketsIs(false);
      status->tcTimestampMaskIs(0xff);
   }
   EXPECT_EQ(published.changes(),
             "ptpSupported was false; clockQuality was Ptp::ClockQuality(clockClass=248, "
             "clockAccuracy=254, offsetScaledLogVariance=65535); dropNegativeTimePackets was "
             "true; tcTimestampMask was 18446744073709551615");
}

TEST(HwStatus, InterfaceWithTheSameOptionsIsReturned) {
   auto const status = hwStatusFactory("hw");
   Witness published(*status);
   auto const intf = status->intfStatusIs(ethernet1, LinuxTsOptions(true));
   EXPECT_EQ(status->intfStatusIs(ethernet1, LinuxTsOptions(true)), intf);
   EXPECT_EQ(published.ids(), "275");
}

TEST(HwStatus, InterfaceWithOtherOptionsIsRefusedAndKept) {
   auto const status = hwStatusFactory("hw");
   auto const intf = status->intfStatusIs(ethernet1, LinuxTsOptions(true));
   Witness published(*status);
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
   Witness published(*intf);
   intf->egressTimestampExpiryIntervalIs(std::numeric_limits<double>::quiet_NaN());
   intf->egressTimestampExpiryIntervalIs(std::numeric_limits<double>::quiet_NaN());
   EXPECT_EQ(published.ids(), "265 265");
}

TEST(HwIntfStatus, OptionsAreFixedWhenItIsMade) {
   auto const intf = hwIntfStatusFactory(ethernet1, LinuxTsOptions(true));
   Witness published(*intf);
   EXPECT_EQ(KivTest::attributeTextIs(*intf, 267, "Ptp::LinuxTsOptions(enabled=false)"),
             Kiv::statusRefused);
   EXPECT_EQ(intf->linuxTsOptions(), LinuxTsOptions(true));
   EXPECT_EQ(published.ids(), "");
}

TEST(HwIntfStatus, InterfacesOutliveTheirRootWithoutAParent) {
   auto status = hwStatusFactory("hw");
   auto config = hwConfigFactory("hw");
   auto const ofStatus = status->intfStatusIs(ethernet1, LinuxTsOptions());
   auto const ofConfig = config->intfConfigIs(ethernet1);
   status.reset();
   config.reset();
   EXPECT_EQ(ofStatus->parent(), nullptr);
   EXPECT_EQ(ofConfig->parent(), nullptr);
   ofStatus->timestampDividerIs(3);
   EXPECT_EQ(ofStatus->timestampDivider(), 3);
}

// ---- HwConfig ----

TEST(HwConfig, DelayMechanismIsKeptByInterface) {
   auto const config = hwConfigFactory("hw");
   Witness published(*config);
   config->delayMechanismIs(ethernet1, DelayMechanism::p2p);
   config->delayMechanismIs(ethernet1, DelayMechanism::p2p);
   config->delayMechanismIs(ethernet1, DelayMechanism::e2e);
   EXPECT_EQ(published.changes(),
             "delayMechanism[Ethernet1] was nothing; delayMechanism[Ethernet1] was p2p");
   EXPECT_EQ(config->delayMechanism(IntfId("Ethernet2")), DelayMechanism::e2e);
}

TEST(HwConfig, InterfaceIsMadeOnceAndDetachedWhenDeleted) {
   auto const config = hwConfigFactory("hw");
   Witness published(*config);
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
   Witness published(*time);
   time->fpgaAndSystemTimeIs(FpgaAndSystemTime(1, 2));
   EXPECT_EQ(published.ids(), "");
   time->fpgaAndSystemTimeIs(FpgaAndSystemTime(1, 3));
   EXPECT_EQ(published.changes(),
             "fpgaAndSystemTime was Ptp::FpgaAndSystemTime(fpgaTime=1, systemTime=2)");
   EXPECT_EQ(time->fpgaTime(), 1u);
   EXPECT_EQ(time->systemTime(), 3u);
}

TEST(HwTime, TheStoredReadingGivenBackToItselfPublishesNothing) {
   auto const time = hwTimeFactory("hw");
   time->fpgaAndSystemTimeIs(FpgaAndSystemTime(1, 2));
   Witness published(*time);
   time->fpgaAndSystemTimeIs(time->fpgaAndSystemTime());
   EXPECT_EQ(published.ids(), "");
}

TEST(HwTime, ReadingsAloneCannotBeWritten) {
   auto const time = hwTimeFactory("hw");
   EXPECT_EQ(KivTest::attributeTextIs(*time, 259, "1"), Kiv::statusRefused);
   EXPECT_EQ(KivTest::attributeTextIs(*time, 260, "1"), Kiv::statusRefused);
   EXPECT_EQ(time->fpgaAndSystemTime(), FpgaAndSystemTime());
}

TEST(FpgaAndSystemTime, FieldsAreReadByIdAndCannotBeWritten) {
   FpgaAndSystemTime reading(7, 8);
   Kiv::TypeImpl const& type = FpgaAndSystemTime::kivTypeImpl;
   U64 const other = 9;
   for (Kiv::AttributeId const id : {Kiv::AttributeId(2), Kiv::AttributeId(3)}) {
      U64 value = 0;
      EXPECT_EQ(type.genericIfAttributeOp(&value, &reading, type.field(id), 0, nullptr, nullptr),
                Kiv::statusOk);
      EXPECT_EQ(value, 5u + id);
      EXPECT_EQ(type.genericIfAttributeOp(nullptr, &reading, type.field(id), 1, nullptr, &other),
                Kiv::statusRefused);
   }
   EXPECT_EQ(reading, FpgaAndSystemTime(7, 8));
}

TEST(FpgaAndSystemTime, IsReadFromTextByTheNamesOfItsFieldsInOrder) {
   EXPECT_EQ(Kiv::fromText<FpgaAndSystemTime>("Ptp::FpgaAndSystemTime(fpgaTime=7, systemTime=8)"),
             FpgaAndSystemTime(7, 8));
   EXPECT_THROW(
         Kiv::fromText<FpgaAndSystemTime>("Ptp::FpgaAndSystemTime(systemTime=8, fpgaTime=7)"),
         Kiv::Exception);
}

// ---- SystemClockConfig ----

TEST(SystemClockConfig, AFreshOneHasNoInterfacesAndAnEmptySource) {
   auto const config = systemClockConfigFactory("ptp");
   EXPECT_EQ(config->managementIntfConfigCount(), 0u);
   EXPECT_EQ(config->systemClockSourceIntf(), IntfId(""));
   Witness published(*config);
   config->systemClockSourceIntfIs(IntfId(""));
   EXPECT_EQ(published.ids(), "");
   config->systemClockSourceIntfIs(IntfId("Management1"));
   EXPECT_EQ(published.changes(), "systemClockSourceIntf was \"\"");
}

TEST(SystemClockConfig, DeletesItsInterfacesOneByOneAndLetsGoOfThemWhenItDies) {
   auto config = systemClockConfigFactory("ptp");
   Witness published(*config);
   auto const first = config->managementIntfConfigIs(IntfId("Management1"), true);
   config->managementIntfConfigIs(IntfId("Management2"), true);
   config->managementIntfConfigDelAll();
   EXPECT_EQ(published.ids(), "258 258 258 258");
   EXPECT_EQ(first->parent(), nullptr);
   EXPECT_EQ(config->managementIntfConfigDel(IntfId("Management1")), nullptr);
   EXPECT_EQ(published.ids(), "");
   auto other = systemClockConfigFactory("ptp");
   auto const kept = other->managementIntfConfigIs(IntfId("Management1"), true);
   EXPECT_EQ(kept->parent(), other.get());
   other.reset();
   EXPECT_EQ(kept->parent(), nullptr);
}

TEST(SystemClockConfig, ManagementInterfaceIsBroughtToTheGivenFlagAndNeverToMpass) {
   auto const config = systemClockConfigFactory("ptp");
   Witness ofConfig(*config);
   IntfId const management("Management1");
   auto const intf = config->managementIntfConfigIs(management, true);
   EXPECT_FALSE(intf->mpassEnabled());
   Witness ofIntf(*intf);
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
   EXPECT_EQ(managementIntfConfigFactory(IntfId("ma2"), false)->udsAddress(), intf->udsAddress());
   EXPECT_EQ(KivTest::attributeText(*intf, 388), "\"/var/run/ptp4l@KestrelCove\"");
   EXPECT_EQ(KivTest::attributeTextIs(*intf, 388, "\"/tmp/other\""), Kiv::statusRefused);
   EXPECT_EQ(intf->udsAddress(), "/var/run/ptp4l@KestrelCove");
   EXPECT_EQ(KivTest::attributeTextIs(*intf, 386, "true"), Kiv::statusOk);
   EXPECT_TRUE(intf->freeRunning());
}

TEST(ManagementIntfConfig, TakesTwoArgumentsWhereItsBaseTakesThree) {
   Kiv::TypeImpl const& type = ManagementIntfConfig::kivTypeImpl;
   EXPECT_EQ(std::vector<Kiv::AttributeId>(type.ctorArgs.begin(), type.ctorArgs.end()),
             (std::vector<Kiv::AttributeId>{258, 259}));
   EXPECT_EQ(type.base->ctorArgs.size(), 3u);
   Dorn::IntfId const intf("Management1");
   bool const yes = true;
   std::array<Kiv::ValueRef, 3> const args{&intf, &yes, &yes};
   auto const made = type.entity->genericIfConstructFromCtorArgs(Kiv::CtorArgs(args).first(2));
   EXPECT_TRUE(static_cast<ManagementIntfConfig const&>(*made).enabled());
   EXPECT_FALSE(static_cast<ManagementIntfConfig const&>(*made).mpassEnabled());
   EXPECT_THROW(type.entity->genericIfConstructFromCtorArgs(args), Kiv::NewEntityArgsException);
   auto const clock = systemClockConfigFactory("clock");
   auto const& collection = *clock->kivType().field("managementIntfConfig")->ops->collection;
   EXPECT_EQ(collection.childArgCount, 2u);
   auto const child = collection.childIs(*clock, Kiv::CtorArgs(args).first(2));
   EXPECT_EQ(child, clock->managementIntfConfig(intf));
   EXPECT_THROW(collection.childIs(*clock, args), Kiv::NewEntityArgsException);
}

TEST(ManagementIntfConfig, InheritsAttributesRangesAndTheirMessages) {
   auto const intf = managementIntfConfigFactory(IntfId("Management1"), true);
   Witness published(*intf);
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

TEST(ManagementIntfConfig, OwnFlagsPublishTheirIdsAndOldValues) {
   auto const intf = managementIntfConfigFactory(IntfId("Management1"), true);
   Witness published(*intf);
   for (int twice = 0; twice != 2; ++twice) {
      intf->freeRunningIs(true);
      intf->slaveOnlyIs(true);
   }
   EXPECT_EQ(published.changes(), "freeRunning was false; slaveOnly was false");
   intf->freeRunningIs(false);
   intf->slaveOnlyIs(false);
   EXPECT_EQ(published.ids(), "386 387");
}

TEST(ManagementIntfConfig, AnswersEveryIdOfItsBaseAndNoneBetween) {
   auto const intf = managementIntfConfigFactory(IntfId("Management1"), true);
   auto const base = intfConfigFactory(IntfId("Management1"), true, false);
   Kiv::forEachField(base->kivType(), [&](Kiv::FieldDescriptor const& field) {
      EXPECT_EQ(intf->kivType().field(field.fieldId), &field) << field.name;
      if (field.kind == Kiv::MemberKind::single) {
         EXPECT_EQ(KivTest::attributeText(*intf, field.fieldId),
                   KivTest::attributeText(*base, field.fieldId))
               << field.name;
      }
   });
   for (Kiv::AttributeId id = 301; id != 386; ++id) {
      EXPECT_EQ(intf->kivType().field(id), nullptr) << id;
   }
   EXPECT_EQ(intf->kivType().field(389), nullptr);
}

}  // namespace
}  // namespace Ptp

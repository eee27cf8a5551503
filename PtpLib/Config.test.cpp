#include "PtpLib/PtpStatusStatedbTypes/Config.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "KivTest/Witness.h"
#include "PtpLib/Range.test.h"

namespace Ptp {
namespace {

using KivTest::Witness;

class ConfigTest : public testing::Test {
protected:
   Sarn::Ptr<Config> config = configFactory("ptp");
   Dorn::IntfId const ethernet1{"Ethernet1"};
};

// ---- Ranges ----

TEST_F(ConfigTest, DriftLimitIsFrom50To500000000) {
   checkRange<Config, U32>(*config, {&Config::driftLimit,
                                     &Config::driftLimitIs,
                                     {50, 51, 499999999, 500000000},
                                     {0, 49, 500000001, 4294967295},
                                     "Ptp::Config::driftLimit < Ptp::Constants::mindriftLimit or > "
                                     "Ptp::Constants::maxdriftLimit not allowed"});
}

TEST_F(ConfigTest, GlobalDscpEventIsUpTo63) {
   checkRange<Config, U8>(*config, {&Config::globalDscpEvent,
                                    &Config::globalDscpEventIs,
                                    {0, 63},
                                    {64, 255},
                                    "Ptp::Config::globalDscpEvent < Ptp::Constants::minDscp or > "
                                    "Ptp::Constants::maxDscp not allowed"});
}

TEST_F(ConfigTest, GlobalDscpGeneralIsUpTo63) {
   checkRange<Config, U8>(*config, {&Config::globalDscpGeneral,
                                    &Config::globalDscpGeneralIs,
                                    {63, 0},
                                    {64, 255},
                                    "Ptp::Config::globalDscpGeneral < Ptp::Constants::minDscp or > "
                                    "Ptp::Constants::maxDscp not allowed"});
}

TEST_F(ConfigTest, MpassSyncTimeoutIsFrom3To128) {
   checkRange<Config, U8>(*config,
                          {&Config::mpassSyncTimeout,
                           &Config::mpassSyncTimeoutIs,
                           {3, 128},
                           {0, 2, 129, 255},
                           "Ptp::Config::mpassSyncTimeout < Ptp::Constants::mpassMinTimeout or > "
                           "Ptp::Constants::mpassMaxTimeout not allowed"});
}

TEST_F(ConfigTest, MpassDelayReqTimeoutIsFrom8To600) {
   checkRange<Config, U16>(
         *config, {&Config::mpassDelayReqTimeout,
                   &Config::mpassDelayReqTimeoutIs,
                   {8, 600},
                   {0, 7, 601, 65535},
                   "Ptp::Config::mpassDelayReqTimeout < Ptp::Constants::mpassMinTimeoutSec or > "
                   "Ptp::Constants::mpassMaxTimeoutSec not allowed"});
}

TEST_F(ConfigTest, NumSkewSamplesToCalibratedIsFrom3To128) {
   checkRange<Config, U32>(
         *config,
         {&Config::numSkewSamplesToCalibrated,
          &Config::numSkewSamplesToCalibratedIs,
          {3, 127, 128},
          {0, 2, 129, 4294967295},
          "Ptp::Config::numSkewSamplesToCalibrated < Ptp::Constants::skewMinQueueSize or > "
          "Ptp::Constants::skewMaxQueueSize not allowed"});
}

TEST_F(ConfigTest, DelayEventMsgTimeoutIsAtLeast5) {
   checkRange<Config, U32>(
         *config,
         {&Config::delayEventMsgTimeout,
          &Config::delayEventMsgTimeoutIs,
          {5, 4294967295},
          {0, 4},
          "Ptp::Config::delayEventMsgTimeout < Ptp::Constants::delayEventMsgTimeoutMin or > "
          "Ptp::Constants::delayEventMsgTimeoutMax not allowed"});
}

// ---- Single values ----

TEST_F(ConfigTest, CurrentValuePublishesNothing) {
   Witness published(*config);
   config->enabledIs(false);
   config->driftLimitIs(500000000);
   config->clockQualityIs(ClockQuality(248, 254, Dorn::NetU16(65535)));
   config->stateDecisionTimeLimitIs(std::numeric_limits<double>::infinity());
   EXPECT_EQ(published.ids(), "");
}

TEST_F(ConfigTest, ChangeIsPublishedWithTheOldValue) {
   Witness published(*config);
   config->driftLimitIs(50);
   config->ptpModeIs(PtpMode::boundary);
   config->clockQualityIs(ClockQuality(6, 33, Dorn::NetU16(20061)));
   EXPECT_EQ(published.changes(),
             "driftLimit was 500000000; ptpMode was disabled; clockQuality was "
             "Ptp::ClockQuality(clockClass=248, clockAccuracy=254, "
             "offsetScaledLogVariance=65535)");
}

TEST_F(ConfigTest, NotANumberAlwaysCountsAsAChange) {
   Witness published(*config);
   for (int i = 0; i < 2; ++i) {
      config->skewThresholdIs(notANumber);
      config->skewDropThresholdIs(notANumber);
      config->stateDecisionTimeLimitIs(notANumber);
   }
   EXPECT_EQ(published.ids(), "288 291 306 288 291 306");
   EXPECT_TRUE(std::isnan(config->skewThreshold()));
}

TEST_F(ConfigTest, ValueSettersLeaveTheConfiguredFlagsAlone) {
   config->clockQualityIs(ClockQuality(6, 33, Dorn::NetU16(20061)));
   config->clockIdentityIs(Kiv::fromText<ClockIdentity>("00:11:22:ff:fe:33:44:55"));
   EXPECT_FALSE(config->clockQualityConfigured());
   EXPECT_FALSE(config->clockIdentityConfigured());
}

// ---- Interfaces ----

TEST_F(ConfigTest, IntfConfigIsMadeWithItsArgumentsAndPublishedWithItsKey) {
   Witness published(*config);
   auto const intf = config->intfConfigIs(ethernet1, true, false);
   EXPECT_EQ(intf->intf(), ethernet1);
   EXPECT_TRUE(intf->enabled());
   EXPECT_FALSE(intf->mpassEnabled());
   EXPECT_EQ(intf->parent(), config.get());
   EXPECT_EQ(config->intfConfig(ethernet1), intf);
   EXPECT_EQ(published.changes(), "intfConfig[Ethernet1] was nothing");
}

TEST_F(ConfigTest, IntfConfigOfAKnownInterfaceOnlyBringsItsFlagsToTheGivenValues) {
   auto const first = config->intfConfigIs(ethernet1, true, false);
   Witness ofConfig(*config);
   Witness ofIntf(*first);
   auto const second = config->intfConfigIs(ethernet1, false, true);
   EXPECT_EQ(second, first);
   EXPECT_FALSE(first->enabled());
   EXPECT_TRUE(first->mpassEnabled());
   EXPECT_EQ(ofConfig.ids(), "");
   EXPECT_EQ(ofIntf.ids(), "259 260");
   config->intfConfigIs(ethernet1, false, true);
   EXPECT_EQ(ofIntf.ids(), "");
}

TEST_F(ConfigTest, DeletedIntfConfigHasNoParentAndIsPublishedAsOldValue) {
   auto const intf = config->intfConfigIs(ethernet1, true, false);
   Witness published(*config);
   EXPECT_EQ(config->intfConfigDel(ethernet1), intf);
   EXPECT_EQ(intf->parent(), nullptr);
   EXPECT_EQ(config->intfConfig(ethernet1), nullptr);
   EXPECT_EQ(published.changes(), "intfConfig[Ethernet1] was Ptp::IntfConfig");
   EXPECT_EQ(config->intfConfigDel(ethernet1), nullptr);
   EXPECT_EQ(published.ids(), "");
}

TEST_F(ConfigTest, DeletingAllIntfConfigsDetachesEachOfThem) {
   auto const one = config->intfConfigIs(ethernet1, true, false);
   auto const two = config->intfConfigIs(Dorn::IntfId("Ethernet2"), true, false);
   {
      Witness published(*config);
      config->intfConfigDelAll();
      EXPECT_EQ(published.ids(), "283 283");
   }
   EXPECT_EQ(one->parent(), nullptr);
   EXPECT_EQ(two->parent(), nullptr);
   EXPECT_FALSE(config->intfConfigHas(ethernet1));
}

TEST_F(ConfigTest, IntfRegionConfigIsReturnedUnchangedTheSecondTime) {
   PortDSKey const key(ethernet1, Bridging::VlanIdOrNone());
   Witness published(*config);
   auto const region = config->intfRegionConfigIs(key);
   region->domainNumberModeIs(PtpPortDomainMode::networkSideDomain);
   EXPECT_EQ(config->intfRegionConfigIs(key), region);
   EXPECT_EQ(region->domainNumberMode(), PtpPortDomainMode::networkSideDomain);
   EXPECT_EQ(published.ids(), "284");
   EXPECT_EQ(config->intfRegionConfigDel(key), region);
   EXPECT_EQ(published.ids(), "284");
}

// ---- Named children ----

TEST_F(ConfigTest, FreshConfigHasBothClearListsAndNoAclMap) {
   ASSERT_NE(config->dropCounterClearList(), nullptr);
   EXPECT_EQ(config->dropCounterClearList()->nameString(), "dropCounterClearList");
   EXPECT_EQ(config->dropCounterClearList()->parent(), config.get());
   ASSERT_NE(config->pktCounterClearList(), nullptr);
   EXPECT_EQ(config->pktCounterClearList()->nameString(), "pktCounterClearList");
   EXPECT_EQ(config->pktCounterClearList()->parent(), config.get());
   EXPECT_EQ(config->serviceAclTypeVrfMap(), nullptr);
}

TEST_F(ConfigTest, NamedChildIsReplacedByOneOfAnotherName) {
   Witness published(*config);
   auto const a = config->serviceAclTypeVrfMapIs("a");
   EXPECT_EQ(config->serviceAclTypeVrfMapIs("a"), a);
   EXPECT_EQ(published.changes(), "serviceAclTypeVrfMap was nothing");
   auto const b = config->serviceAclTypeVrfMapIs("b");
   EXPECT_NE(b, a);
   EXPECT_EQ(b->nameString(), "b");
   EXPECT_EQ(b->parent(), config.get());
   EXPECT_EQ(a->parent(), nullptr);
   EXPECT_EQ(published.changes(), "serviceAclTypeVrfMap was Acl::ServiceAclTypeVrfMap");
   EXPECT_EQ(config->serviceAclTypeVrfMapDel(), b);
   EXPECT_EQ(b->parent(), nullptr);
   EXPECT_EQ(published.ids(), "285");
   EXPECT_EQ(config->serviceAclTypeVrfMapDel(), nullptr);
   EXPECT_EQ(published.ids(), "");
}

TEST_F(ConfigTest, ClearListsAreReplacedAndDeletedLikeAnyNamedChild) {
   auto const old = config->dropCounterClearList();
   Witness published(*config);
   config->dropCounterClearListIs("dropCounterClearList");
   EXPECT_EQ(published.ids(), "");
   config->dropCounterClearListIs("other");
   EXPECT_EQ(old->parent(), nullptr);
   config->pktCounterClearListDel();
   EXPECT_EQ(published.ids(), "298 299");
   EXPECT_EQ(config->pktCounterClearList(), nullptr);
}

// ---- Value collections ----

TEST_F(ConfigTest, EqualUnicastProfileIsPublishedOnce) {
   UcastNegProfile const profile(UcastNegMsgProfile(1, 300), UcastNegMsgProfile(-3, 300),
                                 UcastNegMsgProfile(-3, 300));
   Witness published(*config);
   config->ucastNegProfileIs("p", profile);
   config->ucastNegProfileIs("p", profile);
   EXPECT_EQ(published.changes(), "ucastNegProfile[\"p\"] was nothing");
   EXPECT_EQ(config->ucastNegProfile("p"), profile);
   config->ucastNegProfileIs("p", UcastNegProfile());
   EXPECT_EQ(published.ids(), "292");
   EXPECT_EQ(config->ucastNegProfileDel("p"), UcastNegProfile());
   EXPECT_EQ(published.ids(), "292");
   EXPECT_FALSE(config->ucastNegProfileHas("p"));
   config->ucastNegProfileDel("p");
   EXPECT_EQ(published.ids(), "");
}

TEST_F(ConfigTest, MessageTypeMapsPublishWithTypeAndOldValue) {
   Witness published(*config);
   config->missingSequenceThresholdsIs(MessageTypeNumber::sync, 5);
   config->missingSequenceThresholdsIs(MessageTypeNumber::sync, 5);
   config->missingSequenceThresholdsIs(MessageTypeNumber::sync, 6);
   EXPECT_EQ(published.changes(),
             "missingSequenceThresholds[sync] was nothing; missingSequenceThresholds[sync] was 5");
   config->missingTimerThresholdsIs(MessageTypeNumber::announce, 7);
   config->logMissingMessageTimerIs(MessageTypeNumber::followUp, true);
   config->logMissingMessageSeqIdIs(MessageTypeNumber::delayResp, false);
   EXPECT_EQ(published.ids(), "295 296 297");
   EXPECT_EQ(config->missingSequenceThresholds(MessageTypeNumber::sync), 6);
   EXPECT_EQ(config->missingTimerThresholds(MessageTypeNumber::announce), 7);
   EXPECT_TRUE(config->logMissingMessageTimer(MessageTypeNumber::followUp));
   EXPECT_TRUE(config->logMissingMessageSeqIdHas(MessageTypeNumber::delayResp));
   EXPECT_EQ(config->missingSequenceThresholds(MessageTypeNumber::management), 0);
   EXPECT_EQ(config->missingSequenceThresholdsDel(MessageTypeNumber::sync), 6);
   config->logMissingMessageTimerDelAll();
   EXPECT_EQ(published.ids(), "294 296");
}

TEST_F(ConfigTest, ReservedMessageTypesAreKeysToo) {
   auto const reserved = static_cast<MessageTypeNumber>(14);
   config->missingTimerThresholdsIs(reserved, 3);
   EXPECT_EQ(config->missingTimerThresholds(reserved), 3);
}

// ---- Lifetimes and observers ----

TEST_F(ConfigTest, ChildrenOutliveTheConfigWithoutAParent) {
   auto const intf = config->intfConfigIs(ethernet1, true, false);
   auto const region = config->intfRegionConfigIs(PortDSKey(ethernet1, Bridging::VlanIdOrNone()));
   auto const list = config->dropCounterClearList();
   config = nullptr;
   EXPECT_EQ(intf->parent(), nullptr);
   EXPECT_EQ(region->parent(), nullptr);
   EXPECT_EQ(list->parent(), nullptr);
}

TEST_F(ConfigTest, ChangesOfChildrenReachAnObserverOfTheSubtree) {
   auto const intf = config->intfConfigIs(ethernet1, true, false);
   Witness published(*config, Kiv::Scope::subtree);
   intf->logSyncIntervalIs(-3);
   config->priority1Is(1);
   EXPECT_EQ(published.changes(), "Ptp::IntfConfig.logSyncInterval was 0; priority1 was 128");
}

}  // namespace
}  // namespace Ptp

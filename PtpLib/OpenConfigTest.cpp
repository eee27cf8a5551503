#include <gtest/gtest.h>

#include "KivTest/Recorder.h"
#include "PtpLib/PtpOpenConfig.h"

namespace Openconfig::Ptp {
namespace {

using KivTest::Recorder;

TEST(OpenConfigDefaultDS, StateIsMadeOnceAndStartsEmpty) {
   auto const container = defaultDSFactory();
   Recorder published(*container);
   auto const state = container->stateIs();
   EXPECT_EQ(container->stateIs(), state);
   EXPECT_EQ(state->parent(), container.get());
   EXPECT_EQ(published.ids(), "258");
   EXPECT_EQ(state->instanceType(), InstanceType::ordinary);
   EXPECT_EQ(state->clockIdentity(), "");
   EXPECT_EQ(container->stateDel(), state);
   EXPECT_EQ(state->parent(), nullptr);
   EXPECT_EQ(published.ids(), "258");
   EXPECT_EQ(container->stateDel(), nullptr);
   EXPECT_EQ(published.ids(), "");
}

TEST(OpenConfigDefaultDS, EqualClockQualityPublishesNothing) {
   auto const container = defaultDSFactory();
   Recorder published(*container);
   container->clockQualityIs(ClockQuality(ClockQualityState(0, 0, 0)));
   EXPECT_EQ(published.ids(), "");
   container->clockQualityIs(ClockQuality(ClockQualityState(0, 0, 1)));
   container->clockQualityIs(ClockQuality(ClockQualityState(0, 1, 1)));
   container->clockQualityIs(ClockQuality(ClockQualityState(1, 1, 1)));
   container->clockQualityIs(ClockQuality(ClockQualityState(1, 1, 1)));
   EXPECT_EQ(published.ids(), "259 259 259");
}

TEST(OpenConfigInstance, IdAndEmptyIdentityAreUnchangedWhenFresh) {
   auto const instance = instanceFactory("ptp");
   Recorder published(*instance);
   instance->idIs(0);
   EXPECT_EQ(published.ids(), "");
   auto const state = instance->defaultDsIs()->stateIs();
   Recorder ofState(*state);
   state->clockIdentityIs("");
   EXPECT_EQ(ofState.ids(), "");
   state->clockIdentityIs("00:11:22:ff:fe:33:44:55");
   EXPECT_EQ(ofState.changes(), "clockIdentity was \"\"");
}

TEST(OpenConfigInstance, ContainersAreMadeAndDeletedOneByOne) {
   auto const instance = Instance::InstanceIs("ptp");
   EXPECT_EQ(instance->nameString(), "ptp");
   Recorder published(*instance);
   instance->defaultDsIs();
   instance->currentDsIs();
   instance->timePropertiesDsIs();
   instance->currentDsIs();
   EXPECT_EQ(published.ids(), "259 260 261");
   instance->defaultDsDel();
   instance->currentDsDel();
   instance->timePropertiesDsDel();
   instance->timePropertiesDsDel();
   EXPECT_EQ(published.ids(), "259 260 261");
}

TEST(OpenConfigTransparentClockDefaultDS, IsARootOfItsOwn) {
   auto const root = transparentClockDefaultDSFactory("tc");
   EXPECT_EQ(root->nameString(), "tc");
   auto const state = root->stateIs();
   state->primaryDomainIs(3);
   EXPECT_EQ(root->state()->primaryDomain(), 3);
}

TEST(OpenConfigClockQuality, TravelsInFourBytesInNetworkByteOrder) {
   ClockQuality const quality(ClockQualityState(6, 0x21, 0x4e5d));
   U8 bytes[4];
   ASSERT_EQ(quality.kivEncodedSize(), sizeof(bytes));
   Kiv::NboAttrLog::Out out(bytes, sizeof(bytes));
   out << quality;
   EXPECT_EQ(bytes[0], 6);
   EXPECT_EQ(bytes[1], 0x21);
   EXPECT_EQ(bytes[2], 0x4e);
   EXPECT_EQ(bytes[3], 0x5d);
   Kiv::NboAttrLog::In in(bytes, bytes + sizeof(bytes));
   EXPECT_EQ(ClockQuality(&in, Kiv::StreamBogon{}), quality);
   EXPECT_EQ(Kiv::fromText<ClockQuality>(Kiv::strRep(quality)), quality);
}

TEST(OpenConfigClockQuality, ClassThatDoesNotFitIsReportedUnderState) {
   try {
      Kiv::fromText<ClockQuality>(
            "Openconfig::Ptp::ClockQuality(state=Openconfig::Ptp::ClockQualityState("
            "clockClass=256, clockAccuracy=0, offsetScaledLogVariance=0))");
      FAIL() << "parsed";
   } catch (Kiv::RangeException const& error) {
      EXPECT_EQ(std::string(error.what()).rfind("state: clockClass: ", 0), 0u) << error.what();
   }
}

}  // namespace
}  // namespace Openconfig::Ptp

#include <gtest/gtest.h>

#include "Kiv/Text.h"
#include "KivTest/Witness.h"
#include "PtpLib/PtpOpenConfig.h"

namespace Openconfig::Ptp {
namespace {

using KivTest::Witness;

TEST(OpenConfigDefaultDS, StateIsMadeOnceAndStartsEmpty) {
   auto const container = defaultDSFactory();
   Witness published(*container);
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

/// The accessors of `state` of one container.
template <class Container>
void checkState(Sarn::Ptr<Container> const& container) {
   Witness published(*container);
   EXPECT_EQ(container->state(), nullptr);
   EXPECT_EQ(container->stateDel(), nullptr);
   EXPECT_EQ(published.ids(), "");
   auto const state = container->stateIs();
   EXPECT_EQ(container->stateIs(), state);
   EXPECT_EQ(state->parent(), container.get());
   EXPECT_EQ(container->stateDel(), state);
   EXPECT_EQ(state->parent(), nullptr);
   EXPECT_EQ(published.changes(),
             std::string("state was nothing; state was ") + state->kivType().name);
}

TEST(OpenConfigContainers, EachMakesItsStateOnceAndDeletingNonePublishesNothing) {
   checkState(defaultDSFactory());
   checkState(currentDSFactory());
   checkState(timePropertiesDSFactory());
   checkState(transparentClockDefaultDSFactory("tc"));
}

TEST(OpenConfigDefaultDS, EqualClockQualityPublishesNothing) {
   auto const container = defaultDSFactory();
   Witness published(*container);
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
   Witness published(*instance);
   instance->idIs(0);
   EXPECT_EQ(published.ids(), "");
   auto const state = instance->defaultDsIs()->stateIs();
   Witness ofState(*state);
   state->clockIdentityIs("");
   EXPECT_EQ(ofState.ids(), "");
   state->clockIdentityIs("00:11:22:ff:fe:33:44:55");
   EXPECT_EQ(ofState.changes(), "clockIdentity was \"\"");
}

TEST(OpenConfigInstance, ContainersAreMadeAndDeletedOneByOne) {
   auto const instance = Instance::InstanceIs("ptp");
   EXPECT_EQ(instance->nameString(), "ptp");
   Witness published(*instance);
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

TEST(OpenConfigInstanceType, ThreeIsTransparentP2PAndTheTextBoundaryIsOne) {
   EXPECT_EQ(Kiv::strRep(static_cast<InstanceType>(3)), "transparentP2P");
   EXPECT_EQ(stringValue(InstanceType::transparentP2P), std::string_view("transparentP2P"));
   EXPECT_EQ(static_cast<int>(Kiv::fromText<InstanceType>("boundary")), 1);
}

TEST(OpenConfigClockQualityState, ValuesThatDifferInTheVarianceOnlyAreUnequal) {
   EXPECT_FALSE(ClockQualityState(6, 7, 8).isEq(ClockQualityState(6, 7, 9)));
   EXPECT_FALSE(ClockQualityState(6, 7, 8).isEq(ClockQualityState(6, 9, 8)));
   EXPECT_FALSE(ClockQualityState(6, 7, 8).isEq(ClockQualityState(9, 7, 8)));
   EXPECT_TRUE(ClockQualityState(6, 7, 8).isEq(ClockQualityState(6, 7, 8)));
   EXPECT_FALSE(ClockQuality(ClockQualityState(6, 7, 8)) ==
                ClockQuality(ClockQualityState(6, 7, 9)));
}

TEST(OpenConfigDefaultDSState, AFreshOneIsZeroThroughoutPrioritiesIncluded) {
   auto const state = DefaultDSState::DefaultDSStateIs();
   EXPECT_EQ(state->instanceType(), InstanceType::ordinary);
   EXPECT_EQ(state->clockIdentity(), "");
   EXPECT_EQ(state->priority1(), 0);
   EXPECT_EQ(state->priority2(), 0);
   EXPECT_EQ(static_cast<int>(state->domainProfile()), 0);
   Witness published(*state);
   state->clockIdentityIs("");
   EXPECT_EQ(published.ids(), "");
}

TEST(OpenConfigTypes, EachHasAFactoryAndAStaticCreator) {
   EXPECT_EQ(defaultDSFactory()->kivType().index, DefaultDS::DefaultDSIs()->kivType().index);
   EXPECT_EQ(&currentDSFactory()->kivType(), &CurrentDS::CurrentDSIs()->kivType());
   EXPECT_EQ(&timePropertiesDSFactory()->kivType(),
             &TimePropertiesDS::TimePropertiesDSIs()->kivType());
   EXPECT_EQ(&defaultDSStateFactory()->kivType(), &DefaultDSState::kivTypeImpl);
   EXPECT_EQ(&currentDSStateFactory()->kivType(), &CurrentDSState::CurrentDSStateIs()->kivType());
   EXPECT_EQ(&timePropertiesDSStateFactory()->kivType(),
             &TimePropertiesDSState::TimePropertiesDSStateIs()->kivType());
   EXPECT_EQ(&transparentClockDefaultDSStateFactory()->kivType(),
             &TransparentClockDefaultDSState::TransparentClockDefaultDSStateIs()->kivType());
   EXPECT_EQ(TransparentClockDefaultDS::TransparentClockDefaultDSIs("tc")->nameString(), "tc");
}

/// An observer that is notified of a child finds it in its collection with its parent, or removed
/// and without a parent.
TEST(OpenConfigInstance, AnObserverFindsTheTreeConsistent) {
   struct Finder final : Kiv::Observer {
      void onChange(Kiv::Change const& change) override {
         auto& instance = static_cast<Instance&>(Kiv::entityOf(change));
         auto const now = instance.defaultDs();
         if (now != nullptr) {
            EXPECT_EQ(now->parent(), &instance);
            child = now;
         } else {
            EXPECT_EQ(child->parent(), nullptr);
         }
         ++told;
      }
      Sarn::Ptr<DefaultDS> child;
      int told = 0;
   } finder;
   auto const instance = instanceFactory("ptp");
   instance->observerAdd(finder);
   instance->defaultDsIs();
   instance->defaultDsDel();
   EXPECT_EQ(finder.told, 2);
   instance->observerDel(finder);
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

TEST(OpenConfigClockQuality, HashTextStreamAndEqualityAreThoseOfItsState) {
   for (ClockQualityState const& state :
        {ClockQualityState(), ClockQualityState(6, 0x21, 0x4e5d), ClockQualityState(255, 1, 0)}) {
      ClockQuality const quality(state);
      for (U32 const seed : {0u, 1u, 0x9e3779b9u}) {
         EXPECT_EQ(quality.hash(seed), state.hash(seed));
         EXPECT_EQ(ClockQuality::kivTypeImpl.genericIfHash(&quality, seed),
                   ClockQualityState::kivTypeImpl.genericIfHash(&state, seed));
      }
      EXPECT_EQ(Kiv::strRep(quality), Kiv::strRep(state));
      EXPECT_EQ(quality.kivEncodedSize(), state.kivEncodedSize());
      for (ClockQualityState const& other : {ClockQualityState(), state}) {
         EXPECT_EQ(quality == ClockQuality(other), state == other);
      }
   }
}

TEST(OpenConfigClockQuality, BothTextFormsAreReadAndTheStatesIsWritten) {
   ClockQuality const quality(ClockQualityState(6, 33, 20061));
   std::string const state =
         "Openconfig::Ptp::ClockQualityState(clockClass=6, clockAccuracy=33, "
         "offsetScaledLogVariance=20061)";
   std::string const wrapped = "Openconfig::Ptp::ClockQuality(state=" + state + ")";
   EXPECT_EQ(Kiv::strRep(quality), state);
   EXPECT_EQ(Kiv::fromText<ClockQuality>(state), quality);
   EXPECT_EQ(Kiv::fromText<ClockQuality>(" " + state + " "), quality);
   EXPECT_EQ(Kiv::fromText<ClockQuality>(wrapped), quality);
   EXPECT_EQ(
         Kiv::fromText<ClockQuality>(" Openconfig::Ptp::ClockQuality ( state = " + state + " )"),
         quality);
   for (std::string const& bad :
        {std::string(), "(" + state + ")", wrapped.substr(0, wrapped.size() - 1),
         state.substr(0, state.size() - 1), std::string("Openconfig::Ptp::ClockQuality"),
         std::string("Openconfig::Ptp::ClockQualityStates(clockClass=6)")}) {
      EXPECT_THROW(Kiv::fromText<ClockQuality>(bad), Kiv::ParseException) << bad;
   }
}

TEST(OpenConfigClockQuality, ClassThatDoesNotFitIsReportedUnderState) {
   std::string const state =
         "Openconfig::Ptp::ClockQualityState(clockClass=256, clockAccuracy=0, "
         "offsetScaledLogVariance=0)";
   for (std::string const& text : {state, "Openconfig::Ptp::ClockQuality(state=" + state + ")"}) {
      try {
         Kiv::fromText<ClockQuality>(text);
         ADD_FAILURE() << "parsed " << text;
      } catch (Kiv::RangeException const& error) {
         EXPECT_EQ(std::string(error.what()).rfind("state: clockClass: ", 0), 0u) << error.what();
      }
   }
}

}  // namespace
}  // namespace Openconfig::Ptp

// Hardware, system clock and OpenConfig in the attribute log: what is sent, in which form, and what
// a mirror receives.
#include "KivTest/Stream.test.h"
#include "PtpLib/PtpOpenConfig.h"
#include "PtpLib/PtpStatusStatedbTypes.h"

using namespace StreamTesting;
using Dorn::IntfId;
using KivTest::Witness;

namespace {

/// A root of the test's type and a mirror of it.
template <class T>
class Mirrored {
public:
   explicit Mirrored(Sarn::Ptr<T> (*factory)(std::string_view))
         : root(factory("root")), copy(factory("root")) {
      source_.hub.rootIs(root);
      mirror_.session->mountIs(copy);
      carry();
   }
   ~Mirrored() {
      mirror_.session.reset();
      source_.session.reset();
   }

   /// Brings the mirror up to date. Returns the messages that do so, as text.
   std::string carry() {
      std::string sent;
      for (bool moved = true; moved;) {
         Bytes const forth = source_.take();
         Bytes const back = mirror_.take();
         moved = !forth.empty() || !back.empty();
         for (std::string const& one : lines(forth)) {
            sent += (sent.empty() ? "" : "; ") + one;
         }
         mirror_.receive(forth);
         source_.receive(back);
      }
      EXPECT_EQ(mirror_.session->closeReason(), "");
      EXPECT_EQ(source_.session->closeReason(), "");
      EXPECT_EQ(KivTest::firstDifference(*root, *copy), "");
      return sent;
   }

   Sarn::Ptr<T> const root;
   Sarn::Ptr<T> const copy;

private:
   End source_;
   End mirror_;
};

/// The text without handles: "set.258 01".
std::string withoutHandles(std::string text) {
   for (std::size_t at = 0; (at = text.find(' ', at)) != std::string::npos;) {
      std::size_t const dot = text.find('.', at);
      if (dot == at + 9) {
         text.erase(at, 9);
      }
      ++at;
   }
   return text;
}

IntfId const ethernet1("Ethernet1");
IntfId const management1("Management1");

// ---- HwTime ----

TEST(HwTimeStream, BothReadingsTravelAsOneMessageTheHardwareClockFirst) {
   Mirrored<Ptp::HwTime> time(&Ptp::hwTimeFactory);
   Witness published(*time.copy);
   time.root->fpgaAndSystemTimeIs(Ptp::FpgaAndSystemTime(0x0102030405060708, 0x1112131415161718));
   EXPECT_EQ(withoutHandles(time.carry()), "set.258 01020304050607081112131415161718");
   EXPECT_EQ(published.changes(),
             "fpgaAndSystemTime was Ptp::FpgaAndSystemTime(fpgaTime=0, systemTime=0)");
   EXPECT_EQ(time.copy->fpgaTime(), 0x0102030405060708u) << "derived, in the mirror too";
   EXPECT_EQ(time.copy->systemTime(), 0x1112131415161718u);
}

// ---- HwStatus and HwConfig ----

TEST(HwStatusStream, AnInterfaceIsMadeWithItsOptions) {
   Mirrored<Ptp::HwStatus> status(&Ptp::hwStatusFactory);
   auto const intf = status.root->intfStatusIs(ethernet1, Ptp::LinuxTsOptions(true));
   intf->negativeTsDeltaThresholdIs(-5);
   status.root->tcTimestampMaskIs(0xffff);
   status.carry();
   ASSERT_NE(status.copy->intfStatus(ethernet1), nullptr);
   EXPECT_EQ(status.copy->intfStatus(ethernet1)->linuxTsOptions(), Ptp::LinuxTsOptions(true));
   EXPECT_EQ(status.copy->intfStatus(ethernet1)->negativeTsDeltaThreshold(), -5);
   EXPECT_EQ(status.copy->tcTimestampMask(), 0xffffu);
}

TEST(HwStatusStream, AnInterfaceThatIsMadeAgainWithOtherOptionsIsReplacedInTheMirror) {
   Mirrored<Ptp::HwStatus> status(&Ptp::hwStatusFactory);
   status.root->intfStatusIs(ethernet1, Ptp::LinuxTsOptions(true))->twoStepClockIs(true);
   status.carry();
   status.root->intfStatusDel(ethernet1);
   status.root->intfStatusIs(ethernet1, Ptp::LinuxTsOptions(false));
   status.carry();
   EXPECT_EQ(status.copy->intfStatus(ethernet1)->linuxTsOptions(), Ptp::LinuxTsOptions(false));
   EXPECT_FALSE(status.copy->intfStatus(ethernet1)->twoStepClock());
}

TEST(HwConfigStream, DelayMechanismsAndInterfacesComeAndGo) {
   Mirrored<Ptp::HwConfig> config(&Ptp::hwConfigFactory);
   config.root->delayMechanismIs(ethernet1, Ptp::DelayMechanism::p2p);
   config.root->intfConfigIs(ethernet1)->requestMacResetIs(true);
   config.carry();
   EXPECT_EQ(config.copy->delayMechanism(ethernet1), Ptp::DelayMechanism::p2p);
   EXPECT_TRUE(config.copy->intfConfig(ethernet1)->requestMacReset());
   config.root->delayMechanismDelAll();
   config.root->intfConfigDelAll();
   config.carry();
   EXPECT_EQ(config.copy->delayMechanismCount(), 0u);
   EXPECT_EQ(config.copy->intfConfigCount(), 0u);
}

// ---- SystemClockConfig ----

TEST(SystemClockConfigStream, AManagementInterfaceArrivesAsItselfAndSoDoWhatItInherits) {
   Mirrored<Ptp::SystemClockConfig> config(&Ptp::systemClockConfigFactory);
   Witness published(*config.copy, Kiv::Scope::subtree);
   Sarn::Ptr<Ptp::IntfConfig> const base = config.root->managementIntfConfigIs(management1, true);
   base->logSyncIntervalIs(-4);
   base->vlanConfigIs(Bridging::VlanIdOrNone(100));
   config.root->managementIntfConfig(management1)->slaveOnlyIs(true);
   config.root->systemClockSourceIntfIs(management1);
   config.carry();
   EXPECT_EQ(published.changes(),
             "managementIntfConfig[Management1] was nothing; "
             "Ptp::ManagementIntfConfig.logSyncInterval was 0; "
             "Ptp::ManagementIntfConfig.vlanConfig[100] was nothing; "
             "Ptp::ManagementIntfConfig.slaveOnly was false; "
             "systemClockSourceIntf was \"\"");
   auto const arrived = config.copy->managementIntfConfig(management1);
   EXPECT_EQ(&arrived->kivType(), &Ptp::ManagementIntfConfig::kivTypeImpl);
   EXPECT_TRUE(arrived->enabled());
   EXPECT_FALSE(arrived->mpassEnabled());
   EXPECT_EQ(arrived->udsAddress(), "/var/run/ptp4l@KestrelCove");
}

TEST(SystemClockConfigStream, AnInheritedRangeIsKeptByTheMirrorToo) {
   Sarn::Ptr<Ptp::SystemClockConfig> const root = Ptp::systemClockConfigFactory("root");
   Sarn::Ptr<Ptp::SystemClockConfig> const copy = Ptp::systemClockConfigFactory("root");
   root->managementIntfConfigIs(management1, true);
   End source;
   End mirror;
   source.hub.rootIs(root);
   mirror.session->mountIs(copy);
   for (int round = 0; round != 4; ++round) {
      mirror.receive(source.take());
      source.receive(mirror.take());
   }
   root->managementIntfConfig(management1)->logSyncIntervalIs(17);
   Bytes forged = source.take();
   ASSERT_GE(forged.size(), 2u);
   forged.back() = 18;
   mirror.receive(forged);
   EXPECT_NE(mirror.session->closeReason().find(
                   "Ptp::IntfConfig::logSyncInterval < Ptp::IntfConfig::minlogSyncInterval or > "
                   "Ptp::IntfConfig::maxlogSyncInterval not allowed"),
             std::string::npos)
         << mirror.session->closeReason();
   EXPECT_EQ(copy->managementIntfConfig(management1)->logSyncInterval(), 0);
   mirror.session.reset();
   source.session.reset();
}

// ---- OpenConfig ----

TEST(OpenConfigStream, ContainersTheirRecordsAndTheQualityArrive) {
   using namespace Openconfig::Ptp;
   Mirrored<Instance> instance(&instanceFactory);
   instance.root->idIs(7);
   auto const container = instance.root->defaultDsIs();
   auto const state = container->stateIs();
   state->instanceTypeIs(InstanceType::boundary);
   state->clockIdentityIs("00:11:22:ff:fe:33:44:55");
   instance.root->currentDsIs()->stateIs()->offsetFromMasterIs(-1);
   instance.root->timePropertiesDsIs()->stateIs()->currentUtcOffsetIs(37);
   instance.carry();
   container->clockQualityIs(ClockQuality(ClockQualityState(6, 0x21, 0x4e5d)));
   EXPECT_EQ(withoutHandles(instance.carry()), "set.259 06214e5d");
   EXPECT_EQ(instance.copy->id(), 7u);
   EXPECT_EQ(instance.copy->defaultDs()->state()->instanceType(), InstanceType::boundary);
   EXPECT_EQ(instance.copy->currentDs()->state()->offsetFromMaster(), -1);
   EXPECT_EQ(instance.copy->timePropertiesDs()->state()->currentUtcOffset(), 37);
}

TEST(OpenConfigStream, ARemovedContainerIsRemovedInTheMirrorWithAllBelow) {
   using namespace Openconfig::Ptp;
   Mirrored<Instance> instance(&instanceFactory);
   instance.root->defaultDsIs()->stateIs()->priority1Is(128);
   instance.carry();
   auto const kept = instance.copy->defaultDs();
   instance.root->defaultDsDel();
   instance.carry();
   EXPECT_EQ(instance.copy->defaultDs(), nullptr);
   EXPECT_EQ(kept->parent(), nullptr);
   EXPECT_EQ(kept->state()->priority1(), 128);
}

TEST(OpenConfigStream, CreationOfNoChildCarriesAFlag) {
   for (char const* const name :
        {"Instance", "DefaultDS", "CurrentDS", "TimePropertiesDS", "TransparentClockDefaultDS"}) {
      Kiv::TypeImpl const* const type = Kiv::typeByName(std::string("Openconfig::Ptp::") + name);
      ASSERT_NE(type, nullptr) << name;
      int children = 0;
      Kiv::forEachField(*type, [&](Kiv::FieldDescriptor const& field) {
         children += field.kind == Kiv::MemberKind::child;
         EXPECT_FALSE(field.has(Kiv::FieldDescriptor::instantiation1)) << field.name;
         EXPECT_FALSE(field.has(Kiv::FieldDescriptor::instantiation2)) << field.name;
         EXPECT_FALSE(field.has(Kiv::FieldDescriptor::instantiation3)) << field.name;
      });
      EXPECT_GE(children, 1) << name;
   }
}

TEST(OpenConfigStream, TheTransparentClocksDataSetIsARootOfItsOwn) {
   using namespace Openconfig::Ptp;
   Mirrored<TransparentClockDefaultDS> clock(&transparentClockDefaultDSFactory);
   clock.root->stateIs()->primaryDomainIs(3);
   clock.carry();
   EXPECT_EQ(clock.copy->state()->primaryDomain(), 3);
}

}  // namespace

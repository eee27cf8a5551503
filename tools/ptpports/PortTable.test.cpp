#include "tools/ptpports/PortTable.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

namespace Ptpports {
namespace {

using namespace Ptp;

PortDSKey key(char const* intf, U16 vlan = 0) {
   return {Dorn::IntfId(intf), vlan == 0 ? Bridging::VlanIdOrNone() : Bridging::VlanIdOrNone(vlan)};
}

ClockIdentity clock(U64 number) {
   return ClockIdentity(0x020011fffe000000u + number);
}

class PortTableTest : public testing::Test {
protected:
   Sarn::Ptr<PortDS> portIs(PortDSKey const& of, PortState state) {
      auto const port = status->portDSIs(of, PortIdentity(clock(1), ++number));
      status->intfStatusIs(of);
      port->portStateIs(state);
      return port;
   }
   std::string table() {
      std::ostringstream out;
      printPorts(out, *status);
      return "\n" + out.str();
   }

   Sarn::Ptr<Status> status = statusFactory("ptp");
   U16 number = 0;
};

TEST_F(PortTableTest, ShowsTheClockItsPortsInOrderAndHowManyThereAreInEachState) {
   status->defaultDSIs()->clockIdentityIs(clock(1));
   status->defaultDS()->domainNumberIs(24);
   status->defaultDS()->numberPortsIs(4);
   status->parentDSIs()->grandmasterIdentityIs(clock(0xaa));
   status->parentDS()->grandmasterClockQualityIs(ClockQuality(6, 0x21, Dorn::NetU16(20061)));
   auto const current = status->currentDSIs();
   current->stepsRemovedIs(Dorn::NetU16(2));
   current->offsetFromMasterIs(-3);
   current->meanPathDelayIs(212);
   current->lastUpdatePortKeyIs(key("Ethernet2"));

   auto const vlan = portIs(key("Ethernet10", 100), PortState::disabled);
   vlan->disabledReasonIs(PortDisabledReason::noIpAddr, true);
   vlan->disabledReasonIs(PortDisabledReason::linkDown, true);
   vlan->disabledReasonIs(PortDisabledReason::intfDisabled, false);
   auto const followed = portIs(key("Ethernet2"), PortState::slave);
   followed->roleIs(Role::slaveOnly);
   followed->syncMessageReceivedIs(8192);
   status->intfStatus(key("Ethernet2"))->foreignMasterDSIs(PortIdentity(clock(7), 1));
   status->intfStatus(key("Ethernet2"))->foreignMasterDSIs(PortIdentity(clock(8), 1));
   auto const link = portIs(key("Ethernet10"), PortState::master);
   link->delayMechanismIs(DelayMechanism::p2p);
   link->peerMeanPathDelayIs(487);
   link->lostResponsesPeerDelayIs(3);
   link->stpDiscardedRxMessagesCountIs(4294967295);
   link->corruptedRxManagementMessagesCountIs(2);
   link->ucastNegGrantTlvsSentIs(5);
   link->ucastNegGrantTlvsReceivedIs(6);
   auto const faulty = portIs(key("Ethernet9"), PortState::faulty);
   faulty->faultyFlagIs(true);
   status->intfStatus(key("Ethernet9"))->mpassEnabledIs(true);
   status->intfStatus(key("Ethernet9"))->mpassStatusIs(Mpass::Status::inactive);

   EXPECT_EQ(table(), R"(
status  ptp
clock   02:00:11:ff:fe:00:00:01  domain 24  ports 4
follows 02:00:11:ff:fe:00:00:aa  class 6  steps 2  offset -3 ns  delay 212 ns

port        vlan  state     role       offset  delay  masters  sync-rx  lost    discards  grants  remarks
Ethernet2         slave     slaveOnly      -3    212        2     8192     0           0       0
Ethernet9         faulty    dynamic         -      -        0        0     0           0       0  fault, MPASS inactive
Ethernet10        master    dynamic         -    487        0        0     3  4294967297      11
Ethernet10   100  disabled  dynamic         -      -        0        0     0           0       0  linkDown, noIpAddr

4 ports: 1 faulty, 1 disabled, 1 master, 1 slave
)");
}

TEST_F(PortTableTest, AnEmptyStatusHasNoPorts) {
   EXPECT_EQ(table(), R"(
status  ptp

port  vlan  state  role  offset  delay  masters  sync-rx  lost  discards  grants  remarks

0 ports
)");
}

TEST_F(PortTableTest, AsJsonAPortHasNullForWhatItDoesNotHave) {
   EXPECT_EQ(Holt::jsonLine(portsJson(*status)),
             R"({"status":"ptp","clock":null,"follows":null,"ports":[]})");
   auto const vlan = portIs(key("Ethernet10", 100), PortState::disabled);
   vlan->disabledReasonIs(PortDisabledReason::linkDown, true);
   status->currentDSIs()->lastUpdatePortKeyIs(key("Ethernet2"));
   status->currentDS()->offsetFromMasterIs(-3);
   status->currentDS()->meanPathDelayIs(212);
   portIs(key("Ethernet2"), PortState::slave)->syncMessageReceivedIs(8192);
   status->intfStatusDel(key("Ethernet2"));
   Holt::Json const ports = portsJson(*status)["ports"];
   ASSERT_EQ(ports.size(), 2u);
   EXPECT_EQ(Holt::jsonLine(ports[0]),
             R"({"port":"Ethernet2","vlan":null,"portState":"slave","role":"dynamic",)"
             R"("offsetFromMaster":-3,"meanPathDelay":212,"foreignMasters":null,)"
             R"("syncMessageReceived":8192,"lostResponsesPeerDelay":0,"discards":0,"grants":0,)"
             R"("faulty":false,"disabledReasons":[],"mpassInactive":false})");
   EXPECT_EQ(Holt::jsonLine(ports[1]),
             R"({"port":"Ethernet10","vlan":100,"portState":"disabled","role":"dynamic",)"
             R"("offsetFromMaster":null,"meanPathDelay":null,"foreignMasters":0,)"
             R"("syncMessageReceived":0,"lostResponsesPeerDelay":0,"discards":0,"grants":0,)"
             R"("faulty":false,"disabledReasons":["linkDown"],"mpassInactive":false})");
}

TEST_F(PortTableTest, APortThatIsNoLongerFollowedHasNoOffset) {
   status->currentDSIs()->lastUpdatePortKeyIs(key("Ethernet2"));
   status->currentDS()->offsetFromMasterIs(55);
   portIs(key("Ethernet2"), PortState::passive);
   EXPECT_EQ(table().find("55"), std::string::npos);
}

}  // namespace
}  // namespace Ptpports

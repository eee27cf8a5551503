#include "tools/ptp4lAgent/HardwareFill.h"

#include <gtest/gtest.h>

#include "tools/ptp4lAgent/PortDataSets.h"

namespace {

using namespace Ptp4lAgent;

class HardwareFillTest : public testing::Test {
protected:
   static Ports portsOn(std::initializer_list<char const*> interfaces, U8 timestamping) {
      Ports ports;
      U16 number = 0;
      for (char const* const name : interfaces) {
         Port& port = ports[++number];
         port.name = name;
         port.key = Ptp::PortDSKey(Dorn::IntfId(name), Bridging::VlanIdOrNone());
         port.timestamping = timestamping;
      }
      return ports;
   }
   Sarn::Ptr<Ptp::HwIntfStatus> intf(char const* name) const {
      return fill.status().intfStatus(Dorn::IntfId(name));
   }

   Timestamping can;
   int asked = 0;
   HardwareFill fill{Ptp::hwStatusFactory("ptp/hwStatus"), Ptp::hwTimeFactory("ptp/hwTime"),
                     [this](std::string const&) {
                        ++asked;
                        return std::optional(can);
                     }};
};

TEST_F(HardwareFillTest, SoftwareTimestampsAreNotTheKernelsHardware) {
   fill.take(portsOn({"eth0", "eth1"}, PortPropertiesNp::software), true);
   EXPECT_FALSE(fill.status().ptpSupported());
   ASSERT_EQ(fill.status().intfStatusCount(), 2u);
   EXPECT_FALSE(intf("eth0")->linuxTsOptions().enabled());
   EXPECT_TRUE(intf("eth0")->twoStepClock());
}

TEST_F(HardwareFillTest, HardwareIsShownAsTheKernelTellsIt) {
   can.hardware = true;
   can.oneStep = true;
   fill.take(portsOn({"eth0"}, PortPropertiesNp::hardware), false);
   EXPECT_TRUE(fill.status().ptpSupported());
   EXPECT_TRUE(fill.status().ptpOneStepBoundaryClockSupported());
   EXPECT_FALSE(fill.status().ptpOneStepBoundaryClockP2PSupported());
   EXPECT_TRUE(intf("eth0")->linuxTsOptions().enabled());
   EXPECT_FALSE(intf("eth0")->twoStepClock());
}

TEST_F(HardwareFillTest, OptionsThatChangeMakeAnotherChild) {
   fill.take(portsOn({"eth0"}, PortPropertiesNp::software), true);
   fill.take(portsOn({"eth0"}, PortPropertiesNp::hardware), true);
   EXPECT_TRUE(intf("eth0")->linuxTsOptions().enabled());
   fill.take(portsOn({"eth1"}, PortPropertiesNp::hardware), true);
   EXPECT_FALSE(intf("eth0"));
   EXPECT_TRUE(intf("eth1"));
}

TEST_F(HardwareFillTest, TheKernelIsAskedOnceForEachInterface) {
   for (int i = 0; i != 5; ++i) {
      fill.take(portsOn({"eth0", "eth1"}, PortPropertiesNp::hardware), true);
   }
   EXPECT_EQ(asked, 2);
   fill.take({}, false);
   fill.take(portsOn({"eth0"}, PortPropertiesNp::hardware), true);
   EXPECT_EQ(asked, 3) << "after the daemon was gone";
}

TEST_F(HardwareFillTest, WithoutAClockNothingIsRead) {
   can.phcIndex = 4095;  // there is no such device
   fill.take(portsOn({"eth0"}, PortPropertiesNp::hardware), true);
   EXPECT_NE(fill.deadline(), 0u);
   fill.onTurn({});
   EXPECT_EQ(fill.time().fpgaTime(), 0u);
   fill.take({}, false);
   EXPECT_EQ(fill.deadline(), 0u);
}

TEST(Hardware, AnInterfaceThatDoesNotExistTellsNothing) {
   EXPECT_FALSE(timestampingOf("no-such-intf"));
   EXPECT_FALSE(timestampingOf(""));
   EXPECT_FALSE(timestampingOf("a-name-that-is-far-too-long"));
}

TEST(Hardware, TheLoopbackHasNoHardwareClock) {
   auto const can = timestampingOf("lo");
   EXPECT_TRUE(!can || (!can->hardware && can->phcIndex == -1));
}

TEST(Hardware, WhatIsNoClockCannotBeRead) {
   HardwareClock clock("/dev/null");
   EXPECT_FALSE(clock.read());
   EXPECT_FALSE(clock.read());
   HardwareClock none("/dev/no-such-clock");
   EXPECT_FALSE(none.read());
}

}  // namespace

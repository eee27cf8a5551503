// The commands with hardware, system clock and OpenConfig roots, whose types the program does not
// know.
#include <gtest/gtest.h>

#include <csignal>
#include <memory>

#include "tools/ptpstate/ProgramUnderTest.h"

namespace Ptpstate {
namespace {

class RootsTest : public testing::Test {
protected:
   void SetUp() override {
      server = std::make_unique<Program>(std::vector<std::string>{
            "serve",
            "--socket",
            socket,
            "--root",
            "Ptp::SystemClockConfig=clock",
            "--root",
            "Ptp::HwConfig=hw/config",
            "--root",
            "Ptp::HwStatus=hw/status",
            "--root",
            "Ptp::HwTime=hw/time",
            "--root",
            "Openconfig::Ptp::Instance=oc",
            "--root",
            "Openconfig::Ptp::TransparentClockDefaultDS=oc/tc",
      });
      ASSERT_TRUE(server->says("serving ", 6)) << server->finish().err;
   }

   Outcome client(std::vector<std::string> args) {
      args.insert(args.begin() + 1, {"--socket", socket});
      return run(args);
   }
   void change(std::vector<std::string> const& args) {
      Outcome const outcome = client(args);
      EXPECT_EQ(outcome.status, 0) << outcome.err;
      EXPECT_EQ(outcome.out, "");
   }
   /// The output of a command, or its error.
   std::string said(std::vector<std::string> const& args) {
      Outcome const outcome = client(args);
      return outcome.out + outcome.err;
   }
   std::unique_ptr<Program> watch(std::string const& root) {
      auto watcher =
            std::make_unique<Program>(std::vector<std::string>{"watch", "--socket", socket, root});
      EXPECT_TRUE(watcher->says("is complete: ")) << watcher->finish().err;
      return watcher;
   }
   /// The changes that it has printed, after the line that says that it is complete.
   static std::string ended(Program& watcher) {
      watcher.signal(SIGINT);
      EXPECT_EQ(watcher.finish().status, 0) << watcher.finish().err;
      std::string const all = withoutTimes(watcher.finish().out);
      return all.substr(all.find('\n') + 1);
   }

   Scratch scratch;
   std::string socket = scratch.file("socket");
   std::unique_ptr<Program> server;
};

TEST_F(RootsTest, TheSystemClock) {
   auto const watcher = watch("clock");
   change({"add", "clock.managementIntfConfig[Management1]", "true"});
   change({"set", "clock.managementIntfConfig[Management1].logSyncInterval", "-4"});
   change({"set", "clock.managementIntfConfig[Management1].slaveOnly", "true"});
   change({"set", "clock.systemClockSourceIntf", "Management1"});
   EXPECT_EQ(said({"get", "clock.managementIntfConfig[Management1].udsAddress"}),
             "\"/var/run/ptp4l@KestrelCove\"\n");
   EXPECT_EQ(said({"get", "clock.managementIntfConfig[Management1].mpassEnabled"}), "false\n");
   Outcome const refused =
         client({"set", "clock.managementIntfConfig[Management1].udsAddress", "\"/tmp/x\""});
   EXPECT_EQ(refused.status, 1);
   EXPECT_NE(refused.err.find("clock.managementIntfConfig[Management1].udsAddress"),
             std::string::npos)
         << refused.err;
   Outcome const outside =
         client({"set", "clock.managementIntfConfig[Management1].logSyncInterval", "18"});
   EXPECT_EQ(outside.status, 1);
   EXPECT_NE(outside.err.find("logSyncInterval: 18 is not allowed; the range is -7 to 17"),
             std::string::npos)
         << outside.err;
   std::string const dump = said({"dump", "clock"});
   EXPECT_NE(dump.find("clock.managementIntfConfig[Management1] : Ptp::ManagementIntfConfig\n"),
             std::string::npos)
         << dump;
   EXPECT_EQ(ended(*watcher),
             "TIME clock.managementIntfConfig[Management1] created: enabled=true\n"
             "TIME clock.managementIntfConfig[Management1].logSyncInterval: 0 -> -4\n"
             "TIME clock.managementIntfConfig[Management1].slaveOnly: false -> true\n"
             "TIME clock.systemClockSourceIntf: \"\" -> Management1\n");
}

TEST_F(RootsTest, WhatTheHardwareIsToDo) {
   auto const watcher = watch("hw/config");
   change({"set", "hw/config.ptpMode", "boundary"});
   change({"set", "hw/config.delayMechanism[Ethernet1]", "p2p"});
   change({"add", "hw/config.intfConfig[Ethernet1]"});
   change({"set", "hw/config.intfConfig[Ethernet1].enabled", "true"});
   change({"del", "hw/config.delayMechanism[Ethernet1]"});
   EXPECT_EQ(said({"dump", "hw/config.intfConfig[Ethernet1]"}),
             "hw/config.intfConfig[Ethernet1] : Ptp::HwIntfConfig\n"
             "hw/config.intfConfig[Ethernet1].intf                               = Ethernet1\n"
             "hw/config.intfConfig[Ethernet1].enabled                            = true\n"
             "hw/config.intfConfig[Ethernet1].requestMacReset                    = false\n"
             "hw/config.intfConfig[Ethernet1].disableManagementMessageForwarding = false\n");
   EXPECT_EQ(ended(*watcher),
             "TIME hw/config.ptpMode: disabled -> boundary\n"
             "TIME hw/config.delayMechanism[Ethernet1] created: p2p\n"
             "TIME hw/config.intfConfig[Ethernet1] created\n"
             "TIME hw/config.intfConfig[Ethernet1].enabled: false -> true\n"
             "TIME hw/config.delayMechanism[Ethernet1] deleted: was p2p\n");
}

TEST_F(RootsTest, WhatTheHardwareCanDo) {
   auto const watcher = watch("hw/status");
   EXPECT_EQ(said({"get", "hw/status.tcTimestampMask"}), "18446744073709551615\n");
   change({"set", "hw/status.ptpSupported", "true"});
   change({"set", "hw/status.clockQuality.clockClass", "6"});
   change({"add", "hw/status.intfStatus[Ethernet1]", "Ptp::LinuxTsOptions(enabled=true)"});
   change({"set", "hw/status.intfStatus[Ethernet1].timestampDivider", "8"});
   EXPECT_EQ(said({"get", "hw/status.intfStatus[Ethernet1].linuxTsOptions"}),
             "Ptp::LinuxTsOptions(enabled=true)\n");
   EXPECT_EQ(
         client({"add", "hw/status.intfStatus[Ethernet1]", "Ptp::LinuxTsOptions(enabled=false)"})
               .status,
         1);
   EXPECT_EQ(said({"get", "hw/status.intfStatus[Ethernet1].timestampDivider"}), "8\n");
   EXPECT_EQ(ended(*watcher),
             "TIME hw/status.ptpSupported: false -> true\n"
             "TIME hw/status.clockQuality: Ptp::ClockQuality(clockClass=248, clockAccuracy=254, "
             "offsetScaledLogVariance=65535) -> Ptp::ClockQuality(clockClass=6, clockAccuracy=254, "
             "offsetScaledLogVariance=65535)\n"
             "TIME hw/status.intfStatus[Ethernet1] created: "
             "linuxTsOptions=Ptp::LinuxTsOptions(enabled=true)\n"
             "TIME hw/status.intfStatus[Ethernet1].timestampDivider: 0 -> 8\n");
}

TEST_F(RootsTest, TheHardwareClock) {
   auto const watcher = watch("hw/time");
   change({"set", "hw/time.fpgaAndSystemTime", "Ptp::FpgaAndSystemTime(fpgaTime=7, systemTime=8)"});
   EXPECT_EQ(said({"get", "hw/time.fpgaTime"}), "7\n");
   EXPECT_EQ(said({"get", "hw/time.systemTime"}), "8\n");
   EXPECT_EQ(client({"set", "hw/time.fpgaTime", "9"}).status, 1);
   EXPECT_EQ(client({"set", "hw/time.fpgaAndSystemTime.systemTime", "9"}).status, 1)
         << "a reading is made whole";
   EXPECT_EQ(said({"get", "hw/time.systemTime"}), "8\n");
   EXPECT_EQ(ended(*watcher),
             "TIME hw/time.fpgaAndSystemTime: Ptp::FpgaAndSystemTime(fpgaTime=0, systemTime=0) -> "
             "Ptp::FpgaAndSystemTime(fpgaTime=7, systemTime=8)\n");
}

TEST_F(RootsTest, OpenConfig) {
   auto const watcher = watch("oc");
   change({"set", "oc.id", "3"});
   change({"add", "oc.defaultDs"});
   change({"add", "oc.defaultDs.state"});
   change({"set", "oc.defaultDs.state.instanceType", "transparentP2P"});
   change({"set", "oc.defaultDs.state.clockIdentity", "\"00:11:22:ff:fe:33:44:55\""});
   change({"set", "oc.defaultDs.clockQuality.state.clockClass", "6"});
   change({"del", "oc.defaultDs"});
   EXPECT_EQ(said({"dump", "oc"}), "oc : Openconfig::Ptp::Instance\noc.id = 3\n");
   EXPECT_EQ(ended(*watcher),
             "TIME oc.id: 0 -> 3\n"
             "TIME oc.defaultDs created\n"
             "TIME oc.defaultDs.state created\n"
             "TIME oc.defaultDs.state.instanceType: ordinary -> transparentP2P\n"
             "TIME oc.defaultDs.state.clockIdentity: \"\" -> \"00:11:22:ff:fe:33:44:55\"\n"
             "TIME oc.defaultDs.clockQuality: Openconfig::Ptp::ClockQualityState(clockClass=0, "
             "clockAccuracy=0, offsetScaledLogVariance=0) -> Openconfig::Ptp::ClockQualityState("
             "clockClass=6, clockAccuracy=0, offsetScaledLogVariance=0)\n"
             "TIME oc.defaultDs deleted\n");
}

TEST_F(RootsTest, TheTransparentClockBesideTheInstance) {
   auto const watcher = watch("oc/tc");
   change({"add", "oc/tc.state"});
   change({"set", "oc/tc.state.primaryDomain", "3"});
   EXPECT_EQ(said({"get", "oc/tc.state.primaryDomain"}), "3\n");
   EXPECT_EQ(said({"get", "oc.id"}), "0\n");
   EXPECT_EQ(ended(*watcher),
             "TIME oc/tc.state created\n"
             "TIME oc/tc.state.primaryDomain: 0 -> 3\n");
}

TEST_F(RootsTest, AllInOneDump) {
   std::string const summary = said({"dump", "--summary"});
   for (char const* const type :
        {"Ptp::SystemClockConfig", "Ptp::HwConfig", "Ptp::HwStatus", "Ptp::HwTime",
         "Openconfig::Ptp::Instance", "Openconfig::Ptp::TransparentClockDefaultDS"}) {
      EXPECT_NE(summary.find(type), std::string::npos) << summary;
   }
}

}  // namespace
}  // namespace Ptpstate

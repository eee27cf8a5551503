// Changes of the configuration, and what becomes of them.
#include "tools/ptp4lAgent/ConfigFill.h"

#include "tools/ptp4lAgent/Hex.test.h"
#include "tools/ptp4lAgent/WithStandIn.test.h"

namespace {

using namespace Ptp4lAgent;

class ConfigFillTest : public WithStandIn {};

TEST_F(ConfigFillTest, PrioritiesAreWrittenAndReadBack) {
   start("ptp4l-3.1.1-grandmaster");
   follow();
   config().priority1Is(200);
   config().priority2Is(201);
   settle();
   EXPECT_EQ(hex(daemon->lastSet[Id::priority1]), "c800");
   EXPECT_EQ(hex(daemon->lastSet[Id::priority2]), "c900");
   EXPECT_EQ(status().defaultDS()->priority1(), 200);
   EXPECT_EQ(status().defaultDS()->priority2(), 201);
   EXPECT_EQ(config().priority1(), 200);
   pass(3000);
   EXPECT_EQ(config().priority1(), 200);
   EXPECT_EQ(daemon->asked[Id::priority1], 1);
}

TEST_F(ConfigFillTest, WhatTheDaemonChangesAppearsInTheConfiguration) {
   start("ptp4l-3.1.1-grandmaster");
   follow();
   daemon->change<DefaultDataSet>(0, [](DefaultDataSet& set) { set.priority1 = 33; });
   pass(1000);
   EXPECT_EQ(config().priority1(), 33);
   EXPECT_EQ(daemon->asked[Id::priority1], 0) << "it is not written back";
}

TEST_F(ConfigFillTest, ARefusedChangeIsTakenBackAndTheReasonIsTold) {
   start("ptp4l-3.1.1-grandmaster");
   follow();
   daemon->refused[Id::priority1] = 6;
   std::string reason = "none";
   clock->config().onAsked = [&reason] {
      return [&reason](Sarn::String const& refusal) { reason = refusal; };
   };
   config().priority1Is(200);
   settle();
   EXPECT_EQ(reason, "ptp/config.priority1: ptp4l refuses PRIORITY1: NOT_SUPPORTED");
   EXPECT_EQ(config().priority1(), 10);
   EXPECT_EQ(status().defaultDS()->priority1(), 10);
   daemon->refused.clear();
   config().priority1Is(200);
   settle();
   EXPECT_EQ(reason, "");
   EXPECT_EQ(config().priority1(), 200);
}

TEST_F(ConfigFillTest, TheQualityIsWrittenOnceItIsConfigured) {
   start("ptp4l-3.1.1-grandmaster");
   follow();
   Ptp::ClockQuality const wanted(6, 0x20, Dorn::NetU16(0x4E5D));
   EXPECT_EQ(config().clockQuality().clockClass(), 248);
   config().clockQualityIs(wanted);
   pass(2000);
   EXPECT_EQ(daemon->asked[Id::grandmasterSettingsNp], 0);
   EXPECT_EQ(config().clockQuality(), wanted) << "kept for when it is configured";
   config().clockQualityConfiguredIs(true);
   settle();
   EXPECT_EQ(hex(daemon->lastSet[Id::grandmasterSettingsNp]), "06204e5d002500a0")
         << "with the other settings as they are";
   EXPECT_EQ(status().defaultDS()->clockQuality(), wanted);
   daemon->change<DefaultDataSet>(0, [](DefaultDataSet& set) { set.clockQuality.clockClassIs(7); });
   pass(1000);
   EXPECT_EQ(config().clockQuality().clockClass(), 7);
}

TEST_F(ConfigFillTest, AnInterfaceThatSomebodyRemovesComesBack) {
   start("ptp4l-3.1.1-grandmaster");
   follow();
   config().intfConfigDel(Dorn::IntfId("pva"));
   pass(2000);
   auto const intf = config().intfConfig(Dorn::IntfId("pva"));
   ASSERT_TRUE(intf);
   EXPECT_EQ(intf->logSyncInterval(), -3);
   EXPECT_EQ(intf->linkDelayThreshold(), 999u);
   EXPECT_EQ(intf->timeStampingMode(), Ptp::TimeStampingMode::software);
}

TEST_F(ConfigFillTest, WhatOthersStoreElsewhereIsKeptUntilTheDaemonTellsSomethingElse) {
   start("ptp4l-3.1.1-grandmaster");
   follow();
   auto const intf = config().intfConfig(Dorn::IntfId("pva"));
   intf->logSyncIntervalIs(2);
   config().ttlIs(9);
   pass(3000);
   EXPECT_EQ(intf->logSyncInterval(), 2);
   EXPECT_EQ(config().ttl(), 9);
   daemon->change<PortDataSet>(1, [](PortDataSet& set) { set.logSyncInterval = 1; });
   pass(1000);
   EXPECT_EQ(intf->logSyncInterval(), 1);
}

TEST_F(ConfigFillTest, TheThresholdOfAPortIsWrittenToThatPort) {
   start("ptp4l-3.1.1-boundary");
   follow();
   pass(600);
   config().intfConfig(Dorn::IntfId("pxd"))->linkDelayThresholdIs(900);
   settle();
   EXPECT_EQ(daemon->lastTarget[Id::portDataSetNp], 2);
   EXPECT_EQ(hex(daemon->lastSet[Id::portDataSetNp]), "0000038400000001");
   EXPECT_EQ(status().portDS(key("pxd"))->linkDelayThreshold(), 900u);
   EXPECT_EQ(status().portDS(key("pwd"))->linkDelayThreshold(), 20'000'000u);
   pass(3000);
   EXPECT_EQ(config().intfConfig(Dorn::IntfId("pxd"))->linkDelayThreshold(), 900u);
}

TEST_F(ConfigFillTest, AThresholdThatTheDaemonCannotHoldIsRefusedAtOnce) {
   start("ptp4l-3.1.1-boundary");
   follow();
   pass(600);
   std::string reason = "none";
   clock->config().onAsked = [&reason] {
      return [&reason](Sarn::String const& refusal) { reason = refusal; };
   };
   config().intfConfig(Dorn::IntfId("pxd"))->linkDelayThresholdIs(U64{1} << 32);
   EXPECT_EQ(reason,
             "ptp/config.intfConfig[pxd].linkDelayThreshold: 4294967296 exceeds 4294967295, the "
             "most that ptp4l can hold");
   EXPECT_EQ(config().intfConfig(Dorn::IntfId("pxd"))->linkDelayThreshold(), 20'000'000u);
}

TEST_F(ConfigFillTest, WithoutADaemonNothingCanBeWritten) {
   start("ptp4l-3.1.1-grandmaster");
   follow();
   daemon->kill();
   std::vector<std::string> reasons;
   clock->config().onAsked = [&reasons] {
      return [&reasons](Sarn::String const& refusal) { reasons.push_back(refusal); };
   };
   config().priority1Is(200);  // the agent does not know yet
   settle();
   config().priority1Is(201);
   settle();
   EXPECT_EQ(reasons, (std::vector<std::string>{
                            "ptp/config.priority1: ptp4l is gone: nobody listens at its socket",
                            "ptp/config.priority1: ptp4l is gone"}));
   EXPECT_EQ(config().priority1(), 10);
}

TEST_F(ConfigFillTest, ADaemonThatHangsRefusesAfterAWhile) {
   start("ptp4l-3.1.1-grandmaster");
   follow();
   daemon->hangs = true;
   std::string reason = "none";
   clock->config().onAsked = [&reason] {
      return [&reason](Sarn::String const& refusal) { reason = refusal; };
   };
   config().priority1Is(200);
   pass(2000);
   EXPECT_EQ(reason, "ptp/config.priority1: ptp4l does not answer");
   EXPECT_EQ(config().priority1(), 10);
}

}  // namespace

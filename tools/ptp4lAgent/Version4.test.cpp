// What linuxptp 4.2 has answered: data sets that 3.1.1 does not have, and messages of PTP 2.1.
#include "PtpLib/PtpStatusStatedbTypes/ForeignMasterDS.h"
#include "PtpLib/PtpStatusStatedbTypes/IntfStatus.h"
#include "tools/ptp4lAgent/WithStandIn.test.h"

namespace {

using namespace Ptp4lAgent;
using Ptp::PortState;

class Version4Test : public WithStandIn {};

TEST_F(Version4Test, AUnicastSlaveHasTheMastersOfItsTable) {
   start("ptp4l-4.2-unicast");
   follow();
   EXPECT_TRUE(status().enabled());
   EXPECT_TRUE(status().unicastNegotiation());
   auto const port = status().portDS(key("pvf"));
   EXPECT_EQ(port->portState(), PortState::slave);
   EXPECT_EQ(port->role(), Ptp::Role::slaveOnly);
   EXPECT_EQ(port->numPotentialMasters(), 1u);
   EXPECT_EQ(port->portIdentity(),
             Ptp::PortIdentity(Ptp::ClockIdentity("56:e6:58:ff:fe:aa:86:46"), 1));
   Ptp::PortIdentity const master(Ptp::ClockIdentity("36:0e:6d:ff:fe:ae:90:be"), 3);
   EXPECT_EQ(status().parentDS()->parentSourceAddrs().parentPortIdentity(), master);
   auto const intf = status().intfStatus(key("pvf"));
   ASSERT_TRUE(intf);
   ASSERT_EQ(intf->foreignMasterDSCount(), 1u);
   EXPECT_EQ(intf->foreignMasterDS(master)->foreignMasterIpAddr(), Dorn::IpGenAddr("10.79.0.1"));
   // A counter of 0: no Sync has been missed.
   EXPECT_EQ(port->lastSyncReceiptTimeout(), std::numeric_limits<double>::infinity());
   EXPECT_EQ(said(), "answers in domain 0, transportSpecific 0\n");
}

TEST_F(Version4Test, ABoundaryClockHasAPortOfEachState) {
   start("ptp4l-4.2-boundary");
   follow();
   ASSERT_EQ(status().portDSCount(), 3u);
   EXPECT_EQ(status().portDS(key("pvb"))->portState(), PortState::slave);
   EXPECT_EQ(status().portDS(key("pvc"))->portState(), PortState::master);
   EXPECT_EQ(status().portDS(key("pve"))->portState(), PortState::master);
   EXPECT_EQ(status().defaultDS()->ptpMode(), Ptp::PtpMode::boundary);
   EXPECT_EQ(status().portDS(key("pvb"))->role(), Ptp::Role::dynamic);
   EXPECT_FALSE(status().unicastNegotiation());
}

TEST_F(Version4Test, ItsReadOnlySocketDoesNotTellInterfacesSoPortsAreNumbered) {
   start("ptp4l-4.2-boundary");
   daemon->forget(Id::portPropertiesNp);
   daemon->refused[Id::subscribeEventsNp] = 6;
   follow();
   pass(3000);
   ASSERT_EQ(status().portDSCount(), 3u);
   EXPECT_EQ(status().portDS(key("port1"))->portState(), PortState::slave);
   EXPECT_EQ(status().portDS(key("port3"))->portState(), PortState::master);
   EXPECT_EQ(status().portDS(key("port3"))->portIdentity().portNumber(), 3);
   EXPECT_EQ(status().currentDS()->lastUpdatePortKey(), key("port1"));
   daemon->removePort(3);
   pass(2000);
   EXPECT_EQ(status().portDSCount(), 2u);
   EXPECT_EQ(said(),
             "answers in domain 0, transportSpecific 0\n"
             "does not tell its interfaces here: ports are shown as port1, port2, ...\n");
}

TEST_F(Version4Test, ASlaveFollowsAndAGrandmasterLeads) {
   start("ptp4l-4.2-slave");
   follow();
   EXPECT_EQ(status().currentDS()->stepsRemoved().value(), 2);
   EXPECT_TRUE(status().defaultDS()->slaveOnly());
   clock.reset();
   daemon.reset();
   start("ptp4l-4.2-grandmaster");
   follow();
   EXPECT_EQ(status().currentDS()->stepsRemoved().value(), 0);
   EXPECT_EQ(status().portDS(key("pva"))->portState(), PortState::master);
   EXPECT_EQ(status().defaultDS()->priority1(), 10);
}

TEST_F(Version4Test, NoAnswerIsIgnored) {
   for (char const* const recording : {"unicast", "boundary", "slave", "grandmaster"}) {
      start(std::string("ptp4l-4.2-") + recording);
      follow();
      Daemon::Counters const& counters = clock->daemon().counters();
      EXPECT_EQ(counters.malformed + counters.foreign + counters.late, 0u) << recording;
      EXPECT_GT(counters.answers, 10u);
      clock.reset();
      daemon.reset();
   }
}

}  // namespace

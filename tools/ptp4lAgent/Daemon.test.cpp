// What becomes of the roots while a daemon does what daemons do.
#include "tools/ptp4lAgent/Daemon.h"

#include <algorithm>

#include "tools/ptp4lAgent/WithStandIn.test.h"

namespace {

using namespace Ptp4lAgent;
using Ptp::PortState;

class DaemonTest : public WithStandIn {};

TEST_F(DaemonTest, IsFoundWithoutDomainAndTransportSpecific) {
   start("ptp4l-3.1.1-boundary");
   follow();
   pass(600);
   EXPECT_TRUE(clock->daemon().isUp());
   EXPECT_EQ(clock->daemon().domainNumber(), 24);
   EXPECT_EQ(clock->daemon().transportSpecific(), 1);
   EXPECT_EQ(said(), "answers in domain 24, transportSpecific 1\n");
}

TEST_F(DaemonTest, IsNotFoundInAnotherDomainThanTheGivenOne) {
   start("ptp4l-3.1.1-boundary");
   follow(U8{0});
   pass(2000);
   EXPECT_FALSE(clock->daemon().isUp());
   EXPECT_FALSE(status().enabled());
   EXPECT_FALSE(status().ptpSupported());
   EXPECT_EQ(said(),
             "not there yet: it does not answer in any domain; transparent clocks never do\n");
}

TEST_F(DaemonTest, IsFoundThoughAKilledAgentHasLeftItsSocket) {
   start("ptp4l-3.1.1-slave");
   StandIn left(directory + "/own", "ptp4l-3.1.1-slave");
   left.kill();
   ASSERT_TRUE(std::filesystem::exists(directory + "/own"));
   follow();
   EXPECT_TRUE(status().enabled());
}

TEST_F(DaemonTest, AFileThatIsNoSocketOfOursIsLeftAlone) {
   start("ptp4l-3.1.1-slave");
   std::ofstream(directory + "/own") << "a file\n";
   follow();
   EXPECT_FALSE(status().enabled());
   EXPECT_TRUE(std::filesystem::is_regular_file(directory + "/own"));
   EXPECT_EQ(said(), "not there yet: " + directory + "/own: Address already in use\n");
}

TEST_F(DaemonTest, MayBeStartedLater) {
   follow();
   pass(5000);
   EXPECT_EQ(said(), "not there yet: No such file or directory\n");
   start("ptp4l-3.1.1-slave");
   pass(9000);
   EXPECT_TRUE(status().enabled());
   EXPECT_EQ(
         said(),
         "not there yet: No such file or directory\nanswers in domain 0, transportSpecific 0\n");
}

TEST_F(DaemonTest, KilledAndStartedAgainItIsFoundAgain) {
   start("ptp4l-3.1.1-slave");
   follow();
   ASSERT_EQ(status().portDSCount(), 1u);
   daemon->kill();
   pass(1500);
   EXPECT_FALSE(status().enabled());
   EXPECT_TRUE(status().ptpSupported());
   EXPECT_EQ(status().portDSCount(), 0u);
   EXPECT_EQ(status().intfStatusCount(), 0u);
   EXPECT_FALSE(status().defaultDS());
   EXPECT_FALSE(status().currentDS());
   EXPECT_FALSE(status().parentDS());
   EXPECT_FALSE(status().timePropertiesDS());
   EXPECT_FALSE(status().ptpMibData());
   EXPECT_FALSE(clock->instance().defaultDs());
   daemon->start();
   pass(2500);
   EXPECT_TRUE(status().enabled());
   EXPECT_EQ(status().portDSCount(), 1u);
   EXPECT_EQ(said(),
             "answers in domain 0, transportSpecific 0\ngone: nobody listens at its socket\n"
             "answers in domain 0, transportSpecific 0\n");
}

TEST_F(DaemonTest, RestartedBetweenTwoRequestsItIsFoundAgain) {
   start("ptp4l-3.1.1-slave");
   follow();
   daemon->terminate();
   daemon->start();
   pass(1000);
   pass(500);
   EXPECT_TRUE(status().enabled());
   EXPECT_EQ(status().portDSCount(), 1u);
}

TEST_F(DaemonTest, ThatHangsIsGoneAndComesBack) {
   start("ptp4l-3.1.1-slave");
   follow();
   daemon->hangs = true;
   pass(1000 + 3 * 400);
   EXPECT_FALSE(status().enabled());
   EXPECT_EQ(said(), "answers in domain 0, transportSpecific 0\ngone: it does not answer\n");
   pass(30'000);
   daemon->hangs = false;
   pass(12'000);
   EXPECT_TRUE(status().enabled());
   EXPECT_EQ(status().portDSCount(), 1u);
   EXPECT_EQ(said(),
             "answers in domain 0, transportSpecific 0\ngone: it does not answer\n"
             "answers in domain 0, transportSpecific 0\n");
}

TEST_F(DaemonTest, ASingleUnansweredRequestChangesNothing) {
   start("ptp4l-3.1.1-slave");
   follow();
   daemon->silent = true;
   pass(130);  // a request at the Sync interval
   daemon->silent = false;
   pass(1000);
   EXPECT_TRUE(status().enabled());
   EXPECT_EQ(clock->daemon().counters().unanswered, 1u);
   EXPECT_EQ(said(), "answers in domain 0, transportSpecific 0\n");
}

TEST_F(DaemonTest, LateAnswersAreIgnored) {
   start("ptp4l-3.1.1-slave");
   follow();
   daemon->holds = true;
   pass(130);
   daemon->change<DefaultDataSet>(0, [](DefaultDataSet& set) { set.priority1 = 1; });
   pass(420);  // given up
   daemon->holds = false;
   U64 const late = clock->daemon().counters().late;
   daemon->release();
   settle();
   EXPECT_GT(clock->daemon().counters().late, late);
   EXPECT_TRUE(status().enabled());
}

TEST_F(DaemonTest, AnswersThatComeTwiceCountOnce) {
   start("ptp4l-3.1.1-boundary");
   daemon->spoil = [](std::vector<std::vector<U8>>& datagrams) {
      auto const once = datagrams;
      datagrams.insert(datagrams.end(), once.begin(), once.end());
   };
   follow();
   pass(600);
   EXPECT_EQ(status().portDSCount(), 2u);
   EXPECT_GT(clock->daemon().counters().late, 0u);
   EXPECT_EQ(clock->daemon().counters().malformed, 0u);
}

TEST_F(DaemonTest, PortsMayAnswerInAnyOrder) {
   start("ptp4l-3.1.1-boundary");
   daemon->spoil = [](std::vector<std::vector<U8>>& datagrams) {
      std::reverse(datagrams.begin(), datagrams.end());
   };
   follow();
   pass(600);
   ASSERT_EQ(status().portDSCount(), 2u);
   EXPECT_EQ(status().portDS(key("pwd"))->portIdentity().portNumber(), 1);
   EXPECT_EQ(status().portDS(key("pxd"))->portIdentity().portNumber(), 2);
   EXPECT_EQ(clock->daemon().counters().late, 0u);
}

TEST_F(DaemonTest, ShortAndLongAnswersAreIgnored) {
   start("ptp4l-3.1.1-slave");
   follow();
   S64 const delay = status().currentDS()->meanPathDelay();
   for (int const change : {-1, -7, -20, 1, 2, 3000}) {
      daemon->spoil = [change](std::vector<std::vector<U8>>& datagrams) {
         for (std::vector<U8>& datagram : datagrams) {
            datagram.resize(static_cast<std::size_t>(static_cast<int>(datagram.size()) + change));
         }
      };
      pass(130);
      daemon->spoil = {};
      pass(1000);
   }
   EXPECT_GE(clock->daemon().counters().malformed, 6u);
   EXPECT_TRUE(status().enabled());
   EXPECT_EQ(status().currentDS()->meanPathDelay(), delay);
   EXPECT_EQ(said(), "answers in domain 0, transportSpecific 0\n");
}

TEST_F(DaemonTest, DataSetsOfAnotherSizeAreIgnored) {
   start("ptp4l-3.1.1-slave");
   follow();
   daemon->answerIs(Id::timePropertiesDataSet, 0, {0, 37, 0x3C});
   daemon->answerIs(Id::currentDataSet, 0, std::vector<U8>(40));
   pass(1000);
   EXPECT_EQ(status().timePropertiesDS()->timeSource(), 0xA0);
   EXPECT_NE(status().currentDS()->stepsRemoved(), Dorn::NetU16(0));
   EXPECT_GT(clock->daemon().counters().malformed, 0u);
   EXPECT_TRUE(status().enabled());
}

TEST_F(DaemonTest, MessagesOfOthersAreIgnored) {
   start("ptp4l-3.1.1-slave");
   follow();
   Message message;
   message.action = Action::response;
   message.domainNumber = 7;
   message.id = Id::timeStatusNp;
   daemon->send(format(message));
   message.domainNumber = 0;
   message.action = Action::get;
   daemon->send(format(message));
   daemon->send({1, 2, 3});
   daemon->send({});
   settle();
   EXPECT_EQ(clock->daemon().counters().foreign, 2u);
   EXPECT_EQ(clock->daemon().counters().malformed, 2u);
   EXPECT_TRUE(status().enabled());
}

TEST_F(DaemonTest, ItsEventsAreTakenAtOnce) {
   start("ptp4l-3.1.1-slave");
   follow();
   EXPECT_EQ(daemon->subscribedFor, 60);
   daemon->change<PortDataSet>(1, [](PortDataSet& set) { set.portState = 2; });
   daemon->notify(Id::portDataSet, 1);
   settle();
   EXPECT_EQ(clock->daemon().counters().events, 1u);
   EXPECT_EQ(status().portDS(key("pvb"))->portState(), PortState::faulty);
   EXPECT_TRUE(status().portDS(key("pvb"))->faultyFlag());
}

TEST_F(DaemonTest, IsAskedForEverythingWhenAPortHasChangedItsState) {
   start("ptp4l-3.1.1-slave");
   follow();
   pass(300);
   int const before = daemon->asked[Id::parentDataSet];
   daemon->change<ParentDataSet>(0, [](ParentDataSet& set) { set.grandmasterPriority1 = 99; });
   for (int i = 0; i != 20; ++i) {
      daemon->notify(Id::portDataSet, 1);
      settle();
   }
   EXPECT_EQ(status().parentDS()->grandmasterPriority1(), 99);
   EXPECT_EQ(daemon->asked[Id::parentDataSet], before + 1) << "no storm of requests";
}

TEST_F(DaemonTest, ASubscriptionThatItHasNotAnsweredIsAskedForAgain) {
   start("ptp4l-3.1.1-slave");
   daemon->unheard = Id::subscribeEventsNp;
   follow();
   EXPECT_EQ(daemon->subscribedFor, 0);
   pass(Daemon::patience / Daemon::millisecond + 1500);
   EXPECT_EQ(daemon->subscribedFor, 60);
   EXPECT_EQ(daemon->asked[Id::subscribeEventsNp], 2);
}

TEST_F(DaemonTest, ASubscriptionThatItRefusesIsAskedForAgainWhenItWouldEnd) {
   start("ptp4l-3.1.1-slave");
   daemon->refused[Id::subscribeEventsNp] = 6;
   follow();
   int const before = daemon->asked[Id::subscribeEventsNp];
   pass(19'000);
   EXPECT_EQ(daemon->asked[Id::subscribeEventsNp], before);
   pass(2'000);
   EXPECT_EQ(daemon->asked[Id::subscribeEventsNp], before + 1);
}

TEST_F(DaemonTest, TheSubscriptionIsRenewedBeforeItEnds) {
   start("ptp4l-3.1.1-slave");
   follow();
   int const before = daemon->asked[Id::subscribeEventsNp];
   pass(59'000);
   EXPECT_EQ(daemon->asked[Id::subscribeEventsNp], before + 2);
}

TEST_F(DaemonTest, IsNotAskedMoreOftenThanSyncComes) {
   start("ptp4l-3.1.1-slave");  // logSyncInterval is -3
   follow();
   int const before = daemon->asked[Id::timeStatusNp];
   pass(10'000);
   EXPECT_LE(daemon->asked[Id::timeStatusNp] - before, 82);
   EXPECT_GE(daemon->asked[Id::timeStatusNp] - before, 70);
}

TEST_F(DaemonTest, ThatTellsEverySyncIsAskedOnceASecond) {
   start("ptp4l-3.1.1-slave");
   follow();
   int const before = daemon->asked[Id::timeStatusNp];
   for (int i = 0; i != 80; ++i) {
      daemon->change<TimeStatusNp>(0, [i](TimeStatusNp& set) {
         set.ingressTime += 125'000'000;
         set.masterOffset = i;
      });
      daemon->change<CurrentDataSet>(
            0, [i](CurrentDataSet& set) { set.offsetFromMaster = S64{i} * 65536; });
      daemon->notify(Id::timeStatusNp, 0);
      pass(120);
      EXPECT_EQ(status().currentDS()->offsetFromMaster(), i);
   }
   EXPECT_LE(daemon->asked[Id::timeStatusNp] - before, 12);
}

TEST_F(DaemonTest, ThatFollowsNobodyIsAskedOnceASecond) {
   start("ptp4l-3.1.1-grandmaster");
   follow();
   int const before = daemon->asked[Id::timeStatusNp];
   pass(10'000);
   EXPECT_EQ(daemon->asked[Id::timeStatusNp] - before, 10);
}

TEST_F(DaemonTest, UnknownIdsAreAskedOnce) {
   start("ptp4l-3.1.1-slave");
   follow();
   pass(5000);
   EXPECT_EQ(daemon->asked[Id::portHwclockNp], 1);
   EXPECT_EQ(daemon->asked[Id::unicastMasterTableNp], 1);
   daemon->kill();
   daemon->start();
   pass(2500);
   EXPECT_EQ(daemon->asked[Id::portHwclockNp], 2) << "another version may have been started";
}

TEST_F(DaemonTest, TheReadOnlySocketIsPolled) {
   start("ptp4l-3.1.1-slave");
   daemon->readOnly = true;
   follow();
   daemon->change<PortDataSet>(1, [](PortDataSet& set) { set.portState = 8; });
   pass(1100);
   EXPECT_EQ(status().portDS(key("pvb"))->portState(), PortState::uncalibrated);
   EXPECT_TRUE(status().enabled());
}

TEST_F(DaemonTest, OnlyChangesArePublished) {
   start("ptp4l-3.1.1-boundary");
   follow();
   pass(3000);
   struct Count final : Kiv::Observer {
      void onChange(Kiv::Change const& change) override {
         names.push_back(Kiv::entityOf(change).kivType().field(change.attributeId)->name);
      }
      std::vector<std::string> names;
   } count;
   status().observerAdd(count, Kiv::Scope::subtree);
   clock->instance().observerAdd(count, Kiv::Scope::subtree);
   config().observerAdd(count, Kiv::Scope::subtree);
   pass(2000);
   EXPECT_EQ(count.names, std::vector<std::string>());
   status().observerDel(count, Kiv::Scope::subtree);
   clock->instance().observerDel(count, Kiv::Scope::subtree);
   config().observerDel(count, Kiv::Scope::subtree);
}

TEST_F(DaemonTest, AMillionOctetsOfNonsenseDoNoHarm) {
   start("ptp4l-3.1.1-slave");
   follow();
   U32 random = 1;
   for (int i = 0; i != 2000; ++i) {
      std::vector<U8> octets(random % 600);
      for (U8& octet : octets) {
         random = random * 1664525 + 1013904223;
         octet = static_cast<U8>(random >> 24);
      }
      daemon->send(octets);
      clock->daemon().onTurn({});
   }
   pass(1000);
   EXPECT_TRUE(status().enabled());
   EXPECT_GT(clock->daemon().counters().malformed, 1900u);
}

}  // namespace

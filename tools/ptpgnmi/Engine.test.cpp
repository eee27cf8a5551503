// Subscriptions, on an engine with a clock and streams of the test.
#include "tools/ptpgnmi/Engine.test.h"

namespace Ptpgnmi {
namespace {

TEST_F(GnmiEngine, OnceSendsEverythingAndASyncAndEnds) {
   EXPECT_EQ(read(subscribe(request(gnmi::SubscriptionList::ONCE,
                                    {"/tree/enabled", "/tree/managementEnabled"}))),
             "/tree[name=ptp/status]/enabled bool_val: false\n"
             "/tree[name=ptp/status]/managementEnabled bool_val: false\n"
             "sync\n"
             "finished 0\n");
}

TEST_F(GnmiEngine, OnChangeSendsTheStartASyncAndEachChange) {
   auto const stream =
         subscribe(request(gnmi::SubscriptionList::STREAM, {"/tree/portDS/portState"}));
   EXPECT_EQ(read(stream), "sync\n");
   auto const added = port("Ethernet1");
   EXPECT_EQ(read(stream), std::string(port1) + "/portState string_val: \"initializing\"\n");
   added->portStateIs(Ptp::PortState::slave);
   added->logSyncIntervalIs(-4);
   EXPECT_EQ(read(stream), std::string(port1) + "/portState string_val: \"slave\"\n");
   EXPECT_EQ(read(stream), "");
   status->portDSDel(key("Ethernet1"));
   EXPECT_EQ(read(stream), "delete " + std::string(port1) + "/portState\n");
}

TEST_F(GnmiEngine, TargetDefinedIsOnChange) {
   auto asked = request(gnmi::SubscriptionList::STREAM, {"/tree/enabled"});
   asked.mutable_subscribe()->mutable_subscription(0)->set_mode(gnmi::TARGET_DEFINED);
   auto const stream = subscribe(asked);
   read(stream);
   status->enabledIs(true);
   EXPECT_EQ(read(stream), "/tree[name=ptp/status]/enabled bool_val: true\n");
}

TEST_F(GnmiEngine, ARemovedEntityIsOneDeletionWhereAllOfItIsSubscribedTo) {
   port("Ethernet1");
   auto const stream = subscribe(request(gnmi::SubscriptionList::STREAM, {"/tree/portDS"}));
   read(stream);
   status->portDSDel(key("Ethernet1"));
   EXPECT_EQ(read(stream), "delete " + std::string(port1) + "\n");
}

TEST_F(GnmiEngine, ARecreatedEntityIsADeletionBeforeItsValues) {
   port("Ethernet1")->portStateIs(Ptp::PortState::slave);
   auto const stream =
         subscribe(request(gnmi::SubscriptionList::STREAM, {"/tree/portDS/portState"}));
   read(stream);
   status->portDSDel(key("Ethernet1"));
   port("Ethernet1");
   EXPECT_EQ(read(stream), "delete " + std::string(port1) + "/portState\n" + port1 +
                                 "/portState string_val: \"initializing\"\n");
}

TEST_F(GnmiEngine, ARootThatComesAndGoesIsAddedAndDeleted) {
   auto const stream = subscribe(request(gnmi::SubscriptionList::STREAM, {"/tree/enabled"}));
   read(stream);
   auto const other = Ptp::statusFactory("other");
   engine->rootIs(other);
   EXPECT_EQ(read(stream), "/tree[name=other]/enabled bool_val: false\n");
   engine->rootDel(*other);
   EXPECT_EQ(read(stream), "delete /tree[name=other]/enabled\n");
}

TEST_F(GnmiEngine, UpdatesOnlyLeavesOutTheStart) {
   auto asked = request(gnmi::SubscriptionList::STREAM, {"/tree/enabled"});
   asked.mutable_subscribe()->set_updates_only(true);
   auto const stream = subscribe(asked);
   EXPECT_EQ(read(stream), "sync\n");
   status->enabledIs(true);
   EXPECT_EQ(read(stream), "/tree[name=ptp/status]/enabled bool_val: true\n");
}

TEST_F(GnmiEngine, EachPollSendsEverythingAndASync) {
   auto const stream = subscribe(request(gnmi::SubscriptionList::POLL, {"/tree/enabled"}));
   EXPECT_EQ(read(stream), "/tree[name=ptp/status]/enabled bool_val: false\nsync\n");
   status->enabledIs(true);
   EXPECT_EQ(read(stream), "");
   gnmi::SubscribeRequest poll;
   poll.mutable_poll();
   send(stream, poll);
   EXPECT_EQ(read(stream), "/tree[name=ptp/status]/enabled bool_val: true\nsync\n");
   engine->closed(*stream);
   EXPECT_EQ(read(stream), "finished 0\n");
}

TEST_F(GnmiEngine, SamplesComeAtTheirIntervalWhetherOrNotAnythingHasChanged) {
   auto asked = request(gnmi::SubscriptionList::STREAM, {"/tree/enabled"});
   auto& subscription = *asked.mutable_subscribe()->mutable_subscription(0);
   subscription.set_mode(gnmi::SAMPLE);
   subscription.set_sample_interval(2 * second);
   auto const stream = subscribe(asked);
   read(stream);
   status->enabledIs(true);
   EXPECT_EQ(read(stream), "");
   EXPECT_EQ(engine->deadline(), 102 * second);
   testNow += 2 * second;
   EXPECT_EQ(read(stream), "/tree[name=ptp/status]/enabled bool_val: true\n");
   EXPECT_EQ(read(stream), "");
   testNow += 5 * second;  // samples that were missed are left out
   EXPECT_EQ(read(stream), "/tree[name=ptp/status]/enabled bool_val: true\n");
   EXPECT_EQ(engine->deadline(), 108 * second);
}

TEST_F(GnmiEngine, SuppressRedundantSamplesOnlyWhatHasChangedAndAHeartbeatAll) {
   auto asked = request(gnmi::SubscriptionList::STREAM, {"/tree/enabled"});
   auto& subscription = *asked.mutable_subscribe()->mutable_subscription(0);
   subscription.set_mode(gnmi::SAMPLE);
   subscription.set_sample_interval(second);
   subscription.set_suppress_redundant(true);
   subscription.set_heartbeat_interval(10 * second);
   auto const stream = subscribe(asked);
   read(stream);
   testNow += second;
   EXPECT_EQ(read(stream), "");
   status->enabledIs(true);
   testNow += second;
   EXPECT_EQ(read(stream), "/tree[name=ptp/status]/enabled bool_val: true\n");
   testNow += second;
   EXPECT_EQ(read(stream), "");
   testNow += 7 * second;
   EXPECT_EQ(read(stream), "/tree[name=ptp/status]/enabled bool_val: true\n");
}

TEST_F(GnmiEngine, AHeartbeatRepeatsWhatHasNotChanged) {
   auto asked = request(gnmi::SubscriptionList::STREAM, {"/tree/enabled"});
   asked.mutable_subscribe()->mutable_subscription(0)->set_heartbeat_interval(3 * second);
   auto const stream = subscribe(asked);
   read(stream);
   testNow += 3 * second - 1;
   EXPECT_EQ(read(stream), "");
   testNow += 1;
   EXPECT_EQ(read(stream), "/tree[name=ptp/status]/enabled bool_val: false\n");
}

TEST_F(GnmiEngine, ChangesThatComeSoonerThanTheGatherTimeGoIntoOneMessage) {
   limits.gather = 10 * millisecond;
   make();
   auto const stream = subscribe(
         request(gnmi::SubscriptionList::STREAM, {"/tree/enabled", "/tree/managementEnabled"}));
   read(stream);
   testNow += second;
   status->enabledIs(true);
   EXPECT_EQ(read(stream), "/tree[name=ptp/status]/enabled bool_val: true\n");
   testNow += millisecond;
   status->managementEnabledIs(true);
   status->enabledIs(false);
   EXPECT_EQ(read(stream), "");
   EXPECT_EQ(engine->deadline(), 101 * second + 10 * millisecond);
   testNow += 9 * millisecond;
   turn();
   ASSERT_EQ(stream->sent.size(), 1U);
   EXPECT_EQ(read(stream),
             "/tree[name=ptp/status]/managementEnabled bool_val: true\n"
             "/tree[name=ptp/status]/enabled bool_val: false\n");
}

TEST_F(GnmiEngine, WhatAStoppedReaderMissesIsCoalescedAndCounted) {
   auto const port = this->port("Ethernet1");
   auto const stream = subscribe(request(gnmi::SubscriptionList::STREAM, {"/tree/portDS"}));
   read(stream);
   port->syncMessageReceivedIs(1);
   turn();  // on its way, and never sent
   std::size_t const before = engine->subscriberBytes();
   for (U32 i = 2; i != 1002; ++i) {
      port->syncMessageReceivedIs(i);
      turn();
   }
   EXPECT_EQ(stream->sent.size(), 1U);
   EXPECT_LE(engine->subscriberBytes(), before + 64);
   stream->sent.clear();
   stream->writing = false;
   engine->written(*stream);
   EXPECT_EQ(read(stream), std::string(port1) + "/syncMessageReceived uint_val: 1001 +999\n");
}

TEST_F(GnmiEngine, AStoppedReaderOfEntitiesThatComeAndGoCostsABound) {
   limits.deletions = 10;
   make();
   port("Ethernet1");
   auto const stream =
         subscribe(request(gnmi::SubscriptionList::STREAM, {"/tree/portDS/portState"}));
   read(stream);
   status->portDSDel(key("Ethernet1"));
   turn();  // on its way, and never sent
   std::size_t highest = 0;
   for (int i = 2; i != 3000; ++i) {
      std::string const name = "Ethernet" + std::to_string(i);
      port(name.c_str());
      if (i != 2999) {
         status->portDSDel(key(name.c_str()));
      }
      turn();
      highest = std::max(highest, engine->subscriberBytes());
   }
   EXPECT_LT(highest, 4096U);
   stream->sent.clear();
   stream->writing = false;
   engine->written(*stream);
   EXPECT_EQ(read(stream),
             "delete /tree\n/tree[name=ptp/status]/portDS[key=Ethernet2999]"
             "/portState string_val: \"initializing\"\n");
}

TEST_F(GnmiEngine, MessagesAreClosedAtTheirSizeAndASyncFollowsTheLast) {
   limits.message = 2000;
   make();
   for (int i = 1; i != 100; ++i) {
      port(("Ethernet" + std::to_string(i)).c_str());
   }
   auto const stream =
         subscribe(request(gnmi::SubscriptionList::STREAM, {"/tree/portDS/portState"}));
   std::string const said = read(stream);
   EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 100);
   EXPECT_EQ(said.substr(said.size() - 5), "sync\n");
   EXPECT_LT(stream->largest, 2200U);
}

TEST_F(GnmiEngine, SubscriptionsThatLeadNowhereAreRefused) {
   auto const refused = [this](gnmi::SubscribeRequest const& asked) {
      return read(subscribe(asked));
   };
   auto asked = request(gnmi::SubscriptionList::STREAM, {"/tree/enable"});
   EXPECT_EQ(refused(asked),
             "finished 3 /tree/enable: Ptp::Status has no attribute 'enable'; did you mean "
             "'enabled'?\n");
   asked = request(gnmi::SubscriptionList::STREAM, {"/tree/enabled"});
   asked.mutable_subscribe()->mutable_subscription(0)->set_heartbeat_interval(5);
   EXPECT_EQ(refused(asked),
             "finished 3 /tree/enabled: the heartbeat interval is 5 ns; at least "
             "100000000 ns are possible\n");
   asked = request(gnmi::SubscriptionList::STREAM, {});
   EXPECT_EQ(refused(asked), "finished 3 the subscription has no paths\n");
   asked = request(gnmi::SubscriptionList::STREAM, std::vector<std::string>(129, "/tree/enabled"));
   EXPECT_EQ(refused(asked), "finished 8 the request has 129 paths; at most 128 are allowed\n");
   asked = request(gnmi::SubscriptionList::STREAM, {"/tree/enabled"});
   asked.add_extension()->mutable_history()->set_snapshot_time(1);
   EXPECT_EQ(refused(asked), "finished 12 the extension 'history' is not implemented\n");
   asked.Clear();
   asked.mutable_poll();
   EXPECT_EQ(refused(asked), "finished 3 a poll before the subscription\n");
}

TEST_F(GnmiEngine, AStreamThatPollsOrSubscribesAgainIsRefused) {
   auto const asked = request(gnmi::SubscriptionList::STREAM, {"/tree/enabled"});
   auto const again = subscribe(asked);
   send(again, asked);
   EXPECT_EQ(again->message, "a stream has one subscription; open another");
   auto const polls = subscribe(asked);
   gnmi::SubscribeRequest poll;
   poll.mutable_poll();
   send(polls, poll);
   EXPECT_EQ(polls->message, "a poll requires a subscription of mode POLL");
}

TEST_F(GnmiEngine, ACallWithoutASubscriptionEndsAfterTenSeconds) {
   auto const stream = open();
   testNow += 10 * second - 1;
   EXPECT_EQ(read(stream), "");
   testNow += 1;
   EXPECT_EQ(read(stream), "finished 3 no subscription came within 10 seconds\n");
   EXPECT_EQ(engine->subscribers(), 0U);
}

TEST_F(GnmiEngine, ThePrefixHasTheOriginAndTheTargetOfTheRequest) {
   auto asked = request(gnmi::SubscriptionList::ONCE, {"/tree/enabled"});
   asked.mutable_subscribe()->mutable_prefix()->set_target("clock 7");
   auto const stream = subscribe(asked);
   turn();
   ASSERT_EQ(stream->sent.size(), 1U);
   EXPECT_EQ(stream->sent[0].update().prefix().ShortDebugString(),
             "origin: \"ptplib\" target: \"clock 7\"");
   EXPECT_GT(stream->sent[0].update().timestamp(), 1'700'000'000'000'000'000);
}

}  // namespace
}  // namespace Ptpgnmi

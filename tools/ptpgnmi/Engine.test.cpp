// The semantics of gNMI, on an engine with a clock and streams of the test.
#include "tools/ptpgnmi/Engine.h"

#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <deque>

#include "PtpLib/PtpOpenConfig.h"
#include "PtpLib/PtpStatusStatedbTypes.h"
#include "tools/ptpgnmi/gnmi.pb.h"

namespace Ptpgnmi {
namespace {

U64 testNow = 0;
U64 testClock() noexcept {
   return testNow;
}

constexpr U64 millisecond = 1'000'000;
constexpr U64 second = 1000 * millisecond;

/// A client's end.
class TestStream final : public Stream {
public:
   void write(std::string message) override {
      EXPECT_FALSE(writing) << "the message before has not been sent";
      writing = true;
      largest = std::max(largest, message.size());
      bytes += message.size();
      EXPECT_TRUE(sent.emplace_back().ParseFromString(message));
   }
   void readNext() override { ++reads; }
   void finish(Code c, std::string const& m) override {
      finished = true;
      code = c;
      message = m;
   }

   bool writing = false;
   bool finished = false;
   Code code = Code::ok;
   std::string message;
   int reads = 0;
   std::size_t largest = 0;
   std::size_t bytes = 0;
   std::deque<gnmi::SubscribeResponse> sent;
};

std::string text(gnmi::Path const& path) {
   Elems elems;
   for (auto const& elem : path.elem()) {
      elems.push_back({elem.name(), {elem.key().begin(), elem.key().end()}});
   }
   return pathText(elems);
}

std::string text(gnmi::TypedValue const& value) {
   google::protobuf::TextFormat::Printer printer;
   printer.SetSingleLineMode(true);
   std::string out;
   printer.PrintToString(value, &out);
   return out.substr(0, out.size() - 1);
}

/// One line for each thing that a client is told, in order.
std::string text(gnmi::SubscribeResponse const& response) {
   if (response.sync_response()) {
      return "sync\n";
   }
   std::string out;
   for (auto const& path : response.update().delete_()) {
      out += "delete " + text(path) + "\n";
   }
   for (auto const& update : response.update().update()) {
      out += text(update.path()) + " " + text(update.val()) +
             (update.duplicates() != 0 ? " +" + std::to_string(update.duplicates()) : "") + "\n";
   }
   return out;
}

/// Reads "/root[name=ptp/status]/portDS[key=*]". Keys here contain no "]".
void pathIs(gnmi::Path& path, std::string_view textOf) {
   while (textOf.size() > 1) {
      textOf.remove_prefix(1);
      std::size_t end = 0;
      for (int depth = 0; end != textOf.size() && (depth != 0 || textOf[end] != '/'); ++end) {
         depth += textOf[end] == '[' ? 1 : textOf[end] == ']' ? -1 : 0;
      }
      std::string_view elem = textOf.substr(0, end);
      textOf.remove_prefix(end);
      gnmi::PathElem& to = *path.add_elem();
      to.set_name(std::string(elem.substr(0, elem.find('['))));
      for (std::size_t at = elem.find('['); at < elem.size(); at = elem.find('[', at + 1)) {
         std::string_view const pair = elem.substr(at + 1, elem.find(']', at) - at - 1);
         std::size_t const equals = pair.find('=');
         (*to.mutable_key())[std::string(pair.substr(0, equals))] = pair.substr(equals + 1);
      }
   }
}

class GnmiEngine : public testing::Test {
protected:
   GnmiEngine() {
      testNow = 100 * second;
      limits.gather = 0;
      make();
   }
   void make() {
      engine = std::make_unique<Engine>(limits, &testClock);
      engine->rootIs(status);
      engine->readyIs(true);
   }

   std::shared_ptr<TestStream> open() {
      auto const stream = std::make_shared<TestStream>();
      engine->opened(stream);
      return stream;
   }
   static gnmi::SubscribeRequest request(gnmi::SubscriptionList::Mode mode,
                                         std::vector<std::string> const& paths,
                                         gnmi::Encoding encoding = gnmi::PROTO,
                                         std::string const& origin = "ptplib") {
      gnmi::SubscribeRequest request;
      auto& list = *request.mutable_subscribe();
      list.set_mode(mode);
      list.set_encoding(encoding);
      list.mutable_prefix()->set_origin(origin);
      for (std::string const& path : paths) {
         auto& subscription = *list.add_subscription();
         subscription.set_mode(gnmi::ON_CHANGE);
         pathIs(*subscription.mutable_path(), path);
      }
      return request;
   }
   void send(std::shared_ptr<TestStream> const& stream, gnmi::SubscribeRequest const& message) {
      engine->received(*stream, message.SerializeAsString());
   }
   std::shared_ptr<TestStream> subscribe(gnmi::SubscribeRequest const& message) {
      auto const stream = open();
      send(stream, message);
      return stream;
   }
   void turn() {
      std::vector<pollfd> none;
      engine->appendTo(none);
   }
   /// Reads all that the server has to say now.
   std::string read(std::shared_ptr<TestStream> const& stream) {
      std::string said;
      for (int i = 0; i != 1000 && !stream->finished; ++i) {
         turn();
         if (stream->sent.empty()) {
            break;
         }
         said += text(stream->sent.front());
         stream->sent.pop_front();
         stream->writing = false;
         engine->written(*stream);
      }
      if (stream->finished) {
         said += "finished " + std::to_string(static_cast<int>(stream->code)) +
                 (stream->message.empty() ? "" : " " + stream->message) + "\n";
      }
      return said;
   }
   std::string get(std::string const& path, gnmi::Encoding encoding = gnmi::PROTO,
                   std::string const& origin = "ptplib",
                   gnmi::GetRequest::DataType type = gnmi::GetRequest::ALL) {
      gnmi::GetRequest request;
      request.set_encoding(encoding);
      request.set_type(type);
      gnmi::Path& to = *request.add_path();
      to.set_origin(origin);
      pathIs(to, path);
      try {
         gnmi::GetResponse response;
         EXPECT_TRUE(response.ParseFromString(engine->get(request.SerializeAsString())));
         std::string said;
         for (auto const& notification : response.notification()) {
            for (auto const& update : notification.update()) {
               said += text(update.path()) + " " + text(update.val()) + "\n";
            }
         }
         return said;
      } catch (Refusal const& refusal) {
         return std::to_string(static_cast<int>(refusal.code())) + " " + refusal.what();
      }
   }
   static Ptp::PortDSKey key(char const* name) {
      return Ptp::PortDSKey(Dorn::IntfId(name), Bridging::VlanIdOrNone());
   }
   Sarn::Ptr<Ptp::PortDS> port(char const* name) {
      return status->portDSIs(key(name), Ptp::PortIdentity());
   }

   Limits limits;
   Sarn::Ptr<Ptp::Status> status = Ptp::statusFactory("ptp/status");
   std::unique_ptr<Engine> engine;
};

constexpr char const* port1 = "/root[name=ptp/status]/portDS[key=Ethernet1]";

//--- Get ------------------------------------------------------------------------------------------

TEST_F(GnmiEngine, GetsALeafInTheFieldOfItsType) {
   status->enabledIs(true);
   port("Ethernet1")->logSyncIntervalIs(-3);
   EXPECT_EQ(get("/root[name=ptp/status]/enabled"),
             "/root[name=ptp/status]/enabled bool_val: true\n");
   EXPECT_EQ(get(std::string(port1) + "/logSyncInterval"),
             std::string(port1) + "/logSyncInterval int_val: -3\n");
   EXPECT_EQ(get(std::string(port1) + "/localPriority"),
             std::string(port1) + "/localPriority uint_val: 128\n");
   EXPECT_EQ(get(std::string(port1) + "/portState"),
             std::string(port1) + "/portState string_val: \"initializing\"\n");
   EXPECT_EQ(get(std::string(port1) + "/neighborRateRatio"),
             std::string(port1) + "/neighborRateRatio double_val: 0\n");
}

TEST_F(GnmiEngine, AValueWithFieldsIsAContainer) {
   EXPECT_EQ(get("/root[name=ptp/status]/localClockQuality"),
             "/root[name=ptp/status]/localClockQuality/clockClass uint_val: 248\n"
             "/root[name=ptp/status]/localClockQuality/clockAccuracy uint_val: 254\n"
             "/root[name=ptp/status]/localClockQuality/offsetScaledLogVariance uint_val: 65535\n");
   EXPECT_EQ(get("/root/localClockQuality/clockClass", gnmi::JSON),
             "/root[name=ptp/status]/localClockQuality/clockClass json_val: \"248\"\n");
   EXPECT_EQ(get("/root/localClockQuality", gnmi::JSON_IETF),
             "/root[name=ptp/status]/localClockQuality json_ietf_val: "
             R"("{\"clockClass\":248,\"clockAccuracy\":254,\"offsetScaledLogVariance\":65535}")"
             "\n");
}

TEST_F(GnmiEngine, OnlyJsonIetfWritesWideIntegersAsStrings) {
   EXPECT_EQ(get("/root/tcTimestampMask", gnmi::JSON),
             "/root[name=ptp/status]/tcTimestampMask json_val: \"18446744073709551615\"\n");
   EXPECT_EQ(get("/root/tcTimestampMask", gnmi::JSON_IETF),
             "/root[name=ptp/status]/tcTimestampMask json_ietf_val: "
             R"("\"18446744073709551615\"")"
             "\n");
}

TEST_F(GnmiEngine, WildcardsAndMissingKeysMeanAll) {
   port("Ethernet1");
   port("Ethernet2");
   std::string const both =
         "/root[name=ptp/status]/portDS[key=Ethernet1]/portState string_val: \"initializing\"\n"
         "/root[name=ptp/status]/portDS[key=Ethernet2]/portState string_val: \"initializing\"\n";
   EXPECT_EQ(get("/root[name=ptp/status]/portDS[key=*]/portState"), both);
   EXPECT_EQ(get("/root/portDS/portState"), both);
   EXPECT_EQ(get("/*/*/portState"), both);
   EXPECT_EQ(get("/.../portState"), both);
   EXPECT_EQ(get("/root/*[key=Ethernet2]/portState"), both.substr(both.size() / 2));
   EXPECT_EQ(get("/root/.../nothing"), "");
}

TEST_F(GnmiEngine, AContainerInJsonHasListsWithTheirKeys) {
   port("Ethernet1");
   std::string const all = get("/root", gnmi::JSON_IETF);
   EXPECT_NE(all.find(R"(\"portDS\":[{\"key\":\"Ethernet1\",\"portDSKey\":)"), std::string::npos)
         << all;
}

TEST_F(GnmiEngine, RefusesWhatCannotBeAndWhatIsNotThereWithThePath) {
   port("Ethernet1");
   EXPECT_EQ(get("/root/portDS/portStat"),
             "3 /root/portDS/portStat: Ptp::PortDS has no attribute 'portStat'; did you mean "
             "'portState'?");
   EXPECT_EQ(get("/rot"), "3 /rot: a path begins with 'root[name=NAME]', not with 'rot'");
   EXPECT_EQ(get("/root/portDS[name=x]"),
             "3 /root/portDS[name=x]: the key of portDS is named 'key', not 'name'");
   EXPECT_EQ(get("/root[name=ptp/status]/portDS[key=Ethernet9]"),
             "5 /root[name=ptp/status]/portDS[key=Ethernet9]: there is nothing");
   EXPECT_EQ(get("/root[name=other]"), "5 /root[name=other]: there is nothing");
   EXPECT_EQ(get("/root", gnmi::PROTO, "cli"),
             "3 there is no origin 'cli'; there are: 'ptplib', 'openconfig'");
   EXPECT_EQ(get("/root", gnmi::ASCII).substr(0, 35), "12 the encoding ASCII is not implem");
}

TEST_F(GnmiEngine, BeforeTheSourceIsReachedItIsUnavailable) {
   engine->readyIs(false, "no server");
   EXPECT_EQ(get("/root"), "14 no server");
   EXPECT_EQ(read(subscribe(request(gnmi::SubscriptionList::ONCE, {"/root"}))),
             "finished 14 no server\n");
}

TEST_F(GnmiEngine, AnAnswerThatIsTooLongIsRefused) {
   limits.answer = 1000;
   make();
   for (int i = 1; i != 30; ++i) {
      port(("Ethernet" + std::to_string(i)).c_str());
   }
   EXPECT_EQ(get("/root/portDS").substr(0, 40), "8 /root/portDS: the answer would be long");
   EXPECT_EQ(get("/root/portDS", gnmi::JSON).substr(0, 30), "8 /root/portDS: the answer wou");
}

//--- Subscribe ------------------------------------------------------------------------------------

TEST_F(GnmiEngine, OnceSendsEverythingAndASyncAndEnds) {
   EXPECT_EQ(read(subscribe(request(gnmi::SubscriptionList::ONCE,
                                    {"/root/enabled", "/root/managementEnabled"}))),
             "/root[name=ptp/status]/enabled bool_val: false\n"
             "/root[name=ptp/status]/managementEnabled bool_val: false\n"
             "sync\n"
             "finished 0\n");
}

TEST_F(GnmiEngine, OnChangeSendsTheStartASyncAndEachChange) {
   auto const stream =
         subscribe(request(gnmi::SubscriptionList::STREAM, {"/root/portDS/portState"}));
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
   auto asked = request(gnmi::SubscriptionList::STREAM, {"/root/enabled"});
   asked.mutable_subscribe()->mutable_subscription(0)->set_mode(gnmi::TARGET_DEFINED);
   auto const stream = subscribe(asked);
   read(stream);
   status->enabledIs(true);
   EXPECT_EQ(read(stream), "/root[name=ptp/status]/enabled bool_val: true\n");
}

TEST_F(GnmiEngine, ARemovedEntityIsOneDeletionWhereAllOfItIsSubscribedTo) {
   port("Ethernet1");
   auto const stream = subscribe(request(gnmi::SubscriptionList::STREAM, {"/root/portDS"}));
   read(stream);
   status->portDSDel(key("Ethernet1"));
   EXPECT_EQ(read(stream), "delete " + std::string(port1) + "\n");
}

TEST_F(GnmiEngine, ARecreatedEntityIsADeletionBeforeItsValues) {
   port("Ethernet1")->portStateIs(Ptp::PortState::slave);
   auto const stream =
         subscribe(request(gnmi::SubscriptionList::STREAM, {"/root/portDS/portState"}));
   read(stream);
   status->portDSDel(key("Ethernet1"));
   port("Ethernet1");
   EXPECT_EQ(read(stream), "delete " + std::string(port1) + "/portState\n" + port1 +
                                 "/portState string_val: \"initializing\"\n");
}

TEST_F(GnmiEngine, ARootThatComesAndGoesIsAddedAndDeleted) {
   auto const stream = subscribe(request(gnmi::SubscriptionList::STREAM, {"/root/enabled"}));
   read(stream);
   auto const other = Ptp::statusFactory("other");
   engine->rootIs(other);
   EXPECT_EQ(read(stream), "/root[name=other]/enabled bool_val: false\n");
   engine->rootDel(*other);
   EXPECT_EQ(read(stream), "delete /root[name=other]/enabled\n");
}

TEST_F(GnmiEngine, UpdatesOnlyLeavesOutTheStart) {
   auto asked = request(gnmi::SubscriptionList::STREAM, {"/root/enabled"});
   asked.mutable_subscribe()->set_updates_only(true);
   auto const stream = subscribe(asked);
   EXPECT_EQ(read(stream), "sync\n");
   status->enabledIs(true);
   EXPECT_EQ(read(stream), "/root[name=ptp/status]/enabled bool_val: true\n");
}

TEST_F(GnmiEngine, EachPollSendsEverythingAndASync) {
   auto const stream = subscribe(request(gnmi::SubscriptionList::POLL, {"/root/enabled"}));
   EXPECT_EQ(read(stream), "/root[name=ptp/status]/enabled bool_val: false\nsync\n");
   status->enabledIs(true);
   EXPECT_EQ(read(stream), "");
   gnmi::SubscribeRequest poll;
   poll.mutable_poll();
   send(stream, poll);
   EXPECT_EQ(read(stream), "/root[name=ptp/status]/enabled bool_val: true\nsync\n");
   engine->closed(*stream);
   EXPECT_EQ(read(stream), "finished 0\n");
}

TEST_F(GnmiEngine, SamplesComeAtTheirIntervalWhetherOrNotAnythingHasChanged) {
   auto asked = request(gnmi::SubscriptionList::STREAM, {"/root/enabled"});
   auto& subscription = *asked.mutable_subscribe()->mutable_subscription(0);
   subscription.set_mode(gnmi::SAMPLE);
   subscription.set_sample_interval(2 * second);
   auto const stream = subscribe(asked);
   read(stream);
   status->enabledIs(true);
   EXPECT_EQ(read(stream), "");
   EXPECT_EQ(engine->deadline(), 102 * second);
   testNow += 2 * second;
   EXPECT_EQ(read(stream), "/root[name=ptp/status]/enabled bool_val: true\n");
   EXPECT_EQ(read(stream), "");
   testNow += 5 * second;  // samples that were missed are left out
   EXPECT_EQ(read(stream), "/root[name=ptp/status]/enabled bool_val: true\n");
   EXPECT_EQ(engine->deadline(), 108 * second);
}

TEST_F(GnmiEngine, SuppressRedundantSamplesOnlyWhatHasChangedAndAHeartbeatAll) {
   auto asked = request(gnmi::SubscriptionList::STREAM, {"/root/enabled"});
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
   EXPECT_EQ(read(stream), "/root[name=ptp/status]/enabled bool_val: true\n");
   testNow += second;
   EXPECT_EQ(read(stream), "");
   testNow += 7 * second;
   EXPECT_EQ(read(stream), "/root[name=ptp/status]/enabled bool_val: true\n");
}

TEST_F(GnmiEngine, AHeartbeatRepeatsWhatHasNotChanged) {
   auto asked = request(gnmi::SubscriptionList::STREAM, {"/root/enabled"});
   asked.mutable_subscribe()->mutable_subscription(0)->set_heartbeat_interval(3 * second);
   auto const stream = subscribe(asked);
   read(stream);
   testNow += 3 * second - 1;
   EXPECT_EQ(read(stream), "");
   testNow += 1;
   EXPECT_EQ(read(stream), "/root[name=ptp/status]/enabled bool_val: false\n");
}

TEST_F(GnmiEngine, ChangesThatComeSoonerThanTheGatherTimeGoIntoOneMessage) {
   limits.gather = 10 * millisecond;
   make();
   auto const stream = subscribe(
         request(gnmi::SubscriptionList::STREAM, {"/root/enabled", "/root/managementEnabled"}));
   read(stream);
   testNow += second;
   status->enabledIs(true);
   EXPECT_EQ(read(stream), "/root[name=ptp/status]/enabled bool_val: true\n");
   testNow += millisecond;
   status->managementEnabledIs(true);
   status->enabledIs(false);
   EXPECT_EQ(read(stream), "");
   EXPECT_EQ(engine->deadline(), 101 * second + 10 * millisecond);
   testNow += 9 * millisecond;
   turn();
   ASSERT_EQ(stream->sent.size(), 1U);
   EXPECT_EQ(read(stream),
             "/root[name=ptp/status]/managementEnabled bool_val: true\n"
             "/root[name=ptp/status]/enabled bool_val: false\n");
}

TEST_F(GnmiEngine, WhatAStoppedReaderMissesIsCoalescedAndCounted) {
   auto const port = this->port("Ethernet1");
   auto const stream = subscribe(request(gnmi::SubscriptionList::STREAM, {"/root/portDS"}));
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
         subscribe(request(gnmi::SubscriptionList::STREAM, {"/root/portDS/portState"}));
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
             "delete /root\n/root[name=ptp/status]/portDS[key=Ethernet2999]"
             "/portState string_val: \"initializing\"\n");
}

TEST_F(GnmiEngine, MessagesAreClosedAtTheirSizeAndASyncFollowsTheLast) {
   limits.message = 2000;
   make();
   for (int i = 1; i != 100; ++i) {
      port(("Ethernet" + std::to_string(i)).c_str());
   }
   auto const stream =
         subscribe(request(gnmi::SubscriptionList::STREAM, {"/root/portDS/portState"}));
   std::string const said = read(stream);
   EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 100);
   EXPECT_EQ(said.substr(said.size() - 5), "sync\n");
   EXPECT_LT(stream->largest, 2200U);
}

TEST_F(GnmiEngine, SubscriptionsThatLeadNowhereAreRefused) {
   auto const refused = [this](gnmi::SubscribeRequest const& asked) {
      return read(subscribe(asked));
   };
   auto asked = request(gnmi::SubscriptionList::STREAM, {"/root/enable"});
   EXPECT_EQ(refused(asked),
             "finished 3 /root/enable: Ptp::Status has no attribute 'enable'; did you mean "
             "'enabled'?\n");
   asked = request(gnmi::SubscriptionList::STREAM, {"/root/enabled"});
   asked.mutable_subscribe()->mutable_subscription(0)->set_heartbeat_interval(5);
   EXPECT_EQ(refused(asked),
             "finished 3 /root/enabled: the heartbeat interval is 5 ns; at least "
             "100000000 ns are possible\n");
   asked = request(gnmi::SubscriptionList::STREAM, {});
   EXPECT_EQ(refused(asked), "finished 3 the subscription has no paths\n");
   asked = request(gnmi::SubscriptionList::STREAM, std::vector<std::string>(129, "/root/enabled"));
   EXPECT_EQ(refused(asked), "finished 8 the request has 129 paths; at most 128 are allowed\n");
   asked = request(gnmi::SubscriptionList::STREAM, {"/root/enabled"});
   asked.add_extension()->mutable_history()->set_snapshot_time(1);
   EXPECT_EQ(refused(asked), "finished 12 the extension 'history' is not implemented\n");
   asked.Clear();
   asked.mutable_poll();
   EXPECT_EQ(refused(asked), "finished 3 a poll before the subscription\n");
}

TEST_F(GnmiEngine, AStreamThatPollsOrSubscribesAgainIsRefused) {
   auto const asked = request(gnmi::SubscriptionList::STREAM, {"/root/enabled"});
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
   auto asked = request(gnmi::SubscriptionList::ONCE, {"/root/enabled"});
   asked.mutable_subscribe()->mutable_prefix()->set_target("clock 7");
   auto const stream = subscribe(asked);
   turn();
   ASSERT_EQ(stream->sent.size(), 1U);
   EXPECT_EQ(stream->sent[0].update().prefix().ShortDebugString(),
             "origin: \"ptplib\" target: \"clock 7\"");
   EXPECT_GT(stream->sent[0].update().timestamp(), 1'700'000'000'000'000'000);
}

//--- OpenConfig -----------------------------------------------------------------------------------

class GnmiOpenconfig : public GnmiEngine {
protected:
   GnmiOpenconfig() {
      instance->idIs(4);
      engine->rootIs(instance);
   }
   std::string of(std::string const& path, gnmi::Encoding encoding = gnmi::PROTO,
                  gnmi::GetRequest::DataType type = gnmi::GetRequest::ALL) {
      return get(path, encoding, "", type);
   }

   Sarn::Ptr<Openconfig::Ptp::Instance> instance = Openconfig::Ptp::instanceFactory("instance");
};

TEST_F(GnmiOpenconfig, IsTheDefaultOriginAndHasTheModelsPaths) {
   auto const current = instance->currentDsIs()->stateIs();
   current->offsetFromMasterIs(-7);
   current->stepsRemovedIs(2);
   std::string const at = "/ptp/instances/instance[id=4]/current-ds/state/";
   EXPECT_EQ(of("/ptp/instances/instance[id=4]/current-ds"),
             at + "steps-removed uint_val: 2\n" + at + "offset-from-master int_val: -458752\n" +
                   at + "mean-path-delay int_val: 0\n");
   EXPECT_EQ(of("/ptp/instances/instance/current-ds/state/offset-from-master", gnmi::JSON_IETF),
             at + "offset-from-master json_ietf_val: \"\\\"-458752\\\"\"\n");
}

TEST_F(GnmiOpenconfig, ADocumentHasTheModuleAtItsTopAndKeysAsNumbers) {
   instance->currentDsIs()->stateIs();
   EXPECT_EQ(of("/", gnmi::JSON_IETF),
             R"(/ json_ietf_val: "{\"openconfig-ptp:ptp\":{\"instances\":{\"instance\":[{)"
             R"(\"id\":4,\"config\":{\"id\":4},\"state\":{\"id\":4},\"current-ds\":{\"state\":{)"
             R"(\"steps-removed\":0,\"offset-from-master\":\"0\",\"mean-path-delay\":\"0\"}}}]}}}")"
             "\n");
}

TEST_F(GnmiOpenconfig, GetsConfigurationOrStateAlone) {
   EXPECT_EQ(of("/ptp", gnmi::PROTO, gnmi::GetRequest::CONFIG),
             "/ptp/instances/instance[id=4]/config/id uint_val: 4\n");
   EXPECT_EQ(of("/ptp", gnmi::PROTO, gnmi::GetRequest::STATE),
             "/ptp/instances/instance[id=4]/id uint_val: 4\n"
             "/ptp/instances/instance[id=4]/state/id uint_val: 4\n");
}

TEST_F(GnmiOpenconfig, ALeafThatAnotherSwitchesComesAndGoesWithIt) {
   auto const times = instance->timePropertiesDsIs()->stateIs();
   times->currentUtcOffsetIs(37);
   auto asked = request(gnmi::SubscriptionList::STREAM,
                        {"/ptp/instances/instance/time-properties-ds"}, gnmi::PROTO, "openconfig");
   auto const stream = subscribe(asked);
   read(stream);
   std::string const at = "/ptp/instances/instance[id=4]/time-properties-ds/state/";
   times->currentUtcOffsetValidIs(true);
   EXPECT_EQ(read(stream), at + "current-utc-offset-valid bool_val: true\n" + at +
                                 "current-utc-offset int_val: 37\n");
   times->currentUtcOffsetIs(38);
   EXPECT_EQ(read(stream), at + "current-utc-offset int_val: 38\n");
   times->currentUtcOffsetValidIs(false);
   EXPECT_EQ(read(stream), "delete " + at + "current-utc-offset\n" + at +
                                 "current-utc-offset-valid bool_val: false\n");
}

TEST_F(GnmiOpenconfig, AnotherIdIsAnotherEntry) {
   auto const stream =
         subscribe(request(gnmi::SubscriptionList::STREAM, {"/ptp/instances/instance/state/id"},
                           gnmi::PROTO, "openconfig"));
   EXPECT_EQ(read(stream), "/ptp/instances/instance[id=4]/state/id uint_val: 4\nsync\n");
   instance->idIs(5);
   EXPECT_EQ(read(stream),
             "delete /ptp/instances/instance[id=4]/state/id\n"
             "/ptp/instances/instance[id=5]/state/id uint_val: 5\n");
}

TEST_F(GnmiOpenconfig, RefusesWhatTheModelDoesNotHave) {
   EXPECT_EQ(of("/ptp/instance"),
             "3 /ptp/instance: openconfig-ptp has no 'instance' there; did you mean 'instances'?");
   EXPECT_EQ(of("/ptp/instances/instance[name=4]"),
             "3 /ptp/instances/instance[name=4]: the key of instance is named 'id', not 'name'");
   EXPECT_EQ(of("/ptp/instances/instance[id=9]"),
             "5 /ptp/instances/instance[id=9]: there is nothing");
}

}  // namespace
}  // namespace Ptpgnmi

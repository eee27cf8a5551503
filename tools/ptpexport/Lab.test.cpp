// What clients get over HTTP, from a source that comes and goes.
#include "tools/ptpexport/Lab.test.h"

#include <regex>

#include "Holt/State/Doc.h"
#include "tools/ptpexport/EventStream.h"

namespace Ptpexport {
namespace {

/// With times replaced by TIME.
std::string timeless(std::string const& text) {
   return std::regex_replace(text, std::regex(R"("\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z")"),
                             "TIME");
}

constexpr char roots[] =
      R"("roots":[{"type":"Ptp::Status","name":"ptp/status"},{"type":"Ptp::Config","name":"ptp/config"}]})"
      "\n";

using HealthTest = Lab;

TEST_F(HealthTest, TellsWhetherTheStateIsUpToDate) {
   start();
   EXPECT_EQ(timeless(brief("/healthz")),
             R"(503 {"connected":false,"since":TIME,"reason":")" + socket() +
                   ": there is no such socket; start a server there: ptpstate serve --socket " +
                   socket() + "\",\"roots\":[]}\n");
   serveSource();
   ASSERT_TRUE(isCurrent());
   EXPECT_EQ(timeless(brief("/healthz")),
             std::string(R"(200 {"connected":true,"since":TIME,)") + roots);
   endSource();
   ASSERT_TRUE(isOld());
   std::string const old = timeless(brief("/healthz?always"));
   EXPECT_TRUE(old.starts_with(R"(200 {"connected":false,"since":TIME,"reason":")")) << old;
   EXPECT_TRUE(old.ends_with(roots)) << old;
   EXPECT_TRUE(brief("/healthz").starts_with("503 {"));
   serveSource();
   ASSERT_TRUE(isCurrent());
   EXPECT_EQ(feed->status().connections, 2U);
}

TEST_F(HealthTest, ASourceThatDoesNotAnswerIsNotUpToDate) {
   startAll();
   loop.remove(*source);  // it is stopped, and its connection stays open
   ASSERT_TRUE(isOld());
   EXPECT_EQ(feed->status().reason, socket() + ": the server does not answer");
   EXPECT_EQ(feed->status().connections, 1U);
   loop.add(*source);
   ASSERT_TRUE(isCurrent());
   EXPECT_EQ(feed->status().connections, 1U);
}

/// Counts how often the state was not up to date.
struct Gaps final : Feed::Listener {
   void onStatus(Feed::Status const& status) override { count += status.current ? 0 : 1; }
   int count = 0;
};

TEST_F(HealthTest, ARootThatIsOfferedLaterLeavesTheOthersUpToDate) {
   startAll();
   Gaps gaps;
   feed->listenerAdd(gaps);
   source->rootIs(Sarn::Ptr<Kiv::NamedEntity>(Ptp::configFactory("other/config")));
   EXPECT_TRUE(turnUntil(loop, [this] { return feed->roots().size() == 3; }));
   EXPECT_EQ(gaps.count, 0);
   EXPECT_TRUE(feed->status().current);
   feed->listenerDel(gaps);
}

TEST_F(HealthTest, OfVeryManyRootsSomeAreLeftOutAndNamed) {
   serveSource();
   for (int i = 0; i != 70; ++i) {
      source->rootIs(Sarn::Ptr<Kiv::NamedEntity>(Ptp::configFactory("config" + std::to_string(i))));
   }
   start();
   ASSERT_TRUE(isCurrent());
   EXPECT_EQ(feed->roots().size(), 60U);
   EXPECT_EQ(feed->leftOut().size(), 12U);
   EXPECT_EQ(feed->leftOut().back(), "config69: 60 others are mirrored already");
   EXPECT_EQ(feed->status().connections, 1U);
}

using StateTest = Lab;

TEST_F(StateTest, IsWhatADumpHas) {
   addPort(1);
   addPort(2)->portStateIs(Ptp::PortState::slave);
   start();
   EXPECT_TRUE(brief("/state").starts_with("503 "));
   serveSource();
   ASSERT_TRUE(isCurrent());
   std::string const all = Holt::jsonText(
         Holt::jsonOf(Holt::docOf(std::vector<Kiv::NamedEntity*>{status.get(), config.get()})));
   EXPECT_EQ(brief("/state"), "200 " + all);
   EXPECT_EQ(brief("/state/"), "200 " + all);
   std::string const state =
         R"({
   "format": "ptpstate dump 1",
   "places": [
      {
         "root": {
            "type": "Ptp::Status",
            "name": "ptp/status"
         },
         "path": "ptp/status.portDS[Ethernet2].portState",
         "state": "slave"
      }
   ]
}
)";
   EXPECT_EQ(brief("/state/ptp/status.portDS[Ethernet2].portState"), "200 " + state);
   EXPECT_EQ(brief("/state/ptp%2Fstatus.portDS%5B*2%5D.portState"), "200 " + state);
   EXPECT_EQ(brief("/state/ptp/status.portDS[Ethernet3]"),
             "404 ptp/status.portDS[Ethernet3]: does not exist\n");
   EXPECT_EQ(brief("/state/ptp/status.portds"),
             "404 ptp/status: Ptp::Status has no attribute 'portds'; did you mean 'portDS'?\n");
   EXPECT_EQ(brief("/state/%3Cscript%3E%0a"),
             "404 '<script>\\n' does not begin with the name of a root; the server has ptp/status, "
             "ptp/config\n");
   endSource();
   ASSERT_TRUE(isOld());
   std::string const old = answer("/state/ptp/config.priority1");
   EXPECT_NE(old.find("Warning: 110 - \"Response is Stale\"\r\n"), std::string::npos) << old;
   EXPECT_NE(old.find("\"state\": 128\n"), std::string::npos) << old;
}

class EventsTest : public Lab {
protected:
   /// Everything that a reader is sent now.
   static std::string readAll(EventStream& stream) {
      std::string all;
      std::string buffer(4096, ' ');
      for (std::size_t size = stream.read(buffer); size != 0; size = stream.read(buffer)) {
         all.append(buffer, 0, size);
      }
      return timeless(all);
   }
   /// Waits until the mirrors have got so many more changes than `before`.
   bool arrived(U64 before, U64 more) {
      return turnUntil(loop, [&] { return feed->status().changes >= before + more; });
   }
   std::string saidTo(Peer& peer) { return timeless(bodyOf(peer.text())); }
   Peer& follow(Peer& peer, std::string const& query) {
      peer.get("/events" + query);
      EXPECT_TRUE(peer.has("retry: 2000\n\n"));
      return peer;
   }
};

TEST_F(EventsTest, AreAMessageAChange) {
   startAll();
   Peer peer(loop, address());
   follow(peer, "?path=ptp/config.priority1&path=ptp/status.portDS[*].portState");
   config->priority1Is(7);
   config->priority2Is(9);
   addPort(1)->portStateIs(Ptp::PortState::slave);
   config->priority1Is(8);
   config->priority1Is(9);
   EXPECT_TRUE(peer.has("\"old\":8,\"new\":9"));
   EXPECT_NE(peer.text().find("Content-Type: text/event-stream\r\n"), std::string::npos);
   status->portDSDelAll();
   EXPECT_TRUE(peer.has("deleted"));
   EXPECT_EQ(saidTo(peer), R"(retry: 2000

data: {"time":TIME,"path":"ptp/config.priority1","change":"set","old":128,"new":7}

data: {"time":TIME,"path":"ptp/status.portDS[Ethernet1]","change":"created","new":{"portIdentity":{"clockIdentity":"00:00:00:00:00:00:00:00","portNumber":1}}}

data: {"time":TIME,"path":"ptp/status.portDS[Ethernet1].portState","change":"set","old":"initializing","new":"slave"}

data: {"time":TIME,"path":"ptp/config.priority1","change":"set","old":7,"new":8}

data: {"time":TIME,"path":"ptp/config.priority1","change":"set","old":8,"new":9}

data: {"time":TIME,"path":"ptp/status.portDS[Ethernet1]","change":"deleted"}

)");
}

TEST_F(EventsTest, RefuseWhatLeadsNowhere) {
   start();
   EXPECT_TRUE(brief("/events").starts_with("503 "));
   serveSource();
   ASSERT_TRUE(isCurrent());
   EXPECT_EQ(brief("/events?path=ptp/config.nothing"),
             "404 ptp/config: Ptp::Config has no attribute 'nothing'\n");
   std::string many = "/events?path=ptp/config";
   for (int i = 0; i != 64; ++i) {
      many += "&path=ptp/config";
   }
   EXPECT_EQ(brief(many), "400 65 paths; at most 64 are allowed\n");
   EXPECT_EQ(events->readers(), 0U);
}

TEST_F(EventsTest, SayThatTheSourceIsGoneAndBackAndWhatHasChangedMeanwhile) {
   startAll();
   Peer peer(loop, address());
   follow(peer, "?path=ptp/config.priority1");
   endSource();
   EXPECT_TRUE(peer.has("event: source\ndata: {\"connected\":false"));
   config->priority1Is(7);
   serveSource();
   EXPECT_TRUE(peer.has("event: source\ndata: {\"connected\":true"));
   std::string const said = saidTo(peer);
   std::size_t const change = said.find(
         R"(data: {"time":TIME,"path":"ptp/config.priority1","change":"set","old":128,"new":7})");
   EXPECT_LT(change, said.find("\"connected\":true")) << said;
   Peer late(loop, address());
   endSource();
   ASSERT_TRUE(isOld());
   late.get("/events");
   EXPECT_TRUE(late.has("retry: 2000\n\nevent: source\ndata: {\"connected\":false"));
}

TEST_F(EventsTest, AReaderThatStopsCostsABoundedNumberOfBytesAndCatchesUp) {
   for (int i = 1; i <= 64; ++i) {
      addPort(i);
   }
   startAll();
   Peer stopped(loop, address(), 4096);
   Peer reads(loop, address());
   follow(stopped, "");
   follow(reads, "");
   std::size_t most = 0;
   for (int i = 1; i <= 1000; ++i) {
      for (int port = 1; port <= 64; ++port) {
         addPort(port)->peerMeanPathDelayIs(i * 100 + port);
      }
      loop.turn(-1, std::chrono::milliseconds(1));
      reads.take();
      reads.forget();
      most = std::max(most, events->heldBytes());
   }
   RecordProperty("heldBytes", static_cast<int>(most));
   std::printf("held for a stopped reader: %zu bytes at most\n", most);
   EXPECT_LE(most, 2 * (limits.backlog + (std::size_t(1) << 15) + 64 * 256));
   EXPECT_TRUE(stopped.has("\"event\":\"coalesced\""));
   for (int port = 1; port <= 64; ++port) {
      EXPECT_TRUE(stopped.has("[Ethernet" + std::to_string(port) +
                              R"(].peerMeanPathDelay","change":"set","new":)" +
                              std::to_string(100'000 + port) + "}"));
   }
   std::string const said = saidTo(stopped);
   EXPECT_TRUE(
         std::regex_search(said.substr(said.find("\"event\":\"coalesced\"") - 40, 200),
                           std::regex(R"(\{"time":TIME,"event":"coalesced","changes":\d+\}\n\n)")));
   EXPECT_EQ(said.find("\"again\""), std::string::npos);
}

TEST_F(EventsTest, AReaderThatIsFarBehindIsToldToFetchAgain) {
   limits.backlog = 1000;
   limits.paths = 10;
   startAll();
   U64 const before = feed->status().changes;
   EventStream stream(*events, {});  // nobody reads it
   for (int i = 1; i <= 30; ++i) {
      addPort(i)->portStateIs(Ptp::PortState::faulty);
   }
   ASSERT_TRUE(arrived(before, 60));
   EXPECT_LE(stream.heldBytes(), 1000 + 10 * 200U);
   std::string const text = readAll(stream);
   EXPECT_TRUE(std::regex_search(
         text, std::regex(R"("event":"coalesced","changes":\d+\}\n\nevent: source\n)"
                          R"(data: \{"connected":true,"since":TIME,.*,"again":true\}\n\n$)")))
         << text;
}

TEST_F(EventsTest, AnEntityThatWasReplacedIsDeletedAndCreatedForAReaderBehind) {
   limits.backlog = 1;
   addPort(1);
   startAll();
   EventStream stream(*events, {});
   U64 const before = feed->status().changes;
   addPort(1)->portStateIs(Ptp::PortState::slave);
   status->portDSDelAll();
   addPort(1)->portStateIs(Ptp::PortState::master);
   ASSERT_TRUE(arrived(before, 4));
   std::string const text = readAll(stream);
   std::size_t const deleted =
         text.find(R"({"time":TIME,"path":"ptp/status.portDS[Ethernet1]","change":"deleted"})");
   std::size_t const created =
         text.find(R"({"time":TIME,"path":"ptp/status.portDS[Ethernet1]","change":"created")");
   std::size_t const state = text.find(
         R"({"time":TIME,"path":"ptp/status.portDS[Ethernet1].portState","change":"set","new":"master"})");
   EXPECT_LT(deleted, created) << text;
   EXPECT_LT(created, state) << text;
   EXPECT_NE(state, std::string::npos) << text;
   EXPECT_EQ(text.find("\"slave\""), std::string::npos) << text;
}

TEST_F(EventsTest, CommentsComeWhenNothingElseDoes) {
   limits.comment = 20'000'000;
   startAll();
   Peer peer(loop, address());
   follow(peer, "?path=ptp/config");
   EXPECT_TRUE(peer.has("3\r\n:\n\n\r\n"));
}

TEST_F(StateTest, ALargeAnswerDoesNotHoldUpTheMirror) {
   for (int i = 1; i <= 4096; ++i) {
      addPort(i);
   }
   startAll();
   Peer reader(loop, address());
   reader.get("/state/ptp/status");
   EXPECT_TRUE(reader.has("\r\n\r\n"));
   U64 longest = 0;
   U64 turns = 0;
   U64 const begin = Holt::steadyNow();
   while (!reader.over() &&
          reader.text().find(
                "\r\n0\r\n\r\n",
                reader.text().size() - std::min<std::size_t>(reader.text().size(), 100)) ==
                std::string::npos) {
      U64 const before = Holt::steadyNow();
      loop.turn(-1, std::chrono::milliseconds(1));
      U64 const time = Holt::steadyNow() - before;
      longest = std::max(longest, time);
      ++turns;
      reader.take();
      ASSERT_LT(Holt::steadyNow() - begin, 120'000'000'000U);
   }
   std::printf("%zu bytes in %.0f ms, %llu turns, the longest %.1f ms\n", reader.text().size(),
               static_cast<double>(Holt::steadyNow() - begin) / 1e6,
               static_cast<unsigned long long>(turns), static_cast<double>(longest) / 1e6);
   EXPECT_GT(turns, 100U);
   EXPECT_LT(longest, 500'000'000U);
}

using HistoryReplyTest = Lab;

TEST_F(HistoryReplyTest, AnswersForClocksAndPorts) {
   addPort(1);
   startAll();
   EXPECT_TRUE(brief("/history").starts_with("200 {\"start\":"));
   EXPECT_TRUE(brief("/history/Ethernet1?root=ptp/status").starts_with("200 {\"start\":"));
   EXPECT_EQ(brief("/history/Ethernet2"), "404 ptp/status has no port 'Ethernet2'\n");
   EXPECT_TRUE(brief("/history?root=x").starts_with("404 "));
}

}  // namespace
}  // namespace Ptpexport

// A publisher and a mirror with a real server between them.
#include <gmock/gmock.h>

#include <cstdlib>
#include <optional>

#include "Fleet/Fixture.test.h"
#include "Fleet/Mirror.h"
#include "Fleet/Names.h"
#include "Fleet/Publisher.h"
#include "Holt/Client.h"
#include "Holt/State/Diff.h"
#include "Holt/State/Doc.h"
#include "KivTest/TestTypes/Hedge.h"
#include "KivTest/TestTypes/Stem.h"

namespace Fleet::Test {

using KivTest::Stem;

constexpr U64 millisecond = 1'000'000;

static Sarn::Ptr<Stem> newStem(char const* name) {
   return Sarn::Ptr<Stem>(static_cast<Stem*>(&*Holt::newRoot("KivTest::Stem", name)));
}

/// What distinguishes two roots, value by value.
static std::string differences(Kiv::NamedEntity* a, Kiv::NamedEntity* b) {
   if (a == nullptr || b == nullptr) {
      return "a root is missing";
   }
   std::string text;
   Holt::StateDoc const first = Holt::docOf(std::vector<Kiv::NamedEntity*>{a});
   Holt::StateDoc const second = Holt::docOf(std::vector<Kiv::NamedEntity*>{b});
   Holt::compareLines(Holt::linesOf(first), Holt::linesOf(second),
                      [&](Holt::StateLine const* x, Holt::StateLine const* y) {
                         text += (x != nullptr ? x->path + "=" + x->text : "nothing") + " <> " +
                                 (y != nullptr ? y->path + "=" + y->text : "nothing") + "\n";
                      });
   return text;
}

static Publisher::Options quick(char const* name) {
   return {.switchName = name, .heartbeat = 200 * millisecond, .patience = 1000 * millisecond};
}

static Connection::Options to(NatsServer const& server) {
   return {.urls = {server.url()},
           .pause = 50 * millisecond,
           .longestPause = 200 * millisecond,
           .patience = 1000 * millisecond,
           .probe = 500 * millisecond};
}

/// A publisher with its connection and a source.
struct Source {
   Source(Holt::Loop& its, NatsServer const& server, char const* name,
          Sarn::Ptr<Kiv::NamedEntity> const& root)
         : loop(its), connection(to(server)), publisher(connection, quick(name)) {
      loop.add(connection);
      loop.add(publisher);
      publisher.rootAdd(root);
      publisher.sourceIs(true, Holt::wallNow(), "");
   }
   ~Source() {
      loop.remove(connection);
      loop.remove(publisher);
   }
   bool done() const {
      Publisher::Status const status = publisher.status();
      return status.publishing && status.pending == 0 && status.inFlight == 0;
   }

   Holt::Loop& loop;
   Connection connection;
   Publisher publisher;
};

/// A mirror with its connection.
struct Sink {
   Sink(Holt::Loop& its, NatsServer const& server, char const* switches = "*")
         : loop(its), connection(to(server)), mirror(connection, {.switches = switches}) {
      loop.add(connection);
      loop.add(mirror);
   }
   ~Sink() {
      loop.remove(connection);
      loop.remove(mirror);
   }
   bool current(char const* name) const {
      Switch const* const its = mirror.find(name);
      return its != nullptr && its->status().current;
   }
   /// What is known of a switch, for a message.
   std::string about(char const* name) const {
      std::string text = "mirror: " + mirror.status().reason + " " + mirror.status().lastMalformed;
      if (Switch const* const its = mirror.find(name)) {
         text += "; switch: " + its->status().reason + " " + its->status().lastRefused + " " +
                 std::to_string(its->entities()) + " entities";
      }
      return text;
   }
   Kiv::NamedEntity* root(char const* name, char const* root) const {
      Switch const* const its = mirror.find(name);
      return its != nullptr && its->root(root) != nullptr ? &*its->root(root) : nullptr;
   }

   Holt::Loop& loop;
   Connection connection;
   Mirror mirror;
};

static void fill(Stem& stem) {
   stem.u8Is(7);
   stem.textIs("caf\xc3\xa9 \"quoted\" \n \xff");
   stem.u64Is(18446744073709551615U);
   stem.preciseIs(1e300);
   stem.markIs(9);
   stem.leafIs(1, true, KivTest::Opaque(2.5))->ticksIs(5);
   stem.leafIs(2, false, KivTest::Opaque(-1))->twigIs(KivTest::Level::high)->weightIs(0.1);
   stem.badgeIs("a badge")->brightnessIs(77);
   stem.byNumberIs(4, "four");
   stem.byTextIs("", 1);
   stem.byTextIs("a.b *>\x01", 2);
   stem.samplesEnq(1.5);
   stem.samplesEnq(2.5);
   stem.samplesDeq();
   stem.samplesEnq(3.5);
}

/// A stem on its way to a mirror that is up to date.
class FleetPair : public FleetTest {
protected:
   void SetUp() override {
      FleetTest::SetUp();
      if (IsSkipped()) {
         return;
      }
      server.emplace();
      fill(*stem);
      source.emplace(loop, *server, "edge-7", stem);
      sink.emplace(loop, *server);
      ASSERT_TRUE(untilEqual());
   }

   bool equal() const {
      Kiv::NamedEntity* const mirrored = sink->root("edge-7", "ptp/stem");
      return sink->current("edge-7") && mirrored != nullptr &&
             rootDigest(*mirrored) == rootDigest(*stem) && differences(mirrored, &*stem).empty();
   }
   testing::AssertionResult untilEqual(double seconds = 20) {
      if (until([this] { return source->done() && equal(); }, seconds)) {
         return testing::AssertionSuccess();
      }
      return testing::AssertionFailure()
             << sink->about("edge-7") << "; publisher: " << source->publisher.status().reason
             << "\n"
             << differences(&*stem, sink->root("edge-7", "ptp/stem"));
   }
   U64 messages() const { return source->publisher.status().messages; }

   std::optional<NatsServer> server;
   Sarn::Ptr<Stem> stem = newStem("ptp/stem");
   std::optional<Source> source;
   std::optional<Sink> sink;
};

struct Counter final : Kiv::Observer {
   void onChange(Kiv::Change const& change) override { ids.push_back(change.attributeId); }
   std::vector<U16> ids;
};

TEST_F(FleetTest, AMirrorEqualsTheSource) {
   NatsServer server;
   auto const stem = newStem("ptp/stem");
   fill(*stem);
   Source source(loop, server, "edge-7", stem);
   Sink sink(loop, server);
   ASSERT_TRUE(until([&] { return sink.current("edge-7"); }))
         << sink.about("edge-7");
   Kiv::NamedEntity* const mirrored = sink.root("edge-7", "ptp/stem");
   EXPECT_EQ(differences(&*stem, mirrored), "");
   EXPECT_EQ(rootDigest(*stem), rootDigest(*mirrored));
   EXPECT_EQ(source.publisher.status().messages, rootDigest(*stem).entities);
   EXPECT_EQ(sink.mirror.find("edge-7")->status().refused, 0);
}


TEST_F(FleetPair, AChangeIsOneMessageAndOneNotification) {
   U64 const before = messages();
   Sarn::Ptr<Kiv::NamedEntity> const mirrored(sink->root("edge-7", "ptp/stem"));
   Counter counter;
   mirrored->observerAdd(counter, Kiv::Scope::subtree);
   stem->u8Is(99);
   EXPECT_TRUE(untilEqual());
   mirrored->observerDel(counter, Kiv::Scope::subtree);
   EXPECT_EQ(messages(), before + 1);
   EXPECT_EQ(counter.ids, std::vector<U16>{259});
}

TEST_F(FleetPair, ManyChangesOfATurnAreOneMessagePerEntity) {
   U64 const before = messages();
   for (U32 i = 0; i != 1000; ++i) {
      stem->u32Is(i);
      stem->leaf(1)->ticksIs(static_cast<U16>(i));
   }
   EXPECT_TRUE(untilEqual());
   EXPECT_EQ(messages(), before + 2);
}

TEST_F(FleetPair, AChangeThatIsTakenBackIsNotPublished) {
   U64 const before = messages();
   stem->u8Is(8);
   stem->u8Is(7);
   wait(0.2);
   EXPECT_EQ(messages(), before);
}

TEST_F(FleetPair, DeletedEntitiesAreDeletedWithWhatIsBelow) {
   stem->leafDel(2);
   stem->badgeDel();
   EXPECT_TRUE(untilEqual());
   EXPECT_EQ(source->publisher.status().deletions, 3);  // leaf, its twig, badge
   Sink late(loop, *server);
   ASSERT_TRUE(until([&] { return late.current("edge-7"); })) << late.about("edge-7");
   EXPECT_EQ(differences(late.root("edge-7", "ptp/stem"), &*stem), "");
}

TEST_F(FleetPair, ADeletedEntityThatComesAgainIsTheNewOne) {
   stem->leafDel(2);
   stem->leafIs(2, true, KivTest::Opaque(8))->ticksIs(3);
   EXPECT_TRUE(untilEqual());
   stem->leafDel(1);
   stem->leafIs(1, true, KivTest::Opaque(9));
   EXPECT_TRUE(untilEqual());
}

TEST_F(FleetPair, ChildrenOfAChildWithOtherConstantsStay) {
   stem->leaf(2)->twigIs(KivTest::Level::low)->weightIs(4);
   EXPECT_TRUE(untilEqual());
   stem->leafDel(2);
   auto const leaf = stem->leafIs(2, true, KivTest::Opaque(77));
   leaf->twigIs(KivTest::Level::low)->weightIs(4);
   leaf->twigIs(KivTest::Level::high)->weightIs(0.1);
   EXPECT_TRUE(untilEqual());
}

TEST_F(FleetPair, QueuesKeepTheirNumbers) {
   for (int i = 0; i != 10; ++i) {
      stem->samplesEnq(i);
      stem->samplesDeq();
      EXPECT_TRUE(untilEqual());
   }
   while (stem->samplesCount() != 0) {
      stem->samplesDeq();
   }
   EXPECT_TRUE(untilEqual());
}

TEST_F(FleetPair, ARestartedPublisherSendsDifferencesAndDeletionsOnly) {
   source.reset();
   stem->leaf(1)->ticksIs(4711);
   stem->leafDel(2);
   std::string const session = sink->mirror.find("edge-7")->status().session;
   source.emplace(loop, *server, "edge-7", stem);
   EXPECT_TRUE(untilEqual());
   EXPECT_EQ(messages(), 3);  // leaf 1, and two deletions
   EXPECT_EQ(source->publisher.status().deletions, 2);
   EXPECT_EQ(sink->mirror.find("edge-7")->status().restarts, 1);
   EXPECT_NE(sink->mirror.find("edge-7")->status().session, session);
}

TEST_F(FleetPair, NothingIsDeletedBeforeTheSourceIsKnown) {
   source.reset();
   Connection connection(to(*server));
   Publisher publisher(connection, quick("edge-7"));
   loop.add(connection);
   loop.add(publisher);
   publisher.sourceIs(false, Holt::wallNow(), "the agent is not there");
   ASSERT_TRUE(until([&] {
      return sink->mirror.find("edge-7")->status().reason == "the agent is not there";
   })) << sink->about("edge-7");
   EXPECT_EQ(publisher.status().messages, 0);
   EXPECT_EQ(differences(sink->root("edge-7", "ptp/stem"), &*stem), "");
   publisher.rootAdd(stem);
   publisher.sourceIs(true, Holt::wallNow(), "");
   EXPECT_TRUE(until([&] { return sink->current("edge-7"); })) << sink->about("edge-7");
   EXPECT_EQ(publisher.status().messages, 0);
   loop.remove(connection);
   loop.remove(publisher);
}

TEST_F(FleetPair, ASilentPublisherIsNoticed) {
   source.reset();
   Switch const& its = *sink->mirror.find("edge-7");
   ASSERT_TRUE(until([&] { return !its.status().current; }));
   EXPECT_THAT(its.status().reason, testing::StartsWith("no heartbeat since "));
   EXPECT_TRUE(its.status().complete);
   EXPECT_EQ(its.status().since, its.status().heartbeat);
}

TEST_F(FleetPair, APublisherThatEndsSaysSo) {
   source->publisher.end();
   ASSERT_TRUE(until([&] {
      return sink->mirror.find("edge-7")->status().reason == "the publisher has ended";
   })) << sink->about("edge-7");
}

TEST_F(FleetPair, AfterAnOutageOnlyDifferencesAreSent) {
   U64 const before = messages();
   server->kill();
   ASSERT_TRUE(until([&] { return !sink->current("edge-7"); }));
   for (U32 i = 0; i != 5000; ++i) {
      stem->u32Is(i);
      stem->leaf(1)->ticksIs(static_cast<U16>(i));
   }
   stem->leafDel(2);
   wait(0.3);
   EXPECT_EQ(messages(), before);
   EXPECT_EQ(source->publisher.status().pending, 4);
   server->start();
   EXPECT_TRUE(untilEqual());
   EXPECT_EQ(messages(), before + 4);
}

TEST_F(FleetPair, AServerThatHasLostEverythingGetsItAgain) {
   server->kill();
   std::filesystem::remove_all(server->directory() + "/store");
   server->start();
   EXPECT_TRUE(untilEqual());
}

TEST_F(FleetPair, WhileTheServerStandsStillMemoryAndBytesInFlightAreBounded) {
   server->pause();
   for (U32 i = 0; i != 200; ++i) {
      for (U32 leaf = 3; leaf != 300; ++leaf) {
         stem->leafIs(leaf, true, KivTest::Opaque(2.5))->ticksIs(static_cast<U16>(i));
      }
      loop.turn(-1, std::chrono::milliseconds(5));
      Publisher::Status const status = source->publisher.status();
      ASSERT_LE(status.inFlight, 1024);
      ASSERT_LE(status.pending, status.entities + 2);
   }
   ASSERT_TRUE(until([&] { return !sink->current("edge-7"); }));
   server->goOn();
   EXPECT_TRUE(untilEqual());
}

TEST_F(FleetPair, MessagesOfOthersDoNoHarmAndAreReported) {
   Connection other(to(*server));
   loop.add(other);
   ASSERT_TRUE(until([&] { return other.status().connected; }));
   std::pair<char const*, char const*> const messages[] = {
         {"ptp.edge-7.nothing", "hello"},
         {"ptp.edge-7.stem.leaf.99", R"({"session":"x","sequence":1,"root":"KivTest::Stem","value":{}})"},
         {"ptp.edge-7.stem.nonsense", R"({"session":"x","sequence":1,"root":"KivTest::Stem","value":{}})"},
         {"ptp.edge-7.stem.leaf.%zz", R"({"session":"x","sequence":1,"root":"KivTest::Stem","value":{}})"},
         {"ptp.edge-7.other", R"({"session":"x","sequence":1,"root":"No::Type","value":{}})"},
         {"ptp.edge-7.stem.core.temperature", "{}"},
         {"ptp.x", "{}"},
         {"ptp.edge-8.meta", R"({"session":5})"},
         {"ptp.%%.stem", "{}"},
   };
   for (auto const& [subject, data] : messages) {
      other.publish(subject, data);
   }
   EXPECT_TRUE(until([&] { return sink->mirror.status().malformed >= 8; }))
         << sink->mirror.status().malformed << " " << sink->mirror.status().lastMalformed;
   EXPECT_EQ(sink->mirror.find("edge-8"), nullptr);
   EXPECT_TRUE(untilEqual());
   // A publisher that starts cleans up below its switch.
   source.reset();
   source.emplace(loop, *server, "edge-7", stem);
   EXPECT_TRUE(untilEqual());
   EXPECT_EQ(source->publisher.status().deletions, 6);
   loop.remove(other);
}

TEST_F(FleetPair, AValueThatSomebodyElseHasOverwrittenIsNoticed) {
   Connection other(to(*server));
   loop.add(other);
   ASSERT_TRUE(until([&] { return other.status().connected; }));
   other.publish("ptp.edge-7.stem.leaf.1",
                 R"({"session":"x","sequence":1,"root":"KivTest::Stem","value":{"ticks":1}})");
   Switch const& its = *sink->mirror.find("edge-7");
   ASSERT_TRUE(until([&] { return !its.status().current; }));
   EXPECT_EQ(its.status().reason, "differs from what the publisher has sent");
   stem->leaf(1)->ticksIs(9);
   EXPECT_TRUE(untilEqual());
   loop.remove(other);
}

TEST_F(FleetPair, DeletionsLeaveTheStreamInTheEnd) {
   Connection connection(to(*server));
   Publisher::Options options = quick("edge-8");
   options.deletions = 100 * millisecond;
   Publisher publisher(connection, options);
   loop.add(connection);
   loop.add(publisher);
   auto const other = newStem("ptp/other");
   other->leafIs(1, true, KivTest::Opaque(1));
   publisher.rootAdd(other);
   publisher.sourceIs(true, Holt::wallNow(), "");
   ASSERT_TRUE(until([&] { return sink->current("edge-8"); }));
   publisher.rootDel(*other);
   ASSERT_TRUE(until([&] { return sink->mirror.find("edge-8")->roots().empty(); }));
   wait(0.5);
   std::string info;
   connection.ask("$JS.API.STREAM.INFO.PTP", R"({"subjects_filter":"ptp.edge-8.>"})",
                  5'000 * millisecond, [&](Arrived const* answer) {
                     info = answer != nullptr ? std::string(answer->data) : "none";
                  });
   ASSERT_TRUE(until([&] { return !info.empty(); }));
   EXPECT_THAT(info, testing::HasSubstr(R"("subjects":{"ptp.edge-8.meta":1})"));
   loop.remove(connection);
   loop.remove(publisher);
}

TEST_F(FleetTest, AMirrorOfAPatternHasTheSwitchesThatFit) {
   NatsServer server;
   auto const a = newStem("ptp/stem");
   auto const b = newStem("ptp/stem");
   a->u8Is(1);
   b->u8Is(2);
   Source first(loop, server, "edge-1", a);
   Source second(loop, server, "core 1", b);
   Sink edges(loop, server, "edge-*");
   Sink one(loop, server, "core 1");
   ASSERT_TRUE(until([&] { return edges.current("edge-1") && one.current("core 1"); }))
         << edges.about("edge-1") << one.about("core 1");
   EXPECT_EQ(edges.mirror.switches().size(), 1);
   EXPECT_EQ(one.mirror.switches().size(), 1);
   EXPECT_EQ(differences(one.root("core 1", "ptp/stem"), &*b), "");
}

TEST_F(FleetTest, HostileNamesAreMirrored) {
   NatsServer server;
   std::string const name = "a.b *>\xff\n";
   Sarn::Ptr<Kiv::NamedEntity> const root = Holt::newRoot("KivTest::Hedge", "ptp/meta");
   auto& hedge = static_cast<KivTest::Hedge&>(*root);
   for (char const* const key : {"", ".", "*", ">", "%", "a,b", "\"", "\\", " ", "\x01", "\xc3\xa4",
                                 "$SYS", "meta", "\xff", "]["}) {
      hedge.witheIs(key)->lengthIs(5);
   }
   Source source(loop, server, name.c_str(), root);
   Sink sink(loop, server);
   ASSERT_TRUE(until([&] { return sink.current(name.c_str()); })) << sink.about(name.c_str());
   EXPECT_EQ(differences(sink.root(name.c_str(), "ptp/meta"), &*root), "");
   EXPECT_EQ(sink.mirror.status().malformed, 0);
}

TEST_F(FleetTest, WrongCredentialsHaveAClearReason) {
   NatsServer server("authorization { user: ann, password: right }\n");
   Connection::Options options = to(server);
   options.user = "ann";
   options.password = "wrong";
   Connection connection(options);
   loop.add(connection);
   ASSERT_TRUE(until([&] { return connection.status().reason != "not connected yet"; }));
   EXPECT_THAT(connection.status().reason, testing::HasSubstr("uthorization"));
   EXPECT_THAT(connection.status().reason, testing::HasSubstr(server.url()));
   EXPECT_THAT(connection.status().reason, testing::Not(testing::HasSubstr("wrong")));
   loop.remove(connection);
   options.password = "right";
   Connection right(options);
   loop.add(right);
   EXPECT_TRUE(until([&] { return right.status().connected; })) << right.status().reason;
   loop.remove(right);
}

TEST_F(FleetTest, AServerWithoutJetStreamIsReported) {
   NatsServer server("jetstream: disabled\n");
   Source source(loop, server, "edge-7", newStem("ptp/stem"));
   ASSERT_TRUE(until([&] {
      return source.publisher.status().reason ==
             "the server has no JetStream, or this user may not use it";
   })) << source.publisher.status().reason;
}

TEST_F(FleetTest, TlsNeedsATrustedCertificate) {
   char name[] = "/tmp/fleetTls-XXXXXX";
   std::string const directory = ::mkdtemp(name);
   std::string const make =
         "cd " + directory +
         " && openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -out cert.pem -days 2 "
         "-subj /CN=localhost -addext subjectAltName=IP:127.0.0.1,DNS:localhost 2>/dev/null";
   if (std::system(make.c_str()) != 0) {
      GTEST_SKIP() << "openssl is not installed";
   }
   {
      NatsServer server("tls { cert_file: \"" + directory + "/cert.pem\", key_file: \"" +
                        directory + "/key.pem\" }\n");
      Connection::Options options = to(server);
      options.tlsCa = directory + "/cert.pem";
      Connection trusting(options);
      options.tlsCa.clear();
      options.tls = true;
      Connection other(options);
      loop.add(trusting);
      loop.add(other);
      EXPECT_TRUE(until([&] { return trusting.status().connected; })) << trusting.status().reason;
      EXPECT_TRUE(until([&] { return other.status().reason != "not connected yet"; }));
      EXPECT_FALSE(other.status().connected);
      EXPECT_THAT(other.status().reason, testing::HasSubstr("certificate"));
      loop.remove(trusting);
      loop.remove(other);
   }
   std::filesystem::remove_all(directory);
}

}  // namespace Fleet::Test

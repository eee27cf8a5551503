// Outages, restarts, foreign messages, and connections that are refused.
#include "Fleet/Pair.test.h"

namespace Fleet::Test {

TEST_F(FleetPair, ARestartedPublisherSendsDifferencesAndDeletionsOnly) {
   source.reset();
   stem->leaf(1)->ticksIs(4711);
   stem->leafDel(2);
   std::string const session = sink->mirror.find("edge-7")->status().session;
   source.emplace(loop, *server, "edge-7", stem);
   EXPECT_TRUE(untilEqual());
   // Its heartbeat follows the values.
   EXPECT_TRUE(until([&] { return sink->mirror.find("edge-7")->status().session != session; }));
   EXPECT_EQ(messages(), 3);  // leaf 1, and two deletions
   EXPECT_EQ(source->publisher.status().deletions, 2);
   EXPECT_EQ(sink->mirror.find("edge-7")->status().restarts, 1);
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
   ASSERT_TRUE(
         until([&] { return !sink->current("edge-7") && !source->publisher.status().publishing; }));
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
         {"ptp.edge-7.stem.leaf.99",
          R"({"session":"x","sequence":1,"root":"KivTest::Stem","value":{}})"},
         {"ptp.edge-7.stem.nonsense",
          R"({"session":"x","sequence":1,"root":"KivTest::Stem","value":{}})"},
         {"ptp.edge-7.stem.leaf.%zz",
          R"({"session":"x","sequence":1,"root":"KivTest::Stem","value":{}})"},
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

TEST_F(FleetTest, ThePermissionsThatTheManualNamesAreEnough) {
   NatsServer server(R"(authorization { users: [
      { user: writer, password: w, permissions: {
          publish: ["ptp.edge-7.>", "$JS.API.>"], subscribe: ["_INBOX.>"] } }
      { user: reader, password: r, permissions: {
          publish: ["$JS.API.STREAM.INFO.PTP", "$JS.API.CONSUMER.CREATE.PTP",
                    "$JS.API.CONSUMER.DELETE.PTP.>", "$JS.FC.>"], subscribe: ["_INBOX.>"] } } ] }
)");
   Connection::Options options = to(server);
   options.user = "writer";
   options.password = "w";
   Connection writing(options);
   options.user = "reader";
   options.password = "r";
   Connection reading(options);
   auto const stem = newStem("ptp/stem");
   fill(*stem);
   Publisher publisher(writing, quick("edge-7"));
   publisher.rootAdd(stem);
   publisher.sourceIs(true, Holt::wallNow(), "");
   Publisher foreign(reading, quick("edge-7"));
   Mirror mirror(reading, {.switches = "edge-7"});
   loop.add(writing);
   loop.add(reading);
   loop.add(publisher);
   loop.add(foreign);
   loop.add(mirror);
   EXPECT_TRUE(until([&] {
      Switch const* const its = mirror.find("edge-7");
      return its != nullptr && its->status().current;
   })) << mirror.status().reason;
   // Who may only read is told so when it publishes.
   EXPECT_TRUE(until([&] {
      return foreign.status().reason.find("ermissions Violation") != std::string::npos;
   })) << foreign.status().reason;
   for (Holt::Source* const each :
        std::initializer_list<Holt::Source*>{&writing, &reading, &publisher, &foreign, &mirror}) {
      loop.remove(*each);
   }
}

TEST_F(FleetTest, AServerThatIsNotThereIsNamed) {
   Connection connection({.urls = {"nats://127.0.0.1:1"}});
   loop.add(connection);
   ASSERT_TRUE(until([&] { return connection.status().reason != "not connected yet"; }));
   EXPECT_EQ(connection.status().reason, "nats://127.0.0.1:1: No server available for connection");
   loop.remove(connection);
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

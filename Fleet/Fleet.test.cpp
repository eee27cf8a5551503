// What a mirror has of a source.
#include "Fleet/Pair.test.h"

namespace Fleet::Test {

TEST_F(FleetTest, AMirrorEqualsTheSource) {
   NatsServer server;
   auto const stem = newStem("ptp/stem");
   fill(*stem);
   Source source(loop, server, "edge-7", stem);
   Sink sink(loop, server);
   ASSERT_TRUE(until([&] { return sink.current("edge-7"); })) << sink.about("edge-7");
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

}  // namespace Fleet::Test

// Readers that are up to date read the hub's ring; what happens where they join and leave it.
#include "KivTest/Stream.test.h"
#include "KivTest/TestTypes/Hedge.h"

namespace {

using namespace StreamTesting;

/// Several mirrors of one source, each with a session of its own.
class Following : public testing::Test {
protected:
   struct Reader {
      explicit Reader(Hub& hub) : session(hub) {}
      Session session;
      End mirror;
      Sarn::Ptr<Stem> copy = KivTest::stemFactory("test");
   };

   explicit Following(Limits const& limits = {}) : hub(limits) { hub.rootIs(root); }
   ~Following() override { readers.clear(); }

   Reader& add(MountMode mode = MountMode::reader) {
      Reader& made = *readers.emplace_back(std::make_unique<Reader>(hub));
      made.mirror.session->mountIs(made.copy, mode);
      carry(made);
      return made;
   }
   /// Takes what waits for one reader.
   static Bytes take(Reader& reader) {
      Bytes bytes;
      while (reader.session.output().size != 0) {
         auto const piece = reader.session.output();
         bytes.insert(bytes.end(), piece.begin, piece.begin + piece.size);
         reader.session.sent(piece.size);
      }
      return bytes;
   }
   /// Carries what waits for one reader, and returns it as one line of text.
   static std::string sent(Reader& reader) {
      Bytes const bytes = take(reader);
      reader.mirror.receive(bytes);
      return joined(lines(bytes));
   }
   static void carry(Reader& reader) {
      for (bool moved = true; moved;) {
         Bytes const back = reader.mirror.take();
         reader.session.received(back.data(), back.size());
         Bytes const forth = take(reader);
         reader.mirror.receive(forth);
         moved = !back.empty() || !forth.empty();
      }
   }
   void expectEqual(Reader& reader) {
      carry(reader);
      EXPECT_EQ(KivTest::firstDifference(*root, *reader.copy), "");
      EXPECT_EQ(reader.session.closeReason(), "");
   }

   Hub hub;
   Sarn::Ptr<Stem> root = KivTest::stemFactory("test");
   std::vector<std::unique_ptr<Reader>> readers;
};

TEST_F(Following, AllReadersGetTheSameBytesAndHoldNone) {
   Reader& one = add();
   Reader& two = add();
   hub.expire();
   hub.expire();
   std::size_t const before = hub.heldBytes();
   root->u8Is(7);
   root->textIs("seven");
   root->byNumberIs(7, "VII");
   root->byNumberDel(7);
   root->leafIs(7, true, {});
   root->leafDel(7);
   EXPECT_EQ(one.session.heldBytes() + two.session.heldBytes(), 0u);
   EXPECT_EQ(hub.heldBytes(), before) << "the ring's first chunk is free of charge";
   Bytes const first = take(one);
   EXPECT_EQ(lines(first).size(), 6u);
   EXPECT_EQ(take(two), first);
}

TEST_F(Following, AnAnswerFollowsTheChangesBeforeIt) {
   Reader& one = add();
   root->u8Is(7);
   one.session.syncIs(5);
   root->u8Is(8);
   EXPECT_EQ(sent(one), "set 01000000.259 07; sync 00000000.0 00000005; set 01000000.259 08");
}

TEST_F(Following, AReaderThatIsOvertakenGetsTheLatestValuesAndOthersGetAll) {
   Limits limits;
   limits.outputBuffer = 1200;
   Hub narrow(limits);
   Sarn::Ptr<Stem> const tree = KivTest::stemFactory("narrow");
   narrow.rootIs(tree);
   Session slow(narrow);
   Session fast(narrow);
   std::vector<std::unique_ptr<End>> ends;
   for (Session* const session : {&slow, &fast}) {
      End& end = *ends.emplace_back(std::make_unique<End>());
      end.session->mountIs(KivTest::stemFactory("narrow"));
      for (bool moved = true; moved;) {
         Bytes const back = end.take();
         session->received(back.data(), back.size());
         moved = !back.empty();
         while (session->output().size != 0) {
            auto const piece = session->output();
            end.receive(Bytes(piece.begin, piece.begin + piece.size));
            session->sent(piece.size);
            moved = true;
         }
      }
   }
   U64 const before = fast.stats().messagesOut;
   for (U32 i = 1; i <= 1000; ++i) {
      tree->u32Is(i);
      while (fast.output().size != 0) {
         fast.sent(fast.output().size);
      }
   }
   EXPECT_EQ(fast.stats().messagesOut - before, 1000u);
   EXPECT_EQ(fast.stats().changesDeferred, 0u);
   EXPECT_EQ(slow.stats().changesDeferred, 1000u - 1200 / 14);
   EXPECT_FALSE(slow.upToDate());
   EXPECT_EQ(slow.status().waiting, 1200u / 14 * 14);
   std::vector<std::string> all;
   while (slow.output().size != 0) {
      auto const piece = slow.output();
      for (std::string const& each : lines(Bytes(piece.begin, piece.begin + piece.size))) {
         all.push_back(each);
      }
      slow.sent(piece.size);
   }
   ASSERT_EQ(all.size(), 1200u / 14 + 1);
   EXPECT_EQ(all.back(), "set 01000000.263 000003e8");
}

TEST_F(Following, AWriterGetsItsMessagesBesideTheReaders) {
   Reader& writer = add(MountMode::writer);
   Reader& reader = add();
   root->u8Is(7);
   EXPECT_EQ(sent(writer), "set 01000000.259 07");
   EXPECT_EQ(sent(reader), "set 01000000.259 07");
   writer.copy->u8Is(9);
   Bytes const forth = writer.mirror.take();
   writer.session.received(forth.data(), forth.size());
   EXPECT_EQ(root->u8(), 9);
   EXPECT_EQ(sent(reader), "set 01000000.259 09");
   expectEqual(writer);
   expectEqual(reader);
}

TEST_F(Following, ChildrenReachAllReaders) {
   Reader& one = add();
   Reader& two = add();
   root->coreIs();
   root->core()->temperatureIs(300);
   root->leafIs(3, true, {})->twigIs(KivTest::Level(1))->weightIs(2.5);
   expectEqual(one);
   expectEqual(two);
   root->coreDel();
   root->leafDelAll();
   expectEqual(one);
   expectEqual(two);
}

TEST_F(Following, AQueueThatIsRenumberedIsSentAnewToAll) {
   Reader& one = add();
   Reader& two = add();
   root->samplesEnq(1);
   root->samplesEnq(2);
   root->samplesDelAll();
   root->samplesEnq(3);
   expectEqual(one);
   expectEqual(two);
}

TEST_F(Following, ALongValueTravelsInPartsToEachReader) {
   Reader& one = add();
   Reader& two = add();
   root->u8Is(1);
   root->textIs(std::string(300'000, 'x'));
   root->u8Is(2);
   expectEqual(one);
   expectEqual(two);
}

TEST_F(Following, AReaderOfOneRootIsNotSentAnother) {
   Sarn::Ptr<KivTest::Hedge> const hedge = KivTest::hedgeFactory("hedge");
   hub.rootIs(hedge);
   Reader& one = add();
   Reader& both = add();
   Sarn::Ptr<KivTest::Hedge> const copy = KivTest::hedgeFactory("hedge");
   both.mirror.session->mountIs(copy);
   carry(both);
   root->u8Is(1);
   hedge->heightIs(5, 2.5F);
   root->u8Is(2);
   EXPECT_EQ(lines(take(one)).size(), 2u);
   EXPECT_EQ(lines(take(both)).size(), 3u);
}

TEST_F(Following, ARootThatIsWithdrawnIsReadUpToThere) {
   Reader& one = add();
   root->u8Is(7);
   hub.rootDel("KivTest::Stem", "test");
   EXPECT_EQ(sent(one), "set 01000000.259 07; rootGone 00000000.0 00000001");
   root->u8Is(8);
   hub.rootIs(root);
   root->u8Is(9);
   EXPECT_EQ(sent(one), "");
}

TEST_F(Following, AReaderThatEndsLeavesTheOthersAlone) {
   Reader& one = add();
   add();
   Reader& three = add();
   root->u8Is(7);
   readers[1]->session.close("enough");
   root->u8Is(8);
   readers.erase(readers.begin() + 1);
   root->u8Is(9);
   EXPECT_EQ(lines(take(one)).size(), 3u);
   EXPECT_EQ(take(three).size(), 3u * 11);
}

TEST_F(Following, ChangesInsideAnObserverReachReadersInTheirOrder) {
   class Follower final : public Kiv::Observer {
   public:
      explicit Follower(Stem& r) : root_(r) { root_.observerAdd(*this); }
      ~Follower() { root_.observerDel(*this); }
      void onChange(Kiv::Change const& change) override {
         if (change.attributeId == 259) {
            root_.u16Is(root_.u8());
            root_.leafIs(root_.u8(), true, {});
         }
      }

   private:
      Stem& root_;
   } const follower(*root);
   Reader& one = add();
   Reader& two = add();
   root->u8Is(7);
   std::vector<std::string> const all = lines(take(one));
   ASSERT_EQ(all.size(), 3u);
   EXPECT_EQ(all[0], "set 01000000.259 07");
   EXPECT_EQ(all[1].substr(0, 16), "set 01000000.261");
   EXPECT_EQ(all[2].substr(0, 6), "create");
   EXPECT_EQ(lines(take(two)), all);
}

/// The same with one answer between the changes at every place.
TEST_F(Following, AnAnswerAnywhereChangesNothingElse) {
   Reader& one = add();
   Reader& other = add();
   for (U8 at = 0; at != 20; ++at) {
      for (U8 i = 0; i != 20; ++i) {
         if (i == at) {
            one.session.syncIs(at);
         }
         root->u8Is(static_cast<U8>(i + 1));
         root->byNumberIs(i, std::to_string(at));
      }
      std::vector<std::string> all = lines(take(one));
      ASSERT_EQ(all.size(), 41u);
      EXPECT_EQ(all[2 * at].substr(0, 4), "sync");
      all.erase(all.begin() + 2 * at);
      EXPECT_EQ(all, lines(take(other)));
   }
}

}  // namespace

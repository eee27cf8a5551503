// A mirror is compared with its source by digests, and what differs is sent again.
#include "Kiv/Log/Comparison.h"

#include "KivTest/SimulationChange.h"
#include "KivTest/Stream.test.h"

using namespace StreamTesting;
using Kiv::NboAttrLog::Compared;
using KivTest::Level;

namespace {

/// An end whose comparisons are noted as "7 entities, equal" or
/// "7 entities, 2 differ: test; test.leaf[3], 2 repaired".
struct ComparingEnd : End {
   using End::End;
   void onCompared(Session&, Mount&, Compared const& result) override {
      last = result;
      std::string text = std::to_string(result.entities) + " entities";
      if (result.differing != 0) {
         text += ", " + std::to_string(result.differing) + " differ: " + joined(result.paths) +
                 ", " + std::to_string(result.repaired) + " repaired";
      }
      text += result.leftOut != 0 ? ", " + std::to_string(result.leftOut) + " left out" : "";
      text += result.unsettled != 0 ? ", " + std::to_string(result.unsettled) + " unsettled" : "";
      text += result.equal() ? ", equal" : "";
      events.push_back(text + (result.finished ? "" : ", not finished"));
   }
   Compared last;
};

template <class RootType>
class ComparisonOf : public testing::Test {
protected:
   using Factory = Sarn::Ptr<RootType> (*)(std::string_view name);
   explicit ComparisonOf(Factory make, Limits const& limits = {})
         : root(make("test")), copy(make("test")), source(limits), mirror(limits) {
      source.hub.rootIs(root);
   }
   ~ComparisonOf() override {
      mirror.session.reset();
      source.session.reset();
   }

   void mount(MountMode mode = MountMode::reader) {
      mounted = &mirror.session->mountIs(copy, mode);
      exchange(source, mirror);
      mirror.told();
   }
   bool ask(bool repair = true) { return mirror.session->compareAsk(*mounted, repair); }
   std::string compared(bool repair = true) {
      EXPECT_TRUE(ask(repair));
      exchange(source, mirror);
      return mirror.told();
   }
   std::string difference() const { return KivTest::firstDifference(*root, *copy); }

   Sarn::Ptr<RootType> root;
   Sarn::Ptr<RootType> copy;
   ComparingEnd source;
   ComparingEnd mirror;
   Mount* mounted = nullptr;
};

Limits bounded(std::size_t outputBuffer, U64 digestWork = 4096) {
   Limits limits = narrow(outputBuffer);
   limits.digestWork = digestWork;
   return limits;
}

class StreamComparison : public ComparisonOf<Stem> {
protected:
   explicit StreamComparison(Limits const& limits = {})
         : ComparisonOf(KivTest::stemFactory, limits) {
      for (U32 i = 0; i != 5; ++i) {
         root->leafIs(i, true, KivTest::Opaque(i))->twigIs(Level::high)->weightIs(i);
         root->byNumberIs(i, "x");
      }
      root->badgeIs("b")->brightnessIs(9);
   }
};

TEST_F(StreamComparison, OfAnEqualMirrorTakesOneDigest) {
   mount();
   ASSERT_TRUE(ask());
   EXPECT_FALSE(ask()) << "one at a time";
   Bytes const question = mirror.take();
   EXPECT_EQ(joined(lines(question)), "digestAsk 00000000.0 010001000000");
   source.receive(question);
   Bytes const answer = source.take();
   EXPECT_EQ(joined(lines(answer)),
             "digests 00000000.0 0000000001" + Kiv::treeDigest(*root).text());
   mirror.receive(answer);
   EXPECT_EQ(mirror.told(), "13 entities, equal");
   EXPECT_EQ(joined(lines(mirror.take())), "");
   EXPECT_TRUE(ask());
}

TEST_F(StreamComparison, NeedsACompleteMount) {
   Mount& made = mirror.session->mountIs(copy);
   EXPECT_FALSE(mirror.session->compareAsk(made));
   exchange(source, mirror);
   EXPECT_TRUE(mirror.session->compareAsk(made));
   mirror.session->close("enough");
   EXPECT_FALSE(mirror.session->compareAsk(made));
}

TEST_F(StreamComparison, RepairsExactlyTheEntitiesThatDiffer) {
   mount();
   copy->u8Is(1);
   copy->leaf(3)->ticksIs(77);
   copy->leaf(4)->twig(Level::high)->weightIs(5);
   ASSERT_TRUE(ask());
   std::string sent;
   for (bool moved = true; moved;) {
      Bytes const forth = source.take();
      Bytes const back = mirror.take();
      moved = !forth.empty() || !back.empty();
      mirror.receive(forth);
      source.receive(back);
      sent += joined(lines(back));
   }
   EXPECT_EQ(mirror.told(),
             "13 entities, 3 differ: test; test.leaf[3]; test.leaf[4].twig[high], "
             "3 repaired, equal");
   EXPECT_NE(sent.find("repair 00000000.0"), std::string::npos) << sent;
   EXPECT_EQ(difference(), "");
   EXPECT_EQ(compared(), "13 entities, equal");
}

TEST_F(StreamComparison, OnlyReportsIfNotToRepair) {
   mount();
   copy->leaf(3)->ticksIs(77);
   EXPECT_EQ(compared(false), "13 entities, 1 differ: test.leaf[3], 0 repaired");
   EXPECT_EQ(copy->leaf(3)->ticks(), 77);
   EXPECT_FALSE(mirror.last.equal());
}

TEST_F(StreamComparison, RestoresChildrenThatAreMissingWithAllThatIsInThem) {
   root->coreIs()->labelIs("hot");
   mount();
   copy->leafDel(3);
   copy->badgeDel();
   copy->coreDel();
   EXPECT_EQ(
         compared(),
         "10 entities, 3 differ: test; test.leaf[3]; test.leaf[3].twig[high], 3 repaired, equal");
   EXPECT_EQ(difference(), "");
   root->leaf(3)->twig(Level::high)->weightIs(8);
   root->core()->labelIs("cold");
   root->badge()->brightnessIs(1);
   exchange(source, mirror);
   EXPECT_EQ(difference(), "") << "what was restored follows";
}

TEST_F(StreamComparison, RemovesChildrenAndElementsThatAreTooMany) {
   mount();
   copy->leafIs(99, true, KivTest::Opaque(1));
   copy->coreIs();
   copy->leaf(1)->twigIs(Level::low);
   copy->byNumberIs(99, "y");
   copy->samplesEnq(1);
   EXPECT_EQ(compared(), "13 entities, 2 differ: test; test.leaf[1], 2 repaired, equal");
   EXPECT_EQ(difference(), "");
}

TEST_F(StreamComparison, ReplacesChildrenThatWereMadeWithOtherArguments) {
   mount();
   copy->leafDel(2);
   copy->leafIs(2, true, KivTest::Opaque(99))->ticksIs(5);
   copy->badgeIs("another");
   compared();
   EXPECT_TRUE(mirror.last.equal());
   EXPECT_EQ(difference(), "");
}

TEST_F(StreamComparison, FindsAChildThatWasMadeAgainAndHearsNothingOfItsSource) {
   mount();
   copy->badgeDel();
   copy->badgeIs("b")->brightnessIs(9);
   EXPECT_EQ(difference(), "");
   EXPECT_EQ(compared(), "12 entities, 1 differ: test, 1 repaired, equal");
   root->badge()->brightnessIs(10);
   exchange(source, mirror);
   EXPECT_EQ(difference(), "");
}

TEST_F(StreamComparison, FindsAChangeThatWasLostOnTheWay) {
   mount();
   root->leaf(2)->ticksIs(9);
   root->samplesEnq(4);
   source.take();
   EXPECT_EQ(compared(), "13 entities, 2 differ: test; test.leaf[2], 2 repaired, equal");
   EXPECT_EQ(difference(), "");
}

TEST_F(StreamComparison, IsNotMistakenWhileTheSourceChanges) {
   mount();
   KivTest::Chance chance(5);
   for (int round = 0; round != 300; ++round) {
      ask();
      for (int i = 0; i != 3; ++i) {
         KivTest::changeAtRandom(*root, chance);
      }
      mirror.receive(source.take());
      KivTest::changeAtRandom(*root, chance);
      source.receive(mirror.take());
   }
   exchange(source, mirror);
   for (std::string const& each : mirror.events) {
      EXPECT_NE(each.find(", equal"), std::string::npos) << each;
   }
   EXPECT_GT(mirror.events.size(), 100u);
}

TEST_F(StreamComparison, OfAWriterWaitsForItsChanges) {
   mount(MountMode::writer);
   copy->u8Is(3);
   copy->leafIs(50, true, KivTest::Opaque(1))->ticksIs(4);
   ASSERT_TRUE(ask());
   copy->leaf(50)->twigIs(Level::low)->weightIs(2);
   copy->leafDel(1);
   exchange(source, mirror);
   EXPECT_EQ(mirror.told(), "13 entities, equal");
   EXPECT_EQ(root->u8(), 3);
   EXPECT_EQ(difference(), "");
}

TEST_F(StreamComparison, OfAWriterSaysSoIfAChangeNeverArrives) {
   mount(MountMode::writer);
   copy->leafIs(50, true, KivTest::Opaque(1));
   exchange(source, mirror);
   copy->leaf(50)->ticksIs(4);
   mirror.take();
   ASSERT_TRUE(ask());
   exchange(source, mirror);
   // A change that the source never counts stays on its way.
   EXPECT_EQ(mirror.told(), "13 entities, 1 unsettled");
}

TEST_F(StreamComparison, EndsUnfinishedIfTheRootIsWithdrawn) {
   mount();
   copy->u8Is(1);
   ASSERT_TRUE(ask());
   source.receive(mirror.take());
   mirror.receive(source.take());
   source.hub.rootDel(Stem::kivTypeImpl.name, "test");
   exchange(source, mirror);
   EXPECT_EQ(mirror.told(), "gone; 0 entities, not finished");
}

TEST_F(StreamComparison, OfAPeerThatMirrorsNothingFindsNothing) {
   exchange(source, mirror);
   source.receive(message(Opcode::digestAsk, 0, 0, concat({1, 0}, u32(0x01000000))));
   EXPECT_EQ(source.sent(), "digests 00000000.0 0000000000" + std::string(32, '0'));
}

class FaultOfComparison : public StreamComparison {
protected:
   FaultOfComparison() {
      mount();
      root->textIs("pending");
   }
   std::string faultOf(Bytes const& body, Opcode opcode = Opcode::digestAsk) {
      source.receive(message(opcode, 0, 0, body));
      std::string const& reason = source.session->closeReason();
      return reason.substr(reason.find(": ") + 2);
   }
   Bytes const one = concat({0}, u32(0x01000000));
};

TEST_F(FaultOfComparison, IsAnUnknownDepth) {
   EXPECT_EQ(faultOf(concat({2}, one)), "there is no digest of depth 2 at offset 0");
}

TEST_F(FaultOfComparison, IsAQuestionWithoutEntities) {
   EXPECT_EQ(faultOf({0}), "the message names 0 entities, not 1 to 256 at offset 1");
}

TEST_F(FaultOfComparison, IsAQuestionForTwoTrees) {
   EXPECT_EQ(faultOf(concat({1}, one, one)),
             "the message names 2 entities, not 1 to 1 at offset 1");
}

TEST_F(FaultOfComparison, IsAQuestionForTooMany) {
   Bytes body{0};
   for (int i = 0; i != 257; ++i) {
      body = concat(body, one);
   }
   EXPECT_EQ(faultOf(body), "the message names 257 entities, not 1 to 256 at offset 1");
}

TEST_F(FaultOfComparison, IsHalfAnEntity) {
   EXPECT_EQ(faultOf(concat({0}, one, Bytes{0, 1})), "2 bytes follow the value at offset 6");
}

TEST_F(FaultOfComparison, IsASecondQuestionBeforeTheAnswer) {
   Bytes const body = concat({0}, one);
   source.receive(
         concat(message(Opcode::digestAsk, 0, 0, body), message(Opcode::digestAsk, 0, 0, body)));
   EXPECT_EQ(source.session->closeReason(),
             "message 26 for entity 0, attribute 0: the last question for digests has not been "
             "answered at offset 0");
}

TEST_F(FaultOfComparison, IsARepairThatFollowsNoAnswer) {
   EXPECT_EQ(faultOf(one, Opcode::repair), "a repair does not follow an answer at offset 0");
}

TEST_F(FaultOfComparison, IsARepairOfMoreThanWasAnswered) {
   source.receive(message(Opcode::digestAsk, 0, 0, concat({0}, one)));
   EXPECT_EQ(faultOf(concat(one, one), Opcode::repair),
             "the message names 2 entities, not 1 to 1 at offset 0");
}

TEST_F(FaultOfComparison, IsASecondRepair) {
   source.receive(message(Opcode::digestAsk, 0, 0, concat({0}, one)));
   source.receive(message(Opcode::repair, 0, 0, one));
   EXPECT_FALSE(source.session->closed());
   EXPECT_EQ(faultOf(one, Opcode::repair), "a repair does not follow an answer at offset 0");
}

TEST_F(FaultOfComparison, IsAnAnswerThatNobodyAskedFor) {
   EXPECT_EQ(faultOf(u32(0), Opcode::digests), "nobody has asked for digests at offset 0");
}

TEST_F(FaultOfComparison, IsAnAnswerOfAnotherSize) {
   mirror.receive(source.take());
   ASSERT_TRUE(ask());
   Bytes const entry(17, 1);
   mirror.receive(message(Opcode::digests, 0, 0, concat(u32(0), entry, entry)));
   EXPECT_EQ(
         mirror.session->closeReason(),
         "message 27 for entity 0, attribute 0: the message has the digests of 2 entities, not 1 "
         "to 1 at offset 4");
}

TEST_F(FaultOfComparison, IsAnUnknownState) {
   mirror.receive(source.take());
   ASSERT_TRUE(ask());
   mirror.receive(message(Opcode::digests, 0, 0, concat(u32(0), Bytes(17, 16))));
   EXPECT_EQ(mirror.session->closeReason(),
             "message 27 for entity 0, attribute 0: there is no state 16 of a digest at offset 4");
}

class SmallComparison : public StreamComparison {
protected:
   SmallComparison() : StreamComparison(bounded(200, 3)) {}
};

TEST_F(SmallComparison, AsksOnlyForWhatOneAnswerMayCost) {
   mount();
   copy->leaf(3)->ticksIs(77);
   ASSERT_TRUE(ask());
   std::size_t answers = 0;
   std::size_t longest = 0;
   for (bool moved = true; moved;) {
      Bytes const forth = source.take();
      Bytes const back = mirror.take();
      moved = !forth.empty() || !back.empty();
      for (std::string const& each : lines(forth)) {
         bool const isAnswer = each.rfind("digests", 0) == 0;
         answers += isAnswer ? 1 : 0;
         longest = std::max(longest, isAnswer ? each.size() : 0);
      }
      mirror.receive(forth);
      source.receive(back);
   }
   EXPECT_EQ(mirror.told(), "13 entities, 1 differ: test.leaf[3], 1 repaired, equal");
   EXPECT_EQ(difference(), "");
   EXPECT_GE(answers, 7u);
   EXPECT_LE(longest, std::string("digests 00000000.0 00000000").size() + 3 * 34);
}

class LongComparison : public StreamComparison {
protected:
   static Limits limits() {
      Limits limits = narrow(2000);
      limits.longestMessage = 1000;
      limits.longestValue = 3000;
      return limits;
   }
   LongComparison() : StreamComparison(limits()) { mount(); }
};

TEST_F(LongComparison, ReportsAValueThatIsLeftOutAndDoesNotSendItForEver) {
   root->textIs(std::string(2990, 'x'));  // in parts
   EXPECT_EQ(compared(), "13 entities, equal");
   root->textIs(std::string(5000, 'y'));
   exchange(source, mirror);
   source.told();
   for (int i = 0; i != 2; ++i) {
      EXPECT_EQ(compared(), "13 entities, 1 left out");
      EXPECT_EQ(source.told(), "") << "nothing is sent again";
   }
   root->textIs("short");
   EXPECT_EQ(compared(), "13 entities, equal");
}

TEST_F(LongComparison, KeepsAValueOfAWriterThatIsTooLongForTheSource) {
   mirror.connect();
   source.connect();
   mount(MountMode::writer);
   copy->textIs(std::string(5000, 'y'));
   exchange(source, mirror);
   mirror.told();
   EXPECT_EQ(compared(), "13 entities, 1 left out");
   EXPECT_EQ(copy->text().size(), 5000u);
}

class LongHedge : public ComparisonOf<KivTest::Hedge> {
protected:
   static Limits limits() {
      Limits limits = narrow(2000);
      limits.longestMessage = 1000;
      limits.longestValue = 3000;
      return limits;
   }
   LongHedge() : ComparisonOf(KivTest::hedgeFactory, limits()) { mount(); }
};

TEST_F(LongHedge, ReportsAChildThatIsLeftOut) {
   root->witheIs(std::string(5000, 'k'))->lengthIs(3);
   root->witheIs("short")->lengthIs(4);
   exchange(source, mirror);
   EXPECT_EQ(compared(), "2 entities, 1 left out");
   root->witheDel(std::string(5000, 'k'));
   EXPECT_EQ(compared(), "2 entities, equal");
}

/// Mirrors of random trees that are changed behind the log's back, with buffers of all sizes.
template <class RootType>
class DamageOf : public ComparisonOf<RootType> {
protected:
   explicit DamageOf(typename ComparisonOf<RootType>::Factory make)
         : ComparisonOf<RootType>(make, bounded(900, 20)) {
      this->mount();
   }

   void damageAndRepair(U64 seed) {
      KivTest::Chance chance(seed);
      for (int round = 0; round != 6; ++round) {
         for (std::size_t i = chance.below(60); i != 0; --i) {
            KivTest::changeAtRandom(*this->root, chance);
         }
         exchange(this->source, this->mirror);
         ASSERT_EQ(this->difference(), "") << "seed " << seed;
         for (std::size_t i = 1 + chance.below(9); i != 0; --i) {
            KivTest::changeAtRandom(*this->copy, chance);
         }
         std::string const before = this->difference();
         bool const renumbered = before.find(": from ") != std::string::npos;
         this->mirror.told();
         std::string const told = this->compared();
         EXPECT_TRUE(this->mirror.last.equal()) << told << ", seed " << seed;
         if (!renumbered) {
            EXPECT_EQ(this->difference(), "") << told << ", before " << before << ", seed " << seed;
            // A child that was made again may look the same, and differ nevertheless.
            EXPECT_TRUE(this->mirror.last.differing != 0 || before.empty())
                  << told << ", before " << before << ", seed " << seed;
         }
         EXPECT_EQ(Kiv::treeDigest(*this->root), Kiv::treeDigest(*this->copy));
         ASSERT_FALSE(this->mirror.session->closed()) << this->mirror.session->closeReason();
         ASSERT_FALSE(this->source.session->closed()) << this->source.session->closeReason();
      }
   }
   /// A new pair of ends and trees for each seed would hide what is left of the one before.
   void explore(U64 seeds) {
      for (U64 seed = 1; seed <= seeds && !this->HasFailure(); ++seed) {
         damageAndRepair(seed);
      }
   }
};

class DamagedStem : public DamageOf<Stem> {
protected:
   DamagedStem() : DamageOf(KivTest::stemFactory) {}
};

class DamagedHedge : public DamageOf<KivTest::Hedge> {
protected:
   DamagedHedge() : DamageOf(KivTest::hedgeFactory) {}
};

TEST_F(DamagedStem, IsRepaired) {
   explore(200);
}

TEST_F(DamagedHedge, IsRepaired) {
   explore(200);
}

}  // namespace

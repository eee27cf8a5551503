// Transactions: changes that mirrors see together, and that a source applies together or not at
// all.
#include "Kiv/NboAttrLogTransaction.h"

#include "KivTest/Stream.test.h"

using namespace StreamTesting;
using Kiv::NboAttrLog::Transaction;
using KivTest::Level;
using KivTest::Opaque;

namespace {

/// A source whose owner makes transactions.
class TransactionOfHub : public StreamTest {
protected:
   explicit TransactionOfHub(Limits const& limits = {}) : StreamTest(limits) {
      mount();
      mirror.told();
   }
   /// Two values that only transactions change.
   void pairIs(U8 v) {
      root->u8Is(v);
      root->leaf(1) != nullptr ? root->leaf(1)->ticksIs(v) : root->u16Is(v);
   }
};

TEST_F(TransactionOfHub, SendsAllChangesInOneBracketAtItsCommit) {
   Transaction together(source.hub);
   root->u8Is(1);
   root->flagIs(true);
   EXPECT_EQ(source.sent(), "") << "before the commit";
   EXPECT_EQ(root->u8(), 1) << "here at once";
   together.commit();
   EXPECT_EQ(source.sent(),
             "begin 00000000.0 00000000; set 01000000.258 01; set 01000000.259 01; "
             "commit 00000000.0 0000000000");
   together.commit();
   EXPECT_EQ(source.sent(), "") << "it has ended";
}

TEST_F(TransactionOfHub, TheMirrorShowsNothingOfItBeforeItsLastByte) {
   {
      Transaction const together(source.hub);
      root->u8Is(1);
      root->leafIs(3, true, Opaque(1))->ticksIs(4);
      root->byNumberIs(5, "five");
   }
   Bytes bytes = source.take();
   Bytes const last{bytes.back()};
   bytes.pop_back();
   receiveBytewise(mirror, bytes, [&] {
      ASSERT_EQ(copy->u8(), 200);
      ASSERT_EQ(copy->leafCount(), 0u);
      ASSERT_EQ(copy->byNumberCount(), 0u);
   });
   mirror.receive(last);
   expectEqual();
   EXPECT_EQ(copy->leaf(3)->ticks(), 4);
}

TEST_F(TransactionOfHub, ManyInOnePieceAndWhatFollowsAreAppliedInOrder) {
   for (U8 i = 1; i != 4; ++i) {
      Transaction const together(source.hub);
      root->u8Is(i);
      root->u16Is(i);
   }
   root->textIs("after");
   mirror.receive(source.take());
   expectEqual();
   EXPECT_EQ(copy->text(), "after");
}

TEST_F(TransactionOfHub, AMirrorWhoseRootItDoesNotChangeGetsNothing) {
   { Transaction const together(source.hub); }
   EXPECT_EQ(source.sent(), "");
   {
      Transaction const together(source.hub);
      root->leafIs(3, true, Opaque(1));
      root->leafDel(3);
      root->u8Is(root->u8());
   }
   carry();
   expectEqual();
}

TEST_F(TransactionOfHub, NestedOnesEndWithTheOutermost) {
   Transaction outer(source.hub);
   {
      Transaction const inner(source.hub);
      root->u8Is(1);
   }
   EXPECT_EQ(source.sent(), "");
   outer.commit();
   EXPECT_NE(source.sent(), "");
}

TEST_F(TransactionOfHub, ASessionThatBeginsMeanwhileWaitsForItsEnd) {
   Transaction together(source.hub);
   root->u8Is(1);
   Session late(source.hub);
   EXPECT_NE(late.output().size, 0u) << "the greeting";
   together.commit();
   root->u8Is(2);
   carry();
   expectEqual();
}

TEST_F(TransactionOfHub, AReplayOfAnotherRootIsNoPartOfIt) {
   Sarn::Ptr<Stem> const other = KivTest::stemFactory("other");
   Sarn::Ptr<Stem> const otherCopy = KivTest::stemFactory("other");
   source.hub.rootIs(other);
   mirror.session->mountIs(otherCopy);
   source.receive(mirror.take());
   {
      Transaction const together(source.hub);
      root->u8Is(1);
      other->u8Is(1);
   }
   carry();
   expectEqual();
   EXPECT_EQ(KivTest::firstDifference(*other, *otherCopy), "");
   EXPECT_FALSE(mirror.session->closed());
}

TEST_F(TransactionOfHub, AnObserverThatThrowsDoesNotDivideIt) {
   struct Thrower final : Kiv::Observer {
      void onChange(Kiv::Change const&) override { throw std::runtime_error("observer"); }
   } thrower;
   copy->observerAdd(thrower, Kiv::Scope::subtree);
   {
      Transaction const together(source.hub);
      root->u8Is(1);
      root->u16Is(1);
      root->textIs("t");
   }
   EXPECT_THROW(mirror.receive(source.take()), std::runtime_error);
   copy->observerDel(thrower, Kiv::Scope::subtree);
   expectEqual();
   root->u8Is(2);
   carry();
   expectEqual();
}

/// A reader that gets little at a time.
class TransactionForASlowReader : public TransactionOfHub {
protected:
   static Limits tight(std::size_t batch) {
      Limits limits = narrow(300);
      limits.longestMessage = 200;
      limits.longestValue = 400;
      limits.transactionBytes = batch;
      return limits;
   }
   explicit TransactionForASlowReader(std::size_t batch = 100000) : TransactionOfHub(tight(batch)) {
      root->leafIs(1, true, Opaque(1));
      carry();
   }
   /// Fills the output, then changes the pair.
   void changeBehind(U8 v) {
      for (U32 i = 0; i != 40; ++i) {
         root->byNumberIs(i, std::string(20, static_cast<char>('a' + v % 26)));
      }
      Transaction const together(source.hub);
      pairIs(v);
   }
   bool pairIsWhole() const { return copy->u8() == copy->leaf(1)->ticks(); }
};

TEST_F(TransactionForASlowReader, GetsItTogetherWhenItHasCaughtUp) {
   {
      Transaction const together(source.hub);
      pairIs(1);
   }
   carry();
   for (U8 v = 2; v != 30; ++v) {
      changeBehind(v);
      for (int pieces = v % 5; pieces != 0; --pieces) {
         carryPiece();
         ASSERT_TRUE(pairIsWhole()) << "after change " << +v;
      }
   }
   carry();
   expectEqual();
   EXPECT_EQ(mirror.told(), "");
}

class TransactionTooLongForAReader : public TransactionForASlowReader {
protected:
   TransactionTooLongForAReader() : TransactionForASlowReader(150) {}
};

TEST_F(TransactionTooLongForAReader, GetsItInPiecesAndIsToldSo) {
   {
      Transaction const together(source.hub);
      pairIs(1);
   }
   carry();
   ASSERT_TRUE(pairIsWhole());
   EXPECT_EQ(mirror.told(), "");
   Mount const& mount = mirror.session->mounts().front();
   bool torn = false;
   for (U8 v = 2; v != 30; ++v) {
      changeBehind(v);
      for (int pieces = v % 5; pieces != 0; --pieces) {
         carryPiece();
         ASSERT_TRUE(pairIsWhole() || mount.torn()) << "after change " << +v;
         torn = torn || mount.torn();
      }
   }
   EXPECT_TRUE(torn);
   carry();
   expectEqual();
   EXPECT_FALSE(mount.torn());
   std::string const told = mirror.told();
   EXPECT_EQ(told.substr(0, 11), "torn; whole");
}

/// A mirror that makes transactions.
class TransactionOfWriter : public StreamTest {
protected:
   explicit TransactionOfWriter(Limits const& limits = {}) : StreamTest(limits) {
      root->leafIs(1, true, Opaque(1))->ticksIs(1);
      root->leafIs(2, true, Opaque(2))->twigIs(Level::low)->weightIs(3);
      root->coreIs()->labelIs("core");
      root->badgeIs("first");
      root->byNumberIs(1, "one");
      root->samplesEnq(1);
      root->samplesEnq(2);
      mount(MountMode::writer);
      copy->u8Is(199);  // it has bound the root
      carry();
      mirror.told();
      source.told();
   }
   ~TransactionOfWriter() override {
      carry();
      expectEqual();
      EXPECT_EQ(source.session->closeReason(), "");
      EXPECT_EQ(mirror.session->closeReason(), "");
   }
   U32 handleOf(Kiv::Entity const& entity) const { return entity.streamHandle(); }
};

TEST_F(TransactionOfWriter, IsAppliedAtItsLastByteAndAnswered) {
   Transaction together(*mirror.session);
   EXPECT_EQ(together.number(), 1u);
   copy->u8Is(1);
   copy->leaf(1)->ticksIs(7);
   copy->leafIs(3, true, Opaque(1))->twigIs(Level::high)->weightIs(4);
   EXPECT_EQ(mirror.sent(), "");
   EXPECT_TRUE(mirror.session->inTransaction());
   together.commit();
   EXPECT_FALSE(mirror.session->inTransaction());
   Bytes bytes = mirror.take();
   Bytes const last{bytes.back()};
   bytes.pop_back();
   receiveBytewise(source, bytes, [&] {
      ASSERT_EQ(root->u8(), 199);
      ASSERT_EQ(root->leaf(1)->ticks(), 1);
      ASSERT_EQ(root->leaf(3), nullptr);
   });
   source.receive(last);
   EXPECT_EQ(root->u8(), 1);
   EXPECT_EQ(root->leaf(1)->ticks(), 7);
   ASSERT_NE(root->leaf(3), nullptr);
   EXPECT_EQ(root->leaf(3)->twig(Level::high)->weight(), 4);
   carry();
   EXPECT_EQ(mirror.told(), "decided 1");
}

TEST_F(TransactionOfWriter, OneAfterAnotherIsNumberedAndAnsweredInOrder) {
   for (U8 i = 1; i != 4; ++i) {
      Transaction const together(*mirror.session);
      copy->u8Is(i);
   }
   EXPECT_EQ(mirror.session->transactionBegin(), 4u);
   EXPECT_THROW(mirror.session->transactionBegin(), Kiv::Exception);
   mirror.session->transactionCommit();
   carry();
   EXPECT_EQ(mirror.told(), "decided 1; decided 2; decided 3; decided 4");
}

TEST_F(TransactionOfWriter, WithAnEntityThatIsGoneIsRefusedAndUndone) {
   root->leafDel(1);
   {
      Transaction const together(*mirror.session);
      copy->u8Is(1);
      copy->leaf(1)->ticksIs(7);
      copy->byNumberIs(1, "changed");
      copy->byNumberIs(2, "new");
   }
   source.receive(mirror.take());
   EXPECT_EQ(root->u8(), 199);
   EXPECT_EQ(root->byNumberCount(), 1u);
   carry();
   std::string const told = mirror.told();
   EXPECT_EQ(told.substr(0, 32), "decided 1: message 8 for entity ");
   EXPECT_NE(told.find(", attribute 261: the entity has been deleted meanwhile"), told.npos);
   EXPECT_EQ(copy->u8(), 199);
   EXPECT_EQ(copy->byNumber(1), "one");
   expectEqual();
   copy->u8Is(5);
   carry();
   EXPECT_EQ(root->u8(), 5) << "the session goes on";
}

/// A change of every kind, and one that must be refused.
TEST_F(TransactionOfWriter, OfEveryKindLeavesNoTraceWhenRefused) {
   Kiv::Entity const* const second = root->leaf(2).get();
   root->leafDel(1);
   {
      Transaction const together(*mirror.session);
      copy->leaf(1)->ticksIs(9);  // gone at the source
      copy->textIs("text");
      copy->leafDel(2);
      copy->leafIs(2, false, Opaque(7))->ticksIs(8);
      copy->leafIs(9, true, Opaque(1))->twigIs(Level::high)->weightIs(4);
      copy->coreDel();
      copy->badgeIs("second")->brightnessIs(9);
      copy->byNumberDel(1);
      copy->sortedIs(1, "sorted");
      copy->samplesDeq();
      copy->samplesEnq(7);
   }
   source.receive(mirror.take());
   EXPECT_EQ(static_cast<Kiv::Entity const*>(root->leaf(2).get()), second);
   EXPECT_EQ(root->leafCount(), 1u);
   EXPECT_EQ(root->samplesCount(), 2u);
   carry();
   expectEqual();
   EXPECT_EQ(copy->leaf(2)->twig(Level::low)->weight(), 3);
   EXPECT_EQ(copy->badge()->nameString(), "first");
   EXPECT_EQ(mirror.told().substr(0, 10), "decided 1:");
   // Both ends know everything by its name again.
   copy->leaf(2)->twig(Level::low)->weightIs(33);
   copy->core()->labelIs("writer");
   carry();
   root->leaf(2)->ticksIs(5);
   root->badge()->brightnessIs(3);
   carry();
   EXPECT_EQ(root->leaf(2)->twig(Level::low)->weight(), 33);
   EXPECT_EQ(root->core()->label(), "writer");
   expectEqual();
}

TEST_F(TransactionOfWriter, ChangesAfterARefusedOneHold) {
   root->leafDel(1);
   {
      Transaction const together(*mirror.session);
      copy->leaf(1)->ticksIs(9);
      copy->u8Is(1);
      copy->leafIs(9, true, Opaque(1));
   }
   copy->u8Is(2);
   copy->textIs("after");
   copy->leaf(9)->ticksIs(3);  // of a child that the source never makes
   carry();
   EXPECT_EQ(root->text(), "after");
   EXPECT_EQ(root->leaf(9), nullptr);
   expectEqual();
}

TEST_F(TransactionOfWriter, OfAPeerThatChecksNothingIsRefusedForAValueOutOfRange) {
   U32 const handle = handleOf(*copy);
   source.receive(concat(message(Opcode::begin, 0, 0, u32(7)),
                         message(Opcode::set, handle, idOf("u8"), {1}),
                         message(Opcode::set, handle, idOf("dial"), {99}),
                         message(Opcode::commit, 0, 0, concat(u32(7), Bytes{0}))));
   EXPECT_EQ(root->u8(), 199);
   EXPECT_FALSE(source.session->closed());
   std::vector<std::string> const sent = lines(source.take());
   ASSERT_EQ(sent.size(), 5u) << joined(sent);
   EXPECT_EQ(sent[0], "begin 00000000.0 00000000");
   EXPECT_EQ(sent[1], "set 01000000.259 c7");
   EXPECT_EQ(sent[2], "set 01000000.275 0f") << "the dial as it is";
   EXPECT_EQ(sent[3], "commit 00000000.0 0000000000");
   EXPECT_EQ(sent[4].substr(0, 27), "decided 00000000.0 00000007");
}

TEST_F(TransactionOfWriter, ThatIsMisusedEndsTheConnection) {
   auto const reason = [](Bytes const& bytes) {
      StreamTesting::End end;
      Sarn::Ptr<Stem> const other = KivTest::stemFactory("test");
      end.hub.rootIs(other);
      End peer;
      Sarn::Ptr<Stem> const otherCopy = KivTest::stemFactory("test");
      peer.session->mountIs(otherCopy, MountMode::writer);
      exchange(end, peer);
      end.receive(bytes);
      Sarn::String const why = end.session->closeReason();
      peer.session.reset();
      end.session.reset();
      return why;
   };
   Bytes const begin = message(Opcode::begin, 0, 0, u32(7));
   EXPECT_EQ(reason(concat(begin, begin)), "a batch begins inside another");
   EXPECT_EQ(reason(message(Opcode::begin, 0, 0, {1})),
             "message 29 for entity 0, attribute 0: the beginning of a batch has 1 bytes instead "
             "of 4");
   EXPECT_EQ(reason(concat(begin, message(Opcode::commit, 0, 0, concat(u32(8), Bytes{0})))),
             "message 30 for entity 0, attribute 0: batch 7 ends as batch 8 at offset 0");
   EXPECT_EQ(reason(message(Opcode::commit, 0, 0, concat(u32(8), Bytes{0}))),
             "message 30 for entity 0, attribute 0: batch 0 ends as batch 8 at offset 0");
   EXPECT_EQ(reason(message(Opcode::decided, 0, 0, concat(u32(1), text("")))),
             "message 31 for entity 0, attribute 0: there is no transaction 1 at offset 8");
}

class TransactionTooLong : public TransactionOfWriter {
protected:
   static Limits bound() {
      Limits limits;
      limits.transactionBytes = 500;
      return limits;
   }
   TransactionTooLong() : TransactionOfWriter(bound()) {}
};

TEST_F(TransactionTooLong, IsRefusedWholeAndTheSessionLives) {
   {
      Transaction const together(*mirror.session);
      for (U32 i = 10; i != 100; ++i) {
         copy->leafIs(i, true, Opaque(1))->ticksIs(3);
      }
      copy->leafDel(2);
   }
   receiveBytewise(source, mirror.take(), [&] { ASSERT_EQ(root->leafCount(), 2u); });
   carry();
   EXPECT_EQ(mirror.told(), "decided 1: it exceeds the bound of 500 bytes");
   expectEqual();
   EXPECT_EQ(copy->leafCount(), 2u);
   {
      Transaction const together(*mirror.session);
      copy->leafIs(7, true, Opaque(1))->ticksIs(3);
   }
   carry();
   EXPECT_EQ(mirror.told(), "decided 2");
   EXPECT_EQ(root->leaf(7)->ticks(), 3);
}

TEST_F(TransactionOfWriter, ThatCrossesOneOfTheSourceLeavesBothWithTheSame) {
   {
      Transaction const together(*mirror.session);
      copy->u8Is(1);
      copy->u16Is(1);
   }
   {
      Transaction const together(source.hub);
      root->u8Is(2);
      root->u16Is(2);
   }
   Bytes const forth = source.take();
   source.receive(mirror.take());
   EXPECT_EQ(root->u8(), 1);
   EXPECT_EQ(root->u16(), 1);
   mirror.receive(forth);
   EXPECT_EQ(copy->u8(), 2);
   EXPECT_EQ(copy->u16(), 2);
   receiveBytewise(mirror, source.take(), [&] { ASSERT_EQ(copy->u8(), copy->u16()); });
   EXPECT_EQ(copy->u8(), 1);
}

TEST_F(TransactionOfWriter, ALongValueTravelsInPartsInsideIt) {
   std::string const text(700000, 'x');
   {
      Transaction const together(*mirror.session);
      copy->textIs(text);
      copy->u8Is(1);
   }
   while (mirror.session->output().size != 0) {
      auto const piece = mirror.session->output();
      Bytes const bytes(piece.begin, piece.begin + piece.size);
      mirror.session->sent(bytes.size());
      source.receive(bytes);
      ASSERT_EQ(root->text() == text, root->u8() == 1);
   }
   EXPECT_EQ(root->u8(), 1);
}

TEST_F(TransactionOfWriter, AByeInsideItAbandonsIt) {
   source.receive(concat(message(Opcode::begin, 0, 0, u32(7)),
                         message(Opcode::set, handleOf(*copy), idOf("u8"), {1}),
                         message(Opcode::bye, 0, 0, text("enough"))));
   EXPECT_EQ(source.session->closeReason(), "closed by the peer: enough");
   EXPECT_EQ(root->u8(), 199);
   source.connect();
   mirror.connect();
   mount(MountMode::writer);
}

}  // namespace

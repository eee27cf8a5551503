// Every kind of member on the wire, byte by byte, both encoded and decoded.
#include <limits>

#include "KivTest/Stream.test.h"

using namespace StreamTesting;

namespace {

/// A complete mirror: from now on, each change is one message.
class StreamWire : public StreamTest {
protected:
   StreamWire() {
      mount();
      handle = root->streamHandle();
   }
   /// What the change has written, without the root's handle. Also carries it to the mirror.
   template <class Change>
   std::string written(Change&& change) {
      change();
      Bytes const bytes = source.take();
      mirror.receive(bytes);
      EXPECT_EQ(mirror.session->closeReason(), "");
      expectEqual();
      std::string all = joined(lines(bytes));
      std::string const ours = " 01000000.";
      for (std::size_t at = 0; (at = all.find(ours, at)) != all.npos;) {
         all.replace(at, ours.size(), " ");
      }
      return all;
   }
   static U16 idOf(char const* name) {
      return Stem::kivTypeImpl.field(std::string_view(name))->fieldId;
   }
   static std::string at(char const* opcode, char const* name, char const* body) {
      return std::string(opcode) + " " + std::to_string(idOf(name)) + (*body != '\0' ? " " : "") +
             body;
   }

   U32 handle = 0;
};

TEST_F(StreamWire, HeaderIsOpcodeLengthHandleAndAttribute) {
   ASSERT_EQ(handle, 0x01000000u);
   root->u16Is(0x1234);
   EXPECT_EQ(source.take(), (Bytes{8, 0, 0, 2, 1, 0, 0, 0, 1, 5, 0x12, 0x34}));
}

TEST_F(StreamWire, Booleans) {
   EXPECT_EQ(written([&] { root->flagIs(true); }), at("set", "flag", "01"));
   EXPECT_EQ(written([&] { root->flagIs(false); }), at("set", "flag", "00"));
}

TEST_F(StreamWire, Integers) {
   EXPECT_EQ(written([&] { root->u8Is(1); }), at("set", "u8", "01"));
   EXPECT_EQ(written([&] { root->s8Is(-2); }), at("set", "s8", "fe"));
   EXPECT_EQ(written([&] { root->u16Is(0x102); }), at("set", "u16", "0102"));
   EXPECT_EQ(written([&] { root->s16Is(-2); }), at("set", "s16", "fffe"));
   EXPECT_EQ(written([&] { root->u32Is(0x1020304); }), at("set", "u32", "01020304"));
   EXPECT_EQ(written([&] { root->s32Is(-2); }), at("set", "s32", "fffffffe"));
   EXPECT_EQ(written([&] { root->u64Is(0x102030405060708); }),
             at("set", "u64", "0102030405060708"));
   EXPECT_EQ(written([&] { root->s64Is(-2); }), at("set", "s64", "fffffffffffffffe"));
   EXPECT_EQ(written([&] { root->count8Inc(3); }), at("set", "count8", "03"));
}

TEST_F(StreamWire, FloatingPointAsItsBits) {
   EXPECT_EQ(written([&] { root->ratioIs(-2.0f); }), at("set", "ratio", "c0000000"));
   EXPECT_EQ(written([&] { root->preciseIs(1.0); }), at("set", "precise", "3ff0000000000000"));
   EXPECT_EQ(written([&] { root->waitIs(0.5); }), at("set", "wait", "3fe0000000000000"));
   EXPECT_EQ(written([&] { root->waitIs(std::numeric_limits<double>::infinity()); }),
             at("set", "wait", "7ff0000000000000"));
   EXPECT_EQ(written([&] { root->preciseIs(std::numeric_limits<double>::quiet_NaN()); }),
             at("set", "precise", "7ff8000000000000"));
}

TEST_F(StreamWire, StringsAsLengthAndBytes) {
   EXPECT_EQ(written([&] { root->textIs("ab"); }), at("set", "text", "000000026162"));
   EXPECT_EQ(written([&] { root->textIs(std::string_view("\0\xff", 2)); }),
             at("set", "text", "0000000200ff"));
   EXPECT_EQ(written([&] { root->textIs(""); }), at("set", "text", "00000000"));
}

TEST_F(StreamWire, EnumerationsAsFourBytes) {
   EXPECT_EQ(written([&] { root->colourIs(KivTest::Colour::red); }),
             at("set", "colour", "00000000"));
   EXPECT_EQ(written([&] { root->levelIs(KivTest::Level::high); }), at("set", "level", "00000002"));
   EXPECT_EQ(written([&] { root->levelIs(static_cast<KivTest::Level>(200)); }),
             at("set", "level", "000000c8"));
}

TEST_F(StreamWire, ValueTypesFieldByField) {
   EXPECT_EQ(written([&] { root->pairIs(KivTest::Pair(1, -2)); }),
             at("set", "pair", "00000001fffe"));
}

TEST_F(StreamWire, OptionalsAsAFlagAndTheValueIfThereIsOne) {
   EXPECT_EQ(written([&] { root->markIs(U8{5}); }), at("set", "mark", "0105"));
   EXPECT_EQ(written([&] { root->markIs(std::nullopt); }), at("set", "mark", "00"));
   EXPECT_EQ(written([&] { root->deadlineIs(1.0); }), at("set", "deadline", "013ff0000000000000"));
}

TEST_F(StreamWire, MapsAsKeyAndValueAndADeletionAsTheKey) {
   EXPECT_EQ(written([&] { root->byNumberIs(3, "x"); }),
             at("element", "byNumber", "000000030000000178"));
   EXPECT_EQ(written([&] { root->byNumberDel(3); }), at("erase", "byNumber", "00000003"));
   EXPECT_EQ(written([&] { root->byTextIs("k", 1); }),
             at("element", "byText", "000000016b0000000000000001"));
   EXPECT_EQ(written([&] { root->byPairIs(KivTest::Pair(1, 2), KivTest::Pair(3, 4)); }),
             at("element", "byPair", "000000010002000000030004"));
   EXPECT_EQ(written([&] { root->byLevelIs(KivTest::Level::middle, true); }),
             at("element", "byLevel", "0000000101"));
   EXPECT_EQ(written([&] { root->byLevelDel(KivTest::Level::middle); }),
             at("erase", "byLevel", "00000001"));
}

TEST_F(StreamWire, ValuesThatContainTheirKeyAsTheValueAlone) {
   KivTest::Record const record(7, KivTest::Pair(1, 2), U8{3}, "n", KivTest::Colour::red, 4);
   EXPECT_EQ(written([&] { root->recordIs(record); }), at("element", "record",
                                                          "00000007"
                                                          "000000010002"
                                                          "0103"
                                                          "000000016e"
                                                          "00000000"
                                                          "0000000000000004"));
   EXPECT_EQ(written([&] { root->recordDel(7); }), at("erase", "record", "00000007"));
}

TEST_F(StreamWire, OrderedMapsAsOtherMaps) {
   EXPECT_EQ(written([&] { root->sortedIs(-1, "x"); }),
             at("element", "sorted", "ffffffff0000000178"));
   EXPECT_EQ(written([&] { root->sortedDel(-1); }), at("erase", "sorted", "ffffffff"));
   EXPECT_EQ(written([&] { root->sortedTextIs("t", KivTest::Colour::blue); }),
             at("element", "sortedText", "000000017400000007"));
}

TEST_F(StreamWire, QueuesAsSequenceNumbersAndValues) {
   EXPECT_EQ(written([&] { root->samplesEnq(1.0); }),
             at("enqueue", "samples", "000000013ff0000000000000"));
   EXPECT_EQ(written([&] { root->samplesEnq(2.0); }),
             at("enqueue", "samples", "000000024000000000000000"));
   EXPECT_EQ(written([&] { root->samplesDeq(); }), at("front", "samples", "00000002"));
   EXPECT_EQ(written([&] { root->samplesDelAll(); }), at("front", "samples", "00000003"));
   EXPECT_EQ(written([&] { root->samplesEnq(1.0); }),
             at("enqueue", "samples", "000000033ff0000000000000"));
}

TEST_F(StreamWire, SingletonChildrenByTheirHandleAndNameIfTheyHaveOne) {
   EXPECT_EQ(written([&] { root->coreIs(); }), at("create", "core", "01000002"));
   EXPECT_EQ(written([&] { root->core()->labelIs("x"); }),
             "set 01000002." +
                   std::to_string(
                         KivTest::Core::kivTypeImpl.field(std::string_view("label"))->fieldId) +
                   " 0000000178");
   EXPECT_EQ(written([&] { root->coreDel(); }), at("erase", "core", ""));
   EXPECT_EQ(written([&] { root->badgeIs("b"); }), at("create", "badge", "010000030000000162"));
}

TEST_F(StreamWire, ANamedChildOfAnotherNameTakesThePlaceOfTheFormer) {
   root->badgeIs("b")->brightnessIs(9);
   carry();
   EXPECT_EQ(written([&] { root->badgeIs("c"); }), at("create", "badge", "010000030000000163"));
   EXPECT_EQ(copy->badge()->brightness(), 5);
}

TEST_F(StreamWire, ChildrenByHandleKeyAndConstructorArguments) {
   EXPECT_EQ(written([&] { root->leafIs(9, true, KivTest::Opaque(1.0)); }), at("create", "leaf",
                                                                               "01000002"
                                                                               "00000009"
                                                                               "01"
                                                                               "3ff0000000000000"));
   EXPECT_EQ(written([&] { root->leaf(9)->twigIs(KivTest::Level::middle); }),
             "create 01000002.262 0100000300000001");
   EXPECT_EQ(written([&] { root->leaf(9)->ticksIs(2); }), "set 01000002.261 0002");
   EXPECT_EQ(written([&] { root->leafDel(9); }), at("erase", "leaf", "00000009"));
}

TEST_F(StreamWire, ADerivedTypeTravelsWithItsBasesAttributes) {
   auto const hedge = KivTest::hedgeFactory("h");
   auto const other = KivTest::hedgeFactory("h");
   source.hub.rootIs(hedge);
   mirror.session->mountIs(other);
   carry();
   auto const leaf = hedge->wideLeafIs(1, true);
   leaf->ticksIs(3);
   leaf->widthIs(4);
   EXPECT_EQ(source.sent(),
             "create 01000002.258 010000030000000101; set 01000003.261 0003; "
             "set 01000003.386 00000004");
}

TEST_F(StreamWire, OwnAttributesThatAreNotStreamedWriteNothing) {
   root->secretIs(4);
   EXPECT_EQ(source.sent(), "");
}

TEST_F(StreamWire, OwnAttributesThatAreNotStreamedWriteNothingWithObserversToo) {
   KivTest::Witness recorder(*root);
   root->secretIs(4);
   EXPECT_EQ(source.sent(), "");
   EXPECT_EQ(recorder.changes(), "secret was 0");
}

TEST_F(StreamWire, AChangeMadeInsideAnObserverIsWrittenAfterTheOneThatItWasToldOf) {
   struct Answer final : Kiv::Observer {
      explicit Answer(Stem& answering) : root(answering) {}
      void onChange(Kiv::Change const&) override { root.u16Is(root.u8()); }
      Stem& root;
   } answer(*root);
   auto const leaf = root->leafIs(1, true, KivTest::Opaque(1));
   carry();
   leaf->observerAdd(answer);
   root->u8Is(7);
   leaf->ticksIs(3);
   std::string const sent = source.sent();
   leaf->observerDel(answer);
   EXPECT_EQ(sent, "set 01000000." + std::to_string(idOf("u8")) +
                         " 07; set 01000002.261 0003; set 01000000." + std::to_string(idOf("u16")) +
                         " 0007");
}

TEST_F(StreamWire, AnUnchangedValueWritesNothing) {
   root->u8Is(root->u8());
   root->byNumberDel(1);
   EXPECT_EQ(source.sent(), "");
}

TEST_F(StreamWire, SeveralReadersGetTheSameBytes) {
   End second;
   auto const third = KivTest::stemFactory("test");
   Session more(source.hub);
   Bytes hello(more.output().begin, more.output().begin + more.output().size);
   second.receive(hello);
   more.sent(hello.size());
   second.session->mountIs(third);
   Bytes const asked = second.take();
   more.received(asked.data(), asked.size());
   while (more.output().size != 0) {
      Bytes const bytes(more.output().begin, more.output().begin + more.output().size);
      second.receive(bytes);
      more.sent(bytes.size());
   }
   U64 const before = more.stats().messagesOut;
   root->u16Is(77);
   root->byNumberIs(1, "one");
   Bytes const first = source.take();
   Bytes const other(more.output().begin, more.output().begin + more.output().size);
   EXPECT_EQ(first, other);
   EXPECT_EQ(more.stats().messagesOut, before + 2);
   second.receive(other);
   EXPECT_EQ(KivTest::firstDifference(*root, *third), "");
   second.session.reset();
}

}  // namespace

// Messages that exceed the message limit travel in parts. Values that exceed the value limit are
// left out, and everything else goes on.
#include "KivTest/Stream.test.h"

using namespace StreamTesting;

namespace {

Limits limits(std::size_t outputBuffer, std::size_t longestMessage, std::size_t longestValue) {
   Limits all;
   all.outputBuffer = outputBuffer;
   all.longestMessage = longestMessage;
   all.longestValue = longestValue;
   return all;
}

std::string repeated(std::size_t size) {
   std::string all(size, ' ');
   for (std::size_t i = 0; i != size; ++i) {
      all[i] = static_cast<char>('a' + i % 23 + i / 7919 % 3);
   }
   return all;
}

/// With the default limits.
class StreamParts : public StreamTest {};
/// Messages of 200 bytes, values of 256.
class StreamSmallParts : public StreamTest {
protected:
   StreamSmallParts() : StreamTest(limits(700, 200, 256)) {}
};

TEST_F(StreamParts, AStringOfMegabytesArrives) {
   mount();
   std::string const one = repeated(300000);
   std::string const many = repeated(5000000);
   root->textIs(one);
   carry();
   EXPECT_EQ(copy->text(), one);
   root->textIs(many);
   root->u8Is(1);
   EXPECT_FALSE(source.session->upToDate());
   EXPECT_GT(source.session->status().waiting, many.size());
   carry();
   EXPECT_EQ(copy->text(), many);
   EXPECT_EQ(source.told(), "");
   expectEqual();
}

TEST_F(StreamParts, TheLongestValueArrivesAndALongerOneIsLeftOut) {
   mount();
   std::size_t const most = source.hub.limits().longestValue - 4;
   std::string const longest(most, 'l');
   root->textIs(longest);
   carry();
   EXPECT_EQ(copy->text().size(), most);
   root->textIs(longest + "!");
   root->u8Is(77);
   carry();
   EXPECT_EQ(copy->text().size(), most);
   EXPECT_EQ(copy->u8(), 77);
   std::string const what = "test.text (270): 16777217 bytes exceed the bound of 16777216";
   EXPECT_EQ(source.told(), "left out: " + what);
   Kiv::NboAttrLog::SessionStatus const status = source.session->status();
   EXPECT_EQ(status.stats.valuesLeftOut, 1u);
   ASSERT_EQ(status.leftOut.size(), 1u);
   EXPECT_EQ(status.leftOut[0], what);
   root->textIs("short again");
   carry();
   expectEqual();
}

TEST_F(StreamParts, EverythingLongArrivesLiveAndByReplay) {
   mount(MountMode::writer);
   std::string const key = repeated(400000);
   auto const change = [&](Stem& at, char mark) {
      std::string const longOne = mark + repeated(700000);
      at.textIs(longOne);
      at.byTextIs(key + mark, 5);
      at.byNumberIs(static_cast<U32>(mark), longOne);
      at.sortedIs(mark, longOne);
      at.sortedTextIs(longOne, KivTest::Colour::red);
      KivTest::Record record;
      record.keyIs(static_cast<U32>(mark));
      record.noteIs(longOne);
      at.recordIs(record);
      at.badgeIs(longOne)->brightnessIs(static_cast<U8>(mark));
      at.coreIs()->labelIs(longOne);
   };
   change(*root, 'a');
   carry();
   expectEqual();
   change(*copy, 'b');
   carry();
   EXPECT_EQ(root->text()[0], 'b');
   expectEqual();
   root->byTextDel(key + "a");
   root->sortedTextDel(copy->text());
   copy->byTextDel(key + "b");
   carry();
   EXPECT_EQ(root->byTextCount(), 0u);
   expectEqual();
   change(*root, 'c');
   root->byTextDel(key + "c");
   root->byTextIs(key + "c", 6);  // known, removed and recreated while parts are on their way
   carry();
   expectEqual();
   source.connect();
   mirror.connect();
   change(*root, 'd');
   EXPECT_TRUE(mount(MountMode::writer).complete());
   expectEqual();
   EXPECT_EQ(source.session->closeReason() + mirror.session->closeReason(), "");
}

TEST_F(StreamSmallParts, HaveOpcodeSizeAndOffsetBeforeTheirBytes) {
   mount();
   std::string const value = repeated(230);
   root->textIs(value);
   // 234 bytes of value in messages of 200: 191 after the nine of the part's header, then 43.
   Bytes const whole = text(value);
   U32 const handle = root->streamHandle();
   Bytes const first(whole.begin(), whole.begin() + 191);
   Bytes const second(whole.begin() + 191, whole.end());
   EXPECT_EQ(source.take(), concat(message(Opcode::part, handle, 270,
                                           concat(Bytes{8, 0, 0, 0, 234, 0, 0, 0, 0}, first)),
                                   message(Opcode::part, handle, 270,
                                           concat(Bytes{8, 0, 0, 0, 234, 0, 0, 0, 191}, second))));
}

TEST_F(StreamSmallParts, AreInterleavedWithNothingAndLoseNothing) {
   mount();
   for (int round = 0; round != 50; ++round) {
      root->textIs(repeated(static_cast<std::size_t>(40 + round * 4)));
      root->u8Is(static_cast<U8>(round));
      root->byTextIs(repeated(static_cast<std::size_t>(round * 4)), static_cast<U64>(round));
      if (round % 3 == 0) {
         root->byTextDel(repeated(static_cast<std::size_t>(round * 4)));
      }
      root->leafIs(static_cast<U32>(round % 5), true, KivTest::Opaque(round % 5))->ticksInc(1);
      root->leafDel(static_cast<U32>((round + 2) % 5));
      if (round % 7 == 0) {
         carry();
      }
   }
   carry();
   expectEqual();
   EXPECT_EQ(source.session->closeReason() + mirror.session->closeReason(), "");
}

TEST_F(StreamSmallParts, WhatIsLongerThanAValueMayBeIsLeftOutAndNamed) {
   mount();
   std::string const longOne = repeated(300);
   root->byNumberIs(1, "one");
   root->badgeIs("b");
   carry();
   root->byNumberIs(1, longOne);  // the mirror must not keep its old value
   root->byTextIs(longOne, 3);
   root->byTextIs("short", 4);
   root->badgeIs(longOne)->brightnessIs(200);
   root->u16Is(16);
   carry();
   EXPECT_EQ(copy->byNumberCount(), 0u);
   EXPECT_EQ(copy->byTextCount(), 1u);
   EXPECT_EQ(copy->badge(), nullptr);
   EXPECT_EQ(copy->u16(), 16);
   std::string const told = source.told();
   EXPECT_NE(told.find("left out: test.byNumber[1] (290): 308 bytes exceed the bound of 256"),
             std::string::npos)
         << told;
   EXPECT_NE(told.find("left out: test.byText[" + longOne.substr(0, 150)), std::string::npos)
         << told;
   EXPECT_NE(told.find("308 bytes exceed the bound of 256"), std::string::npos) << told;
   EXPECT_EQ(source.session->closeReason() + mirror.session->closeReason(), "");
   root->byTextDel(longOne);
   root->badgeIs("c")->brightnessIs(3);
   root->byNumberIs(1, "one again");
   carry();
   expectEqual();
}

TEST_F(StreamSmallParts, AReplayLeavesOutTheSame) {
   root->textIs(repeated(300));
   root->byNumberIs(1, repeated(300));
   root->byNumberIs(2, repeated(200));
   root->badgeIs(repeated(300));
   EXPECT_TRUE(mount().complete());
   EXPECT_EQ(copy->text(), "none");
   EXPECT_EQ(copy->byNumberCount(), 1u);
   EXPECT_EQ(copy->byNumber(2), repeated(200));
   EXPECT_EQ(source.session->stats().valuesLeftOut, 3u);
   EXPECT_EQ(source.session->status().leftOut.size(), 3u);
}

TEST_F(StreamSmallParts, AWritersLongValuesGoToTheSource) {
   mount(MountMode::writer);
   copy->textIs(repeated(200));
   copy->leafIs(3, true, KivTest::Opaque(1.0))->twigIs(KivTest::Level::high)->weightIs(2.0);
   copy->byTextIs(repeated(240), 1);
   carry();
   EXPECT_EQ(root->text(), repeated(200));
   expectEqual();
   copy->textIs(repeated(400));
   copy->u8Is(8);
   carry();
   EXPECT_EQ(root->text(), repeated(200));
   EXPECT_EQ(root->u8(), 8);
   EXPECT_NE(mirror.told().find("left out: test.text (270): 404 bytes"), std::string::npos);
}

TEST_F(StreamSmallParts, StatusTellsThePeerWhatWasLeftOut) {
   root->textIs(repeated(300));
   mount();
   Kiv::NboAttrLog::SessionStatus const status = source.session->status();
   std::vector<U8> bytes(Kiv::NboAttrLog::encodedSize(status));
   Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
   Kiv::NboAttrLog::encode(out, status);
   EXPECT_EQ(out.room(), 0u);
   Kiv::NboAttrLog::In in(bytes.data(), bytes.data() + bytes.size());
   Kiv::NboAttrLog::SessionStatus const read = Kiv::NboAttrLog::decodeSessionStatus(in);
   in.expectEnd();
   EXPECT_EQ(read.stats.valuesLeftOut, 1u);
   EXPECT_EQ(read.leftOut, status.leftOut);
   EXPECT_FALSE(read.asking);
}

Bytes part(Opcode opcode, U32 total, U32 offset, std::string_view bytes) {
   return concat(Bytes{static_cast<U8>(opcode)}, u32(total), u32(offset),
                 Bytes(bytes.begin(), bytes.end()));
}

/// A complete mirror that is sent parts as if by its source.
class StreamPartsIn : public StreamTest {
protected:
   StreamPartsIn() : StreamTest(limits(4096, 256, 300)) { mount(); }
   std::string send(Bytes const& body, char const* name = "text") {
      return fault(message(Opcode::part, root->streamHandle(), idOf(name), body));
   }
   static std::string at(char const* name) {
      return std::string("test.") + name + " (KivTest::Stem, " + std::to_string(idOf(name)) + "): ";
   }
};

TEST_F(StreamPartsIn, AreAppliedWhenTheLastOneHasCome) {
   EXPECT_EQ(send(part(Opcode::set, 10, 0, {"\0\0\0\6ab", 6})), "");
   EXPECT_EQ(copy->text(), "none");
   EXPECT_EQ(send(part(Opcode::set, 10, 6, "cdef")), "");
   EXPECT_EQ(copy->text(), "abcdef");
   // The value is checked like any other.
   EXPECT_EQ(send(part(Opcode::set, 8, 0, {"\0\0\0\6", 4})), "");
   EXPECT_EQ(send(part(Opcode::set, 8, 4, "abcd")),
             at("text") + "a string of 6 bytes exceeds the bound of 4 at offset 0");
}

TEST_F(StreamPartsIn, AMessageBetweenThemIsAFault) {
   EXPECT_EQ(send(part(Opcode::set, 10, 0, "abc")), "");
   EXPECT_EQ(fault(message(Opcode::set, root->streamHandle(), idOf("u8"), {1})),
             at("u8") + "a message of kind 8 comes between the parts of another at offset 0");
   EXPECT_EQ(copy->u8(), 200);
}

TEST_F(StreamPartsIn, AFarewellBetweenThemIsNone) {
   EXPECT_EQ(send(part(Opcode::set, 10, 0, "abc")), "");
   EXPECT_EQ(fault(message(Opcode::bye, 0, 0, text("enough"))), "closed by the peer: enough");
   EXPECT_EQ(copy->text(), "none");
}

TEST_F(StreamPartsIn, AnotherMessagesPartIsAFault) {
   EXPECT_EQ(send(part(Opcode::set, 10, 0, "abc")), "");
   EXPECT_EQ(send(part(Opcode::set, 11, 3, "abc")),
             at("text") + "a part of another message comes between the parts of one at offset 0");
}

TEST_F(StreamPartsIn, PartsComeInTheirOrder) {
   EXPECT_EQ(send(part(Opcode::set, 10, 0, "abc")), "");
   EXPECT_EQ(send(part(Opcode::set, 10, 4, "abc")),
             at("text") + "a part begins at 4, where 3 bytes have come at offset 5");
}

TEST_F(StreamPartsIn, TheFirstBeginsAtTheBeginning) {
   EXPECT_EQ(send(part(Opcode::set, 10, 4, "abc")),
             at("text") + "a part begins at 4, where 0 bytes have come at offset 5");
}

TEST_F(StreamPartsIn, APartIsNeitherEmptyNorLongerThanTheRest) {
   EXPECT_EQ(send(part(Opcode::set, 10, 0, "abc")), "");
   EXPECT_EQ(send(part(Opcode::set, 10, 3, "abcdefgh")),
             at("text") + "a part of 8 bytes stands where 7 are left at offset 9");
   source.connect();
   mirror.connect();
   mount();
   EXPECT_EQ(send(part(Opcode::set, 10, 0, "")),
             at("text") + "a part of 0 bytes stands where 10 are left at offset 9");
}

TEST_F(StreamPartsIn, TheBoundHoldsForTheWholeMessage) {
   EXPECT_EQ(send(part(Opcode::set, 300, 0, "abc")), "");
   source.connect();
   mirror.connect();
   mount();
   EXPECT_EQ(send(part(Opcode::set, 301, 0, "abc")),
             at("text") + "a message of 301 bytes in parts exceeds the bound of 300 at offset 1");
}

TEST_F(StreamPartsIn, WhoMayNotChangeAnythingHasNothingLongToSay) {
   source.receive(message(Opcode::part, 1, 1, part(Opcode::set, 257, 0, "abc")));
   EXPECT_EQ(source.session->closeReason(),
             "message 24 for entity 1, attribute 1: a message of 257 bytes in parts exceeds the "
             "bound of 256 at offset 1");
}

TEST_F(StreamPartsIn, GreetingsAndPartsDoNotComeInParts) {
   for (Opcode const opcode : {Opcode(0), Opcode::hello, Opcode::part, Opcode(200)}) {
      EXPECT_NE(send(part(opcode, 10, 0, "abc")).find("does not come in parts at offset 0"),
                std::string::npos)
            << mirror.session->closeReason();
      source.connect();
      mirror.connect();
      mount();
   }
}

TEST_F(StreamSmallParts, AValueThatIsLeftOutAgainIsToldOnceAndSixteenAreNamed) {
   mount();
   auto const what = [](U32 number) {
      return "test.byNumber[" + std::to_string(number) + "] (" + std::to_string(idOf("byNumber")) +
             "): 308 bytes exceed the bound of 256";
   };
   for (char const c : {'x', 'y', 'z'}) {
      root->byNumberIs(1, std::string(300, c));
      carry();
   }
   EXPECT_EQ(source.told(), "left out: " + what(1));
   EXPECT_EQ(source.session->status().stats.valuesLeftOut, 3u);
   for (U32 number = 2; number != 21; ++number) {
      root->byNumberIs(number, std::string(300, 'x'));
      carry();
   }
   std::vector<Sarn::String> const named = source.session->status().leftOut;
   ASSERT_EQ(named.size(), 16u);
   EXPECT_EQ(named.front(), what(5));
   EXPECT_EQ(named.back(), what(20));
}

/// A tree with keys and queues of any size, and a bound of two changed keys.
class StreamSmallPartsOfAHedge : public StreamTesting::StreamOf<KivTest::Hedge> {
protected:
   StreamSmallPartsOfAHedge() : StreamOf(KivTest::hedgeFactory, "hedge", few()) { connect(); }
   static Limits few() {
      Limits all = limits(700, 200, 2000);
      all.dirtyKeys = 2;
      return all;
   }
   void connect() {
      source.connect();
      mirror.connect();
      mirror.session->mountIs(copy);
      carry();
   }
   void carry() {
      StreamOf::carry();
      EXPECT_EQ(source.session->closeReason() + mirror.session->closeReason(), "");
   }
};

TEST_F(StreamSmallPartsOfAHedge, AnElementOfAQueueThatIsLeftOutKeepsItsPlace) {
   source.told();
   root->labelsEnq("a");
   root->labelsEnq(std::string(3000, 'x'));
   root->labelsEnq("c");
   carry();
   auto const expectPlaces = [this] {
      ASSERT_EQ(copy->labelsCount(), 3u);
      EXPECT_EQ(copy->labels(1), "a");
      EXPECT_EQ(copy->labels(2), "");
      EXPECT_EQ(copy->labels(3), "c");
      std::string const told = source.told();
      EXPECT_EQ(told.find("left out: hedge.labels[2] ("), 0u) << told;
      EXPECT_NE(told.find("): 3008 bytes exceed the bound of 2000"), std::string::npos) << told;
   };
   expectPlaces();
   connect();
   expectPlaces();
}

TEST_F(StreamSmallPartsOfAHedge, ManyChildrenMadeAgainAreReplayedThoughAKeyTravelsInParts) {
   std::vector<std::string> keys = {"a", "b", "c", "d", std::string(1500, 'k')};
   for (std::string const& key : keys) {
      root->witheIs(key)->lengthIs(5);
   }
   carry();
   while (source.session->upToDate()) {
      root->measureIs(KivTest::Opaque(root->measure().content() + 1));
   }
   for (std::string const& key : keys) {
      root->witheDel(key);
      root->witheIs(key);
   }
   EXPECT_EQ(source.session->status().dirtyKeys, 0u) << "more than are remembered";
   for (int rounds = 0; !source.session->upToDate(); ++rounds) {
      ASSERT_LT(rounds, 1000);
      auto const piece = source.session->output();
      Bytes const bytes(piece.begin, piece.begin + piece.size);
      mirror.receive(bytes);
      source.session->sent(bytes.size());
   }
   carry();
   EXPECT_EQ(copy->witheCount(), keys.size());
   EXPECT_EQ(KivTest::firstDifference(*root, *copy), "");
}

}  // namespace

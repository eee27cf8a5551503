// Messages from the peer are checked: one that breaks a rule closes the session and has no effect.
#include "KivTest/Stream.test.h"

using namespace StreamTesting;

namespace {

/// A complete mirror, to which a test sends messages as its source.
class StreamApply : public StreamTest {
protected:
   StreamApply() {
      mount();
      handle = root->streamHandle();
   }
   std::string send(Opcode opcode, char const* name, Bytes const& body) {
      return fault(message(opcode, handle, idOf(name), body));
   }

   U32 handle = 0;
};

TEST_F(StreamApply, TheSameValueAgainPublishesNothing) {
   KivTest::Witness published(*copy);
   EXPECT_EQ(send(Opcode::set, "u8", {7}), "");
   EXPECT_EQ(published.changes(), "u8 was 200");
   EXPECT_EQ(send(Opcode::set, "u8", {7}), "");
   EXPECT_EQ(send(Opcode::element, "byNumber", concat(u32(1), text("x"))), "");
   EXPECT_EQ(published.changes(), "byNumber[1] was nothing");
   EXPECT_EQ(send(Opcode::element, "byNumber", concat(u32(1), text("x"))), "");
   EXPECT_EQ(send(Opcode::erase, "byNumber", u32(2)), "");
   EXPECT_EQ(send(Opcode::erase, "core", {}), "");
   EXPECT_EQ(published.changes(), "");
}

TEST_F(StreamApply, AValueOutOfRangeClosesWithTheSettersMessageAndIsNotStored) {
   EXPECT_EQ(send(Opcode::set, "dial", {21}),
             "test.dial (KivTest::Stem, " + std::to_string(idOf("dial")) +
                   "): KivTest::Stem::dial < KivTest::TestLimits::minDial or > "
                   "KivTest::TestLimits::maxDial not allowed");
   EXPECT_EQ(copy->dial(), 15);
}

TEST_F(StreamApply, ReadingPastTheEndSaysWhereAndHowMuchIsLeft) {
   EXPECT_EQ(send(Opcode::set, "u32", {1, 2, 3}),
             "test.u32 (KivTest::Stem, 263): bytes <= readableBytes(): a value of 4 bytes stands "
             "where the message has 3 left at offset 0");
   EXPECT_EQ(copy->u32(), 4000000000u);
}

TEST_F(StreamApply, BytesBehindTheValueAreAFault) {
   EXPECT_NE(send(Opcode::set, "u8", {1, 2}).find("at offset 1"), std::string::npos)
         << mirror.session->closeReason();
   EXPECT_EQ(copy->u8(), 200);
}

TEST_F(StreamApply, ABoolIsZeroOrOne) {
   EXPECT_EQ(send(Opcode::set, "flag", {2}),
             "test.flag (KivTest::Stem, 258): a bool is neither 0 nor 1 at offset 0");
}

TEST_F(StreamApply, AnOptionalsFlagIsZeroOrOne) {
   EXPECT_NE(send(Opcode::set, "mark", {2, 1}).find("neither 0 nor 1 at offset 0"),
             std::string::npos);
}

TEST_F(StreamApply, AnEnumerationIsBelow256) {
   EXPECT_NE(send(Opcode::set, "colour", u32(256)).find("not below 256 at offset 0"),
             std::string::npos);
}

TEST_F(StreamApply, AStringsLengthIsWithinTheMessage) {
   EXPECT_EQ(send(Opcode::set, "text", concat(u32(0xffffffff), Bytes{1})),
             "test.text (KivTest::Stem, 270): a string of 4294967295 bytes exceeds the bound of 1 "
             "at offset 0");
}

TEST_F(StreamApply, NothingOfABadElementIsApplied) {
   // The key is valid, the value is not.
   EXPECT_NE(send(Opcode::element, "byNumber", concat(u32(1), u32(5))), "");
   EXPECT_EQ(copy->byNumberCount(), 0u);
}

TEST_F(StreamApply, NothingOfABadCreationIsApplied) {
   EXPECT_NE(send(Opcode::create, "leaf", concat(u32(0x01000009), u32(1), Bytes{1, 0})), "");
   EXPECT_EQ(copy->leafCount(), 0u);
}

TEST_F(StreamApply, AnUnknownAttributeGoesToTheBaseHandlerWhichRefusesIt) {
   EXPECT_EQ(fault(message(Opcode::set, handle, 9999, {1})),
             "test.? (KivTest::Stem, 9999): KivTest::Stem streams no attribute 9999 at offset 0");
}

TEST_F(StreamApply, AnAttributeThatIsNotStreamedIsRefused) {
   EXPECT_NE(send(Opcode::set, "secret", u32(1)).find("streams no attribute"), std::string::npos);
   EXPECT_EQ(copy->secret(), 0u);
}

TEST_F(StreamApply, AConstantIsRefused) {
   EXPECT_NE(send(Opcode::set, "minKnob", {1}).find("streams no attribute"), std::string::npos);
}

TEST_F(StreamApply, AnOperationIsRefused) {
   EXPECT_NE(send(Opcode::set, "reset", {}).find("streams no attribute"), std::string::npos);
}

TEST_F(StreamApply, AnEntityThatWasNotIntroducedIsRefused) {
   EXPECT_EQ(fault(message(Opcode::set, 0x01000077, 258, {1})),
             "message 8 for entity 16777335, attribute 258: the peer has not introduced this "
             "entity at offset 0");
}

TEST_F(StreamApply, AMessageThatDoesNotFitTheAttributeIsRefused) {
   struct Case {
      Opcode opcode;
      char const* name;
   };
   for (Case const& c :
        {Case{Opcode::set, "byNumber"}, Case{Opcode::element, "u8"}, Case{Opcode::erase, "u8"},
         Case{Opcode::create, "byNumber"}, Case{Opcode::enqueue, "u8"}, Case{Opcode::front, "core"},
         Case{Opcode::collectionBegin, "u8"}, Case{Opcode::collectionEnd, "core"},
         Case{Opcode::element, "leaf"}, Case{Opcode::erase, "samples"},
         Case{Opcode::enqueue, "byNumber"}, Case{Opcode::set, "samples"}}) {
      source.connect();
      mirror.connect();
      mount();
      EXPECT_NE(send(c.opcode, c.name, {}).find("does not fit the attribute"), std::string::npos)
            << c.name << ": " << mirror.session->closeReason();
   }
}

TEST_F(StreamApply, AnUnknownKindOfMessageIsRefused) {
   EXPECT_NE(
         fault(message(static_cast<Opcode>(77), handle, 258, {})).find("no message of this kind"),
         std::string::npos);
   EXPECT_TRUE(mirror.session->closed());
}

TEST_F(StreamApply, AHandleBeyondTheBoundIsRefused) {
   std::string const reason = send(
         Opcode::create, "leaf", concat(u32(0x01ffffff), u32(1), Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0}));
   EXPECT_NE(reason.find("exceeds the bound of 1048576 entities"), std::string::npos) << reason;
   EXPECT_EQ(copy->leafCount(), 0u);
}

TEST_F(StreamApply, AHandleOfTurnZeroIsRefused) {
   std::string const reason = send(
         Opcode::create, "leaf", concat(u32(0x00000005), u32(1), Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0}));
   EXPECT_EQ(reason, "test.leaf (KivTest::Stem, " + std::to_string(idOf("leaf")) +
                           "): the handle 5 is of turn 0, but turns begin at 1 at offset 4");
   EXPECT_EQ(copy->leafCount(), 0u);
}

TEST_F(StreamApply, HandlesThatAreNoneAreRefusedBelowAnEntityThatIsGoneToo) {
   struct {
      U32 handle;
      char const* reason;
   } const cases[] = {
         {0x00000005, "the handle 5 is of turn 0, but turns begin at 1"},
         {0x01100000, "the handle 17825792 exceeds the bound of 1048576 entities"},
   };
   U32 const leaf = 0x01000100;
   U16 const twig = KivTest::Leaf::kivTypeImpl.field("twig")->fieldId;
   for (auto const& bad : cases) {
      source.connect();
      mirror.connect();
      mount();
      EXPECT_EQ(send(Opcode::create, "leaf",
                     concat(u32(leaf), u32(1), Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0})),
                "");
      EXPECT_EQ(send(Opcode::erase, "leaf", u32(1)), "");
      EXPECT_EQ(fault(message(Opcode::create, leaf, twig, concat(u32(bad.handle), Bytes{0}))),
                "message 11 for entity 16777472, attribute " + std::to_string(twig) + ": " +
                      bad.reason + " at offset 4");
   }
}

TEST_F(StreamApply, TheGreatestHandleThatIsWithinTheBoundIsTaken) {
   EXPECT_EQ(
         send(Opcode::create, "leaf",
              concat(u32(0x01000000 + (1u << 20) - 1), u32(1), Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0})),
         "");
   EXPECT_EQ(copy->leafCount(), 1u);
   EXPECT_NE(send(Opcode::create, "leaf",
                  concat(u32(0x01000000 + (1u << 20)), u32(2), Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0})),
             "");
   EXPECT_EQ(copy->leafCount(), 1u);
}

TEST_F(StreamApply, CollectionMarkersComeInPairs) {
   EXPECT_NE(send(Opcode::collectionEnd, "byNumber", {}).find("has not begun"), std::string::npos);
   source.connect();
   mirror.connect();
   mount();
   EXPECT_EQ(send(Opcode::collectionBegin, "byNumber", {}), "");
   EXPECT_NE(send(Opcode::collectionBegin, "byNumber", {}).find("begun already"),
             std::string::npos);
}

TEST_F(StreamApply, WhatAReplayDoesNotNameIsRemovedAtItsEnd) {
   EXPECT_EQ(send(Opcode::element, "sorted", concat(u32(1), text("a"))), "");
   EXPECT_EQ(send(Opcode::element, "sorted", concat(u32(2), text("b"))), "");
   EXPECT_EQ(send(Opcode::collectionBegin, "sorted", {}), "");
   EXPECT_EQ(send(Opcode::element, "sorted", concat(u32(2), text("b"))), "");
   EXPECT_EQ(send(Opcode::element, "sorted", concat(u32(3), text("c"))), "");
   EXPECT_EQ(copy->sortedCount(), 3u);
   EXPECT_EQ(send(Opcode::collectionEnd, "sorted", {}), "");
   EXPECT_EQ(copy->sortedCount(), 2u);
   EXPECT_FALSE(copy->sortedHas(1));
}

TEST_F(StreamApply, AnEntityErasedInTheMiddleOfItsReplayTakesThatAlong) {
   // More often than replays may be nested.
   for (U32 i = 0; i != 70; ++i) {
      U32 const child = 0x01000100 + i;
      ASSERT_EQ(send(Opcode::create, "leaf",
                     concat(u32(child), u32(1), Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0})),
                "");
      ASSERT_EQ(fault(message(Opcode::collectionBegin, child, 262, {})), "");
      ASSERT_EQ(send(Opcode::erase, "leaf", u32(1)), "");
   }
}

TEST_F(StreamApply, ALongestMessageIsTaken) {
   std::string const longest((std::size_t(1) << 18) - 4, 'x');
   EXPECT_EQ(send(Opcode::set, "text", text(longest)), "");
   EXPECT_EQ(copy->text(), longest);
   EXPECT_EQ(send(Opcode::set, "text", text(longest + "y")),
             "test.text (KivTest::Stem, " + std::to_string(idOf("text")) +
                   "): a message of 262145 bytes exceeds the bound of 262144");
   EXPECT_EQ(copy->text(), longest);
}

TEST_F(StreamApply, AMessageThatIsTooLongIsRefusedBeforeItHasCome) {
   EXPECT_EQ(fault({8, 4, 0, 1, 1, 0, 0, 0, 1, 2}),
             "test.flag (KivTest::Stem, 258): a message of 262145 bytes exceeds the bound of "
             "262144");
}

TEST_F(StreamApply, OtherSessionsOfTheHubGoOn) {
   End other;
   other.hub.rootIs(KivTest::stemFactory("second"));
   Session second(mirror.hub);
   auto const copied = KivTest::stemFactory("second");
   second.mountIs(copied);
   auto const flow = [&] {
      Bytes bytes = other.take();
      second.received(bytes.data(), bytes.size());
      while (second.output().size != 0) {
         bytes.assign(second.output().begin, second.output().begin + second.output().size);
         second.sent(bytes.size());
         other.receive(bytes);
      }
      bytes = other.take();
      second.received(bytes.data(), bytes.size());
   };
   flow();
   EXPECT_NE(send(Opcode::set, "flag", {9}), "");
   static_cast<Stem*>(other.hub.root("KivTest::Stem", "second"))->u8Is(42);
   flow();
   EXPECT_FALSE(second.closed());
   EXPECT_EQ(copied->u8(), 42);
   other.session.reset();
}

Bytes requests(int count) {
   Bytes const one = message(Opcode::sync, 0, 0, u32(1));
   Bytes many;
   for (int i = 0; i != count; ++i) {
      many.insert(many.end(), one.begin(), one.end());
   }
   return many;
}

TEST_F(StreamApply, ManyRequestsAtOnceAreAnswered) {
   EXPECT_EQ(fault(requests(1000)), "");
   EXPECT_EQ(lines(mirror.take()).size(), 1000u);
}

TEST_F(StreamApply, RequestsOfAPeerThatReadsNoAnswersAreBounded) {
   int const fill = static_cast<int>(mirror.hub.limits().outputBuffer / 14);
   EXPECT_EQ(fault(requests(fill)), "");
   EXPECT_NE(fault(requests(100)).find("more than 64 requests"), std::string::npos)
         << mirror.session->closeReason();
}

TEST_F(StreamApply, ASetterCalledFromAnObserverWorksAndIsSeenInOrder) {
   struct Follower : Kiv::Observer {
      explicit Follower(Stem& r) : root(r) {}
      void onChange(Kiv::Change const& change) override {
         if (change.attributeId == idOf("u8")) {
            root.u16Is(root.u8());
         }
      }
      Stem& root;
   } follower(*copy);
   copy->observerAdd(follower);
   KivTest::Witness published(*copy);
   EXPECT_EQ(send(Opcode::set, "u8", {7}), "");
   EXPECT_EQ(copy->u16(), 7);
   EXPECT_EQ(published.changes(), "u8 was 200; u16 was 60000");
   copy->observerDel(follower);
}

TEST_F(StreamApply, WhatAnObserverThrowsComesOutAndTheRestIsAppliedByTheNextCall) {
   struct Thrower : Kiv::Observer {
      void onChange(Kiv::Change const&) override { throw std::logic_error("mine"); }
   } thrower;
   copy->observerAdd(thrower);
   Bytes const both = concat(message(Opcode::set, handle, idOf("u8"), {7}),
                             message(Opcode::set, handle, idOf("s8"), {1}));
   EXPECT_THROW(mirror.receive(both), std::logic_error);
   EXPECT_EQ(copy->u8(), 7);
   EXPECT_EQ(copy->s8(), -5);
   copy->observerDel(thrower);
   mirror.receive({});
   EXPECT_EQ(copy->s8(), 1);
   EXPECT_FALSE(mirror.session->closed());
}

class StreamTable : public StreamApply {
protected:
   /// Applies a message's body as if it came from the peer of `session`.
   static void apply(Kiv::NboAttrLog::Session& session, Kiv::Entity& entity, Kiv::AttributeId id,
                     bool erase, Bytes const& body) {
      Kiv::NboAttrLog::Sa adapter(session, entity);
      Kiv::NboAttrLog::In in(body.data(), body.data() + body.size());
      entity.kivType().entity->stream->doHandleAttrDeserialization(
            adapter, id, erase, static_cast<U32>(body.size()), in);
   }
   void apply(Kiv::AttributeId id, bool erase, Bytes const& body) {
      apply(*mirror.session, *copy, id, erase, body);
   }
};

TEST_F(StreamTable, DeserializationAppliesWhatAMessageWould) {
   apply(idOf("u8"), false, {9});
   EXPECT_EQ(copy->u8(), 9);
   apply(idOf("byNumber"), false, concat(u32(1), text("x")));
   EXPECT_EQ(copy->byNumber(1), "x");
   apply(idOf("byNumber"), true, u32(1));
   EXPECT_FALSE(copy->byNumberHas(1));
   apply(idOf("samples"), false, concat(u32(5), Bytes{0x3f, 0xf0, 0, 0, 0, 0, 0, 0}));
   EXPECT_EQ(copy->samples(5), 1.0);
   apply(idOf("samples"), true, u32(6));
   EXPECT_EQ(copy->samplesCount(), 0u);
   U32 const child = 0x01000050;
   apply(idOf("leaf"), false,
         concat(concat(u32(child), u32(4)), Bytes{1, 0x3f, 0xf0, 0, 0, 0, 0, 0, 0}));
   ASSERT_NE(copy->leaf(4), nullptr);
   EXPECT_EQ(fault(message(Opcode::set, child, 259, {0})), "") << "it has the peer's handle";
   EXPECT_FALSE(copy->leaf(4)->lit());
   apply(idOf("leaf"), true, u32(4));
   EXPECT_EQ(copy->leafCount(), 0u);
   EXPECT_THROW(apply(idOf("dial"), false, {1}), Kiv::RangeException);
   EXPECT_THROW(apply(9999, false, {1}), Kiv::NboAttrLog::FaultException);
   EXPECT_THROW(apply(idOf("secret"), false, u32(1)), Kiv::NboAttrLog::FaultException);
}

TEST_F(StreamTable, DeserializationRefusesWhatAReaderWouldChange) {
   KivTest::Witness published(*root);
   for (char const* const name : {"u8", "byNumber", "samples", "leaf", "core"}) {
      for (bool const erase : {false, true}) {
         EXPECT_THROW(apply(*source.session, *root, idOf(name), erase, {9}),
                      Kiv::ReadOnlyProxyException)
               << name;
      }
   }
   EXPECT_EQ(published.changes(), "");
   EXPECT_EQ(root->u8(), 200);
   EXPECT_THROW(apply(*source.session, *root, 9999, false, {1}), Kiv::NboAttrLog::FaultException);
}

TEST_F(StreamApply, TheStreamTableTakesWhatAWriterHasIntroduced) {
   auto const other = KivTest::stemFactory("other");
   source.hub.rootIs(other);
   auto const mine = KivTest::stemFactory("other");
   mirror.session->mountIs(mine, MountMode::writer);
   carry();
   mine->u16Is(1);
   carry();
   ASSERT_EQ(other->u16(), 1);
   Bytes const body{9};
   Kiv::NboAttrLog::In in(body.data(), body.data() + 1);
   Kiv::NboAttrLog::Sa adapter(*source.session, *other);
   other->kivType().entity->stream->doHandleAttrDeserialization(adapter, idOf("u8"), false, 1, in);
   EXPECT_EQ(other->u8(), 9);
}

TEST_F(StreamApply, ACreationMessageMakesAnEntityByItself) {
   Bytes const bytes = concat(u32(4), Bytes{1, 0x3f, 0xf0, 0, 0, 0, 0, 0, 0});
   Kiv::NboAttrLog::In in(bytes.data(), bytes.data() + bytes.size());
   auto const made = KivTest::Leaf::kivTypeImpl.entity->stream->newEntityForAttrLog(in);
   auto& leaf = static_cast<KivTest::Leaf&>(*made);
   EXPECT_EQ(leaf.number(), 4u);
   EXPECT_TRUE(leaf.lit());
   EXPECT_EQ(leaf.origin(), KivTest::Opaque(1.0));
   auto const& stream = *KivTest::Leaf::kivTypeImpl.entity->stream;
   Bytes again(stream.attrLogSizeCtorParams(leaf));
   Kiv::NboAttrLog::Out out(again.data(), again.size());
   stream.serializeConstructorParams(out, leaf);
   EXPECT_EQ(again, bytes);
}

}  // namespace

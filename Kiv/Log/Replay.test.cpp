// What a connection is sent later: FlowOut, dirty keys, and readers that stop.
#include <algorithm>

#include "KivTest/StreamStop.test.h"

using namespace StreamTesting;
using Kiv::NboAttrLog::FlowOut;
using Kiv::NboAttrLog::Sa;

namespace {

class StreamReplay : public StreamStopTest {};

TEST_F(StreamReplay, AChangeThatCannotBeWrittenIsRememberedAndItsLatestValueWrittenOnce) {
   stop();
   root->u16Is(1);
   root->u16Is(2);
   root->u16Is(3);
   EXPECT_EQ(source.session->stats().messagesOut, waiting);
   EXPECT_EQ(source.session->dirtyEntities(), 1u);
   EXPECT_EQ(resume(), at("set", "u16", "0003"));
}

TEST_F(StreamReplay, AttributesComeInIdOrderWhateverTheOrderOfTheChanges) {
   stop();
   root->u32Is(1);
   root->flagIs(true);
   root->u8Is(2);
   EXPECT_EQ(resume(), at("set", "flag", "01") + "; " + at("set", "u8", "02") + "; " +
                             at("set", "u32", "00000001"));
}

TEST_F(StreamReplay, ADirtyKeyIsWrittenOnceWithItsLatestValue) {
   stop();
   for (int i = 0; i != 100; ++i) {
      root->byNumberIs(1, std::to_string(i));
      root->byNumberDel(2);
      root->byNumberIs(2, "two");
   }
   root->byNumberDel(2);
   std::string const text = resume();
   EXPECT_NE(text.find(at("element", "byNumber", "00000001000000023939")), text.npos) << text;
   EXPECT_NE(text.find(at("erase", "byNumber", "00000002")), text.npos) << text;
   EXPECT_EQ(std::count(text.begin(), text.end(), ';'), 1) << text;
}

TEST_F(StreamReplay, DirtyKeysOfAnOrderedMapComeInKeyOrder) {
   stop();
   for (S32 const key : {5, -3, 7, 0}) {
      root->sortedIs(key, "");
   }
   EXPECT_EQ(resume(), at("element", "sorted", "fffffffd00000000") + "; " +
                             at("element", "sorted", "0000000000000000") + "; " +
                             at("element", "sorted", "0000000500000000") + "; " +
                             at("element", "sorted", "0000000700000000"));
}

TEST_F(StreamReplay, AChildErasedAndMadeAgainIsErasedFirstAndKeepsNoOldField) {
   root->leafIs(1, true, KivTest::Opaque(1))->ticksIs(9);
   root->leaf(1)->twigIs(KivTest::Level::low)->weightIs(3);
   carry();
   auto const old = copy->leaf(1);
   stop();
   root->leafDel(1);
   root->leafIs(1, true, KivTest::Opaque(1));
   KivTest::Witness published(*copy);
   std::string const text = resume();
   std::string const erase = at("erase", "leaf", "00000001");
   EXPECT_EQ(text.substr(0, erase.size()), erase) << text;
   EXPECT_NE(copy->leaf(1), old);
   EXPECT_EQ(copy->leaf(1)->ticks(), 0);
   std::string const changes = published.changes();
   std::size_t const erased = changes.find("leaf[1] was KivTest::Leaf");
   std::size_t const made = changes.find("leaf[1] was nothing");
   EXPECT_NE(erased, changes.npos) << changes;
   EXPECT_LT(erased, made) << changes;
}

TEST_F(StreamReplay, AChildThatTheReaderNeverHeardOfIsNotErased) {
   stop();
   root->leafIs(1, true, KivTest::Opaque(1));
   root->leafDel(1);
   root->coreIs();
   root->coreDel();
   std::string const text = resume();
   EXPECT_EQ(copy->leafCount(), 0u);
   EXPECT_EQ(text.find("create"), text.npos);
}

TEST_F(StreamReplay, ASingletonChildMadeAgainIsErasedFirst) {
   root->coreIs()->labelIs("old");
   carry();
   stop();
   root->coreDel();
   root->coreIs();
   std::string const text = resume();
   EXPECT_EQ(text.find(at("erase", "core", "")), 0u) << text;
   EXPECT_EQ(copy->core()->label(), "core");
}

TEST_F(StreamReplay, ASingletonChildIsErasedOnceThoughThereIsNoRoomForTheOneInItsPlace) {
   root->coreIs();
   carry();
   stop();
   root->coreDel();
   root->coreIs();
   root->textIs(std::string(1160, 'x'));  // of 1200 bytes it leaves room for the erasure alone
   while (source.session->stats().messagesOut == waiting) {
      carryPiece();
   }
   std::string const erase = at("erase", "core");
   std::string const first = carryPiece();
   EXPECT_EQ(first.substr(first.rfind("; ") + 2), erase);
   std::string const second = carryPiece();
   EXPECT_EQ(second.find(at("create", "core")), 0u) << second;
   EXPECT_EQ(second.find(erase), second.npos) << second;
   carry();
   expectEqual();
}

TEST_F(StreamReplay, AQueueIsToldWhatItMissed) {
   root->samplesEnq(1);
   root->samplesEnq(2);
   carry();
   stop();
   root->samplesEnq(3);
   root->samplesDeq();
   root->samplesEnq(4);
   EXPECT_EQ(resume(), at("front", "samples", "00000002") + "; " +
                             at("enqueue", "samples", "000000034008000000000000") + "; " +
                             at("enqueue", "samples", "000000044010000000000000"));
}

TEST_F(StreamReplay, AQueueThatWasClearedKeepsItsNumbers) {
   root->samplesEnq(1);
   carry();
   stop();
   root->samplesEnq(2);
   root->samplesDelAll();
   EXPECT_EQ(resume(), at("front", "samples", "00000003"));
   root->samplesEnq(5);
   carry();
   EXPECT_TRUE(copy->samplesHas(3));
   expectEqual();
}

TEST_F(StreamReplay, QueueNumbersWrapAround) {
   // The only way to such numbers without four billion elements.
   auto& queue = const_cast<Sarn::RQueue<double>&>(root->samplesAll());
   queue.forceSequenceNumber(0xfffffffe);
   source.connect();
   mirror.connect();
   mount();
   expectEqual();
   for (int i = 0; i != 4; ++i) {
      root->samplesEnq(i);
      root->samplesEnq(i);
      root->samplesDeq();
      carry();
      expectEqual();
   }
   EXPECT_LT(copy->samplesAll().frontSequence(), 10u);
   stop();
   root->samplesEnq(7);
   root->samplesDeq();
   resume();
}

TEST_F(StreamReplay, AStoppedReaderCostsAFlagAnAttributeAndAnEntryAKey) {
   stop();
   for (U32 i = 0; i != 100000; ++i) {
      root->u32Is(i);
      root->byNumberIs(i % 10, std::to_string(i));
   }
   EXPECT_EQ(source.session->dirtyEntities(), 1u);
   EXPECT_EQ(source.session->stats().messagesOut, waiting);
   EXPECT_GT(source.session->stats().changesDeferred, 200000u - 2);
   std::string const text = resume();
   EXPECT_EQ(std::count(text.begin(), text.end(), ';'), 10) << text;
}

TEST_F(StreamReplay, WhatWasDeletedMeanwhileIsForgotten) {
   auto const leaf = root->leafIs(1, true, KivTest::Opaque(1));
   carry();
   stop();
   std::size_t const before = source.session->dirtyEntities();
   leaf->ticksIs(3);
   EXPECT_EQ(source.session->dirtyEntities(), before + 1);
   root->leafDel(1);
   leaf->ticksIs(4);
   EXPECT_EQ(source.session->dirtyEntities(), before);
   EXPECT_EQ(resume(), at("erase", "leaf", "00000001"));
}

TEST_F(StreamReplay, ATreeThatDoesNotFitIsReplayedPieceByPiece) {
   for (U32 i = 0; i != 50; ++i) {
      auto const leaf = root->leafIs(i, true, KivTest::Opaque(i));
      leaf->twigIs(KivTest::Level::low);
      leaf->twigIs(KivTest::Level::high)->weightIs(i);
      root->byNumberIs(i, std::string(30, 'x'));
   }
   source.connect();
   mirror.connect();
   Mount& made = mirror.session->mountIs(copy);
   source.receive(mirror.take());
   mirror.receive(Bytes(source.session->output().begin,
                        source.session->output().begin + source.session->output().size));
   source.session->sent(source.session->output().size);
   EXPECT_FALSE(made.complete());
   // Changes in parts that have been replayed, and in parts that have not, arrive as well.
   root->flagIs(true);
   root->lastIs(3);
   root->leafDel(3);
   root->leafDel(49);
   root->leafIs(49, false, KivTest::Opaque(7));
   root->byNumberIs(2, "changed");
   carry();
   EXPECT_TRUE(made.complete());
   expectEqual();
}

/// A mirror that holds things that the source no longer has when it comes back.
class StreamLeftovers : public StreamTest {
protected:
   StreamLeftovers() {
      copy->byNumberIs(1, "one");
      copy->byNumberIs(2, "two");
      copy->leafIs(1, true, KivTest::Opaque(1));
      copy->sortedIs(-1, "");
   }
   static std::string at(char const* opcode, std::string_view name) {
      return std::string(opcode) + " 01000000." +
             std::to_string(Stem::kivTypeImpl.field(name)->fieldId);
   }
};

TEST_F(StreamLeftovers, OfAnEmptyCollectionAreErasedByOneMessage) {
   mirror.session->mountIs(copy);
   source.receive(mirror.take());
   Bytes const bytes = source.take();
   auto const all = lines(bytes);
   for (char const* const name : {"byNumber", "leaf", "sorted"}) {
      EXPECT_EQ(std::count(all.begin(), all.end(), at("erase", name)), 1) << name;
      EXPECT_EQ(std::count(all.begin(), all.end(), at("collectionBegin", name)), 0) << name;
   }
   auto const leaf = copy->leaf(1);
   mirror.receive(bytes);
   EXPECT_EQ(mirror.session->closeReason(), "");
   expectEqual();
   EXPECT_EQ(leaf->parent(), nullptr);
}

TEST_F(StreamLeftovers, AreErasedOneByOneAndWhatAWritersObserverAddsMeanwhileStays) {
   struct Adds final : Kiv::Observer {
      void onChange(Kiv::Change const& change) override {
         auto& of = static_cast<Stem&>(Kiv::entityOf(change));
         if (change.attributeId == Stem::kivTypeImpl.field(std::string_view("byNumber"))->fieldId &&
             change.oldValue != nullptr) {
            ++erased;
            of.byNumberIs(3, "three");
         }
      }
      int erased = 0;
   } adds;
   copy->observerAdd(adds);
   mount(MountMode::writer);
   copy->observerDel(adds);
   EXPECT_EQ(adds.erased, 2);
   EXPECT_FALSE(copy->byNumberHas(1));
   EXPECT_FALSE(copy->byNumberHas(2));
   EXPECT_TRUE(copy->byNumberHas(3));
   expectEqual();
}

TEST_F(StreamReplay, RepliesAfterTheChangesThatItFollows) {
   stop();
   root->u32Is(5);
   source.session->syncIs(3);
   std::string const text = resume();
   EXPECT_EQ(text, at("set", "u32", "00000005") + "; sync 00000000.0 00000003");
}

// The stream functions by themselves.

class StreamFlowOut : public StreamTest {
protected:
   StreamFlowOut() {
      mount();
      stream = root->kivType().entity->stream;
   }
   std::unique_ptr<FlowOut> flowOut(bool all, Kiv::AttributeId from = 0) {
      Sa adapter(*source.session, *root);
      return std::unique_ptr<FlowOut>(stream->newFlowOut(adapter, all, from));
   }
   S32 run(FlowOut& flow, Kiv::AttributeId from) {
      Sa adapter(*source.session, *root);
      return stream->handleAttrFlowOut(adapter, from, flow);
   }

   Kiv::StreamFunctions const* stream = nullptr;
};

TEST_F(StreamFlowOut, AnIdThatTheTypeDoesNotHaveGivesMinusOne) {
   auto const flow = flowOut(true);
   EXPECT_EQ(run(*flow, 257), -1);
   EXPECT_EQ(run(*flow, 9999), -1);
   EXPECT_EQ(source.sent(), "");
}

TEST_F(StreamFlowOut, ZeroWritesEveryAttributeInIdOrder) {
   Sarn::Ptr<KivTest::Core> const core = root->coreIs();
   source.take();
   Sa adapter(*source.session, *core);
   auto const functions = core->kivType().entity->stream;
   std::unique_ptr<FlowOut> const flow(functions->newFlowOut(adapter, true, 0));
   EXPECT_EQ(functions->handleAttrFlowOut(adapter, 0, *flow), 0);
   EXPECT_EQ(source.sent(), "set 01000002.258 43929333; set 01000002.259 00000004636f7265");
   EXPECT_TRUE(flow->kivHasSynced(258));
   EXPECT_FALSE(flow->dirty());
}

TEST_F(StreamFlowOut, ResumesAtTheGivenId) {
   Sarn::Ptr<KivTest::Core> const core = root->coreIs();
   source.take();
   Sa adapter(*source.session, *core);
   auto const functions = core->kivType().entity->stream;
   FlowOut flow(*core, true);
   EXPECT_EQ(functions->handleAttrFlowOut(adapter, 259, flow), 0);
   EXPECT_EQ(source.sent(), "set 01000002.259 00000004636f7265");
   EXPECT_TRUE(flow.kivIsDirty(258));
}

TEST_F(StreamFlowOut, AQueueOfWhichNothingWasToldIsToldFromItsFront) {
   root->samplesEnq(1);
   root->samplesEnq(2);
   root->samplesDeq();
   source.take();
   Kiv::AttributeId const samples = Stem::kivTypeImpl.field(std::string_view("samples"))->fieldId;
   FlowOut flow(*root, false);
   flow.kivIsDirtyIs(samples, true);
   EXPECT_EQ(run(flow, 0), 0);
   EXPECT_EQ(source.sent(),
             "front 01000000.298 00000002; enqueue 01000000.298 000000024000000000000000");
   flow.kivIsDirtyIs(samples, true);
   EXPECT_EQ(run(flow, 0), 0);
   EXPECT_EQ(source.sent(), "front 01000000.298 00000002");
}

TEST_F(StreamFlowOut, AFullOutputGivesTheIdToResumeAt) {
   // Four texts of this size fill the output; the fifth must wait, and so must what follows.
   Kiv::AttributeId const text = Stem::kivTypeImpl.field(std::string_view("text"))->fieldId;
   root->textIs(std::string(250000, 'x'));
   FlowOut flow(*root, false);
   for (int i = 0; i != 3; ++i) {
      flow.kivIsDirtyIs(text, true);
      EXPECT_EQ(run(flow, 0), 0);
   }
   flow.kivIsDirtyIs(258, true);
   flow.kivIsDirtyIs(text, true);
   flow.kivIsDirtyIs(Kiv::AttributeId(text + 1), true);
   EXPECT_EQ(run(flow, 0), text);
   EXPECT_FALSE(flow.kivIsDirty(258));
   EXPECT_EQ(run(flow, text), text);
   source.take();
   EXPECT_EQ(run(flow, text), 0);
   EXPECT_FALSE(flow.dirty());
   std::vector<std::string> const rest = lines(source.take());
   ASSERT_EQ(rest.size(), 2u);
   EXPECT_EQ(rest[0].substr(0, 16), "set 01000000." + std::to_string(text));
}

TEST_F(StreamFlowOut, ABookmarkIsTakenBackOnce) {
   auto const flow = flowOut(false, 260);
   EXPECT_EQ(flow->bookmark(), 260);
   EXPECT_EQ(flow->kivFlowOutBookmarkDeq(), 260);
   EXPECT_EQ(flow->kivFlowOutBookmarkDeq(), 0);
   flow->kivFlowOutBookmarkEnq(261);
   EXPECT_DEATH(flow->kivFlowOutBookmarkEnq(262), "!rsc->bookmark\\(\\)");
}

TEST_F(StreamFlowOut, DirtyKeysAreKeptByCollection) {
   auto const flow = flowOut(false);
   auto const& field = *Stem::kivTypeImpl.field(std::string_view("byNumber"));
   EXPECT_EQ(flow->dirtyKeys(field, false), nullptr);
   U32 const key = 5;
   flow->dirtyKeys(field, true)->insert(&key, false);
   EXPECT_TRUE(flow->hasDirtyCollKeys(field.fieldId));
   EXPECT_TRUE(flow->dirtyKeys(field, false)->has(&key));
   flow->dirtyKeys(field, false)->remove(&key);
   EXPECT_FALSE(flow->hasDirtyCollKeys(field.fieldId));
}

TEST_F(StreamFlowOut, StreamAdapterAnswersForOwnAndInheritedIdsOnly) {
   Sa adapter(*source.session, *root);
   Sarn::Change const change{*root, 259, nullptr, nullptr, nullptr};
   EXPECT_EQ(stream->streamAdapterOnAttribute(adapter, 259, &change), 1);
   EXPECT_EQ(source.sent(), "set 01000000.259 c8");
   Kiv::AttributeId const secret = Stem::kivTypeImpl.field(std::string_view("secret"))->fieldId;
   EXPECT_EQ(stream->streamAdapterOnAttribute(adapter, secret, &change), 1);
   EXPECT_EQ(stream->streamAdapterOnAttribute(adapter, 9999, &change), 0);
   EXPECT_EQ(source.sent(), "");
   auto const hedge = KivTest::hedgeFactory("h");
   auto const leaf = hedge->wideLeafIs(1, true);
   source.hub.rootIs(hedge);
   Sa wide(*source.session, *leaf);
   Sarn::Change const ticks{*leaf, 261, nullptr, nullptr, nullptr};
   auto const functions = leaf->kivType().entity->stream;
   EXPECT_EQ(functions->streamAdapterOnAttribute(wide, 261, &ticks), 1);
   EXPECT_EQ(functions->streamAdapterOnAttribute(wide, 258, &ticks), 1);
   EXPECT_EQ(functions->streamAdapterOnAttribute(wide, 257, &ticks), 0);
}

}  // namespace

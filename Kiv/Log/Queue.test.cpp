// Queues whose numbers differ from the reader's: through a relay, from a writer, and during a walk.
#include <algorithm>

#include "KivTest/StreamStop.test.h"

using namespace StreamTesting;

namespace {

U16 samplesId() {
   return Stem::kivTypeImpl.field("samples")->fieldId;
}

Bytes pieceOf(Session& session, std::size_t most) {
   auto const piece = session.output();
   std::size_t const size = std::min(most, piece.size);
   Bytes bytes(piece.begin, piece.begin + size);
   session.sent(size);
   return bytes;
}

/// A source, a relay that offers its mirror, and a reader of the relay.
class StreamRelay : public testing::Test {
protected:
   explicit StreamRelay(Limits const& limits = {}) : relay(limits), reader(limits) {
      relay.hub.rootIs(between);
      serving = std::make_unique<Session>(relay.hub);
   }
   ~StreamRelay() override {
      serving.reset();
      relay.session.reset();
      reader.session.reset();
   }

   /// Connects the relay to a new source that offers `root`.
   void relayIsConnectedTo(Sarn::Ptr<Stem> const& root) {
      relay.session.reset();
      source = std::make_unique<End>();
      source->hub.rootIs(root);
      relay.connect();
      relay.session->mountIs(between);
      for (bool moved = true; moved;) {
         Bytes const forth = source->take();
         Bytes const back = relay.take();
         moved = !forth.empty() || !back.empty();
         relay.receive(forth);
         source->receive(back);
      }
      relay.told();
   }
   void readerIsConnected() {
      reader.session->mountIs(copy);
      Bytes const asked = reader.take();
      serving->received(asked.data(), asked.size());
   }
   /// Carries everything to the reader.
   Bytes carried() {
      Bytes bytes;
      while (serving->output().size != 0) {
         Bytes const piece = pieceOf(*serving, ~std::size_t(0));
         bytes.insert(bytes.end(), piece.begin(), piece.end());
         reader.receive(piece);
      }
      return bytes;
   }
   static Sarn::Ptr<Stem> rootWith(int elements, int taken) {
      auto root = KivTest::stemFactory("test");
      for (int i = 0; i != elements; ++i) {
         root->samplesEnq(i);
      }
      for (int i = 0; i != taken; ++i) {
         root->samplesDeq();
      }
      return root;
   }

   std::unique_ptr<End> source;
   Sarn::Ptr<Stem> between = KivTest::stemFactory("test");
   Sarn::Ptr<Stem> copy = KivTest::stemFactory("test");
   End relay;
   End reader;
   std::unique_ptr<Session> serving;
};

class StreamNarrowRelay : public StreamRelay {
protected:
   StreamNarrowRelay() : StreamRelay(narrow(1000)) {}
};

TEST_F(StreamNarrowRelay, AReaderThatStopsInsideAQueueGetsItWhenItIsNumberedLowerMeanwhile) {
   auto const first = rootWith(300, 100);
   auto const second = rootWith(3, 0);
   relayIsConnectedTo(first);
   readerIsConnected();
   while (copy->samplesCount() < 20) {
      reader.receive(pieceOf(*serving, 100));
   }
   ASSERT_LT(copy->samplesCount(), 100u);
   relayIsConnectedTo(second);
   carried();
   EXPECT_EQ(KivTest::firstDifference(*second, *copy), "");
   EXPECT_EQ(reader.session->closeReason(), "");
}

TEST_F(StreamNarrowRelay, AReaderThatStopsInsideAQueueGetsItWhenTheNewNumbersAreAmongTheOldOnes) {
   auto const first = rootWith(300, 0);
   auto second = rootWith(200, 0);
   for (int i = 0; i != 100; ++i) {
      second->samplesDeq();
   }
   relayIsConnectedTo(first);
   readerIsConnected();
   while (copy->samplesCount() < 120) {
      reader.receive(pieceOf(*serving, 100));
   }
   relayIsConnectedTo(second);
   carried();
   EXPECT_EQ(KivTest::firstDifference(*second, *copy), "");
}

TEST_F(StreamRelay, AReaderThatIsUpToDateGetsAQueueThatIsNumberedLower) {
   relayIsConnectedTo(rootWith(9, 4));
   readerIsConnected();
   carried();
   EXPECT_EQ(copy->samplesCount(), 5u);
   auto const second = rootWith(2, 0);
   relayIsConnectedTo(second);
   std::string const id = " 01000000." + std::to_string(samplesId()) + " ";
   std::string const told = joined(lines(carried()));
   std::string const expected = "collectionBegin" + id + "00000001; enqueue" + id +
                                "000000010000000000000000; enqueue" + id +
                                "000000023ff0000000000000";
   EXPECT_NE(told.find(expected), std::string::npos) << told;
   EXPECT_EQ(KivTest::firstDifference(*second, *copy), "");
}

class StreamWalkedQueue : public StreamTest {
protected:
   StreamWalkedQueue() : StreamTest(narrow(1000)) {}
};

TEST_F(StreamWalkedQueue, TellsAnElementOnceThatCameWhileTheQueueWasReplayed) {
   for (int i = 0; i != 100; ++i) {
      root->samplesEnq(i);
   }
   mirror.session->mountIs(copy);
   source.receive(mirror.take());
   mirror.receive(source.take());
   mirror.session.reset();
   copy->samplesDelAll();
   // Again, stopping inside the queue.
   source.connect();
   mirror.connect();
   mirror.session->mountIs(copy);
   source.receive(mirror.take());
   auto const some = [&](std::size_t most) {
      Bytes const bytes = pieceOf(*source.session, most);
      mirror.receive(bytes);
      return !bytes.empty();
   };
   while (copy->samplesCount() < 20) {
      some(100);
   }
   root->u8Is(77);
   root->samplesEnq(100);
   // The walk ends after the queue; what has changed meanwhile is sent after it.
   struct Count : Kiv::Observer {
      void onChange(Kiv::Change const& change) override {
         made += change.attributeId == samplesId() ? 1 : 0;
      }
      int made = 0;
   } count;
   copy->observerAdd(count);
   std::size_t const before = copy->samplesCount();
   for (int more = 101; some(60); ++more) {
      if (more < 160) {
         root->samplesEnq(more);
         root->u8Is(static_cast<U8>(more));
      }
   }
   copy->observerDel(count);
   EXPECT_EQ(count.made, static_cast<int>(root->samplesCount() - before));
   expectEqual();
}

TEST_F(StreamWalkedQueue, IsNotMentionedAgainAlthoughItHasChangedWhileItWasReplayed) {
   for (int i = 0; i != 300; ++i) {
      root->samplesEnq(i);
   }
   mirror.session->mountIs(copy);
   source.receive(mirror.take());
   std::vector<std::string> told;
   auto const carryPiece = [&] {
      Bytes const bytes = pieceOf(*source.session, ~std::size_t(0));
      mirror.receive(bytes);
      for (std::string const& one : lines(bytes)) {
         if (one.find("." + std::to_string(samplesId()) + " ") != one.npos) {
            told.push_back(one.substr(0, one.find(' ')));
         }
      }
      return !bytes.empty();
   };
   while (copy->samplesCount() < 20) {
      carryPiece();
   }
   ASSERT_LT(copy->samplesCount(), 100u) << "the replay is far from its end";
   root->samplesEnq(300);
   while (carryPiece()) {
   }
   EXPECT_EQ(std::count(told.begin(), told.end(), "enqueue"), 301);
   EXPECT_EQ(told.back(), "enqueue");
   expectEqual();
}

class StreamServedQueue : public StreamTest {
protected:
   StreamServedQueue() {
      mount(MountMode::writer);
      // Let the writer bind the root and see everything.
      copy->samplesEnq(1);
      carry();
      copy->u8Is(1);
      carry();
      copy->u8Is(2);
      carry();
   }
};

TEST_F(StreamServedQueue, GetsTheWholeQueueBackForAWrongNumberAlthoughNothingIsOnItsWay) {
   copy->u8Is(3);
   source.receive(mirror.take());
   ASSERT_EQ(source.sent(), "");
   Bytes const wrong = message(Opcode::enqueue, copy->streamHandle(), samplesId(),
                               concat(u32(77), Bytes{0x40, 0, 0, 0, 0, 0, 0, 0}));
   source.receive(wrong);
   std::string const id = " 01000000." + std::to_string(samplesId()) + " ";
   EXPECT_EQ(source.sent(), "collectionBegin" + id + "00000001; enqueue" + id +
                                  "000000013ff0000000000000; enqueue" + id +
                                  "000000024000000000000000");
}

TEST_F(StreamServedQueue, GoesBackWholeWithNothingTwiceWhenTheWritersElementCrossesAnything) {
   copy->u8Is(3);
   source.receive(mirror.take());
   root->u16Is(7);       // on its way
   copy->samplesEnq(2);  // by the right number
   source.receive(mirror.take());
   std::string const id = " 01000000." + std::to_string(samplesId()) + " ";
   EXPECT_EQ(source.sent(), "set 01000000.261 0007; collectionBegin" + id + "00000001; enqueue" +
                                  id + "000000013ff0000000000000; enqueue" + id +
                                  "000000024000000000000000");
}

/// Appends one element, at the first change of the queue.
struct AppendsOnce : Kiv::Observer {
   explicit AppendsOnce(Stem& watched) : root(watched) { root.observerAdd(*this); }
   ~AppendsOnce() { root.observerDel(*this); }
   void onChange(Kiv::Change const& change) override {
      if (change.attributeId == samplesId() && !done) {
         done = true;
         root.samplesEnq(5);
      }
   }
   Stem& root;
   bool done = false;
};

TEST_F(StreamServedQueue, IsTheSameAgainWhenAnObserverAppendsWhileTheWriterDropsItsElements) {
   copy->samplesEnq(2);  // crosses the next change
   root->samplesEnq(3);
   Bytes const fromSource = source.take();
   {
      AppendsOnce const observer(*copy);
      mirror.receive(fromSource);
      ASSERT_TRUE(observer.done);
   }
   auto const& samples = copy->samplesAll();
   EXPECT_EQ(samples.size(), samples.nextSequence() - samples.frontSequence());
   carry();
   expectEqual();
}

/// Takes the first element when it is notified of a change of the queue, once.
struct TakesOnce : Kiv::Observer {
   explicit TakesOnce(Stem& watched) : root(watched) { root.observerAdd(*this); }
   ~TakesOnce() { root.observerDel(*this); }
   void onChange(Kiv::Change const& change) override {
      if (change.attributeId == samplesId() && !done) {
         done = true;
         root.samplesDeq();
      }
   }
   Stem& root;
   bool done = false;
};

TEST_F(StreamServedQueue, KeepsTheOthersWhenAnObserverOfTheWriterTakesOneMoreThanTheSource) {
   for (double const sample : {1, 2, 3, 4}) {
      root->samplesEnq(sample);
   }
   carry();
   root->samplesDeq();
   Bytes const fromSource = source.take();
   {
      TakesOnce const observer(*copy);
      mirror.receive(fromSource);
      ASSERT_TRUE(observer.done);
   }
   EXPECT_EQ(copy->samplesAll().size(), root->samplesAll().size() - 1);
   carry();
   expectEqual();
}

TEST_F(StreamServedQueue, KeepsTheOthersWhenAnObserverOfTheSourceTakesOneMoreThanTheWriter) {
   for (double const sample : {1, 2, 3, 4}) {
      root->samplesEnq(sample);
   }
   carry();
   std::size_t const size = root->samplesAll().size();
   copy->samplesDeq();
   Bytes const fromWriter = mirror.take();
   {
      TakesOnce const observer(*root);
      source.receive(fromWriter);
      ASSERT_TRUE(observer.done);
   }
   EXPECT_EQ(root->samplesAll().size(), size - 2);
   carry();
   expectEqual();
}

/// A writer whose output is full.
class StreamFullWriter : public StreamStopTest {
protected:
   StreamFullWriter() {
      mirror.connect();
      source.connect();
      mount(MountMode::writer);
      fillUp(mirror, *copy);
   }
   /// What the writer says of the queue, of all that it has to say.
   std::string saidOfQueue() {
      std::string said;
      for (Bytes bytes; bytes = pieceOf(*mirror.session, ~std::size_t(0)), !bytes.empty();) {
         source.receive(bytes);
         for (std::string const& one : lines(bytes)) {
            if (one.find("." + std::to_string(samplesId())) != one.npos) {
               said += (said.empty() ? "" : "; ") + one;
            }
         }
      }
      return said;
   }
};

TEST_F(StreamFullWriter, ThatHasAskedForAQueueTellsWhatItAppendsAfterThatOnly) {
   copy->samplesEnq(5);
   root->samplesEnq(7);  // crosses the first
   mirror.receive(source.take());
   copy->byNumberIs(1, std::string(1142, 'x'));  // the output is full again behind the question
   copy->lastIs(9);
   source.receive(pieceOf(*mirror.session, ~std::size_t(0)));
   ASSERT_FALSE(mirror.session->upToDate()) << "the last member waits";
   copy->samplesEnq(6);
   std::string const id = " 01000000." + std::to_string(samplesId());
   EXPECT_EQ(saidOfQueue(), "collectionEnd" + id + "; front" + id + " 00000001; enqueue" + id +
                                  " 000000024018000000000000");
   carry();
   expectEqual();
}

/// The numbers of the queue wrap around: its third element is number 0.
class StreamQueueWrap : public StreamStopTest {
protected:
   StreamQueueWrap() {
      source.connect();
      mirror.connect();
      // The only way to such numbers without four billion elements.
      const_cast<Sarn::RQueue<double>&>(root->samplesAll()).forceSequenceNumber(0xfffffffe);
   }
   void enqueue(int count) {
      for (int i = 0; i != count; ++i) {
         root->samplesEnq(0);
      }
   }
   static std::string front(char const* sequence) { return at("front", "samples", sequence); }
   static std::string element(std::string const& sequence) {
      return at("enqueue", "samples", sequence + "0000000000000000");
   }
};

TEST_F(StreamQueueWrap, AReaderThatWasBehindIsToldOfEachElementOnce) {
   mount();
   stop();
   enqueue(1);
   EXPECT_EQ(resume(), front("fffffffe") + "; " + element("fffffffe"));
   stop();
   enqueue(1);
   EXPECT_EQ(resume(), front("fffffffe") + "; " + element("ffffffff"));
   stop();
   enqueue(2);
   EXPECT_EQ(resume(), front("fffffffe") + "; " + element("00000000") + "; " + element("00000001"));
   stop();
   enqueue(1);
   root->samplesDeq();
   EXPECT_EQ(resume(), front("ffffffff") + "; " + element("00000002"));
   stop();
   for (int i = 0; i != 3; ++i) {
      root->samplesDeq();
   }
   EXPECT_EQ(resume(), front("00000002"));
}

TEST_F(StreamQueueWrap, WhatAWriterTakesIsTakenAtTheSource) {
   mount(MountMode::writer);
   enqueue(5);
   carry();
   for (int i = 0; i != 4; ++i) {
      copy->samplesDeq();
      carry();
   }
   EXPECT_EQ(root->samplesAll().frontSequence(), 2u);
   EXPECT_EQ(root->samplesCount(), 1u);
   expectEqual();
}

TEST_F(StreamQueueWrap, AWriterDoesNotAskAgainForWhatIsTakenAtTheSource) {
   mount(MountMode::writer);
   enqueue(5);
   carry();
   for (int i = 0; i != 4; ++i) {
      root->samplesDeq();
      mirror.receive(source.take());
      EXPECT_EQ(mirror.sent(), "");
   }
   expectEqual();
}

TEST_F(StreamQueueWrap, IsEmptiedElementByElement) {
   mount();
   enqueue(5);
   root->samplesDelAll();
   EXPECT_EQ(root->samplesCount(), 0u);
   carry();
   expectEqual();
}

}  // namespace

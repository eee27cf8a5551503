// Exceptions of observers and listeners are not the peer's fault: `received` throws them, the
// message is applied in full, and the next call goes on.
#include "Kiv/Exception.h"
#include "KivTest/Stream.test.h"

using namespace StreamTesting;

namespace {

/// Throws an exception of the framework's at every change here or below.
struct Thrower final : Kiv::Observer {
   explicit Thrower(Kiv::Entity& observed) : entity(observed) {
      entity.observerAdd(*this, Kiv::Scope::subtree);
   }
   ~Thrower() { entity.observerDel(*this, Kiv::Scope::subtree); }
   void onChange(Kiv::Change const&) override { throw Kiv::Exception("the observer's own"); }

   Kiv::Entity& entity;
};

class StreamThrow : public StreamTest {
protected:
   StreamThrow() {
      mount(MountMode::writer);
      handle = root->streamHandle();
   }
   Bytes make(Opcode opcode, char const* name, Bytes const& body) const {
      return message(opcode, handle, idOf(name), body);
   }
   /// Carries the source's output to a mirror with a `Thrower`; returns how often it threw.
   int carryToThrower() {
      Bytes bytes = source.take();
      int thrown = 0;
      Thrower const thrower(*copy);
      for (bool more = true; more; bytes.clear()) {
         more = false;
         try {
            mirror.receive(bytes);
         } catch (Kiv::Exception const& error) {
            EXPECT_STREQ(error.what(), "the observer's own");
            ++thrown;
            more = true;
         }
      }
      return thrown;
   }
   /// Expects that mirror and source are equal and still send changes to each other.
   void expectWhole() {
      EXPECT_EQ(mirror.session->closeReason(), "");
      carry();
      expectEqual();
      copy->u16Is(static_cast<U16>(copy->u16() + 1));
      root->u32Is(root->u32() + 1);
      carry();
      expectEqual();
      EXPECT_EQ(source.session->closeReason(), "");
   }

   U32 handle = 0;
};

/// Calls a session's `received` from inside a change that the session applies.
struct Feeder final : Kiv::Observer {
   explicit Feeder(StreamTesting::End& where) : end(where) {}
   void onChange(Kiv::Change const&) override { end.receive({}); }

   StreamTesting::End& end;
};

using StreamThrowDeathTest = StreamThrow;

TEST_F(StreamThrowDeathTest, ReceivingInsideWhatIsReceivedIsAProgrammingError) {
   Feeder feeder(mirror);
   copy->observerAdd(feeder);
   EXPECT_DEATH(mirror.receive(make(Opcode::set, "u8", {7})), "!taking_");
   copy->observerDel(feeder);
   mirror.receive(make(Opcode::set, "u8", {7}));
   EXPECT_EQ(copy->u8(), 7);
}

TEST_F(StreamThrow, AnObserversExceptionComesOutAndTheNextCallAppliesTheRest) {
   Bytes const both = concat(make(Opcode::set, "u8", {7}), make(Opcode::set, "s8", {1}));
   {
      Thrower const thrower(*copy);
      EXPECT_THROW(mirror.receive(both), Kiv::Exception);
      EXPECT_FALSE(mirror.session->closed());
      EXPECT_TRUE(mirror.session->interrupted());
      EXPECT_EQ(copy->u8(), 7);
      EXPECT_EQ(copy->s8(), -5);
   }
   mirror.receive({});
   EXPECT_FALSE(mirror.session->interrupted());
   EXPECT_EQ(copy->s8(), 1);
   EXPECT_EQ(mirror.told(), "replaying; complete");
}

TEST_F(StreamThrow, WhateverItIsTheSessionSaysThatBytesMayWait) {
   struct Other final : Kiv::Observer {
      explicit Other(Stem& observed) : root(observed) { root.observerAdd(*this); }
      ~Other() { root.observerDel(*this); }
      void onChange(Kiv::Change const&) override { throw 7; }
      Stem& root;
   } const other(*copy);
   Bytes const both = concat(make(Opcode::set, "u8", {7}), make(Opcode::set, "s8", {1}));
   EXPECT_THROW(mirror.receive(both), int);
   EXPECT_TRUE(mirror.session->interrupted());
   EXPECT_EQ(copy->s8(), -5);
   EXPECT_THROW(mirror.receive({}), int);
   EXPECT_TRUE(mirror.session->interrupted());
   EXPECT_EQ(copy->s8(), 1);
   mirror.receive({});
   EXPECT_FALSE(mirror.session->interrupted());
}

TEST_F(StreamThrow, AnExceptionOfASetterThatAnObserverCallsIsTheObservers) {
   struct Follower final : Kiv::Observer {
      explicit Follower(Stem& observed) : root(observed) { root.observerAdd(*this); }
      ~Follower() { root.observerDel(*this); }
      void onChange(Kiv::Change const& change) override {
         if (change.attributeId == idOf("u8")) {
            root.dialIs(root.u8());
         }
      }
      Stem& root;
   } const follower(*copy);
   EXPECT_THROW(mirror.receive(make(Opcode::set, "u8", {7})), Kiv::RangeException);
   EXPECT_FALSE(mirror.session->closed());
   // A value out of range from the peer itself is still its fault, even right after that.
   mirror.receive(make(Opcode::set, "dial", {7}));
   EXPECT_NE(mirror.session->closeReason().find("maxDial not allowed"), std::string::npos);
}

TEST_F(StreamThrow, AFaultBehindAnExceptionThatAnObserverHasCaughtClosesTheSession) {
   Thrower const thrower(*copy->coreIs());
   struct Catcher final : Kiv::Observer {
      explicit Catcher(Stem& observed) : root(observed) { root.observerAdd(*this); }
      ~Catcher() { root.observerDel(*this); }
      void onChange(Kiv::Change const&) override {
         EXPECT_THROW(root.core()->temperatureIs(root.core()->temperature() + 1), Kiv::Exception);
      }
      Stem& root;
   } const catcher(*copy);
   mirror.receive(concat(make(Opcode::set, "u8", {7}), make(Opcode::set, "dial", {99})));
   EXPECT_NE(mirror.session->closeReason().find("maxDial not allowed"), std::string::npos);
}

TEST_F(StreamThrow, AnElementAndItsErasureAreApplied) {
   root->byNumberIs(1, "one");
   root->byTextIs("two", 2);
   KivTest::Record record;
   record.keyIs(3);
   root->recordIs(record);
   EXPECT_EQ(carryToThrower(), 3);
   expectWhole();
   root->byNumberDel(1);
   root->byTextDel("two");
   EXPECT_EQ(carryToThrower(), 2);
   expectWhole();
}

TEST_F(StreamThrow, AChildIsCreatedAndItsLaterMessagesArrive) {
   root->leafIs(1, true, KivTest::Opaque(1.0))->ticksInc(1);
   root->leaf(1)->twigIs(KivTest::Level::high)->weightIs(2.0);
   root->coreIs()->labelIs("changed");
   root->badgeIs("b")->brightnessIs(9);
   EXPECT_GE(carryToThrower(), 7);
   expectWhole();
   copy->leaf(1)->litIs(false);
   copy->badge()->brightnessIs(10);
   expectWhole();
}

TEST_F(StreamThrow, AChildIsRemovedAndItsHandleForgotten) {
   root->leafIs(1, true, KivTest::Opaque(1.0))->twigIs(KivTest::Level::high);
   root->coreIs();
   carry();
   Sarn::Ptr<KivTest::Leaf> const leaf = copy->leaf(1);
   Sarn::Ptr<KivTest::Core> const core = copy->core();
   root->leafDel(1);
   root->coreDel();
   EXPECT_EQ(carryToThrower(), 2);
   // Nothing else holds what was removed.
   EXPECT_EQ(leaf->userCount(), 1u);
   EXPECT_EQ(core->userCount(), 1u);
   root->leafIs(1, false, KivTest::Opaque(2.0));
   expectWhole();
}

TEST_F(StreamThrow, AReaderForgetsAChildThatIsRemoved) {
   source.connect();
   mirror.connect();
   mount();
   root->leafIs(1, true, KivTest::Opaque(1.0))->twigIs(KivTest::Level::high);
   carry();
   Sarn::Ptr<KivTest::Leaf> const leaf = copy->leaf(1);
   root->leafDel(1);
   EXPECT_EQ(carryToThrower(), 1);
   EXPECT_EQ(leaf->userCount(), 1u);
   root->leafIs(1, false, KivTest::Opaque(2.0))->ticksInc(1);
   EXPECT_GE(carryToThrower(), 1);
   carry();
   expectEqual();
}

TEST_F(StreamThrow, AChildThatAnObserverRemovesAndThrowsIsNobody) {
   struct Remover final : Kiv::Observer {
      explicit Remover(Stem& observed) : root(observed) { root.observerAdd(*this); }
      ~Remover() { root.observerDel(*this); }
      void onChange(Kiv::Change const& change) override {
         if (change.attributeId == idOf("leaf") && change.oldValue == nullptr) {
            root.leafDel(1);
            throw Kiv::Exception("the observer's own");
         }
      }
      Stem& root;
   } const remover(*copy);
   root->leafIs(1, true, KivTest::Opaque(1.0))->ticksInc(1);
   EXPECT_THROW(mirror.receive(source.take()), Kiv::Exception);
   mirror.receive({});
   EXPECT_EQ(mirror.session->closeReason(), "");
   carry();
   EXPECT_EQ(root->leafCount(), 0u);
   expectWhole();
}

TEST_F(StreamThrow, AQueueIsWhatTheSourcesIs) {
   root->samplesEnq(1.0);
   root->samplesEnq(2.0);
   EXPECT_EQ(carryToThrower(), 2);
   expectWhole();
   root->samplesDeq();
   EXPECT_EQ(carryToThrower(), 1);
   expectWhole();
}

TEST_F(StreamThrow, AWritersQueueIsWhatTheSourcesIs) {
   root->samplesEnq(1.0);
   root->samplesEnq(2.0);
   carry();
   copy->samplesDeq();
   copy->samplesEnq(3.0);
   root->samplesEnq(4.0);  // meanwhile, so the writer's changes do not fit
   {
      Thrower const thrower(*root);
      Bytes bytes = mirror.take();
      for (bool more = true; more; bytes.clear()) {
         more = false;
         try {
            source.receive(bytes);
         } catch (Kiv::Exception const&) {
            more = true;
         }
      }
   }
   expectWhole();
}

TEST_F(StreamThrow, WhatAReplayDoesNotNameIsRemoved) {
   copy->byNumberIs(8, "eight");
   copy->leafIs(8, false, KivTest::Opaque(8.0));
   carry();
   mirror.connect();
   root->byNumberDel(8);
   root->leafDel(8);
   root->byNumberIs(9, "nine");
   source.connect();
   Mount& made = mirror.session->mountIs(copy);
   mirror.receive(source.take());
   source.receive(mirror.take());
   EXPECT_GE(carryToThrower(), 3);
   EXPECT_TRUE(made.complete());
   carry();
   expectEqual();
}

/// A listener that throws an exception of the framework's at every call.
struct ThrowingListener final : SessionListener {
   void onMount(Session&, Mount&) override { fail("onMount"); }
   void onSynced(Session&, U32) override { fail("onSynced"); }
   void onRoots(Session&, std::vector<Kiv::NboAttrLog::OfferedRoot> const&) override {
      fail("onRoots");
   }
   Sarn::String onMountAsked(Session&, Kiv::NamedEntity const&, MountMode) override {
      fail("onMountAsked");
   }
   void onMountRefused(Session&, Kiv::NboAttrLog::OfferedRoot const&,
                       Sarn::String const&) override {
      fail("onMountRefused");
   }
   [[noreturn]] static void fail(char const* where) { throw Kiv::Exception(where); }
};

std::string thrownBy(Session& session, Bytes const& bytes) {
   try {
      session.received(bytes.data(), bytes.size());
   } catch (Kiv::Exception const& error) {
      return error.what();
   }
   return "nothing";
}

Bytes outputOf(Session& session) {
   auto const piece = session.output();
   Bytes const bytes(piece.begin, piece.begin + piece.size);
   session.sent(bytes.size());
   return bytes;
}

TEST_F(StreamThrow, AListenersExceptionComesOutToo) {
   ThrowingListener listener;
   Hub hub;
   Session session(hub, &listener);
   source.connect();
   Sarn::Ptr<Stem> const again = KivTest::stemFactory("test");
   Mount const& made = session.mountIs(again);
   session.rootsAsk();
   session.syncIs(1);
   source.receive(outputOf(session));
   Bytes const answer = source.take();
   EXPECT_EQ(thrownBy(session, answer), "onMount");
   EXPECT_EQ(made.state(), Mount::State::replaying);
   EXPECT_EQ(thrownBy(session, {}), "onMount");
   EXPECT_TRUE(made.complete());
   EXPECT_EQ(thrownBy(session, {}), "onRoots");
   EXPECT_EQ(thrownBy(session, {}), "onSynced");
   EXPECT_EQ(thrownBy(session, {}), "nothing");
   EXPECT_FALSE(session.closed());
}

TEST_F(StreamThrow, AMountThatNobodyCouldDecideIsRefused) {
   ThrowingListener listener;
   Session session(source.hub, &listener);
   Hub hub;
   Session asking(hub);
   Mount const& there = asking.mountIs(KivTest::stemFactory("test"));
   Mount const& absent = asking.mountIs(KivTest::stemFactory("absent"));
   EXPECT_EQ(thrownBy(asking, outputOf(session)), "nothing");
   EXPECT_EQ(thrownBy(session, outputOf(asking)), "onMountAsked");
   EXPECT_EQ(thrownBy(session, {}), "onMountRefused");
   EXPECT_EQ(thrownBy(session, {}), "nothing");
   EXPECT_EQ(thrownBy(asking, outputOf(session)), "nothing");
   EXPECT_EQ(there.state(), Mount::State::refused);
   EXPECT_EQ(there.reason(), "whether test may be mounted could not be decided");
   EXPECT_EQ(absent.state(), Mount::State::refused);
   EXPECT_FALSE(asking.closed());
}

}  // namespace

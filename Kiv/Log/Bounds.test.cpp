// The bounds of sessions, in bytes, time and number: each at the bound and one beyond it.
#include "KivTest/Stream.test.h"

using namespace StreamTesting;

namespace {

constexpr U64 second = 1'000'000'000;

/// The number of entities in a tree, its root included.
U32 entitiesIn(Kiv::Entity& tree) {
   U32 count = 1;
   Kiv::forEachChild(tree, [&count](Kiv::Entity& child, Kiv::FieldDescriptor const&, void const*) {
      count += entitiesIn(child);
   });
   return count;
}

/// A source with a clock, and peers whose bytes the test makes up.
class StreamBounds : public StreamTest {
protected:
   explicit StreamBounds(Limits const& limits = {}) : StreamTest(limits) {
      clockNow = 100 * second;
      source.hub.clockIs(&testClock);
      source.connect();
      greeting = End().take();
   }
   ~StreamBounds() override { clockNow = 0; }

   void greet() {
      source.take();
      source.receive(greeting);
   }
   void mountRoot(MountMode mode) {
      greet();
      source.receive(message(
            Opcode::mount, 0, 0,
            concat(u32(1), Bytes{static_cast<U8>(mode)}, text("KivTest::Stem"), text("test"))));
      ASSERT_EQ(source.session->closeReason(), "");
   }
   /// The first `size` bytes of a message that sets a text.
   Bytes part(std::size_t whole, std::size_t size) {
      Bytes bytes = message(Opcode::set, root->streamHandle(), idOf("text"), Bytes(whole));
      bytes.resize(size);
      return bytes;
   }
   std::string reason() const { return source.session->closeReason(); }

   Bytes greeting;
};

TEST(StreamLimits, AreCheckedByTheHub) {
   Limits limits;
   limits.longestMessage = 0xffffff;
   limits.longestValue = 0xffffffff;
   limits.outputBuffer = 12;
   Hub const hub(limits);
   Limits const good = limits;
   limits.longestMessage = 0x1000000;
   EXPECT_DEATH(Hub{limits}, "limits.longestMessage <= longestEncodableBody");
   limits = good;
   limits.longestValue = 0x100000000;
   EXPECT_DEATH(Hub{limits}, "limits.longestValue <= longestEncodableValue");
   limits = good;
   limits.outputBuffer = 11;
   EXPECT_DEATH(Hub{limits}, "limits.outputBuffer > smallestOutputBuffer");
}

TEST_F(StreamBounds, APeerThatMountsNothingHoldsLittleHoweverMuchItAsks) {
   greet();
   for (int i = 0; !source.session->closed(); ++i) {  // none of the answers is read
      source.receive(message(Opcode::sync, 0, 0, u32(1)));
      source.receive(message(Opcode::listRoots, 0, 0, {}));
      ASSERT_LE(source.session->heldBytes(), source.hub.limits().unmounted);
      ASSERT_LT(i, 100000);
   }
   EXPECT_EQ(reason().substr(reason().rfind(": ")),
             ": more than 64 requests wait for an answer at offset 4");
}

TEST_F(StreamBounds, AnAnswerLongerThanWhatMayWaitIsGivenWhereNothingWaits) {
   for (int i = 0; i != 300; ++i) {
      source.hub.rootIs(KivTest::stemFactory(std::string(200, 'x') + std::to_string(i)));
   }
   greet();
   source.receive(message(Opcode::listRoots, 0, 0, {}));
   EXPECT_GT(source.session->output().size, source.hub.limits().unmounted);
   EXPECT_EQ(lines(source.take()).size(), 1u);
   EXPECT_EQ(reason(), "");
}

TEST_F(StreamBounds, APeerThatMayNotWriteSendsNoLongMessages) {
   mountRoot(MountMode::reader);
   std::size_t const most = source.hub.limits().unmounted;
   source.receive(part(most, 20));
   EXPECT_EQ(reason(), "");
   source.connect();
   mountRoot(MountMode::reader);
   source.receive(part(most + 1, 20));
   EXPECT_NE(reason().find("a message of 16385 bytes exceeds the bound of 16384"),
             std::string::npos)
         << reason();
}

TEST_F(StreamBounds, TheLongestMessageOfAWriterIsTakenAndOneByteMoreIsNot) {
   mountRoot(MountMode::writer);
   std::size_t const most = source.hub.limits().longestMessage;
   source.receive(message(Opcode::bind, 0x01000000, 0, u32(root->streamHandle())));
   Bytes whole = message(Opcode::set, 0x01000000, idOf("text"), text(std::string(most - 4, 'x')));
   source.receive(whole);
   EXPECT_EQ(reason(), "");
   EXPECT_EQ(root->text().size(), most - 4);
   source.receive(part(most + 1, 10));
   EXPECT_NE(reason().find("a message of 262145 bytes exceeds the bound of 262144"),
             std::string::npos)
         << reason();
}

TEST_F(StreamBounds, AHalfMessageHasATimeLimit) {
   greet();
   source.hub.expire();
   clockNow += 5 * second;
   source.hub.expire();
   EXPECT_EQ(source.hub.deadline(), 0u);
   Bytes const sync = message(Opcode::sync, 0, 0, u32(1));
   source.receive(Bytes(sync.begin(), sync.begin() + 3));
   U64 const limit = source.hub.limits().halfMessage;
   EXPECT_EQ(source.hub.deadline(), clockNow + limit);
   clockNow += limit - 1;
   source.receive({sync[3]});  // a byte now and then does not reset the time
   source.hub.expire();
   EXPECT_EQ(reason(), "");
   clockNow += 1;
   source.hub.expire();
   EXPECT_EQ(reason(), "the peer has left a message unfinished for 60000 ms, after 4 bytes");
   EXPECT_EQ(lines(source.take()).back().substr(0, 4), "bye ");
   EXPECT_EQ(source.hub.deadline(), 0u);
   EXPECT_EQ(source.session->heldBytes(), 0u);
}

TEST_F(StreamBounds, TheTimeOfAHalfMessageBeginsWithTheMessage) {
   greet();
   Bytes const sync = message(Opcode::sync, 0, 0, u32(1));
   source.receive(Bytes(sync.begin(), sync.begin() + 3));
   clockNow += 50 * second;
   // The rest, and the beginning of the next message.
   source.receive(concat(Bytes(sync.begin() + 3, sync.end()), Bytes{sync[0]}));
   clockNow += 50 * second;
   source.hub.expire();
   EXPECT_EQ(reason(), "");
   source.receive(Bytes(sync.begin() + 1, sync.end()));
   clockNow += 1000 * second;
   source.hub.expire();
   EXPECT_EQ(reason(), "");
}

TEST_F(StreamBounds, TheTimeOfAMessageInPartsBeginsWithItsFirstPart) {
   mountRoot(MountMode::writer);
   auto const part = [](U32 offset, std::size_t size) {
      return message(Opcode::part, 0, 0,
                     concat(Bytes{static_cast<U8>(Opcode::set)}, u32(300000), u32(offset),
                            Bytes(size, 'x')));
   };
   source.hub.expire();
   Bytes const first = part(0, 100);
   source.receive(Bytes(first.begin(), first.end() - 1));
   clockNow += 10 * second;
   source.receive({first.back()});
   U64 const limit = source.hub.limits().halfMessage;
   EXPECT_EQ(source.hub.deadline(), 105 * second) << "to free the buffer of the first bytes";
   // Neither a part now and then nor an idle buffer that is freed resets the time.
   U64 const begun = clockNow;
   clockNow += 6 * second;
   source.hub.expire();
   clockNow += 6 * second;
   source.hub.expire();
   EXPECT_EQ(source.hub.deadline(), begun + limit);
   clockNow = begun + limit - 1;
   source.receive(part(100, 1));
   source.hub.expire();
   EXPECT_EQ(reason(), "");
   clockNow += 1;
   source.hub.expire();
   EXPECT_EQ(reason(), "the peer has left a message unfinished for 60000 ms, after 101 bytes");
   source.take();
   EXPECT_EQ(source.session->heldBytes(), 0u);
}

TEST_F(StreamBounds, WithoutAClockAHalfMessageMayTakeForEver) {
   source.hub.clockIs(nullptr);
   greet();
   source.receive({1, 2, 3});
   EXPECT_EQ(source.hub.deadline(), 0u);
   source.hub.expire();
   source.hub.expire();
   EXPECT_EQ(reason(), "");
}

TEST_F(StreamBounds, WhatAClosedSessionCannotSendIsDroppedInTheEnd) {
   greet();
   source.session->close("enough");
   EXPECT_NE(source.session->output().size, 0u);
   EXPECT_EQ(source.hub.deadline(), clockNow + source.hub.limits().halfMessage);
   clockNow += source.hub.limits().halfMessage - 1;
   source.hub.expire();
   EXPECT_NE(source.session->output().size, 0u);
   clockNow += 1;
   source.hub.expire();
   EXPECT_EQ(source.session->output().size, 0u);
   EXPECT_EQ(source.session->heldBytes(), 0u);
   EXPECT_EQ(source.hub.deadline(), 0u);
}

TEST_F(StreamBounds, AnIdleSessionGivesItsBuffersBackAndGoesOn) {
   root->textIs(std::string(100000, 'x'));
   mount();
   EXPECT_GT(source.session->heldBytes(), 100000u);
   EXPECT_GT(source.hub.heldBytes(), 95000u);
   for (int i = 0; i != 2; ++i) {
      EXPECT_LE(source.hub.deadline(), clockNow + 5 * second);
      ASSERT_NE(source.hub.deadline(), 0u);
      EXPECT_GT(source.session->heldBytes(), 100000u);
      clockNow = std::max(clockNow, source.hub.deadline());
      source.hub.expire();
   }
   EXPECT_EQ(source.session->heldBytes(), 0u) << "changes are in the hub's ring";
   EXPECT_EQ(source.hub.heldBytes(), 0u);
   EXPECT_EQ(source.hub.deadline(), 0u);
   mirror.hub.expire();
   mirror.hub.expire();
   EXPECT_LE(mirror.session->heldBytes(), 4096u) << "without a clock, after two calls";
   root->u8Is(77);
   carry();
   expectEqual();
}

TEST_F(StreamBounds, ASessionThatIsUsedKeepsItsBuffers) {
   root->textIs(std::string(100000, 'x'));
   mount();
   for (int i = 0; i != 20; ++i) {
      clockNow += 4 * second;
      root->u8Is(static_cast<U8>(i));
      carry();
      source.hub.expire();
      EXPECT_GT(source.session->heldBytes(), 100000u);
   }
}

TEST_F(StreamBounds, WhatASessionHeldIsGivenBackWhenItEnds) {
   mountRoot(MountMode::writer);
   root->textIs(std::string(100000, 'x'));
   source.receive(part(50000, 40000));
   EXPECT_GT(source.hub.heldBytes(), 130000u);
   source.session.reset();
   EXPECT_EQ(source.hub.heldBytes(), 0u);
}

Limits fewBytes() {
   Limits limits;
   limits.sessionBytes = 20000;
   return limits;
}

/// Several readers whose sessions share a budget.
class StreamBytesOfAll : public StreamBounds {
protected:
   StreamBytesOfAll() : StreamBounds(fewBytes()) {}
};

TEST_F(StreamBytesOfAll, AReaderFallsBehindEarlierWhereOthersHoldTheBytes) {
   mount();
   Session stopped(source.hub);
   stopped.received(greeting.data(), greeting.size());
   Bytes const asked = message(Opcode::mount, 0, 0,
                               concat(u32(1), Bytes{0}, text("KivTest::Stem"), text("test")));
   stopped.received(asked.data(), asked.size());
   for (U32 i = 0; i != 5000; ++i) {
      root->u32Is(i);
      root->byNumberIs(i % 50, std::to_string(i));
      ASSERT_LE(source.hub.heldBytes(), 20000u);
      if (i % 10 == 0) {
         carry();
      }
   }
   EXPECT_FALSE(stopped.closed()) << stopped.closeReason();
   EXPECT_FALSE(stopped.upToDate());
   EXPECT_GT(source.hub.heldBytes(), 10000u) << "what it has not read";
   carry();
   EXPECT_EQ(reason(), "");
   expectEqual();
}

TEST_F(StreamBytesOfAll, ASessionThatNeedsMoreForOneMessageEnds) {
   mount();
   root->textIs(std::string(20000, 'x'));
   carry();
   expectEqual();
   EXPECT_EQ(reason(), "");
   root->textIs(std::string(25000, 'x'));
   carry();
   EXPECT_EQ(reason().substr(0, reason().find(": ")), "a message of 25014 bytes finds no room");
   EXPECT_NE(reason().find(" of 20000"), std::string::npos) << reason();
   EXPECT_EQ(mirror.session->closeReason(), "closed by the peer: " + reason());
}

TEST_F(StreamBytesOfAll, ASessionWithAHalfMessageThatFindsNoRoomEnds) {
   mountRoot(MountMode::writer);
   source.take();
   source.receive(part(200000, 15000));
   EXPECT_EQ(reason(), "");
   source.receive(Bytes(15000));
   EXPECT_EQ(reason().substr(0, reason().find(": ")),
             "a half message of 30000 bytes finds no room");
   EXPECT_LE(source.hub.heldBytes(), 20000u);
}

Limits twoOfAUser() {
   Limits limits;
   limits.sessionsOfUid = 2;
   return limits;
}

TEST(StreamSessionsOfUid, AreBounded) {
   Hub hub(twoOfAUser());
   std::vector<std::unique_ptr<Session>> sessions;
   auto const comes = [&](Kiv::NboAttrLog::PeerIdentity const& peer) -> Sarn::String {
      sessions.push_back(std::make_unique<Session>(hub));
      sessions.back()->peerIs(peer);
      sessions.back()->boundSessionsOfUid();
      return sessions.back()->closeReason();
   };
   EXPECT_EQ(comes({10, 1000, 100, "a"}), "");
   EXPECT_EQ(comes({11, 1000, 100, "b"}), "");
   EXPECT_EQ(comes({12, 1001, 100, "c"}), "") << "of another";
   EXPECT_EQ(comes({13, 1000, 100, "d"}), "uid 1000 has more than 2 connections");
   EXPECT_EQ(comes({}), "") << "nobody knows whose";
   EXPECT_EQ(comes({}), "");
   EXPECT_EQ(comes({}), "");
   sessions.front()->close("done", false);
   EXPECT_EQ(comes({14, 1000, 100, "e"}), "");
   sessions.clear();
}

// Bounds of what a peer introduces.

TEST_F(StreamBounds, AsManyReplaysAreNestedAsTheBoundSaysAndOneMoreIsRefused) {
   mount();
   std::string last;
   for (U32 i = 0; i != 65; ++i) {
      ASSERT_EQ(
            fault(message(Opcode::create, root->streamHandle(), idOf("leaf"),
                          concat(u32(0x01000100 + i), u32(i), Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0}))),
            "");
   }
   for (U32 i = 0; i != 65; ++i) {
      last = fault(message(Opcode::collectionBegin, 0x01000100 + i, 262, {}));
      ASSERT_EQ(last.empty(), i != 64) << i << last;
   }
   EXPECT_NE(last.find("replays are nested deeper than 64"), std::string::npos) << last;
}

Limits fewEntities() {
   Limits limits;
   limits.entities = 5;
   return limits;
}

class StreamEntityBound : public StreamBounds {
protected:
   StreamEntityBound() : StreamBounds(fewEntities()) {}
};

TEST_F(StreamEntityBound, ThePeersHandlesReachIt) {
   mount();
   auto const create = [&](U32 handle, U32 key) {
      return fault(message(Opcode::create, root->streamHandle(), idOf("leaf"),
                           concat(u32(handle), u32(key), Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0})));
   };
   EXPECT_EQ(create(0x01000004, 1), "");
   EXPECT_NE(create(0x01000005, 2).find("the handle 16777221 exceeds the bound of 5 entities"),
             std::string::npos)
         << mirror.session->closeReason();
   EXPECT_EQ(copy->leafCount(), 1u);
}

TEST_F(StreamEntityBound, AHandleOfTurnZeroIsNone) {
   mount();
   EXPECT_NE(fault(message(Opcode::create, root->streamHandle(), idOf("leaf"),
                           concat(u32(0x00000004), u32(1), Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0})))
                   .find("the handle 4 is of turn 0"),
             std::string::npos);
}

TEST_F(StreamEntityBound, AHubNumbersAsManyAndClosesItsSessionsForOneMore) {
   mount();
   U32 leaves = 0;
   while (entitiesIn(*root) != 5) {
      root->leafIs(++leaves, true, KivTest::Opaque(1));
   }
   carry();
   EXPECT_EQ(reason(), "");
   expectEqual();
   root->leafIs(++leaves, true, KivTest::Opaque(1));
   EXPECT_EQ(reason(), "more than 5 entities cannot be streamed");
   EXPECT_EQ(root->leafCount(), leaves) << "the setter has done its work";
}

TEST_F(StreamEntityBound, ARootOfAsManyIsOfferedAndOfOneMoreRefused) {
   auto const tree = [](U32 entities) {
      auto made = KivTest::stemFactory("other");
      for (U32 i = 0; entitiesIn(*made) != entities; ++i) {
         made->leafIs(i, true, KivTest::Opaque(1));
      }
      return made;
   };
   Hub hub(fewEntities());
   auto const fits = tree(5);
   hub.rootIs(fits);
   hub.rootDel("KivTest::Stem", "other");
   auto const exceeds = tree(6);
   try {
      hub.rootIs(exceeds);
      ADD_FAILURE() << "a root of six entities was taken";
   } catch (Kiv::Exception const& error) {
      EXPECT_STREQ(error.what(), "more than 5 entities cannot be streamed");
   }
   EXPECT_TRUE(hub.roots().empty());
   hub.rootIs(fits);
   EXPECT_EQ(hub.roots().size(), 1u) << "nothing of the other is left";
}

TEST_F(StreamBounds, AsManyRootsAreMountedAsTheBoundSaysAndOneMoreIsRefused) {
   for (int i = 0; i != 65; ++i) {
      source.hub.rootIs(KivTest::stemFactory("r" + std::to_string(i)));
   }
   greet();
   for (int i = 0; i != 65; ++i) {
      source.receive(message(Opcode::mount, 0, 0,
                             concat(u32(static_cast<U32>(i + 1)), Bytes{0}, text("KivTest::Stem"),
                                    text("r" + std::to_string(i)))));
      ASSERT_EQ(reason().empty(), i != 64) << i << reason();
      source.take();
   }
   EXPECT_NE(reason().find("more than 64 mounts"), std::string::npos) << reason();
}

TEST_F(StreamBounds, AsManyRequestsWaitAsTheBoundSaysAndOneMoreIsRefused) {
   greet();
   Bytes const sync = message(Opcode::sync, 0, 0, u32(1));
   std::size_t const whole = source.hub.limits().unmounted / sync.size();
   for (std::size_t i = 0; i != whole + 64; ++i) {
      source.receive(sync);
      ASSERT_EQ(reason(), "") << i;
   }
   source.receive(sync);
   EXPECT_NE(reason().find("more than 64 requests wait"), std::string::npos) << reason();
}

TEST_F(StreamBounds, EachEntityThatWaitsIsForgottenWhenItHasBeenTold) {
   mount();
   std::vector<Sarn::Ptr<KivTest::Leaf>> leaves;
   for (U32 i = 0; i != 500; ++i) {
      leaves.push_back(root->leafIs(i, true, KivTest::Opaque(1)));
   }
   carry();
   EXPECT_EQ(source.session->dirtyEntities(), 0u);
   while (source.session->upToDate()) {
      root->textIs(std::string(200000, root->text()[0] == 'a' ? 'b' : 'a'));
   }
   EXPECT_EQ(source.session->dirtyEntities(), 1u);
   for (U32 i = 0; i != 500; ++i) {
      leaves[i]->ticksIs(7);
      leaves[i]->litIs(false);
      EXPECT_EQ(source.session->dirtyEntities(), 2 + i);
   }
   root->leafDel(3);
   EXPECT_EQ(source.session->dirtyEntities(), 500u) << "what is gone has nothing to say";
   carry();
   EXPECT_EQ(source.session->dirtyEntities(), 0u);
   EXPECT_TRUE(source.session->upToDate());
   EXPECT_EQ(source.session->status().dirtyAttributes, 0u);
   expectEqual();
}

}  // namespace

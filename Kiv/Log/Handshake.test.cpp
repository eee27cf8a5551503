// Greeting, mounts, and how a session ends.
#include <algorithm>

#include "Kiv/Module.h"
#include "KivTest/Stream.test.h"

using namespace StreamTesting;

namespace {

class SessionHandshake : public StreamTest {};
class SessionMount : public StreamTest {};

Bytes helloWith(std::string_view magic, U32 version, Bytes const& modules) {
   return message(Opcode::hello, 0, 0,
                  concat(Bytes(magic.begin(), magic.end()), u32(version), modules));
}

TEST_F(SessionHandshake, OpensWithMagicVersionAndEachModulesNameAndHash) {
   Bytes modules;
   U32 count = 0;
   for (auto const* at = Kiv::firstModule(); at != nullptr; at = at->data->next) {
      modules = concat(modules, text(at->name()), u32(at->hash()));
      ++count;
   }
   ASSERT_NE(count, 0u);
   EXPECT_EQ(source.take(), helloWith("KivNboAL", 2, concat(u32(count), modules)));
}

TEST_F(SessionHandshake, IsDoneWhenTheOtherSidesGreetingHasCome) {
   EXPECT_FALSE(mirror.session->handshakeDone());
   mirror.receive(source.take());
   EXPECT_TRUE(mirror.session->handshakeDone());
   EXPECT_FALSE(source.session->handshakeDone());
}

TEST_F(SessionHandshake, RefusesWhoSpeaksSomethingElse) {
   std::string const request = "GET / HTTP/1.1\r\n\r\n";
   EXPECT_EQ(fault(Bytes(request.begin(), request.end())),
             "the peer does not begin with the attribute log's greeting");
   EXPECT_EQ(mirror.told(), "closed: the peer does not begin with the attribute log's greeting");
}

TEST_F(SessionHandshake, RefusesAnotherMagic) {
   EXPECT_EQ(fault(helloWith("KivNboAX", 1, u32(0))),
             "message 1 for entity 0, attribute 0: the peer does not speak the attribute log at "
             "offset 0");
}

TEST_F(SessionHandshake, RefusesAnotherVersionAndSaysBoth) {
   EXPECT_EQ(fault(helloWith("KivNboAL", 3, u32(0))),
             "message 1 for entity 0, attribute 0: the peer speaks version 3 of the attribute log, "
             "not 2 at offset 8");
}

TEST_F(SessionHandshake, TakesTheVersionBeforeThisOneButSendsItNoBatches) {
   EXPECT_EQ(fault(helloWith("KivNboAL", 1, concat(u32(1), text("TestTypes"), u32(0x7e57ab1e)))),
             "");
   EXPECT_TRUE(mirror.session->handshakeDone());
   EXPECT_THROW(mirror.session->transactionBegin(), Kiv::Exception);
}

TEST_F(SessionHandshake, RefusesAReplayFromAnotherModuleHashUntilTheTypesHaveCome) {
   Bytes const hello = helloWith("KivNboAL", 2, concat(u32(1), text("TestTypes"), u32(0x12345678)));
   mirror.session->mountIs(copy);
   EXPECT_EQ(fault(hello), "");
   EXPECT_EQ(
         fault(message(Opcode::replayBegin, 0x01000000, 0, u32(1))),
         "message 5 for entity 16777216, attribute 0: module TestTypes has hash 12345678 at the "
         "peer, 7e57ab1e here at offset 4");
}

TEST_F(SessionHandshake, SaysTheReasonToThePeer) {
   carry();
   mirror.receive(message(Opcode::hello, 0, 0, {}));
   source.receive(mirror.take());
   EXPECT_EQ(source.told(),
             "closed: closed by the peer: message 1 for entity 0, attribute 0: the peer greets "
             "twice at offset 0");
}

TEST_F(SessionHandshake, TakesModulesThatOnlyOneSideHas) {
   EXPECT_EQ(fault(helloWith(
                   "KivNboAL", 2,
                   concat(u32(2), text("Unheard"), u32(1), text("TestTypes"), u32(0x7e57ab1e)))),
             "");
   EXPECT_TRUE(mirror.session->handshakeDone());
}

TEST_F(SessionHandshake, RefusesAPeerWithoutModules) {
   std::string const reason =
         "message 1 for entity 0, attribute 0: the peer has none of the modules that are loaded "
         "here at offset 16";
   EXPECT_EQ(fault(helloWith("KivNboAL", 2, u32(0))), reason);
   EXPECT_FALSE(mirror.session->handshakeDone());
   source.receive(mirror.take());
   EXPECT_EQ(source.session->closeReason(), "closed by the peer: " + reason);
}

TEST_F(SessionHandshake, RefusesAPeerWithUnknownModulesOnly) {
   EXPECT_EQ(fault(helloWith("KivNboAL", 2,
                             concat(u32(2), text("Unheard"), u32(1), text("Unseen"), u32(2)))),
             "message 1 for entity 0, attribute 0: the peer has none of the modules that are "
             "loaded here at offset 45");
}

TEST_F(SessionHandshake, RefusesAGreetingThatEndsTooEarly) {
   EXPECT_EQ(
         fault(helloWith("KivNboAL", 2, u32(1))),
         "message 1 for entity 0, attribute 0: bytes <= readableBytes(): a value of 4 bytes stands "
         "where the message has 0 left "
         "at offset 16");
}

TEST_F(SessionMount, RepliesWithTheWholeTreeBetweenTwoMarkers) {
   Sarn::Ptr<KivTest::Hedge> const hedge = KivTest::hedgeFactory("h");
   hedge->wideLeafIs(7, true);
   source.hub.rootIs(hedge);
   source.take();
   mirror.session->mountIs(KivTest::hedgeFactory("h"));
   EXPECT_EQ(mirror.told(), "");
   source.receive(mirror.take());
   std::vector<std::string> const all = lines(source.take());
   ASSERT_GE(all.size(), 6u);
   EXPECT_EQ(all.front().substr(0, 11), "replayBegin");
   EXPECT_EQ(all[1].substr(0, 15), "collectionBegin");
   EXPECT_NE(joined(all).find("; collectionEnd"), std::string::npos);
   EXPECT_EQ(all[all.size() - 2].substr(0, 5), "erase") << "the last collection has nothing";
   EXPECT_EQ(all.back().substr(0, 9), "replayEnd");
}

TEST_F(SessionMount, KnowsWhenTheMirrorIsComplete) {
   root->u16Is(5);
   Mount& made = mirror.session->mountIs(copy);
   EXPECT_EQ(made.state(), Mount::State::asked);
   source.receive(mirror.take());
   Bytes const answer = source.take();
   // All but the last byte: all values have arrived, but the mirror cannot know.
   mirror.receive(Bytes(answer.begin(), answer.end() - 1));
   EXPECT_EQ(made.state(), Mount::State::replaying);
   EXPECT_FALSE(made.complete());
   mirror.receive(Bytes(answer.end() - 1, answer.end()));
   EXPECT_TRUE(made.complete());
   EXPECT_EQ(mirror.told(), "replaying; complete");
   expectEqual();
}

TEST_F(SessionMount, TakesBytesOneByOne) {
   root->textIs("something");
   root->leafIs(3, true, KivTest::Opaque(1.5));
   mirror.session->mountIs(copy);
   source.receive(mirror.take());
   for (U8 const byte : source.take()) {
      mirror.receive({byte});
   }
   expectEqual();
   EXPECT_EQ(mirror.told(), "replaying; complete");
}

TEST_F(SessionMount, IsRefusedWithAReasonWhenThereIsNoSuchRoot) {
   Mount& made = mirror.session->mountIs(KivTest::stemFactory("other"));
   carry();
   EXPECT_EQ(made.state(), Mount::State::refused);
   EXPECT_EQ(made.reason(), "there is no KivTest::Stem named other");
   EXPECT_FALSE(mirror.session->closed());
}

TEST_F(SessionMount, IsRefusedASecondTime) {
   mount();
   Mount& again = mirror.session->mountIs(KivTest::stemFactory("test"));
   carry();
   EXPECT_EQ(again.state(), Mount::State::refused);
   EXPECT_EQ(again.reason(), "test is mounted already");
}

TEST_F(SessionMount, RefusesANameThatIsTooLong) {
   EXPECT_THROW(mirror.session->mountIs(KivTest::stemFactory(std::string(1025, 'x'))),
                Kiv::Exception);
   EXPECT_TRUE(mirror.session->mounts().empty());
}

TEST_F(SessionMount, WaitsForRoomLikeEverythingElse) {
   Limits limits;
   limits.outputBuffer = 1200;
   End narrow(limits);
   auto const waiting = [&narrow] {
      auto const piece = narrow.session->output();
      return lines(Bytes(piece.begin, piece.begin + piece.size));
   };
   std::size_t before = 0;
   while (before != waiting().size()) {
      before = waiting().size();
      narrow.session->syncIs(1);
   }
   narrow.session->mountIs(KivTest::stemFactory("test"));
   EXPECT_EQ(waiting().size(), before);
   auto const all = lines(narrow.take());
   auto const mounts = std::count_if(
         all.begin(), all.end(), [](std::string const& one) { return one.starts_with("mount "); });
   EXPECT_EQ(mounts, 1);
   EXPECT_TRUE(all.back().starts_with("mount ")) << all.back();
}

TEST_F(SessionMount, RemovesWhatTheMirrorHasAndTheSourceHasNot) {
   copy->leafIs(9, true, KivTest::Opaque(1));
   copy->byNumberIs(4, "left over");
   copy->sortedIs(4, "left over");
   copy->coreIs();
   copy->samplesEnq(1.5);
   root->leafIs(8, false, KivTest::Opaque(2));
   mount();
   expectEqual();
   EXPECT_FALSE(copy->leafHas(9));
   EXPECT_FALSE(copy->core());
}

TEST_F(SessionMount, ReplacesAChildThatWasMadeWithOtherConstants) {
   auto const before = copy->leafIs(1, true, KivTest::Opaque(1));
   root->leafIs(1, true, KivTest::Opaque(2));
   mount();
   expectEqual();
   EXPECT_NE(copy->leaf(1), before);
   EXPECT_EQ(before->parent(), nullptr);
}

TEST_F(SessionMount, IsGoneWhenTheSourceGivesTheRootUp) {
   Mount& made = mount();
   root->u8Is(3);
   carry();
   EXPECT_EQ(source.hub.rootDel("KivTest::Stem", "test"), root);
   EXPECT_EQ(source.hub.root("KivTest::Stem", "test"), nullptr);
   carry();
   EXPECT_EQ(made.state(), Mount::State::gone);
   // The mirror stays as it is and gets no more changes.
   root->u8Is(4);
   carry();
   EXPECT_EQ(copy->u8(), 3);
   EXPECT_FALSE(mirror.session->closed());
   EXPECT_FALSE(root->watched());
}

TEST_F(SessionMount, MayBeAskedAgainAfterTheRootCameBack) {
   mount();
   source.hub.rootDel("KivTest::Stem", "test");
   carry();
   root->u8Is(9);
   source.hub.rootIs(root);
   Mount& again = mount();
   EXPECT_TRUE(again.complete());
   expectEqual();
}

TEST_F(SessionMount, IsRefusedWhenTheRootGoesBeforeItsReplayBegins) {
   Limits limits;
   limits.outputBuffer = 1200;
   End narrow(limits);
   narrow.hub.rootIs(KivTest::stemFactory("one"));
   narrow.receive(mirror.take());
   while (narrow.session->output().size + narrow.session->outputBehind().size < 1195) {
      std::size_t const before = narrow.session->output().size;
      narrow.session->syncIs(1);
      if (narrow.session->output().size == before) {
         break;
      }
   }
   Mount& made = mirror.session->mountIs(KivTest::stemFactory("one"));
   narrow.receive(mirror.take());
   narrow.hub.rootDel("KivTest::Stem", "one");
   mirror.receive(narrow.take());
   EXPECT_EQ(made.state(), Mount::State::refused);
   EXPECT_EQ(made.reason(), "one is gone");
   mirror.session.reset();
   narrow.session.reset();
}

TEST_F(SessionMount, BeginsWithAHandleThatIsOne) {
   struct {
      U32 handle;
      std::string reason;
   } const cases[] = {
         {0x010fffff, ""},
         {0x01100000, "the handle 17825792 exceeds the bound of 1048576 entities at offset 4"},
         {5, "the handle 5 is of turn 0, but turns begin at 1 at offset 4"},
   };
   for (auto const& begun : cases) {
      source.connect();
      mirror.connect();
      Mount const& asked = mirror.session->mountIs(copy);
      mirror.receive(source.take());
      std::string const found = fault(message(Opcode::replayBegin, begun.handle, 0, u32(1)));
      bool const taken = begun.reason.empty();
      EXPECT_EQ(found, taken ? ""
                             : "message 5 for entity " + std::to_string(begun.handle) +
                                     ", attribute 0: " + begun.reason);
      EXPECT_EQ(asked.state(), taken ? Mount::State::replaying : Mount::State::lost);
   }
}

TEST_F(SessionMount, IsLostWithTheConnectionAndTheMirrorStays) {
   root->u8Is(3);
   Mount const& made = mount();
   mirror.told();
   mirror.session->close("enough", false);
   EXPECT_EQ(made.state(), Mount::State::lost);
   EXPECT_EQ(made.reason(), "enough");
   EXPECT_EQ(mirror.told(), "lost; closed: enough");
   EXPECT_EQ(copy->u8(), 3);
}

TEST_F(SessionMount, OfAClosedSessionIsLostAtOnce) {
   mirror.session->close("enough", false);
   Mount const& made = mirror.session->mountIs(copy);
   EXPECT_EQ(made.state(), Mount::State::lost);
   EXPECT_EQ(made.reason(), "enough");
}

TEST_F(SessionMount, EndsWithASessionThatIsDestroyedEarly) {
   mirror.session->mountIs(copy, MountMode::writer);
   source.receive(mirror.take());
   source.session.reset();
   mirror.session.reset();
   root->u8Is(1);
   copy->u8Is(2);
   EXPECT_FALSE(copy->watched());
}

TEST_F(SessionMount, SyncComesBackBehindAllThatWasWritten) {
   mount();
   mirror.told();
   root->u8Is(77);
   source.session->syncIs(42);
   root->u8Is(78);
   carry();
   EXPECT_EQ(source.told(), "synced 42");
   EXPECT_EQ(copy->u8(), 78);
}

TEST_F(SessionMount, SyncWaitsForItsConfirmationAndChangesDoNot) {
   mount();
   source.told();
   mirror.confirmations = 5;
   source.session->syncIs(42);
   carry();
   root->u8Is(78);
   carry();
   EXPECT_EQ(copy->u8(), 78);
   mirror.session->confirmedIs(4);
   carry();
   EXPECT_EQ(source.told(), "");
   mirror.session->confirmedIs(5);
   carry();
   EXPECT_EQ(source.told(), "synced 42");
   source.session->syncIs(43);  // confirmed already
   carry();
   EXPECT_EQ(source.told(), "synced 43");
}

TEST(Hub, RefusesTwoRootsOfOneTypeAndName) {
   Hub hub;
   auto const first = KivTest::stemFactory("a");
   hub.rootIs(first);
   EXPECT_THROW(hub.rootIs(KivTest::stemFactory("a")), Kiv::Exception);
   EXPECT_THROW(hub.rootIs(first), Kiv::Exception);
   hub.rootIs(KivTest::stemFactory("b"));
   EXPECT_EQ(hub.roots().size(), 2u);
   EXPECT_EQ(hub.root("KivTest::Stem", "a"), first.get());
   EXPECT_EQ(hub.rootDel("KivTest::Stem", "c"), nullptr);
}

TEST(Hub, RefusesMoreEntitiesThanItMayNumber) {
   Limits limits;
   limits.entities = 3;
   Hub hub(limits);
   auto const root = KivTest::stemFactory("a");  // which has a medal
   root->leafIs(1, true, KivTest::Opaque(1));
   root->leafIs(2, true, KivTest::Opaque(1));
   EXPECT_THROW(hub.rootIs(root), Kiv::Exception);
   EXPECT_EQ(root->streamHandle(), 0u);
   EXPECT_EQ(root->leaf(1)->streamHandle(), 0u);
   root->leafDel(2);
   hub.rootIs(root);
   EXPECT_NE(root->leaf(1)->streamHandle(), 0u);
}

/// Text from a peer is shown as one line that cannot control a terminal.
class StreamForeignText : public StreamTest {
protected:
   static constexpr char const* raw = "a\n\x1b[2Jb";
   static constexpr char const* shown = "a\\n\\x1b[2Jb";
   /// Whether only the escaped form is in a text.
   static void expectShown(std::string const& text) {
      EXPECT_NE(text.find(shown), std::string::npos) << text;
      EXPECT_EQ(text.find('\n'), std::string::npos);
      EXPECT_EQ(text.find('\x1b'), std::string::npos);
   }
};

TEST_F(StreamForeignText, InAFarewell) {
   mount();
   expectShown(fault(message(Opcode::bye, 0, 0, text(raw))));
}

TEST_F(StreamForeignText, InTheReasonOfARefusal) {
   Mount const& made = mirror.session->mountIs(copy);
   mirror.take();
   mirror.receive(source.take());  // the greeting
   mirror.receive(message(Opcode::refused, 0, 0, concat(u32(1), text(raw))));
   EXPECT_EQ(mirror.told(), "refused");
   expectShown(made.reason());
}

TEST_F(StreamForeignText, InTheNameOfWhatIsAtFault) {
   End holder;
   holder.hub.rootIs(KivTest::stemFactory(raw));
   End reader;
   reader.session->mountIs(KivTest::stemFactory(raw));
   for (int i = 0; i != 3; ++i) {
      holder.receive(reader.take());
      reader.receive(holder.take());
   }
   reader.receive(message(Opcode::set, 0x01000000, 258, {7}));
   expectShown(reader.session->closeReason());
}

TEST_F(StreamForeignText, InTheTypeAndNameOfARootThatIsNotThere) {
   struct Refusals : End {
      void onMountRefused(Session&, Kiv::NboAttrLog::OfferedRoot const&,
                          Sarn::String const& why) override {
         reasons.push_back(why);
      }
      std::vector<std::string> reasons;
   } holder;
   holder.receive(mirror.take());
   holder.receive(message(Opcode::mount, 0, 0, concat(u32(1), Bytes{0}, text(raw), text("r"))));
   holder.receive(message(Opcode::mount, 0, 0, concat(u32(2), Bytes{0}, text("T"), text(raw))));
   ASSERT_EQ(holder.reasons.size(), 2u);
   expectShown(holder.reasons[0]);
   expectShown(holder.reasons[1]);
}

TEST_F(StreamForeignText, InThePeersProgram) {
   Kiv::NboAttrLog::PeerIdentity peer;
   peer.pid = 1;
   peer.program = raw;
   expectShown(Kiv::NboAttrLog::peerText(peer));
}

}  // namespace

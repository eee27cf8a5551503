// Two ends with different versions of a module: what they say of their types, when they go on, and
// what is sent then.
#include "Kiv/Log/SessionImpl.h"
#include "Kiv/Module.h"
#include "KivTest/OtherVersion.test.h"
#include "KivTest/SimulationChange.h"

using namespace StreamTesting;

namespace {

using KivTest::Leaf;
using KivTest::Level;
using KivTest::Opaque;

std::size_t countOf(std::vector<std::string> const& all, std::string_view opcode) {
   return static_cast<std::size_t>(std::count_if(
         all.begin(), all.end(),
         [&](std::string const& one) { return one.starts_with(std::string(opcode) + " "); }));
}

class TypesMessage : public OtherVersions {
protected:
   /// What the source says after a greeting with another hash.
   std::vector<TypeMessage> said() {
      source.receive(Version::otherHash(mirror.take()));
      std::vector<TypeMessage> all;
      Bytes const bytes = source.take();
      for (std::size_t at = 0; at != bytes.size();) {
         std::size_t const size =
               std::size_t(bytes[at + 1]) << 16 | std::size_t(bytes[at + 2]) << 8 | bytes[at + 3];
         auto const begin = bytes.begin() + static_cast<std::ptrdiff_t>(at + 10);
         if (static_cast<Opcode>(bytes[at]) == Opcode::types) {
            all.push_back(
                  TypeMessage::read(Bytes(begin, begin + static_cast<std::ptrdiff_t>(size))));
         }
         at += 10 + size;
      }
      return all;
   }
};

TEST_F(TypesMessage, IsNotSentIfTheModulesAreTheSame) {
   StreamTest::mount();
   EXPECT_EQ(source.session->impl().teller().peerTypes(), nullptr);
   source.connect();
   mirror.connect();
   source.receive(mirror.take());
   EXPECT_EQ(countOf(lines(source.take()), "types"), 0u);
}

TEST_F(TypesMessage, HasOneTypeOfTheModuleInTheOrderOfTheirNames) {
   std::vector<TypeMessage> const all = said();
   Kiv::KivModule const& module = *Kiv::moduleByName("TestTypes");
   ASSERT_EQ(all.size(), module.typeCount);
   for (U32 i = 0; i != module.typeCount; ++i) {
      EXPECT_EQ(all[i].module, "TestTypes");
      EXPECT_EQ(all[i].name, module.data->types[i]->name);
      EXPECT_EQ(all[i].left, module.typeCount - 1 - i);
   }
}

TEST_F(TypesMessage, DescribesAnEntity) {
   for (TypeMessage const& one : said()) {
      if (one.name == "KivTest::Twig") {
         Bytes const expected = concat(
               text("TestTypes"), u32(one.left), text("KivTest::Twig"), Bytes{0}, text(""),
               Bytes{0, 0, 1, 1, 2, 0, 2},  // made with 258
               Bytes{1, 2, 1, 17}, text("level"), text("KivTest::Level"), text(""),  // 258, a key
               Bytes{1, 3, 1, 0}, text("weight"), text("double"), text(""));         // 259
         EXPECT_EQ(one.body(), expected);
         return;
      }
   }
   FAIL();
}

TEST_F(TypesMessage, DescribesOnlyWhatIsStreamedOrAnArgument) {
   for (TypeMessage& one : said()) {
      if (one.name == "KivTest::Stem") {
         EXPECT_THROW(one.member("secret"), std::invalid_argument);
         EXPECT_THROW(one.member("total"), std::invalid_argument);
         EXPECT_THROW(one.member("reset"), std::invalid_argument);
         EXPECT_EQ(one.member("dial").least, 10u);
         EXPECT_EQ(one.member("dial").greatest, 20u);
         EXPECT_EQ(one.member("tick").least, ~U64(0) - 2);
         EXPECT_EQ(one.member("tick").greatest, 32767u);
         EXPECT_EQ(one.member("byPair").key, "KivTest::Pair");
         EXPECT_EQ(one.arguments, std::vector<U16>{154});
         EXPECT_TRUE(one.named);
      } else if (one.name == "KivTest::WideLeaf") {
         EXPECT_EQ(one.base, "KivTest::Leaf");
         EXPECT_EQ(one.members.size(), 1u);
      } else if (one.name == "KivTest::Colour") {
         EXPECT_EQ(one.description(), concat(Bytes{2, 0, 3, 0}, text("red"), Bytes{1},
                                             text("green"), Bytes{7}, text("blue")));
      } else if (one.name == "KivTest::Pair") {
         EXPECT_EQ(one.description(), concat(Bytes{1, 0, 2, 0, 2}, text("first"), text("U32"),
                                             Bytes{0, 3}, text("second"), text("S16")));
      }
   }
}

class TypesFault : public OtherVersions {
protected:
   /// The reason why the mirror, greeted with another hash, rejects a message.
   std::string faultOf(std::string const& module, U32 left, std::string const& name,
                       Bytes const& description) {
      if (!mirror.session->handshakeDone()) {
         source.connect();
         mirror.receive(Version::otherHash(source.take()));
      }
      mirror.receive(
            message(Opcode::types, 0, 0, concat(text(module), u32(left), text(name), description)));
      return mirror.session->closeReason();
   }
   Bytes const colour = concat(Bytes{2, 0, 1, 0}, text("red"));
   std::string const begin = "message 25 for entity 0, attribute 0: ";
};

TEST_F(TypesFault, IsAModuleThatIsTheSameOrUnknown) {
   EXPECT_EQ(faultOf("Dorn", 0, "X", colour),
             begin + "no types of module Dorn are expected at offset 8");
}

TEST_F(TypesFault, IsATypeThatNobodyExpects) {
   StreamTest::carry();
   EXPECT_EQ(faultOf("TestTypes", 0, "KivTest::Colour", colour),
             begin + "no types are expected at offset 0");
}

TEST_F(TypesFault, IsACountThatDoesNotFallOrIsTooLarge) {
   EXPECT_EQ(faultOf("TestTypes", 3, "KivTest::Colour", colour), "");
   EXPECT_EQ(faultOf("TestTypes", 1, "KivTest::Level", colour),
             begin + "1 types follow, not 2 at offset 13");
   mirror.connect();
   EXPECT_EQ(faultOf("TestTypes", 4096, "KivTest::Colour", colour),
             begin + "4096 more types exceed the bound of 4096 at offset 13");
}

TEST_F(TypesFault, IsATypeThatComesTwice) {
   EXPECT_EQ(faultOf("TestTypes", 3, "KivTest::Colour", colour), "");
   EXPECT_EQ(faultOf("TestTypes", 2, "KivTest::Colour", colour),
             begin + "type KivTest::Colour follows KivTest::Colour at offset 36");
   mirror.connect();
   EXPECT_EQ(faultOf("TestTypes", 3, "", colour), begin + "a type has no name at offset 21");
}

TEST_F(TypesFault, IsAConflictWhichNamesModuleTypeAndMember) {
   EXPECT_EQ(faultOf("TestTypes", 3, "KivTest::Colour", concat(Bytes{2, 0, 1, 0}, text("black"))),
             "module TestTypes has hash 7e57ab1f at the peer, 7e57ab1e here: KivTest::Colour calls "
             "the number 0 black at the peer, red here");
   source.receive(Version::otherHash(mirror.take()));
   EXPECT_TRUE(source.session->closed());
   EXPECT_EQ(mirror.told(), "closed: " + mirror.session->closeReason());
}

TEST_F(TypesFault, IsNoneIfThePeerHasNoTypes) {
   EXPECT_EQ(faultOf("TestTypes", 0, "", {}), "");
   EXPECT_EQ(mirror.session->lacking().size(), Kiv::moduleByName("TestTypes")->typeCount);
}

// Versions that fit

TEST_F(OtherVersions, GoOnIfOnlyTheHashDiffers) {
   root->leafIs(3, true, Opaque(1));
   EXPECT_TRUE(mount().complete());
   root->leafIs(4, true, Opaque(1))->ticksIs(7);
   root->u8Is(3);
   carry();
   expectEqual();
   EXPECT_EQ(mirror.told(), "replaying; complete");
   EXPECT_EQ(source.told(), "");
}

TEST_F(OtherVersions, ReplayNothingBeforeTheTypesOfThePeerHaveCome) {
   mirror.session->mountIs(copy);
   Bytes const request = Version::otherHash(mirror.take());
   source.receive(request);
   EXPECT_EQ(countOf(lines(source.take()), "replayBegin"), 0u);
   EXPECT_TRUE(source.session->handshakeDone());
   EXPECT_FALSE(source.session->closed());
}

class NarrowVersions : public OtherVersions {
protected:
   NarrowVersions() : OtherVersions(narrow(400)) {}
};

TEST_F(NarrowVersions, SendATypeThatIsLongerThanAMessageInParts) {
   EXPECT_TRUE(mount().complete());
   root->u16Is(7);
   carry();
   expectEqual();
}

TEST_F(OtherVersions, ReportWhatThePeerLacksBeforeTheReplay) {
   mirrorLacks({"u16", "record"});
   mirrorAppears.edits["KivTest::Leaf"] = lacking({"ticks"});
   mirrorAppears.edits["KivTest::Hedge"] = [](TypeMessage& one) { one.name.clear(); };
   EXPECT_TRUE(mount().complete());
   EXPECT_EQ(lackingAt(source),
             "KivTest::Hedge; KivTest::Leaf.ticks; KivTest::Stem.u16; "
             "KivTest::Stem.record");
   EXPECT_EQ(lackingAt(mirror), "");
   EXPECT_EQ(source.told(), "lacking 4");
   EXPECT_EQ(mirror.told(), "replaying; complete");
}

TEST_F(OtherVersions, SendAReaderAllThatItHas) {
   mirrorLacks({"u16", "byNumber", "samples", "leaf", "medal"});
   root->u16Is(1);
   root->u8Is(1);
   root->byNumberIs(1, "one");
   root->leafIs(1, true, Opaque(1));
   root->samplesEnq(1);
   mount();
   root->u16Is(2);
   root->u8Is(2);
   root->byNumberDel(1);
   root->byNumberIs(2, "two");
   root->leafIs(2, true, Opaque(1))->ticksIs(3);
   root->leafDel(1);
   root->samplesEnq(2);
   root->samplesDeq();
   root->medalIs("other")->brightnessIs(9);
   root->sortedIs(1, "sorted");
   source.told();
   carry();
   EXPECT_EQ(copy->u8(), 2);
   EXPECT_EQ(copy->sorted(1), "sorted");
   EXPECT_EQ(copy->u16(), 60000);
   EXPECT_EQ(copy->byNumberCount(), 0u);
   EXPECT_EQ(copy->leafCount(), 0u);
   EXPECT_EQ(copy->samplesCount(), 0u);
   EXPECT_EQ(copy->medal()->nameString(), "medal");
   EXPECT_EQ(source.told(), "") << "a reader knows what it lacks";
   EXPECT_FALSE(source.session->closed());
   EXPECT_FALSE(mirror.session->closed());
}

TEST_F(OtherVersions, AreNotCompared) {
   mount();
   EXPECT_FALSE(mirror.session->compareAsk(mirror.session->mounts().front()));
   source.receive(message(Opcode::digestAsk, 0, 0, concat(Bytes{0, 0}, u32(0x01000000))));
   EXPECT_EQ(source.session->closeReason(),
             "message 26 for entity 0, attribute 0: digests of two versions of a module cannot be "
             "compared at offset 0");
}

TEST_F(OtherVersions, DoNotFollowTheRing) {
   mount();
   root->u8Is(7);
   EXPECT_FALSE(source.session->impl().teller().cursor().following());
   EXPECT_EQ(lines(source.take()).size(), 1u);
}

TEST_F(OtherVersions, SendAllValuesOfAFreshChildSinceItsDefaultsMayDiffer) {
   mount();
   root->coreIs();
   std::vector<std::string> const all = lines(source.take());
   EXPECT_EQ(countOf(all, "create"), 1u);
   EXPECT_EQ(countOf(all, "set"), 2u) << "temperature and label";
}

TEST_F(OtherVersions, ReportAWriteOfWhatThePeerLacks) {
   sourceLacks({"u16", "byNumber", "medal", "leaf"});
   mirrorLacks({"medal"});  // as if the source had none
   mount(MountMode::writer);
   mirror.told();
   copy->u16Is(5);
   copy->u8Is(5);
   copy->byNumberIs(3, "three");
   copy->medal()->brightnessIs(8);
   copy->leafIs(1, true, Opaque(1))->twigIs(Level::low);
   carry();
   EXPECT_EQ(root->u8(), 5);
   EXPECT_EQ(root->u16(), 60000);
   EXPECT_EQ(root->medal()->brightness(), 5);
   EXPECT_EQ(mirror.told(),
             "left out: test.u16 (261): the peer has no such attribute; "
             "left out: test.byNumber (290): the peer has no such attribute; "
             "left out: test.medal.brightness (258): the peer has no attribute for this entity; "
             "left out: test.leaf (289): the peer has no such attribute; "
             "left out: test.leaf[1].twig (262): the peer has no attribute for this entity");
   EXPECT_EQ(mirror.session->stats().valuesLeftOut, 5u);
}

TEST_F(OtherVersions, LeaveOutAValueThatThePeerRefuses) {
   mirrorAppears.edits["KivTest::Stem"] = [](TypeMessage& stem) {
      stem.member("dial").greatest = 18;
      stem.member("s32").flags |= TypeMessage::bounded;
      stem.member("s32").least = ~U64(0) - 9;
      stem.member("s32").greatest = 10;
      stem.member("precise").flags |= TypeMessage::bounded;
      stem.member("precise").least = 0;
      stem.member("precise").greatest = 0x4000000000000000;  // 2.0
   };
   copy->preciseIs(0.5);
   copy->s32Is(0);
   mount();
   EXPECT_EQ(source.told(),
             "left out: test.s32 (264): -2000000000 is not in the peer's range, -10 to 10; "
             "left out: test.precise (268): -1 is not in the peer's range, 0 to 2");
   root->dialIs(19);
   root->s32Is(-10);
   root->preciseIs(2.0);
   carry();
   EXPECT_EQ(copy->dial(), 15);
   EXPECT_EQ(copy->s32(), -10);
   EXPECT_EQ(copy->precise(), 2.0);
   EXPECT_EQ(source.told(), "left out: test.dial (275): 19 is not in the peer's range, 10 to 18");
   root->dialIs(18);
   carry();
   EXPECT_EQ(copy->dial(), 18);
}

TEST_F(OtherVersions, SendEveryValueIfThePeersRangeIsWider) {
   mirrorAppears.edits["KivTest::Stem"] = [](TypeMessage& stem) {
      stem.member("dial").greatest = 30;
      stem.member("tick").flags = 0;
   };
   mount();
   root->dialIs(20);
   carry();
   EXPECT_EQ(copy->dial(), 20);
   EXPECT_EQ(source.told(), "");
}

TEST_F(OtherVersions, ShowInTheStatusWhatAPeerLacks) {
   mirrorLacks({"u16", "record"});
   mount();
   Kiv::NboAttrLog::SessionStatus const status = source.session->status();
   EXPECT_EQ(status.lackingCount, 2u);
   EXPECT_EQ(status.lacking,
             (std::vector<Sarn::String>{"KivTest::Stem.u16", "KivTest::Stem.record"}));
   Bytes bytes(encodedSize(status));
   Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
   encode(out, status);
   EXPECT_EQ(out.room(), 0u);
   Kiv::NboAttrLog::In in(bytes.data(), bytes.data() + bytes.size());
   Kiv::NboAttrLog::SessionStatus const read = decodeSessionStatus(in);
   EXPECT_EQ(read.lackingCount, 2u);
   EXPECT_EQ(read.lacking, status.lacking);
}

/// Random changes at both ends, which lack the same random members; a narrow output makes them
/// fall behind. In the end, everything else is equal.
class RandomVersions : public OtherVersions {
protected:
   RandomVersions() : OtherVersions(narrow(4000)) {}

   void run(U64 seed, MountMode mode) {
      KivTest::Chance chance(seed);
      std::map<std::string, std::vector<std::string>> lack;
      std::vector<Kiv::FieldDescriptor const*> ignored;
      for (Kiv::TypeImpl const* const type :
           {&Stem::kivTypeImpl, &Leaf::kivTypeImpl, &KivTest::Twig::kivTypeImpl,
            &KivTest::Core::kivTypeImpl, &KivTest::Badge::kivTypeImpl}) {
         Kiv::forEachField(*type, [&](Kiv::FieldDescriptor const& field) {
            bool const optional =
                  field.has(Kiv::FieldDescriptor::streamed) && !type->isCtorArg(field.fieldId);
            if (optional && chance.oneIn(4)) {
               lack[type->name].emplace_back(field.name);
               ignored.push_back(&field);
            }
         });
      }
      for (auto const& [type, members] : lack) {
         mirrorAppears.edits[type] = sourceAppears.edits[type] = lacking(members);
      }
      mount(mode);
      for (int i = 0; i != 60; ++i) {
         for (std::size_t more = chance.below(12); more != 0; --more) {
            KivTest::changeAtRandom(*root, chance);
            if (writesBack(mode)) {
               KivTest::changeAtRandom(*copy, chance);
            }
         }
         if (chance.oneIn(3)) {
            carry();
         }
      }
      carry();
      EXPECT_EQ(KivTest::firstDifference(*root, *copy, ignored), "") << "seed " << seed;
      EXPECT_EQ(source.session->closeReason() + mirror.session->closeReason(), "")
            << "seed " << seed;
   }
   void runAll(MountMode mode) {
      for (U64 seed = 1; seed != 41; ++seed) {
         source.session.reset();
         source.hub.rootDel("KivTest::Stem", "test");
         root = KivTest::stemFactory("test");
         copy = KivTest::stemFactory("test");
         source.hub.rootIs(root);
         source.connect();
         mirror.connect();
         run(seed, mode);
         mirrorAppears = sourceAppears = {};
      }
   }
};

TEST_F(RandomVersions, ConvergeOnWhatBothHaveForAReader) {
   runAll(MountMode::reader);
}

TEST_F(RandomVersions, ConvergeOnWhatBothHaveForAWriter) {
   runAll(MountMode::writer);
}

}  // namespace

// Whether two versions of a type fit together, and what a malformed description is refused for.
#include "Kiv/Log/Schema.h"

#include "Kiv/Module.h"
#include "KivTest/OtherVersion.test.h"

using namespace StreamTesting;
using Kiv::NboAttrLog::compareSchema;
using Kiv::NboAttrLog::SchemaDifference;

namespace {

using Edit = std::function<void(TypeMessage&)>;

TypeMessage described(Kiv::TypeImpl const& type) {
   Bytes body(Kiv::NboAttrLog::schemaSize(type));
   Kiv::NboAttrLog::Out out(body.data(), body.size());
   encodeSchema(out, type);
   EXPECT_EQ(out.room(), 0u);
   return TypeMessage::read(concat(text(""), u32(0), text(type.name), body));
}

SchemaDifference compared(Bytes const& description, Kiv::TypeImpl const& type) {
   Kiv::NboAttrLog::In in(description.data(), description.data() + description.size());
   return compareSchema(in, type);
}

SchemaDifference compared(Kiv::TypeImpl const& type, Edit const& edit) {
   TypeMessage theirs = described(type);
   edit(theirs);
   return compared(theirs.description(), type);
}

std::string conflict(Kiv::TypeImpl const& type, Edit const& edit) {
   return compared(type, edit).conflict;
}
std::string conflict(Edit const& edit) {
   return conflict(Stem::kivTypeImpl, edit);
}

std::string faultOf(Bytes const& description, Kiv::TypeImpl const& type = Stem::kivTypeImpl) {
   try {
      compared(description, type);
   } catch (Kiv::NboAttrLog::FaultException const& error) {
      return error.what();
   }
   return "none";
}

TEST(Schema, OfATypeFitsItself) {
   Kiv::KivModule const& module = *Kiv::moduleByName("TestTypes");
   for (U32 i = 0; i != module.typeCount; ++i) {
      SchemaDifference const same = compared(*module.data->types[i], [](TypeMessage&) {});
      EXPECT_EQ(same.conflict, "");
      EXPECT_TRUE(same.lacking.empty());
      EXPECT_TRUE(same.narrower.empty());
   }
}

TEST(Schema, OfAMemberMustBeTheSameAsLongAsBothHaveIt) {
   EXPECT_EQ(conflict([](TypeMessage& t) { t.member("u16").name = "other"; }),
             "KivTest::Stem.u16 (261) is other at the peer, u16 here");
   EXPECT_EQ(conflict([](TypeMessage& t) { t.member("u16").kind = 7; }),
             "KivTest::Stem.u16 (261) is an operation at the peer, one value here");
   EXPECT_EQ(conflict([](TypeMessage& t) { t.member("u16").type = "U32"; }),
             "KivTest::Stem.u16 (261) holds U32 at the peer, U16 here");
   EXPECT_EQ(conflict([](TypeMessage& t) { t.member("byText").key = "KivTest::Pair"; }),
             "KivTest::Stem.byText (291) has keys of type KivTest::Pair at the peer, Kiv::String "
             "here");
   EXPECT_EQ(conflict([](TypeMessage& t) { t.member("badge").flags = 0; }),
             "KivTest::Stem.badge (287) is declared otherwise at the peer");
   EXPECT_EQ(conflict([](TypeMessage& t) { t.member("record").flags = 0; }),
             "KivTest::Stem.record (294) is declared otherwise at the peer");
}

TEST(Schema, OfAMemberThatHasMovedDoesNotFit) {
   EXPECT_EQ(conflict([](TypeMessage& t) {
                TypeMessage::Member last = t.member("last");
                t.remove("last");
                last.id = 400;
                t.members.push_back(last);
             }),
             "KivTest::Stem.last (305) has id 400 at the peer");
}

TEST(Schema, OfAnEntityNeedsTheSameBaseNameAndArguments) {
   EXPECT_EQ(
         conflict(KivTest::WideLeaf::kivTypeImpl, [](TypeMessage& t) { t.base = "KivTest::Twig"; }),
         "KivTest::WideLeaf is derived from KivTest::Twig at the peer, KivTest::Leaf here");
   EXPECT_EQ(conflict(KivTest::Twig::kivTypeImpl, [](TypeMessage& t) { t.base = "A\n"; }),
             "KivTest::Twig is derived from A\\n at the peer, nothing here");
   EXPECT_EQ(conflict([](TypeMessage& t) { t.named = false; }),
             "KivTest::Stem has no name at the peer, one here");
   EXPECT_EQ(
         conflict(KivTest::Leaf::kivTypeImpl, [](TypeMessage& t) { t.arguments.push_back(261); }),
         "KivTest::Leaf is made from other arguments at the peer (4) than here (3)");
   EXPECT_EQ(conflict(KivTest::Leaf::kivTypeImpl, [](TypeMessage& t) { t.sort = 1; }),
             "KivTest::Leaf is a value type at the peer, an entity here");
}

TEST(Schema, OfAValueTypeMustBeTheSameSinceItsFieldsHaveNoTags) {
   Kiv::TypeImpl const& pair = KivTest::Pair::kivTypeImpl;
   EXPECT_EQ(conflict(pair, [](TypeMessage& t) { t.remove("second"); }),
             "KivTest::Pair.second (3) is no field at the peer");
   EXPECT_EQ(conflict(pair,
                      [](TypeMessage& t) {
                         t.members.push_back({4, 0, 0, "third", "U8", "", 0, 0});
                      }),
             "KivTest::Pair has no field third (4) here");
   EXPECT_EQ(conflict(pair, [](TypeMessage& t) { t.member("second").type = "U16"; }),
             "KivTest::Pair.second (3) holds U16 at the peer, S16 here");
   EXPECT_EQ(conflict(pair, [](TypeMessage& t) { t.member("first").name = "begin"; }),
             "KivTest::Pair.first (2) is begin (2) at the peer");
}

TEST(Schema, OfAnEnumerationMayHaveMoreOrFewerNumbers) {
   Kiv::TypeImpl const& colour = Kiv::typeOf<KivTest::Colour>();
   EXPECT_EQ(conflict(colour, [](TypeMessage& t) { t.remove("blue"); }), "");
   EXPECT_EQ(conflict(colour,
                      [](TypeMessage& t) {
                         t.members.push_back({8, 0, 0, "violet", "", "", 0, 0});
                      }),
             "");
   EXPECT_EQ(conflict(colour, [](TypeMessage& t) { t.member("blue").name = "violet"; }),
             "KivTest::Colour calls the number 7 violet at the peer, blue here");
   EXPECT_EQ(conflict(colour, [](TypeMessage& t) { t.member("blue").id = 9; }),
             "KivTest::Colour numbers blue as 9 at the peer, 7 here");
}

TEST(Schema, SaysWhatThePeerLacksAndRefuses) {
   SchemaDifference const result = compared(Stem::kivTypeImpl, [](TypeMessage& t) {
      t.remove("flag");
      t.remove("last");
      t.member("tick").greatest = 5;
      t.member("u8").flags |= TypeMessage::bounded;
      t.member("u8").greatest = 255;
   });
   EXPECT_EQ(result.conflict, "");
   ASSERT_EQ(result.lacking.size(), 2u);
   EXPECT_STREQ(result.lacking[0]->name, "flag");
   EXPECT_STREQ(result.lacking[1]->name, "last");
   ASSERT_EQ(result.narrower.size(), 2u) << "a range that leaves nothing out is not declared";
   EXPECT_STREQ(result.narrower[1].field->name, "tick");
   EXPECT_EQ(rangeText(*result.narrower[1].field->type, result.narrower[1].range), "-3 to 5");
}

TEST(Schema, SaysTheSameAtBothEnds) {
   // Each edit of one end is a conflict for the other end, too: the description of ours, read by
   // whoever has the edited one, has the same differences. So only what is not symmetrical, what
   // one end has and the other does not, may fit.
   for (char const* const member : {"flag", "badge", "byPair", "samples"}) {
      EXPECT_EQ(conflict([&](TypeMessage& t) { t.remove(member); }), "") << member;
      EXPECT_EQ(conflict([&](TypeMessage& t) {
                   TypeMessage::Member more = t.member(member);
                   more.id = 500;
                   more.name = "more";
                   t.members.push_back(more);
                }),
                "")
            << member;
   }
}

TEST(Schema, RefusesWhatIsMalformed) {
   EXPECT_EQ(faultOf({}),
             "bytes <= readableBytes(): a value of 1 bytes stands where the message has 0 left at "
             "offset 0");
   EXPECT_EQ(faultOf({3}), "there is no sort of type 3 at offset 0");
   EXPECT_EQ(faultOf(concat(Bytes{0}, text(""), Bytes{2})),
             "a bool is neither 0 nor 1 at offset 5");
   EXPECT_EQ(faultOf(concat(Bytes{2, 0, 2, 7}, text("a"), Bytes{7}, text("b")),
                     Kiv::typeOf<KivTest::Colour>()),
             "enumerator 7 follows 7 at offset 15");
   EXPECT_EQ(faultOf(concat(Bytes{2, 0, 0, 9}), Kiv::typeOf<KivTest::Colour>()),
             "1 bytes follow the value at offset 3");
   TypeMessage stem = described(Stem::kivTypeImpl);
   stem.members[0].kind = 8;
   EXPECT_EQ(faultOf(stem.description()), "there is no kind of member 8 at offset 14");
   stem.members[0].kind = 1;
   stem.members[0].flags = 32;
   EXPECT_EQ(faultOf(stem.description()), "a member has the unknown flags 32 at offset 15");
   stem.members[0].flags = 0;
   stem.members[0].name = std::string(1025, 'x');
   EXPECT_NE(faultOf(stem.description()).find("1025"), std::string::npos);
}

TEST(Schema, CutAnywhereIsRefused) {
   for (Kiv::TypeImpl const* const type :
        {&Stem::kivTypeImpl, &KivTest::Pair::kivTypeImpl, &Kiv::typeOf<KivTest::Colour>()}) {
      Bytes const whole = described(*type).description();
      for (std::size_t size = 0; size != whole.size(); ++size) {
         Bytes const cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
         EXPECT_NE(faultOf(cut, *type), "none") << size;
      }
   }
}

}  // namespace

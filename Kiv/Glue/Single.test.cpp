// Members that are one value: what the accessors store and publish.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "KivTest/Observer.test.h"
#include "KivTest/TestTypes.h"
#include "KivTest/Witness.h"

namespace {

using namespace KivTest;

class Single : public testing::Test {
protected:
   Sarn::Ptr<Stem> root = stemFactory("test");
};

TEST_F(Single, EveryMemberHasItsIdKindTypeAndDefault) {
   EXPECT_EQ(attributeTable(*root), R"(
258 dc00 flag : bool = false
259 dc00 u8 : U8 = 200
260 dc00 s8 : S8 = -5
261 dc00 u16 : U16 = 60000
262 dc00 s16 : S16 = -3
263 dc00 u32 : U32 = 4000000000
264 dc00 s32 : S32 = -2000000000
265 dc00 u64 : U64 = 18446744073709551615
266 dc00 s64 : S64 = -9223372036854775807
267 dc00 ratio : float = 0.5
268 dc00 precise : double = -1
269 dc00 wait : double = inf
270 dc00 text : Kiv::String = "none"
271 dc00 colour : KivTest::Colour = blue
272 dc00 level : KivTest::Level = low
273 dc00 pair : KivTest::Pair = KivTest::Pair(first=3, second=-4)
274 dc00 intf : Dorn::IntfId = ""
275 dc00 dial : U8 = 15
276 dc00 tick : S16 = 0
277 2800 minKnob : S8 = -2 const local
278 2800 maxKnob : S8 = 2 const local
279 dc00 knob : S8 = 0
280 2800 path : Kiv::String = "/run/test" const local
281 dc00 secret : U32 = 0 local
282 dc00 count8 : U8 = 0
283 dc00 count32 : U32 = 0
284 dc00 mark : Kiv::Optional<U8> = none
285 dc00 deadline : Kiv::Optional<double> = none
286 dd20 core : KivTest::Core (child) instantiation 010
287 dd20 badge : KivTest::Badge (child)
288 dd20 medal : KivTest::Badge (child)
289 dd21 leaf : KivTest::Leaf (children by U32)
290 dc01 byNumber : Kiv::String (map by U32)
291 dc01 byText : U64 (map by Kiv::String)
292 dc01 byPair : KivTest::Pair (map by KivTest::Pair)
293 dc01 byLevel : bool (map by KivTest::Level)
294 dc01 record : KivTest::Record (map by U32)
295 dc01 sorted : Kiv::String (ordered by S32)
296 dc01 sortedText : KivTest::Colour (ordered by Kiv::String)
298 dc01 samples : double (queue by U32)
299 2800 total : U64 = 0 const local
300 2808 left : U32 = 3 const local
303 0811 reset (op) local
304 0810 above (op) local
305 dc00 last : U8 = 0
)");
}

TEST_F(Single, SettingStoresAndPublishesIdAndOldValue) {
   Witness published(*root);
   root->flagIs(true);
   root->u64Is(1);
   root->textIs("changed");
   root->colourIs(Colour::red);
   root->pairIs(Pair(1, 2));
   root->ratioIs(0.25f);
   EXPECT_EQ(published.changes(),
             "flag was false; u64 was 18446744073709551615; text was \"none\"; colour was blue; "
             "pair was KivTest::Pair(first=3, second=-4); ratio was 0.5");
   EXPECT_TRUE(root->flag());
   EXPECT_EQ(root->u64(), 1u);
   EXPECT_EQ(root->text(), "changed");
   EXPECT_EQ(root->colour(), Colour::red);
   EXPECT_EQ(root->pair(), Pair(1, 2));
   EXPECT_EQ(root->ratio(), 0.25f);
}

TEST_F(Single, AChangeHasNeitherKeyNorComparisonAndIsStoredWhenHeard) {
   int heard = 0;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      ++heard;
      EXPECT_EQ(&Kiv::entityOf(change), root.get());
      EXPECT_EQ(change.attributeId, 259);
      EXPECT_EQ(change.key, nullptr);
      EXPECT_EQ(change.keyCompare, nullptr);
      EXPECT_EQ(*static_cast<U8 const*>(change.oldValue), 200);
      EXPECT_EQ(root->u8(), 1);
   });
   root->u8Is(1);
   EXPECT_EQ(heard, 1);
}

TEST_F(Single, SettingTheStoredValuePublishesNothing) {
   Witness published(*root);
   root->flagIs(root->flag());
   root->s64Is(root->s64());
   root->waitIs(std::numeric_limits<double>::infinity());
   root->textIs("none");
   root->pairIs(Pair(3, -4));
   root->dialIs(15);
   root->markIs(std::nullopt);
   root->colourIs(Colour::blue);
   EXPECT_EQ(published.ids(), "");
}

TEST_F(Single, NanIsNotEqualToItselfAndIsPublishedAgain) {
   root->preciseIs(std::nan(""));
   Witness published(*root);
   root->preciseIs(std::nan(""));
   EXPECT_EQ(published.changes(), "precise was nan");
}

TEST_F(Single, IntegersHoldTheirWholeRange) {
   root->s64Is(std::numeric_limits<S64>::min());
   EXPECT_EQ(root->s64(), std::numeric_limits<S64>::min());
   root->s8Is(-128);
   EXPECT_EQ(attributeText(*root, 260), "-128");
   root->u16Is(65535);
   EXPECT_EQ(attributeText(*root, 261), "65535");
}

TEST_F(Single, AStringMayBeSetFromAPartOfItself) {
   root->textIs("0123456789abcdefghijklmnopqrstuvwxyz");
   root->textIs(std::string_view(root->text()).substr(10));
   EXPECT_EQ(root->text(), "abcdefghijklmnopqrstuvwxyz");
   Witness published(*root);
   root->textIs(std::string_view(root->text()).substr(20, 3));
   EXPECT_EQ(root->text(), "uvw");
   EXPECT_EQ(published.changes(), "text was \"abcdefghijklmnopqrstuvwxyz\"");
}

TEST_F(Single, AStringSetFromInsideKeepsBothOldValues) {
   std::vector<std::string> old;
   Hears const hears(*root, [&](Kiv::Change const& change) {
      if (root->text() == "one, longer than what fits into the object itself") {
         root->textIs("two, longer than what fits into the object itself");
      }
      old.push_back(*static_cast<Sarn::String const*>(change.oldValue));
   });
   root->textIs("one, longer than what fits into the object itself");
   EXPECT_EQ(old, (std::vector<std::string>{"one, longer than what fits into the object itself",
                                            "none"}));
}

TEST_F(Single, TwoBoundsGiveTheFirstFormOfTheRangeMessage) {
   constexpr char const* message =
         "KivTest::Stem::dial < KivTest::TestLimits::minDial or > KivTest::TestLimits::maxDial not "
         "allowed";
   Witness published(*root);
   for (int const v : {0, 9, 21, 255}) {
      EXPECT_EQ(thrown<Kiv::RangeException>([&] { root->dialIs(static_cast<U8>(v)); }), message);
      EXPECT_EQ(root->dial(), 15);
   }
   EXPECT_EQ(published.ids(), "");
   root->dialIs(10);
   root->dialIs(20);
   EXPECT_EQ(published.changes(), "dial was 15; dial was 10");
}

TEST_F(Single, AnOpenUpperEndGivesTheSecondFormOfTheRangeMessage) {
   EXPECT_EQ(thrown<Kiv::RangeException>([&] { root->tickIs(-4); }),
             "KivTest::Stem::tick < KivTest::TestLimits::minTick not allowed");
   EXPECT_EQ(thrown<Kiv::RangeException>([&] { root->tickIs(-32768); }),
             "KivTest::Stem::tick < KivTest::TestLimits::minTick not allowed");
   root->tickIs(-3);
   root->tickIs(32767);
   EXPECT_EQ(root->tick(), 32767);
}

TEST_F(Single, ConstantsOfTheTypeItselfMayBeBounds) {
   constexpr char const* message =
         "KivTest::Stem::knob < KivTest::Stem::minKnob or > KivTest::Stem::maxKnob not allowed";
   EXPECT_EQ(thrown<Kiv::RangeException>([&] { root->knobIs(-3); }), message);
   EXPECT_EQ(thrown<Kiv::RangeException>([&] { root->knobIs(3); }), message);
   root->knobIs(-2);
   root->knobIs(2);
   EXPECT_EQ(root->knob(), 2);
}

TEST_F(Single, ConstantsNeedNoObject) {
   static_assert(Stem::minKnob() == -2 && Stem::maxKnob() == 2);
   EXPECT_EQ(Stem::path(), "/run/test");
}

TEST_F(Single, CountersAddWithWrapAroundInTheirOwnWidth) {
   Witness published(*root);
   root->count8Inc(200);
   root->count8Inc(100);
   EXPECT_EQ(root->count8(), 44);
   root->count32Is(4294967295u);
   root->count32Inc(2);
   EXPECT_EQ(root->count32(), 1u);
   EXPECT_EQ(published.changes(),
             "count8 was 0; count8 was 200; count32 was 0; count32 was 4294967295");
   root->count32Inc(0);
   EXPECT_EQ(published.ids(), "") << "adding nothing is no change";
}

TEST_F(Single, AnOptionalIsSetAndCleared) {
   Witness published(*root);
   root->markIs(U8{0});
   root->markIs(U8{0});
   root->deadlineIs(2.5);
   root->markIs(std::nullopt);
   EXPECT_EQ(published.changes(), "mark was none; deadline was none; mark was 0");
   EXPECT_FALSE(root->mark());
   EXPECT_EQ(root->deadline(), 2.5);
}

TEST_F(Single, TakingTheValueOfAnEmptyOptionalThrows) {
   EXPECT_EQ(thrown<std::bad_optional_access>([&] { (void)root->mark().value(); }),
             "bad optional access");
}

TEST_F(Single, LocalAttributesAreSetAndPublishedLikeOthers) {
   Witness published(*root);
   root->secretIs(7);
   EXPECT_EQ(published.changes(), "secret was 0");
}

TEST_F(Single, DerivedMembersFollowWhatTheyAreComputedFrom) {
   root->count8Is(3);
   root->count32Is(4);
   root->pairIs(Pair(9, 9));
   EXPECT_EQ(root->total(), 7u);
   EXPECT_EQ(root->left(), 9u);
   EXPECT_TRUE(root->above(Level::low, 2));
   EXPECT_FALSE(root->above(Level::middle, 4));
   EXPECT_TRUE(root->above(Level::high, 6));
}

TEST_F(Single, ResetPublishesEachCounterThatWasNotZeroInIdOrder) {
   Witness published(*root);
   root->reset();
   EXPECT_EQ(published.ids(), "");
   root->count32Inc(5);
   root->reset();
   EXPECT_EQ(published.ids(), "283 283");
   root->count8Inc(1);
   root->count32Inc(1);
   published.clear();
   root->reset();
   EXPECT_EQ(published.changes(), "count8 was 1; count32 was 1");
}

TEST_F(Single, FactoryAndCreatorMakeTheSame) {
   Sarn::Ptr<Stem> const other = Stem::StemIs("test");
   EXPECT_NE(other, root);
   EXPECT_EQ(other->nameString(), root->nameString());
   EXPECT_EQ(other->userCount(), 1u);
   EXPECT_EQ(root->userCount(), 1u);
   EXPECT_EQ(root->parent(), nullptr);
   Sarn::Ptr<Leaf> const leaf = Leaf::LeafIs(3, true, Opaque(1.5));
   EXPECT_EQ(leaf->number(), 3u);
   EXPECT_TRUE(leaf->lit());
   EXPECT_EQ(leaf->origin().content(), 1.5);
}

}  // namespace

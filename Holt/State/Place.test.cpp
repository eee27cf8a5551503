#include "Holt/State/Place.h"

#include <gtest/gtest.h>

#include <sstream>

#include "Holt/Failure.h"
#include "Holt/State/Changes.h"
#include "Holt/State/Dump.h"
#include "KivTest/TestTypes/Stem.h"

namespace Holt {
namespace {

class PlaceTest : public testing::Test {
protected:
   Place at(std::string_view path) { return {root, "root", parseSteps(path)}; }
   /// The error; empty if there is none.
   template <class Do>
   std::string tried(Do&& doIt) {
      try {
         doIt();
         return "";
      } catch (Failure const& error) {
         return error.what();
      }
   }
   std::string set(std::string_view path, std::string_view text) {
      return tried([&] { at(path).set(text); });
   }
   std::string add(std::string_view path, std::vector<Sarn::String> const& args = {}) {
      return tried([&] { at(path).add(args); });
   }
   std::string del(std::string_view path) {
      return tried([&] { at(path).del(); });
   }
   std::string text(std::string_view path) {
      std::string text;
      std::string const failed = tried([&] { text = at(path).text(); });
      return failed.empty() ? text : failed;
   }

   Sarn::Ptr<KivTest::Stem> root = KivTest::stemFactory("root");
};

TEST_F(PlaceTest, SetsAttributesOfEveryType) {
   EXPECT_EQ(set(".s8", "-7"), "");
   EXPECT_EQ(set(".text", "any text"), "");
   EXPECT_EQ(set(".colour", "red"), "");
   EXPECT_EQ(set(".mark", "3"), "");
   EXPECT_EQ(set(".intf", "Ethernet7"), "");
   EXPECT_EQ(set(".wait", "inf"), "");
   EXPECT_EQ(root->s8(), -7);
   EXPECT_EQ(root->text(), "any text");
   EXPECT_EQ(root->colour(), KivTest::Colour::red);
   EXPECT_EQ(text(".mark"), "3");
   EXPECT_EQ(text(".intf"), "Ethernet7");
   EXPECT_EQ(text(".wait"), "inf");
}

TEST_F(PlaceTest, RefusesWhatIsOutOfRangeWithTheRange) {
   EXPECT_EQ(set(".dial", "21"), "root.dial: 21 is not allowed; the range is 10 to 20");
   EXPECT_EQ(set(".dial", "0x9"), "root.dial: 9 is not allowed; the range is 10 to 20");
   EXPECT_EQ(set(".u8", "256"), "root.u8: 256 does not fit U8 (0 to 255)");
   EXPECT_EQ(root->dial(), 15);
   EXPECT_EQ(root->u8(), 200);
}

TEST_F(PlaceTest, ReachesFieldsWithinValues) {
   EXPECT_EQ(text(".pair.second"), "-4");
   EXPECT_EQ(set(".pair.second", "9"), "");
   EXPECT_EQ(text(".pair"), "KivTest::Pair(first=3, second=9)");
   EXPECT_EQ(set(".record[5]",
                 "KivTest::Record(key=5, pair=KivTest::Pair(first=1, second=2), "
                 "mark=none, note=\"\", colour=red, stamp=1)"),
             "");
   EXPECT_EQ(set(".record[5].pair.first", "77"), "");
   EXPECT_EQ(text(".record[5].pair.first"), "77");
   EXPECT_EQ(set(".record[5].stamp", "2"), "root.record[5].stamp: stamp is read-only");
   EXPECT_EQ(text(".pair.third"), "root.pair: KivTest::Pair has no attribute 'third'");
}

TEST_F(PlaceTest, InsertsAndRemovesElements) {
   EXPECT_EQ(set(".byNumber[4]", "four"), "");
   EXPECT_EQ(set(".byText[a key]", "5"), "");
   EXPECT_EQ(set(".sorted[-3]", "x"), "");
   EXPECT_EQ(add(".byLevel[high]", {"true"}), "");
   EXPECT_EQ(text(".byNumber[4]"), "\"four\"");
   EXPECT_EQ(text(".byText[\"a key\"]"), "5");
   EXPECT_EQ(del(".byNumber[4]"), "");
   EXPECT_EQ(del(".byNumber[4]"), "root.byNumber[4]: does not exist");
   EXPECT_EQ(text(".byNumber[4]"), "root.byNumber[4]: does not exist");
   EXPECT_EQ(del(".sorted"), "");
   EXPECT_EQ(root->sortedCount(), 0U);
}

TEST_F(PlaceTest, AValueGoesUnderItsOwnKeyOnly) {
   EXPECT_NE(set(".record[5]",
                 "KivTest::Record(key=6, pair=KivTest::Pair(first=1, second=2), "
                 "mark=none, note=\"\", colour=red, stamp=1)")
                   .find("has a different key"),
             std::string::npos);
   EXPECT_EQ(root->recordCount(), 0U);
}

TEST_F(PlaceTest, CreatesChildrenFromTheirArguments) {
   EXPECT_EQ(add(".leaf[3]", {"true", "KivTest::Opaque(content=1.5)"}), "");
   ASSERT_TRUE(root->leafHas(3));
   EXPECT_TRUE(root->leaf(3)->lit());
   EXPECT_EQ(add(".leaf[3].twig[high]"), "");
   EXPECT_EQ(set(".leaf[3].twig[high].weight", "2.5"), "");
   EXPECT_EQ(text(".leaf[3].twig[high].weight"), "2.5");
   EXPECT_EQ(add(".leaf[4]", {"true"}),
             "root.leaf[4]: takes these arguments: lit (bool), origin (KivTest::Opaque)");
   EXPECT_NE(add(".leaf[3]", {"true", "KivTest::Opaque(content=2)"}), "")
         << "a constant argument differs";
   EXPECT_EQ(del(".leaf[3]"), "");
   EXPECT_EQ(text(".leaf[3].twig[high].weight"), "root.leaf[3]: does not exist");
}

TEST_F(PlaceTest, CreatesSingletonChildren) {
   EXPECT_EQ(add(".core"), "");
   EXPECT_EQ(add(".core", {"x"}), "root.core: takes no arguments");
   EXPECT_EQ(add(".badge"), "root.badge: takes one argument, its name");
   EXPECT_EQ(add(".badge", {"bright"}), "");
   EXPECT_EQ(root->badge()->nameString(), "bright");
   EXPECT_EQ(del(".core"), "");
   EXPECT_EQ(del(".core"), "root.core: does not exist");
}

TEST_F(PlaceTest, AppendsToQueuesAndTakesTheirFront) {
   EXPECT_EQ(add(".samples", {"1.5"}), "");
   EXPECT_EQ(add(".samples", {"2.5"}), "");
   EXPECT_EQ(text(".samples[2]"), "2.5");
   EXPECT_EQ(del(".samples[2]"), "root.samples[2]: is not the queue's front, which is 1");
   EXPECT_EQ(del(".samples[1]"), "");
   EXPECT_EQ(text(".samples[1]"), "root.samples[1]: does not exist");
   EXPECT_EQ(root->samplesCount(), 1U);
}

TEST_F(PlaceTest, SaysWhatCannotBeDone) {
   EXPECT_EQ(set(".total", "1"), "root.total: is read-only");
   EXPECT_EQ(set(".minKnob", "1"), "root.minKnob: is read-only");
   EXPECT_NE(set(".secret", "1").find("is not streamed"), std::string::npos);
   EXPECT_EQ(text(".reset"), "root.reset: is an operation; it has no value");
   EXPECT_EQ(text(".leaf.lit"), "root.leaf: is a collection; a key in brackets is missing");
   EXPECT_EQ(text(".flag[1]"), "root.flag: is not a collection; it takes no key");
   EXPECT_EQ(text(".Flag"), "root: KivTest::Stem has no attribute 'Flag'; did you mean 'flag'?");
   EXPECT_NE(del(".flag").find("always has a value"), std::string::npos);
   EXPECT_NE(del("").find("is a root"), std::string::npos);
   EXPECT_NE(set(".samples", "1").find("is a queue"), std::string::npos);
   EXPECT_NE(set(".core", "1").find("is an entity"), std::string::npos);
}

TEST_F(PlaceTest, ChangesAreToldAsText) {
   std::string log;
   ChangeObserver const observer(
         root, "root", [&log](ChangeText const& text) { log += text.path + text.what + "\n"; });
   root->s8Is(4);
   root->leafIs(1, true, KivTest::Opaque(2.5));
   root->leaf(1)->litIs(false);
   root->leafDel(1);
   root->byNumberIs(2, "two");
   root->byNumberIs(2, "deux");
   root->byNumberDel(2);
   root->samplesEnq(0.5);
   root->samplesDeq();
   root->coreIs();
   EXPECT_EQ(log,
             "root.s8: -5 -> 4\n"
             "root.leaf[1] created: lit=true, origin=KivTest::Opaque(content=2.5)\n"
             "root.leaf[1].lit: true -> false\n"
             "root.leaf[1] deleted\n"
             "root.byNumber[2] created: \"two\"\n"
             "root.byNumber[2]: \"two\" -> \"deux\"\n"
             "root.byNumber[2] deleted: was \"deux\"\n"
             "root.samples[1] created: 0.5\n"
             "root.samples[1] deleted\n"
             "root.core created\n");
}

TEST_F(PlaceTest, ChangesBesideTheWatchedPathAreNotTold) {
   std::string log;
   ChangeObserver const observer(root, "root.leaf[1].lit", [&log](ChangeText const& text) {
      log += text.path + text.what + "\n";
   });
   root->leafIs(1, true, KivTest::Opaque(2.5));
   root->leafIs(11, true, KivTest::Opaque(2.5));
   root->leaf(11)->litIs(false);
   root->leaf(1)->litIs(false);
   root->leaf(1)->ticksInc(1);
   root->leafDel(11);
   root->leafDel(1);
   EXPECT_EQ(log,
             "root.leaf[1] created: lit=true, origin=KivTest::Opaque(content=2.5)\n"
             "root.leaf[1].lit: true -> false\n"
             "root.leaf[1] deleted\n");
}

TEST_F(PlaceTest, DumpsAreInAnOrderOfTheirOwn) {
   Sarn::Ptr<KivTest::Stem> const other = KivTest::stemFactory("root");
   for (U32 i = 0; i != 40; ++i) {
      root->leafIs(i, true, KivTest::Opaque(i)).get()->twigIs(KivTest::Level::high);
      other->leafIs(39 - i, true, KivTest::Opaque(39 - i)).get()->twigIs(KivTest::Level::high);
      root->byTextIs(std::to_string(i), i);
      other->byTextIs(std::to_string(39 - i), 39 - i);
   }
   std::ostringstream a;
   std::ostringstream b;
   Dump one(a);
   one.entity(*root, "root");
   Dump(b).entity(*other, "root");
   EXPECT_EQ(a.str(), b.str());
   EXPECT_EQ(one.byType().at("KivTest::Leaf").entities, 40U);
   EXPECT_LT(a.str().find("root.leaf[9] :"), a.str().find("root.leaf[10] :"));
   EXPECT_EQ(a.str().find("secret"), std::string::npos);
}

TEST_F(PlaceTest, ADumpAlignsTheValuesOfAnEntityAndTellsAQueuesCounter) {
   std::ostringstream out;
   Dump dump(out);
   dump.entity(*KivTest::Leaf::LeafIs(7, true, KivTest::Opaque(0.5)), "leaf");
   EXPECT_EQ(out.str(),
             "leaf : KivTest::Leaf\n"
             "leaf.number = 7\n"
             "leaf.lit    = true\n"
             "leaf.origin = KivTest::Opaque(content=0.5)\n"
             "leaf.ticks  = 0\n");
   EXPECT_EQ(tallyText(dump.total()), "1 entity, 4 attributes");
   root->samplesEnq(1);
   root->samplesEnq(2);
   root->samplesDeq();
   std::ostringstream queue;
   Dump(queue).place(at(".samples"));
   EXPECT_EQ(queue.str(),
             "root.samples[2] = 2\n"
             "root.samples    = next 3\n");
}

}  // namespace
}  // namespace Holt

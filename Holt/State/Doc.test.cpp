// Documents of a module that has every kind of member: written, read, compared, applied.
#include "Holt/State/Doc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>

#include "Holt/Failure.h"
#include "Holt/State/Changes.h"
#include "Holt/State/Diff.h"
#include "Holt/State/Load.h"
#include "KivTest/TestTypes/Stem.h"

namespace Holt {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Gives every member of a root a value other than its default.
void fill(KivTest::Stem& root) {
   root.flagIs(true);
   root.u64Is(std::numeric_limits<U64>::max() - 1);
   root.s64Is(std::numeric_limits<S64>::min());
   root.ratioIs(0.1F);
   root.preciseIs(0.1 + 0.2);
   root.waitIs(-std::numeric_limits<double>::infinity());
   root.textIs("any \"text\"\n");
   root.colourIs(static_cast<KivTest::Colour>(99));
   root.pairIs(KivTest::Pair(1, -2));
   root.intfIs(Dorn::IntfId("Ethernet7"));
   root.dialIs(20);
   root.count8Inc(3);
   root.count32Inc(4);
   root.markIs(U8{0});
   root.coreIs()->labelIs("\xff");
   root.badgeIs("shining")->brightnessIs(9);
   root.leafIs(10, true, KivTest::Opaque(1.5))->twigIs(KivTest::Level::high)->weightIs(2);
   root.leafIs(9, false, KivTest::Opaque(std::nan("")))->ticksInc(65535);
   root.byNumberIs(1, "one");
   root.byNumberIs(0, "");
   root.byTextIs("a.b[c]", 1);
   root.byTextIs("\"", 2);
   root.byTextIs("\xfe", 3);
   root.byPairIs(KivTest::Pair(7, 8), KivTest::Pair(9, 10));
   root.byLevelIs(KivTest::Level::middle, true);
   root.recordIs(KivTest::Record(5, KivTest::Pair(1, 1), U8{2}, "note", KivTest::Colour::red, 77));
   root.sortedIs(-5, "minus five");
   root.sortedIs(5, "five");
   root.sortedTextIs("x", KivTest::Colour::green);
   root.samplesEnq(0.5);
   root.samplesEnq(std::numeric_limits<double>::infinity());
}

class StateDocTest : public testing::Test {
protected:
   static StateDoc docOfRoot(KivTest::Stem const& root) {
      StateDoc doc;
      doc.places.emplace_back();
      doc.places.back().path.root = {"KivTest::Stem", "root"};
      doc.places.back().text = "root";
      doc.places.back().entity = docOf(root);
      return doc;
   }
   static std::string textOf(KivTest::Stem const& root) {
      return jsonText(jsonOf(docOfRoot(root)));
   }
   /// The errors of a document.
   static DocErrors errorsOf(std::string const& text) {
      DocErrors errors;
      try {
         readStateDoc(parseJson(text, "file"), "file", errors);
      } catch (Failure const& failure) {
         errors.emplace_back(failure.what());
      }
      return errors;
   }
   static std::string withState(std::string const& state, std::string const& path = "root") {
      return R"({"format": "ptpstate dump 1", "places": [{"root": {"type": "KivTest::Stem", )"
             R"("name": "root"}, "path": ")" +
             path + R"(", "state": )" + state + "}]}";
   }
   /// Applies a document to the root; returns the errors.
   DocErrors load(std::string const& text) {
      DocErrors errors;
      StateDoc const doc = readStateDoc(parseJson(text, "file"), "file", errors);
      EXPECT_THAT(errors, IsEmpty());
      changes.clear();
      ChangeObserver observer(root, "root", [this](ChangeText const& change) {
         changes.push_back(change.path + change.what);
      });
      for (DocPlace const& place : doc.places) {
         loadPlace(root, place, errors);
      }
      return errors;
   }

   Sarn::Ptr<KivTest::Stem> root = KivTest::stemFactory("root");
   std::vector<std::string> changes;
};

TEST_F(StateDocTest, ReadBackGivesTheSameDocument) {
   fill(*root);
   std::string const text = textOf(*root);
   DocErrors errors;
   StateDoc const doc = readStateDoc(parseJson(text, "file"), "file", errors);
   EXPECT_THAT(errors, IsEmpty());
   EXPECT_EQ(jsonText(jsonOf(doc)), text);
}

TEST_F(StateDocTest, ErrorsAreOneLineEachThatNoTerminalObeys) {
   EXPECT_THAT(errorsOf(withState(R"({"a\u001b[2J\nroot.u8": 1})")),
               ElementsAre(HasSubstr(R"(has no attribute 'a\x1b[2J\nroot.u8')")));
   EXPECT_THAT(errorsOf(withState(R"({"byNumber": {"\u009b": "x"}})")),
               ElementsAre(HasSubstr(R"(root.byNumber[\xc2\x9b]: )")));
   EXPECT_THAT(errorsOf(withState("1", R"(root.a[\u001b)")), ElementsAre(HasSubstr(R"(\x1b)")));
}

TEST_F(StateDocTest, ANumberThatNoDoubleHoldsIsAnErrorOfTheFile) {
   EXPECT_THAT(errorsOf(withState(R"({"precise": 1e999})")), ElementsAre(HasSubstr("file: ")));
}

TEST_F(StateDocTest, AppliedToAFreshRootGivesTheSameState) {
   auto const other = KivTest::stemFactory("root");
   fill(*other);
   std::string const text = textOf(*other);
   EXPECT_THAT(load(text), IsEmpty());
   EXPECT_EQ(textOf(*root), text);
   EXPECT_THAT(load(text), IsEmpty());
   EXPECT_THAT(changes, IsEmpty()) << "the second time there is no difference";
}

TEST_F(StateDocTest, AppliedBackUndoesEverything) {
   std::string const fresh = textOf(*root);
   fill(*root);
   EXPECT_THAT(load(fresh), IsEmpty());
   // The numbers of a queue's elements cannot be undone.
   EXPECT_EQ(root->samplesCount(), 0U);
   std::string now = textOf(*root);
   std::size_t const at = now.find("\"next\": 3");
   ASSERT_NE(at, std::string::npos);
   EXPECT_EQ(now.replace(at, 9, "\"next\": 1"), fresh);
}

TEST_F(StateDocTest, WritesNumbersAsNumbersAndLosesNothing) {
   fill(*root);
   Json const state = jsonOf(docOfRoot(*root))["places"][0]["state"];
   auto const text = [&](char const* name) { return state.at(name).dump(); };
   EXPECT_EQ(text("u8"), "200");
   EXPECT_EQ(text("u64"), "\"18446744073709551614\"");
   EXPECT_EQ(text("s64"), "\"-9223372036854775808\"");
   EXPECT_EQ(text("ratio"), "0.1");
   EXPECT_EQ(text("precise"), "0.30000000000000004");
   EXPECT_EQ(text("wait"), "\"-inf\"");
   EXPECT_EQ(text("text"), "\"any \\\"text\\\"\\n\"");
   EXPECT_EQ(text("colour"), "99");
   EXPECT_EQ(text("level"), "\"low\"");
   EXPECT_EQ(text("pair"), R"({"first":1,"second":-2})");
   EXPECT_EQ(text("intf"), "\"Ethernet7\"");
   EXPECT_EQ(text("mark"), "0");
   EXPECT_EQ(text("deadline"), "null");
   EXPECT_EQ(text("core"), R"({"temperature":293.15,"label":{"@text":"\"\\xff\""}})");
   EXPECT_EQ(text("badge"), R"({"@name":"shining","brightness":9})");
   EXPECT_EQ(text("byNumber"), R"({"0":"","1":"one"})");
   EXPECT_EQ(text("byText"), R"({"\"\\\"\"":2,"\"\\xfe\"":3,"a.b[c]":1})");
   EXPECT_EQ(text("samples"), R"({"next":3,"elements":[0.5,"inf"]})");
   EXPECT_FALSE(state.contains("secret")) << "it is not streamed";
   EXPECT_EQ(state["leaf"].begin().key(), "9") << "in natural order";
}

TEST_F(StateDocTest, AnIntegerIsANumberAsLongAsADoubleHoldsIt) {
   for (S64 const exact : {S64{1} << 53, -(S64{1} << 53)}) {
      root->s64Is(exact);
      EXPECT_EQ(jsonOf(docOfRoot(*root))["places"][0]["state"]["s64"].dump(),
                std::to_string(exact));
      S64 const beyond = exact > 0 ? exact + 1 : exact - 1;
      root->s64Is(beyond);
      EXPECT_EQ(jsonOf(docOfRoot(*root))["places"][0]["state"]["s64"].dump(),
                "\"" + std::to_string(beyond) + "\"");
   }
}

TEST_F(StateDocTest, ReadsValuesInTheirTextFormToo) {
   EXPECT_THAT(load(withState(R"json({"u8": "7", "u64": 18446744073709551613, "flag": "true",
                                  "ratio": "0.25", "pair": "KivTest::Pair(first=5, second=6)",
                                  "text": {"@text": "\"\\x41\""}, "mark": "3", "colour": 7,
                                  "precise": 1, "s8": -1, "intf": ""})json")),
               IsEmpty());
   EXPECT_EQ(root->u8(), 7);
   EXPECT_EQ(root->u64(), 18446744073709551613ULL);
   EXPECT_TRUE(root->flag());
   EXPECT_EQ(root->ratio(), 0.25F);
   EXPECT_EQ(root->pair(), KivTest::Pair(5, 6));
   EXPECT_EQ(root->text(), "A");
   EXPECT_EQ(root->mark(), U8{3});
   EXPECT_EQ(root->colour(), KivTest::Colour::blue);
   EXPECT_EQ(root->precise(), 1.0);
}

TEST_F(StateDocTest, WhatADocumentLeavesOutStays) {
   fill(*root);
   EXPECT_THAT(load(withState(R"({"byNumber": {"1": "one", "2": "two"}})")), IsEmpty());
   EXPECT_THAT(changes, ElementsAre("root.byNumber[0] deleted: was \"\"",
                                    "root.byNumber[2] created: \"two\""));
}

TEST_F(StateDocTest, AChildWithOtherConstantArgumentsIsReplaced) {
   root->leafIs(1, true, KivTest::Opaque(1));
   EXPECT_THAT(load(withState(R"({"leaf": {"1": {"lit": false, "origin": {"content": 2}}}})")),
               IsEmpty());
   EXPECT_THAT(changes,
               ElementsAre("root.leaf[1] deleted",
                           "root.leaf[1] created: lit=false, origin=KivTest::Opaque(content=2)"));
   EXPECT_THAT(load(withState(R"({"leaf": {"1": {"lit": true}}})")), IsEmpty());
   EXPECT_THAT(changes, ElementsAre("root.leaf[1].lit: false -> true"));
}

TEST_F(StateDocTest, ANamedChildOfAnotherNameIsReplaced) {
   root->badgeIs("first");
   EXPECT_THAT(load(withState(R"({"badge": {"@name": "second", "brightness": 5}})")), IsEmpty());
   EXPECT_EQ(root->badge()->nameString(), "second");
   EXPECT_THAT(load(withState(R"({"badge": null})")), IsEmpty());
   EXPECT_EQ(root->badge(), nullptr);
}

TEST_F(StateDocTest, AQueueKeepsWhatHasItsNumberAlready) {
   for (double const sample : {1, 2, 3}) {
      root->samplesEnq(sample);
   }
   EXPECT_THAT(load(withState(R"({"samples": {"next": 6, "elements": [3, 4, 5]}})")), IsEmpty());
   EXPECT_THAT(changes, ElementsAre("root.samples[1] deleted", "root.samples[2] deleted",
                                    "root.samples[4] created: 4", "root.samples[5] created: 5"));
   EXPECT_THAT(load(withState(R"({"samples": {"next": 4, "elements": [3, 4, 5]}})")), IsEmpty());
   EXPECT_THAT(changes, IsEmpty()) << "the values are those";
   EXPECT_THAT(load(withState(R"({"samples": {"next": 2, "elements": [9]}})")), IsEmpty());
   EXPECT_EQ(root->samplesCount(), 1U);
   EXPECT_EQ(root->samplesFront(), 9);
}

TEST_F(StateDocTest, TellsEverythingThatASetterRefuses) {
   DocErrors const errors =
         load(withState(R"({"dial": 9, "knob": 3, "minKnob": 0, "leaf": {"1": {"lit": true}},
                            "record": {"5": {"key": 6, "pair": {"first": 1, "second": 1},
                                             "mark": null, "note": "", "colour": 0,
                                             "stamp": 1}}})"));
   EXPECT_THAT(errors, ElementsAre("root.dial: 9 is not allowed; the range is 10 to 20",
                                   "root.minKnob: is constant: -2 cannot become 0",
                                   "root.knob: 3 is not allowed; the range is -2 to 2",
                                   "root.leaf[1]: cannot be created: 'origin' is missing",
                                   HasSubstr("root.record[5]: the value KivTest::Record(key=6, ")));
}

TEST_F(StateDocTest, TellsEverythingThatCannotBeRead) {
   EXPECT_THAT(
         errorsOf(withState(R"({"u8": 300, "s8": 1.5, "fleg": true, "flag": 1, "text": 5,
                                "colour": "purple", "pair": {"first": 1}, "secret": 1,
                                "wait": [], "byLevel": {"mid": true}, "byNumber": {"1": 2},
                                "samples": [], "core": 1, "reset": 1, "u32": null,
                                "record": {"1": {"key": 1, "other": 2}}})")),
         ElementsAre("root.u8: 300 does not fit U8 (0 to 255)",
                     HasSubstr("root.s8: '1.5' is not a valid S8"),
                     "root: KivTest::Stem has no attribute 'fleg'; did you mean 'flag'?",
                     HasSubstr("root.flag: '1' is not a valid bool"),
                     "root.text: expected a string, not 5",
                     HasSubstr("root.colour: 'purple' is not a valid KivTest::Colour"),
                     "root.pair: the field 'second' is missing",
                     "root.secret: is not streamed, and does not belong in a dump",
                     "root.wait: expected a value of type double, not a list",
                     HasSubstr("root.byLevel[mid]: 'mid' is not a valid KivTest::Level"),
                     "root.byNumber[1]: expected a string, not 2",
                     R"(root.samples: a queue is {"next": NUMBER, "elements": [VALUE, ...]})",
                     "root.core: KivTest::Core is an entity; expected an object",
                     HasSubstr("root.reset: "), "root.u32: expected a value of type U32, not null",
                     "root.record[1]: the field 'pair' is missing"));
}

TEST_F(StateDocTest, RefusesWhatIsNoDump) {
   EXPECT_THAT(
         errorsOf("{\n  \"format\": nonsense"),
         ElementsAre("file:2:14: invalid JSON; 'ptpstate dump --json' writes the expected format"));
   EXPECT_THAT(errorsOf("[]"),
               ElementsAre(HasSubstr("file: not a dump that this program can read")));
   EXPECT_THAT(errorsOf("5"),
               ElementsAre(HasSubstr("file: not a dump that this program can read")));
   EXPECT_THAT(errorsOf(R"({"format": "ptpstate dump 2", "places": []})"),
               ElementsAre(HasSubstr("file: not a dump that this program can read")));
   EXPECT_THAT(errorsOf(withState(R"({"u8": 1, "u8": 2})")),
               ElementsAre("file: an object has the key 'u8' twice"));
   EXPECT_THAT(errorsOf(withState(R"({"byNumber": {"1": "x", "0x1": "y"}})")),
               ElementsAre("root.byNumber[1]: occurs twice"));
   EXPECT_THAT(errorsOf(withState("1", "root.nothing")),
               ElementsAre("root: KivTest::Stem has no attribute 'nothing'"));
   EXPECT_THAT(errorsOf(withState("1", "other.u8")),
               ElementsAre(HasSubstr("'other.u8' does not begin")));
   EXPECT_THAT(errorsOf(R"({"format": "ptpstate dump 1", "places": [{"path": "root"}]})"),
               ElementsAre(R"(file: a place without "root", "path" or "state")"));
}

TEST_F(StateDocTest, APartIsAppliedWhereItBelongs) {
   EXPECT_THAT(load(withState("7", "root.pair.first")), IsEmpty());
   EXPECT_EQ(root->pair(), KivTest::Pair(7, -4));
   EXPECT_THAT(load(withState("\"x\"", "root.byNumber[3]")), IsEmpty());
   EXPECT_EQ(root->byNumber(3), "x");
   EXPECT_THAT(load(withState(R"({"lit": true, "origin": {"content": 1}})", "root.leaf[4]")),
               IsEmpty());
   EXPECT_TRUE(root->leaf(4)->lit());
   EXPECT_THAT(load(withState(R"({"weight": 2})", "root.leaf[4].twig[high]")), IsEmpty());
   EXPECT_EQ(root->leaf(4)->twig(KivTest::Level::high)->weight(), 2);
   EXPECT_THAT(load(withState("{}", "root.leaf")), IsEmpty());
   EXPECT_EQ(root->leafCount(), 0U);
   EXPECT_THAT(load(withState(R"({"weight": 2})", "root.leaf[4].twig[high]")),
               ElementsAre("root.leaf[4]: does not exist"));
}

TEST_F(StateDocTest, ComparesPathByPath) {
   auto const other = KivTest::stemFactory("root");
   fill(*root);
   fill(*other);
   other->u8Is(1);
   other->leafDel(9);
   other->byNumberIs(2, "two");
   other->samplesDeq();
   StateDoc const first = docOfRoot(*root);
   StateDoc const second = docOfRoot(*other);
   std::vector<std::string> told;
   U64 const count =
         compareLines(linesOf(first), linesOf(second), [&](StateLine const* a, StateLine const* b) {
            told.push_back((a != nullptr ? a : b)->path + ": " + (a != nullptr ? a->text : "") +
                           " | " + (b != nullptr ? b->text : ""));
         });
   EXPECT_EQ(count, told.size());
   EXPECT_THAT(told, ElementsAre("root.u8: 200 | 1", "root.byNumber[2]:  | \"two\"",
                                 "root.samples[1]: 0.5 | ", "root.leaf[9]: KivTest::Leaf | ",
                                 "root.leaf[9].number: 9 | ", "root.leaf[9].lit: false | ",
                                 "root.leaf[9].origin: KivTest::Opaque(content=nan) | ",
                                 "root.leaf[9].ticks: 65535 | "));
   EXPECT_EQ(compareLines(linesOf(first), linesOf(first), [](auto*, auto*) { FAIL(); }), 0U);
}

}  // namespace
}  // namespace Holt

#include "Kivc/Check.h"

#include <gtest/gtest.h>

#include "Kivc/EmitManifest.h"
#include "Kivc/Kivc.test.h"
#include "Kivc/Words.h"

namespace Kivc {
namespace {

using test::Compiled;

/// Puts a `///` line in front of every line that declares something.
std::string documented(std::string_view text) {
   std::string out;
   std::string line;
   for (char const c : text) {
      line += c;
      if (c == '\n') {
         bool const declares = line.find_first_not_of(" }\n") != std::string::npos;
         out += (declares ? "/// Doc.\n" : "") + line;
         line.clear();
      }
   }
   return out;
}

class Ids : public testing::Test {
protected:
   static std::string of(std::string_view text) {
      Compiled const compiled(documented(text));
      EXPECT_EQ(compiled.diagnostics.render(), "");
      return emitManifest(*compiled.module);
   }
};

TEST_F(Ids, EntityMembersCountFrom258AndTheNameTakesNone) {
   EXPECT_EQ(of("entity Config {\n"
                "   name;\n"
                "   attr enabled : bool;\n"
                "   optional ttl : U8;\n"
                "}\n"),
             "Demo Config nameString 154 name 0x0810\n"
             "Demo Config enabled 258 attr 0xdc00\n"
             "Demo Config ttl 259 optional 0xdc00\n");
}

TEST_F(Ids, FieldsCountFromTwo) {
   EXPECT_EQ(of("value Pair {\n"
                "   const field first : U64;\n"
                "   field second : U64;\n"
                "   optional third : U8;\n"
                "}\n"),
             "Demo Pair first 2 field 0x2c00\n"
             "Demo Pair second 3 field 0x9c00\n"
             "Demo Pair third 4 optional 0x9c00\n");
}

TEST_F(Ids, QueueTakesTwoAndHasTheSecond) {
   EXPECT_EQ(of("entity Port {\n"
                "   key id : U32;\n"
                "   queue delays : double;\n"
                "   attr next : U8;\n"
                "}\n"),
             "Demo Port id 258 key 0x2c00\n"
             "Demo Port delays 260 queue 0xdc01\n"
             "Demo Port next 261 attr 0xdc00\n");
}

TEST_F(Ids, OperationsConstantsAndViewsTakePlaces) {
   EXPECT_EQ(of("entity Port {\n"
                "   constant low : S8 = -7;\n"
                "   op reset ();\n"
                "   op level () -> U8 const;\n"
                "   attr reading : U8;\n"
                "   derived total : U8;\n"
                "   derived view : U8 from reading;\n"
                "   attr last : U8;\n"
                "}\n"),
             "Demo Port low 258 constant 0x2800\n"
             "Demo Port reset 259 op 0x0811\n"
             "Demo Port level 260 op 0x0810\n"
             "Demo Port reading 261 attr 0xdc00\n"
             "Demo Port total 262 derived 0x2800\n"
             "Demo Port view 263 derived 0x2808\n"
             "Demo Port last 264 attr 0xdc00\n");
}

TEST_F(Ids, ReservedSkipsAsManyAsItSays) {
   EXPECT_EQ(of("entity Port {\n"
                "   attr a : U8;\n"
                "   reserved 2;\n"
                "   attr b : U8;\n"
                "}\n"),
             "Demo Port a 258 attr 0xdc00\n"
             "Demo Port b 261 attr 0xdc00\n");
}

TEST_F(Ids, DerivedEntityCountsFromItsBasesRangePlus128) {
   EXPECT_EQ(of("entity Special : Base {\n"
                "   attr b : U8;\n"
                "}\n"
                "entity Base {\n"
                "   attr a : U8;\n"
                "}\n"),
             "Demo Special b 386 attr 0xdc00\n"
             "Demo Base a 258 attr 0xdc00\n");
}

TEST_F(Ids, CollectionsAndChildrenHaveTheirKindWords) {
   EXPECT_EQ(of("entity Leaf {\n"
                "   key id : U32;\n"
                "}\n"
                "entity Plain {\n"
                "}\n"
                "entity Root {\n"
                "   child plain : Plain;\n"
                "   children leaves : Leaf by U32 hash 0x1;\n"
                "   map values : U8 by U32 hash 0x2;\n"
                "   ordered sorted : U8 by U32;\n"
                "   counter lost : U32;\n"
                "}\n"),
             "Demo Leaf id 258 key 0x2c00\n"
             "Demo Root plain 258 child 0xdd20\n"
             "Demo Root leaves 259 children 0xdd21\n"
             "Demo Root values 260 map 0xdc01\n"
             "Demo Root sorted 261 ordered 0xdc01\n"
             "Demo Root lost 262 counter 0xdc00\n");
}

TEST_F(Ids, EnumeratorsContinueTheLastNumber) {
   EXPECT_EQ(of("enum Mode {\n"
                "   zero;\n"
                "   five = 5;\n"
                "   six;\n"
                "   hex = 0x10;\n"
                "   default five;\n"
                "}\n"),
             "Demo Mode zero 0 enumerator\n"
             "Demo Mode five 5 enumerator\n"
             "Demo Mode six 6 enumerator\n"
             "Demo Mode hex 16 enumerator\n");
}

TEST(Check, ConstructorTakesNameKeyConstAndGivenInOrder) {
   Compiled const compiled(
         documented("entity Port {\n"
                    "   key id : U32;\n"
                    "   attr plain : U8;\n"
                    "   attr enabled : bool given;\n"
                    "   const speed : U64;\n"
                    "}\n"
                    "entity Special : Port ( id, true, speed ) {\n"
                    "   attr own : U8 given;\n"
                    "}\n"));
   EXPECT_EQ(compiled.diagnostics.render(), "");
   auto const namesOf = [](Type const& type) {
      std::string names;
      for (auto const& param : type.constructorParams) {
         names += param.name.text + " ";
      }
      return names;
   };
   EXPECT_EQ(namesOf(compiled.type("Port")), "id enabled speed ");
   EXPECT_EQ(namesOf(compiled.type("Special")), "id speed own ");
   EXPECT_FALSE(compiled.type("Special").baseArgs[1].passedOn);
}

TEST(Check, TypesAreLookedUpInEnclosingNamespaces) {
   Compiled const compiled(
         documented("namespace A;\n"
                    "enum Mode {\n"
                    "   on;\n"
                    "   default on;\n"
                    "}\n"
                    "namespace A::B;\n"
                    "entity Port {\n"
                    "   attr near : Mode;\n"
                    "   attr far : A::Mode;\n"
                    "   attr absolute : ::A::Mode;\n"
                    "}\n"));
   EXPECT_EQ(compiled.diagnostics.render(), "");
   for (auto const& member : compiled.type("Port").members) {
      EXPECT_EQ(member.type.type, &compiled.type("Mode")) << member.name.text;
   }
}

TEST(Check, BoundsHaveTheNamesThatMessagesPrint) {
   Compiled const compiled(
         documented("namespace A;\n"
                    "extern constants Limits in \"Limits.h\" {\n"
                    "   low = 2;\n"
                    "   high = 9;\n"
                    "}\n"
                    "entity Port {\n"
                    "   constant minLevel : S8 = -7;\n"
                    "   attr a : U8 = 3 in Limits::low .. ::A::Limits::high();\n"
                    "   attr b : S8 in minLevel .. 5;\n"
                    "   attr c : U8 = 2 in Limits::low .. ;\n"
                    "}\n"));
   EXPECT_EQ(compiled.diagnostics.render(), "");
   auto const& port = compiled.type("Port");
   EXPECT_EQ(boundName(*port.find("a")->lower), "A::Limits::low");
   EXPECT_EQ(boundName(*port.find("a")->upper), "::A::Limits::high()");
   EXPECT_EQ(boundName(*port.find("b")->lower), "A::Port::minLevel");
   EXPECT_EQ(boundName(*port.find("b")->upper), "5");
   EXPECT_EQ(rangeInWords(*port.find("a")), "2 to 9");
   EXPECT_EQ(rangeInWords(*port.find("b")), "-7 to 5");
   EXPECT_EQ(rangeInWords(*port.find("c")), "2 and above");
}

TEST(Check, OrdinalNamesTheEnumeratorOfThatNumber) {
   Compiled const compiled(
         documented("enum Mode {\n"
                    "   off;\n"
                    "   on = 4;\n"
                    "   default off;\n"
                    "}\n"
                    "entity Port {\n"
                    "   attr a : Mode = ordinal(4);\n"
                    "   attr b : Mode;\n"
                    "   attr c : Mode = on;\n"
                    "}\n"));
   EXPECT_EQ(compiled.diagnostics.render(), "");
   auto const& port = compiled.type("Port");
   EXPECT_EQ(defaultInWords(*port.find("a")), "on");
   EXPECT_EQ(defaultInWords(*port.find("b")), "off");
   EXPECT_EQ(defaultInWords(*port.find("c")), "on");
}

TEST(Check, FullRangeOf64BitNumbersIsHeld) {
   Compiled const compiled(
         documented("entity Port {\n"
                    "   attr a : U64 = 18446744073709551615;\n"
                    "   attr b : S64 = -9223372036854775808;\n"
                    "   attr c : U64 = 0xFFFFFFFFFFFFFFFF in 1 .. ;\n"
                    "   attr d : Seconds = infinity;\n"
                    "   attr e : double = -1.0;\n"
                    "}\n"));
   EXPECT_EQ(compiled.diagnostics.render(), "");
   EXPECT_EQ(decimal(*compiled.type("Port").find("a")->defaultValue->integer),
             "18446744073709551615");
   EXPECT_EQ(decimal(*compiled.type("Port").find("b")->defaultValue->integer),
             "-9223372036854775808");
}

TEST(Check, ChildrenOfOneTypeMayHoldEachOther) {
   Compiled const compiled(
         documented("entity Node {\n"
                    "   key id : U32;\n"
                    "   children nodes : Node by U32 hash 0x1;\n"
                    "}\n"));
   EXPECT_EQ(compiled.diagnostics.render(), "");
}

}  // namespace
}  // namespace Kivc

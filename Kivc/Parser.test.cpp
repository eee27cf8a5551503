#include "Kivc/Parser.h"

#include <gtest/gtest.h>

#include "Kivc/Kivc.test.h"

namespace Kivc {
namespace {

using test::Compiled;

Compiled parsed(std::string_view text) {
   return Compiled(text, false);
}

Member const& onlyMember(Compiled const& compiled) {
   EXPECT_EQ(compiled.diagnostics.render(), "");
   return compiled.module->types.front()->members.front();
}

Compiled entityWith(std::string const& member) {
   return parsed("entity E {\n" + member + "\n}\n");
}

TEST(Parser, ModuleKeepsItsHashAsWritten) {
   Diagnostics diagnostics;
   auto const module =
         parse(std::make_unique<Source>("M.kiv", "module M 0xfbc0540;\nuse A, B;\nuse C;\n"),
               diagnostics);
   EXPECT_EQ(module->recordSymbol(), "_M_fbc0540_kivModule");
   EXPECT_EQ(module->hashValue(), 0xfbc0540U);
   ASSERT_EQ(module->uses.size(), 3U);
   EXPECT_EQ(module->uses[2].text, "C");
}

TEST(Parser, NamespaceAppliesToTypesBehindIt) {
   auto const compiled = parsed("enum A {}\nnamespace X;\nenum B {}\nnamespace X::Y;\nenum C {}\n");
   EXPECT_EQ(compiled.type("A").qualifiedName(), "A");
   EXPECT_EQ(compiled.type("B").qualifiedName(), "X::B");
   EXPECT_EQ(compiled.type("C").qualifiedName(), "X::Y::C");
}

TEST(Parser, QualifiedExternalTypeIsAbsolute) {
   auto const compiled = parsed(
         "namespace X;\nextern value Dorn::IntfId in \"Dorn/IntfId.h\" unordered;\n"
         "extern value Own in \"Own.h\" unhashable;\n");
   EXPECT_EQ(compiled.type("IntfId").qualifiedName(), "Dorn::IntfId");
   EXPECT_EQ(compiled.type("IntfId").header, "Dorn/IntfId.h");
   EXPECT_FALSE(compiled.type("IntfId").ordered);
   EXPECT_TRUE(compiled.type("IntfId").hashable);
   EXPECT_EQ(compiled.type("Own").qualifiedName(), "X::Own");
   EXPECT_FALSE(compiled.type("Own").hashable);
}

TEST(Parser, DocumentationAttachesToWhatFollows) {
   auto const compiled =
         parsed("/// A type.\n/// Two lines.\nentity E {\n   /// Doc.\n   attr a : U8;\n}\n");
   EXPECT_EQ(compiled.type("E").doc, (std::vector<std::string>{"A type.", "Two lines."}));
   EXPECT_EQ(compiled.type("E").members[0].doc, (std::vector<std::string>{"Doc."}));
}

TEST(Parser, AttributeWithDefaultAndRange) {
   auto const compiled = entityWith("attr limit : U32 = 50 in Limits::low .. ::A::high() local;");
   auto const& member = onlyMember(compiled);
   EXPECT_EQ(member.kind, MemberKind::attr);
   EXPECT_EQ(member.name.text, "limit");
   EXPECT_EQ(member.type.name.text, "U32");
   EXPECT_EQ(member.defaultValue->text, "50");
   EXPECT_EQ(member.lower->text, "Limits::low");
   EXPECT_FALSE(member.lower->isFunction);
   EXPECT_EQ(member.upper->text, "::A::high");
   EXPECT_TRUE(member.upper->isFunction);
   EXPECT_TRUE(member.local);
}

TEST(Parser, RangeMayBeOpenAbove) {
   auto const compiled = entityWith("attr a : U8 in 2 .. local;");
   auto const& member = onlyMember(compiled);
   EXPECT_EQ(member.lower->text, "2");
   EXPECT_FALSE(member.upper);
   EXPECT_TRUE(member.local);
}

TEST(Parser, DefaultMayBeANestedCall) {
   auto const compiled = entityWith("attr a : Q = Q(248, P(-1, \"x\"), 0xff);");
   auto const& value = *onlyMember(compiled).defaultValue;
   EXPECT_EQ(value.kind, Expr::Kind::call);
   ASSERT_EQ(value.args.size(), 3U);
   EXPECT_EQ(value.args[1].kind, Expr::Kind::call);
   EXPECT_EQ(value.args[1].args[0].text, "-1");
   EXPECT_EQ(value.args[1].args[1].text, "\"x\"");
   EXPECT_EQ(value.span.text(), "Q(248, P(-1, \"x\"), 0xff)");
}

TEST(Parser, ChildrenCarryArgumentsHashAndInstantiation) {
   auto const compiled = entityWith(
         "children list : Child by Dorn::IntfId ( a, b ) hash 0x5B266113 "
         "instantiation(false, true, false) local;");
   auto const& member = onlyMember(compiled);
   EXPECT_EQ(member.kind, MemberKind::children);
   EXPECT_EQ(member.key.name.text, "Dorn::IntfId");
   ASSERT_EQ(member.childArgs.size(), 2U);
   EXPECT_EQ(member.childArgs[1].text, "b");
   EXPECT_EQ(member.hash->text, "0x5B266113");
   EXPECT_EQ(member.instantiation, (std::array<bool, 3>{false, true, false}));
   EXPECT_TRUE(member.local);
}

TEST(Parser, MapMayBeKeyedInsideTheValue) {
   auto const compiled = entityWith("map infos : Info by .portKey hash 0x1;");
   auto const& member = onlyMember(compiled);
   EXPECT_EQ(member.keyField->text, "portKey");
   EXPECT_FALSE(member.key);
}

TEST(Parser, ChildMayBeNamedAndCreatedAtOnce) {
   auto const compiled = entityWith("child list : List named \"clear\";");
   auto const& member = onlyMember(compiled);
   EXPECT_TRUE(member.named);
   EXPECT_EQ(member.creationName->text, "\"clear\"");
}

TEST(Parser, OperationHasParametersResultAndConst) {
   auto const compiled = entityWith("op get (type : MessageType, flag : bool) -> S16 const;");
   auto const& member = onlyMember(compiled);
   EXPECT_EQ(member.kind, MemberKind::operation);
   ASSERT_EQ(member.params.size(), 2U);
   EXPECT_EQ(member.params[0].type.name.text, "MessageType");
   EXPECT_EQ(member.type.name.text, "S16");
   EXPECT_TRUE(member.isConst);
}

TEST(Parser, KeywordsCanBeMemberNames) {
   auto const compiled = entityWith("attr key : U8;\nattr map : U8;\nattr local : U8 local;");
   EXPECT_EQ(compiled.diagnostics.render(), "");
   EXPECT_EQ(compiled.type("E").members[0].name.text, "key");
   EXPECT_EQ(compiled.type("E").members[2].name.text, "local");
}

TEST(Parser, DerivedEntityPassesArgumentsToItsBase) {
   auto const compiled = parsed("entity D : B ( intf, enabled, false ) {\n}\n");
   auto const& type = compiled.type("D");
   EXPECT_EQ(type.base.name.text, "B");
   EXPECT_TRUE(type.baseArgsGiven);
   ASSERT_EQ(type.baseArgs.size(), 3U);
   EXPECT_EQ(type.baseArgs[2].expr.text, "false");
}

TEST(Parser, GoesOnBehindEachMistake) {
   auto const compiled = entityWith(
         "attr : U8;\nattr good : U8;\nmap { broken };\nattr better : U8;\nattr last U8;\n");
   EXPECT_EQ(compiled.diagnostics.size(), 3U);
   EXPECT_NE(compiled.type("E").find("good"), nullptr);
   EXPECT_NE(compiled.type("E").find("better"), nullptr);
}

TEST(Parser, EveryPrefixOfAFileComesToAnEnd) {
   std::string const text =
         "use A;\nnamespace X;\n/// D\nextern constants L in \"l.h\" { low = 1; }\n"
         "value V unhashable { const field a : U8 = 1; optional b : U8; }\n"
         "enum M { a = 1; default a; }\nentity E : B ( x, 1 ) { name; attr a : U8 = V(1) in 1..2 "
         "local; children c : C by K ( a ) hash 0x1 instantiation(true, false, true); op o (a : "
         "U8) -> U8 const; reserved 3; }\n";
   for (std::size_t size = 0; size < text.size(); ++size) {
      auto const compiled = parsed(text.substr(0, size));
      EXPECT_LE(compiled.diagnostics.size(), 3U) << text.substr(0, size);
   }
   EXPECT_EQ(parsed(text).diagnostics.render(), "");
}

}  // namespace
}  // namespace Kivc

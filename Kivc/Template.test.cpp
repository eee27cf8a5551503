#include "Kivc/Template.h"

#include <gtest/gtest.h>

namespace Kivc {
namespace {

std::string message(auto const& action) {
   try {
      action();
   } catch (TemplateError const& error) {
      return error.what();
   }
   return "no error";
}

TEST(Template, ReplacesKeysWithinALine) {
   Template text;
   text.set("type", "U32").set("name", "ttl");
   text.append("@type@ @name@() const { return @name@_; }\n");
   EXPECT_EQ(text.finish(), "U32 ttl() const { return ttl_; }\n");
}

TEST(Template, DropsFirstLineBreakAndSharedIndentation) {
   Template text;
   text.append(R"(
      class X {
         int y_;

      };
      )");
   EXPECT_EQ(text.finish(), "class X {\n   int y_;\n\n};\n");
}

TEST(Template, TwoSignsAreOne) {
   Template text;
   text.append("a@@b\n");
   EXPECT_EQ(text.finish(), "a@b\n");
}

TEST(Template, BlockTakesTheHolesIndentation) {
   Template text;
   text.set("members", "one;\n\n   two;\n");
   text.append("{\n   @members@\n}\n");
   EXPECT_EQ(text.finish(), "{\n   one;\n\n      two;\n}\n");
}

TEST(Template, EmptyBlockRemovesItsLine) {
   Template text;
   text.set("members", "");
   text.append("{\n   @members@\n}\n");
   EXPECT_EQ(text.finish(), "{\n}\n");
}

TEST(Template, TwoHolesOnALineAreNoBlock) {
   Template text;
   text.set("a", "").set("b", "");
   text.append("x\n@a@@b@\n");
   EXPECT_EQ(text.finish(), "x\n\n");
}

TEST(Template, NestedScopeSeesAndHidesOuterKeys) {
   Template outer;
   outer.set("type", "U8").set("name", "outer");
   auto inner = outer.fork();
   inner.set("name", "inner").append("@type@ @name@\n");
   EXPECT_EQ(inner.finish(), "U8 inner\n");
   outer.append("@name@\n");
   EXPECT_EQ(outer.finish(), "outer\n");
}

TEST(Template, UnknownKeyNamesItselfAndItsLine) {
   Template text;
   EXPECT_EQ(message([&] { text.append("first\n   second @typo@;\n"); }),
             "unknown key 'typo' in: second @typo@;");
}

TEST(Template, UnusedKeyIsFatal) {
   Template text;
   text.set("used", "1").set("forgotten", "2").append("@used@\n");
   EXPECT_EQ(message([&] { text.finish(); }), "key 'forgotten' is set but not used");
}

TEST(Template, KeyUsedOnlyByANestedScopeCountsAsUsed) {
   Template outer;
   outer.set("type", "U8");
   outer.fork().append("@type@\n");
   EXPECT_EQ(outer.finish(), "");
}

TEST(Template, SettingAgainNeedsAUseInBetween) {
   Template text;
   text.set("key", "1").append("@key@\n").set("key", "2").append("@key@\n");
   EXPECT_EQ(text.finish(), "1\n2\n");
   text.set("other", "1");
   EXPECT_EQ(message([&] { text.set("other", "2"); }),
             "key 'other' is set again without having been used");
}

TEST(Template, OpenHoleIsFatal) {
   Template text;
   EXPECT_EQ(message([&] { text.append("a @b\n"); }), "a hole is not closed in: a @b");
}

TEST(Template, ValuesAreNotFilledInAgain) {
   Template text;
   text.set("mail", "a@b@c").append("<@mail@>\n");
   EXPECT_EQ(text.finish(), "<a@b@c>\n");
}

}  // namespace
}  // namespace Kivc

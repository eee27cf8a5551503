#include "Kivc/Layout.h"

#include <gtest/gtest.h>

namespace Kivc {
namespace {

TEST(Layout, LinesThatFitStayAsTheyAre) {
   std::string const text = "int a;\n\n   // remark\n\"" + std::string(98, 'x') + "\"\n";
   EXPECT_EQ(fitToPage(text), text);
}

TEST(Layout, CommentsBreakAtABlankAndRepeatTheirMark) {
   auto const words = std::string(60, 'a') + " " + std::string(60, 'b');
   EXPECT_EQ(fitToPage("   /// " + words + "\n"),
             "   /// " + std::string(60, 'a') + "\n   /// " + std::string(60, 'b') + "\n");
}

TEST(Layout, ParametersAlignToTheirBracket) {
   EXPECT_EQ(fitToPage("Sarn::Ptr<IntfConfig> IntfConfig::IntfConfigIs(Dorn::IntfId const& intf, "
                       "bool enabled, bool mpassEnabled) {\n"),
             "Sarn::Ptr<IntfConfig> IntfConfig::IntfConfigIs(Dorn::IntfId const& intf, bool "
             "enabled,\n"
             "                                               bool mpassEnabled) {\n");
}

TEST(Layout, LongInitialValueGoesToTheNextLine) {
   EXPECT_EQ(fitToPage("static constexpr std::size_t kivMaxEncodedSize = "
                       "Kiv::maxEncodedSize<PortIdentity, Dorn::IpGenAddr, Dorn::EthAddr>;\n"),
             "static constexpr std::size_t kivMaxEncodedSize =\n"
             "      Kiv::maxEncodedSize<PortIdentity, Dorn::IpGenAddr, Dorn::EthAddr>;\n");
}

TEST(Layout, LoneParameterGoesToTheNextLine) {
   EXPECT_EQ(fitToPage("   static Sarn::Ptr<ForeignMasterDS> ForeignMasterDSIs(PortIdentity const& "
                       "foreignMasterPortIdentity);\n"),
             "   static Sarn::Ptr<ForeignMasterDS> ForeignMasterDSIs(\n"
             "         PortIdentity const& foreignMasterPortIdentity);\n");
}

TEST(Layout, LongTextIsSplitAtABlank) {
   auto const half = std::string(55, 'x');
   EXPECT_EQ(fitToPage("char const* text = \"" + half + " " + half + "\";\n"),
             "char const* text = \"" + half + " \"\n                   \"" + half + "\";\n");
}

TEST(Layout, LongFunctionInAClassGetsItsBodyOnALineOfItsOwn) {
   auto const name = std::string(50, 'n');
   EXPECT_EQ(fitToPage("   void " + name + "(U32 n) { " + name + "_ = n; }\n"),
             "   void " + name + "(U32 n) {\n      " + name + "_ = n;\n   }\n");
}

TEST(Layout, InitialisersOfALongConstructorStandBelowIt) {
   auto const type = std::string(40, 'T');
   EXPECT_EQ(fitToPage("   " + type +
                       "(U32 first, U32 second) : first_(first), second_(second), "
                       "third_(first) {}\n"),
             "   " + type +
                   "(U32 first, U32 second)\n"
                   "         : first_(first), second_(second), third_(first) {}\n");
}

TEST(Layout, WhatCannotBeBrokenStaysWhole) {
   auto const line = std::string(120, 'x') + "\n";
   EXPECT_EQ(fitToPage(line), line);
}

TEST(Layout, LongNameGoesBelowItsResult) {
   auto const type = std::string(45, 'T');
   EXPECT_EQ(fitToPage("Sarn::Ptr<Type> " + type + "::" + type + "() {\n"),
             "Sarn::Ptr<Type>\n" + type + "::" + type + "() {\n");
}

TEST(Layout, RemarksAreAligned) {
   EXPECT_EQ(alignRemarks("a,  // one\nlonger,  // two\n// none\n"),
             "a,       // one\nlonger,  // two\n// none\n");
}

TEST(DocComment, PutsSlashesInFrontOfEachLine) {
   EXPECT_EQ(docComment("One.\n\nTwo."), "/// One.\n///\n/// Two.\n");
}

}  // namespace
}  // namespace Kivc

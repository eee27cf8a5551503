#include "Kivc/Lexer.h"

#include <gtest/gtest.h>

namespace Kivc {
namespace {

std::vector<std::string> textsOf(std::string const& text, Diagnostics& diagnostics) {
   Source const source("a.kiv", text);
   std::vector<std::string> result;
   for (auto const& token : lex(source, diagnostics)) {
      result.emplace_back(token.text());
   }
   result.pop_back();  // the end has no text
   return result;
}

using Texts = std::vector<std::string>;

Texts cleanTextsOf(std::string const& text) {
   Diagnostics diagnostics;
   auto result = textsOf(text, diagnostics);
   EXPECT_EQ(diagnostics.render(), "");
   return result;
}

TEST(Lexer, SplitsADeclaration) {
   EXPECT_EQ(cleanTextsOf("attr ttl:U8=1 in 0..9;"),
             (Texts{"attr", "ttl", ":", "U8", "=", "1", "in", "0", "..", "9", ";"}));
}

TEST(Lexer, LongestPunctuationWins) {
   EXPECT_EQ(cleanTextsOf("a::b -> c:d ..."),
             (Texts{"a", "::", "b", "->", "c", ":", "d", "..", "."}));
}

TEST(Lexer, NumbersMayBeHexadecimalOrFractionsOrHaveExponents) {
   EXPECT_EQ(cleanTextsOf("0x1F 1.5 2e-3 7 - 1"), (Texts{"0x1F", "1.5", "2e-3", "7", "-", "1"}));
}

TEST(Lexer, RangeMayTouchItsNumbers) {
   EXPECT_EQ(cleanTextsOf("1..1.5"), (Texts{"1", "..", "1.5"}));
}

TEST(Lexer, CommentsAreDroppedAndDocumentationIsKept) {
   EXPECT_EQ(cleanTextsOf("a // remark\n/// Doc.\nb\n//// ruled line\nc"),
             (Texts{"a", "/// Doc.", "b", "c"}));
}

TEST(Lexer, DocTextIsWithoutSlashesAndOuterBlanks) {
   Diagnostics diagnostics;
   Source const source("a.kiv", "///  Two blanks.  \r\n///\n");
   auto const tokens = lex(source, diagnostics);
   ASSERT_EQ(tokens.size(), 3U);
   EXPECT_EQ(docText(tokens[0]), " Two blanks.");
   EXPECT_EQ(docText(tokens[1]), "");
}

TEST(Lexer, TextsMayHoldEscapedQuotes) {
   EXPECT_EQ(cleanTextsOf(R"("a\"b" "\\")"), (Texts{R"("a\"b")", R"("\\")"}));
}

TEST(Lexer, EveryPrefixOfAFileIsLexedWithoutHarm) {
   std::string const text = "/// D\nattr a:String=\"x\\\"\\n\" in -0x1f..1.5e3; \xc3\xa4 ::->";
   for (std::size_t size = 0; size <= text.size(); ++size) {
      Diagnostics diagnostics;
      for (auto const& part : textsOf(text.substr(0, size), diagnostics)) {
         EXPECT_FALSE(part.empty());
      }
   }
}

TEST(Lexer, StrayCharactersAreReportedOncePerRun) {
   Diagnostics diagnostics;
   EXPECT_EQ(textsOf("a \xc3\xa4\xc3\xa4 b", diagnostics), (Texts{"a", "b"}));
   EXPECT_EQ(diagnostics.size(), 1U);
}

}  // namespace
}  // namespace Kivc

#include "Kivc/TokenCursor.h"

#include <algorithm>
#include <utility>

namespace Kivc {

TokenCursor::TokenCursor(std::vector<Token> tokens, Diagnostics& diagnostics)
      : tokens_(std::move(tokens)), diagnostics_(diagnostics) {}

Token const& TokenCursor::peek(std::size_t ahead) const {
   return tokens_[std::min(at_ + ahead, tokens_.size() - 1)];
}

Token const& TokenCursor::last() const {
   return tokens_[at_ == 0 ? 0 : at_ - 1];
}

Token const& TokenCursor::take() {
   auto const& token = peek();
   at_ = std::min(at_ + 1, tokens_.size() - 1);
   return token;
}

bool TokenCursor::accept(std::string_view word) {
   if (!at(word)) {
      return false;
   }
   take();
   return true;
}

void TokenCursor::fail(std::string const& expected, std::string const& hint) const {
   auto const& found = peek();
   std::string text = "expected " + expected + ", found ";
   switch (found.kind) {
      case TokenKind::end:
         text += "the end of the file";
         break;
      case TokenKind::doc:
         text += "a /// line";
         break;
      default:
         text += "'" + std::string(found.text()) + "'";
         break;
   }
   auto span = found.span;
   if (found.kind == TokenKind::end && at_ != 0) {
      span = {span.source, last().span.end, last().span.end};
   }
   diagnostics_.error(span, text + hint);
   throw SyntaxError();
}

Token const& TokenCursor::expect(std::string_view word) {
   if (!at(word)) {
      fail("'" + std::string(word) + "'");
   }
   return take();
}

Token const& TokenCursor::expectKind(TokenKind kind, std::string_view what) {
   if (peek().kind != kind) {
      fail(std::string(what));
   }
   return take();
}

Name TokenCursor::expectName(std::string_view what) {
   auto const& token = expectKind(TokenKind::identifier, what);
   return {std::string(token.text()), token.span};
}

Name TokenCursor::expectPath(std::string_view what, bool absolute) {
   auto const first = peek().span;
   std::string text;
   if (absolute && accept("::")) {
      text = "::";
   }
   text += expectName(what).text;
   while (accept("::")) {
      text += "::" + expectName(what).text;
   }
   return {text, first.to(last().span)};
}

bool TokenCursor::nextIsOnNewLine() const {
   auto const& before = last().span;
   return before.source->position(before.end).line !=
          before.source->position(peek().span.begin).line;
}

void TokenCursor::expectSemicolon() {
   if (accept(";")) {
      return;
   }
   if (!nextIsOnNewLine() && !at("}")) {
      fail("';'");
   }
   auto const& before = last().span;
   diagnostics_.error({before.source, before.end, before.end},
                      "expected ';' at the end of the "
                      "declaration");
}

std::vector<std::string> TokenCursor::takeDoc() {
   std::vector<std::string> doc;
   while (peek().kind == TokenKind::doc) {
      doc.push_back(docText(take()));
   }
   return doc;
}

void TokenCursor::recover() {
   std::size_t depth = 0;
   while (!atEnd()) {
      if (at("}") && depth == 0) {
         return;
      }
      auto const& token = take();
      if (token.is("{")) {
         ++depth;
      } else if (token.is("}")) {
         --depth;
      }
      if (depth == 0 && (token.is(";") || token.is("}"))) {
         accept(";");
         return;
      }
   }
}

}  // namespace Kivc

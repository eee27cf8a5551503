// The parser's hold on its tokens: look, take, expect.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Kivc/Lexer.h"
#include "Kivc/Model.h"

namespace Kivc {

/// Thrown after a syntax error was reported, to unwind to the place where parsing can go on.
struct SyntaxError {};

class TokenCursor {
public:
   TokenCursor(std::vector<Token> tokens, Diagnostics& diagnostics);

   Token const& peek(std::size_t ahead = 0) const;
   bool at(std::string_view word) const { return peek().is(word); }
   bool atEnd() const { return peek().kind == TokenKind::end; }
   /// Takes the next token.
   Token const& take();
   /// Takes the next token if it is `word`.
   bool accept(std::string_view word);
   /// Takes the next token, which must be `word`; otherwise reports and throws SyntaxError.
   Token const& expect(std::string_view word);
   /// Takes an identifier; `what` says what it is for ("a member's name").
   Name expectName(std::string_view what);
   /// Takes `a::b::c`, with leading `::` where `absolute` allows it.
   Name expectPath(std::string_view what, bool absolute = false);
   Token const& expectKind(TokenKind kind, std::string_view what);
   /// Ends a declaration. A semicolon that is missing at a line's end is reported there, and
   /// parsing goes on with the next line.
   void expectSemicolon();

   /// Takes the `///` lines in front of a declaration.
   std::vector<std::string> takeDoc();

   /// Skips to behind the next `;` or `{...}`, or to before the `}` that closes the block.
   void recover();

   /// The last token taken.
   Token const& last() const;
   /// Reports what was expected and what was found, then `hint`, and throws SyntaxError.
   [[noreturn]] void fail(std::string const& expected, std::string const& hint = {}) const;

private:
   bool nextIsOnNewLine() const;

   std::vector<Token> tokens_;
   Diagnostics& diagnostics_;
   std::size_t at_ = 0;
};

}  // namespace Kivc

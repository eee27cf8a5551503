// Text to tokens. Blanks and `//` comments are dropped; `///` lines become `doc` tokens.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Kivc/Diagnostics.h"
#include "Kivc/Source.h"

namespace Kivc {

enum class TokenKind : std::uint8_t {
   /// Letter, then letters, digits and `_`; keywords are identifiers by position.
   identifier,
   /// Decimal or 0x integer, or a decimal fraction, without sign.
   number,
   /// "..." ; the span covers the quotes.
   text,
   /// One `///` line.
   doc,
   /// One of { } ( ) ; , = . .. : :: -> -.
   punctuation,
   /// After the last token.
   end,
};

struct Token {
   TokenKind kind = TokenKind::end;
   Span span;

   /// The characters of the token.
   std::string_view text() const { return span.text(); }
   /// Whether this is the identifier or punctuation `word`.
   bool is(std::string_view word) const {
      return (kind == TokenKind::identifier || kind == TokenKind::punctuation) && text() == word;
   }
};

/// All tokens of a file, closed by one `end` token. Characters that begin no token and texts that
/// are not closed are reported and left out.
std::vector<Token> lex(Source const& source, Diagnostics& diagnostics);

/// The sentence of a `///` token, without the slashes and one blank.
std::string docText(Token const& token);

}  // namespace Kivc

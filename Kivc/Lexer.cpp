#include "Kivc/Lexer.h"

#include <array>

namespace Kivc {

namespace {

bool isLetter(char c) {
   return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool isDigit(char c) {
   return c >= '0' && c <= '9';
}
bool isHexDigit(char c) {
   return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
bool isBlank(char c) {
   return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

class Lexer {
public:
   Lexer(Source const& source, Diagnostics& diagnostics)
         : source_(source), text_(source.text()), diagnostics_(diagnostics) {}

   std::vector<Token> run() {
      while (at_ < text_.size()) {
         next();
      }
      tokens_.push_back({TokenKind::end, span(text_.size(), text_.size())});
      return std::move(tokens_);
   }

private:
   Span span(std::size_t begin, std::size_t end) const { return {&source_, begin, end}; }
   char peek(std::size_t ahead = 0) const {
      return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
   }
   bool startsWith(std::string_view word) const { return text_.substr(at_, word.size()) == word; }
   void push(TokenKind kind, std::size_t begin) { tokens_.push_back({kind, span(begin, at_)}); }

   void next() {
      auto const begin = at_;
      char const c = peek();
      if (isBlank(c)) {
         ++at_;
      } else if (startsWith("//")) {
         comment(begin);
      } else if (isLetter(c)) {
         while (isLetter(peek()) || isDigit(peek())) {
            ++at_;
         }
         push(TokenKind::identifier, begin);
      } else if (isDigit(c)) {
         number(begin);
      } else if (c == '"') {
         quoted(begin);
      } else {
         punctuation(begin);
      }
   }

   /// Three slashes are documentation, two are a remark, four and more are a ruled line.
   void comment(std::size_t begin) {
      bool const isDoc = startsWith("///") && !startsWith("////");
      while (at_ < text_.size() && peek() != '\n') {
         ++at_;
      }
      if (isDoc) {
         push(TokenKind::doc, begin);
      }
   }

   void number(std::size_t begin) {
      if (peek() == '0' && (peek(1) == 'x' || peek(1) == 'X')) {
         at_ += 2;
         auto const digits = at_;
         while (isHexDigit(peek())) {
            ++at_;
         }
         if (at_ == digits) {
            diagnostics_.error(span(begin, at_), "expected hexadecimal digits after 0x");
         }
      } else {
         skipDigits();
         // `3 .. 5` may be written without blanks, so a dot belongs to the number only before a
         // digit.
         if (peek() == '.' && isDigit(peek(1))) {
            ++at_;
            skipDigits();
         }
         if (peek() == 'e' || peek() == 'E') {
            std::size_t const sign = peek(1) == '-' || peek(1) == '+' ? 1 : 0;
            if (isDigit(peek(1 + sign))) {
               at_ += 1 + sign;
               skipDigits();
            }
         }
      }
      if (isLetter(peek())) {
         while (isLetter(peek()) || isDigit(peek())) {
            ++at_;
         }
         diagnostics_.error(span(begin, at_), "a number may not run into a name");
      }
      push(TokenKind::number, begin);
   }

   void skipDigits() {
      while (isDigit(peek())) {
         ++at_;
      }
   }

   void quoted(std::size_t begin) {
      ++at_;
      while (at_ < text_.size() && peek() != '"' && peek() != '\n') {
         if (peek() == '\\') {
            std::string_view const known = "\"\\nt";
            if (known.find(peek(1)) == std::string_view::npos) {
               diagnostics_.error(span(at_, at_ + 2),
                                  "unknown escape; expected \\\", \\\\, \\n or \\t");
            }
            bool const isPair = at_ + 1 < text_.size() && peek(1) != '\n';
            at_ += isPair ? 2 : 1;
         } else {
            ++at_;
         }
      }
      if (peek() == '"') {
         ++at_;
      } else {
         diagnostics_.error(span(begin, at_),
                            "text is not closed; expected \" before the line end");
      }
      push(TokenKind::text, begin);
   }

   void punctuation(std::size_t begin) {
      static constexpr std::array<std::string_view, 13> marks{"::", "..", "->", "{", "}", "(", ")",
                                                              ";",  ",",  "=",  ".", ":", "-"};
      for (auto const mark : marks) {
         if (startsWith(mark)) {
            at_ += mark.size();
            push(TokenKind::punctuation, begin);
            return;
         }
      }
      ++at_;
      while (static_cast<unsigned char>(peek()) >= 0x80U) {
         ++at_;
      }
      diagnostics_.error(span(begin, at_), "unexpected character");
   }

   Source const& source_;
   std::string_view text_;
   Diagnostics& diagnostics_;
   std::size_t at_ = 0;
   std::vector<Token> tokens_;
};

}  // namespace

std::vector<Token> lex(Source const& source, Diagnostics& diagnostics) {
   return Lexer(source, diagnostics).run();
}

std::string docText(Token const& token) {
   auto text = token.text().substr(3);
   if (!text.empty() && text.front() == ' ') {
      text.remove_prefix(1);
   }
   while (!text.empty() && isBlank(text.back())) {
      text.remove_suffix(1);
   }
   return std::string(text);
}

}  // namespace Kivc

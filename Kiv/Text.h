#pragma once

#include "Kiv/Exception.h"
#include "Sarn/String.h"
#include "Sarn/Types.h"

/// The text form of values, parsed and printed. Every parse function reads a value's text at the
/// cursor of a `CharRange`, leaves the cursor after it, and throws `ParseException` for text that
/// is not of that form, `RangeException` for a value that the type cannot hold.
namespace Kiv {

/// A cursor over text that it does not own.
class CharRange {
public:
   CharRange(std::string_view text) noexcept : text_(text) {}

   std::size_t position() const noexcept { return at_; }
   bool atEnd() const noexcept { return at_ == text_.size(); }
   /// The text from the cursor on.
   std::string_view rest() const noexcept { return text_.substr(at_); }
   /// The next character, 0 at the end.
   char peek() const noexcept { return atEnd() ? '\0' : text_[at_]; }
   void advance(std::size_t count) noexcept { at_ += count; }

   void skipBlanks() noexcept;
   /// Skips blanks, then `token` if it comes next; returns whether it did.
   bool accept(std::string_view token) noexcept;
   /// Skips blanks and `token`; throws if something else comes next.
   void expect(std::string_view token);
   /// Skips blanks and takes the longest run of word characters: letters, digits and any of
   /// `extra`. Empty if there is none.
   std::string_view word(std::string_view extra = "_") noexcept;
   /// Skips blanks; throws if anything is left.
   void expectEnd();
   [[noreturn]] void fail(std::string_view message) const { throwParseException(message, at_); }

private:
   std::string_view text_;
   std::size_t at_ = 0;
};

/// Whether two texts differ at most in the case of ASCII letters.
bool isSameIgnoringCase(std::string_view a, std::string_view b) noexcept;

/// Integers in decimal or, after "0x", hexadecimal, bounded by `min` and `max`; `type` names the
/// type in the message. A leading zero is refused: it might be meant as octal.
S64 parseSigned(CharRange& text, S64 min, S64 max, std::string_view type);
U64 parseUnsigned(CharRange& text, U64 max, std::string_view type);
/// `true` or `false`, in any case of letters.
bool parseBool(CharRange& text);
/// Decimal or scientific without leading zeros, `inf`, `-inf`, `nan`. Throws `RangeException` if
/// out of range.
double parseDouble(CharRange& text);
float parseFloat(CharRange& text);
/// A string in double quotes with `\"`, `\\`, `\n`, `\r`, `\t` and `\xHH` for other bytes.
Sarn::String parseString(CharRange& text);

void printSigned(Sarn::String& out, S64 v);
void printUnsigned(Sarn::String& out, U64 v);
void printBool(Sarn::String& out, bool v);
/// The shortest form that reads back as the same value.
void printDouble(Sarn::String& out, double v);
void printFloat(Sarn::String& out, float v);
void printString(Sarn::String& out, std::string_view v);

}  // namespace Kiv

#include "Kiv/Text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>

#include "Kiv/Printable.h"

namespace Kiv {
namespace {

bool isBlank(char c) {
   return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool isDigit(char c) {
   return c >= '0' && c <= '9';
}

bool isWordChar(char c) {
   return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

int hexValue(char c) {
   if (isDigit(c)) {
      return c - '0';
   }
   if (c >= 'a' && c <= 'f') {
      return c - 'a' + 10;
   }
   if (c >= 'A' && c <= 'F') {
      return c - 'A' + 10;
   }
   return -1;
}

/// Refuses a number that some programs would take for an octal one.
void refuseLeadingZero(CharRange const& text, std::string_view digits) {
   if (digits.size() > 1 && digits[0] == '0' && isDigit(digits[1])) {
      std::size_t const begin = std::min(digits.find_first_not_of('0'), digits.size() - 1);
      text.fail("'" + Sarn::String(digits) +
                "' begins with a zero and might be meant as octal; write " +
                Sarn::String(digits.substr(begin)));
   }
}

/// A whole number as it is written.
struct Digits {
   /// With the "0x" of a hexadecimal one.
   std::string_view text;
   /// Empty if it does not fit.
   std::optional<U64> value;
};

/// The digits at the cursor; throws if there are none.
Digits digits(CharRange& text, std::string_view type) {
   std::string_view const rest = text.rest();
   bool const hex = rest.starts_with("0x") || rest.starts_with("0X");
   std::size_t const first = hex ? 2 : 0;
   std::size_t n = first;
   while (n < rest.size() && (hex ? hexValue(rest[n]) >= 0 : isDigit(rest[n]))) {
      ++n;
   }
   if (n == first || (n < rest.size() && (isWordChar(rest[n]) || rest[n] == '.'))) {
      text.fail("expected a number of type " + Sarn::String(type));
   }
   Digits found{rest.substr(0, n), std::nullopt};
   refuseLeadingZero(text, found.text);
   U64 value = 0;
   if (std::from_chars(rest.data() + first, rest.data() + n, value, hex ? 16 : 10).ec ==
       std::errc()) {
      found.value = value;
   }
   text.advance(n);
   return found;
}

[[noreturn]] void outOfRange(Sarn::String const& value, std::string_view type,
                             Sarn::String const& min, Sarn::String const& max) {
   throwRangeException(value + " does not fit " + Sarn::String(type) + " (" + min + " to " + max +
                       ")");
}

template <class T>
void printFloating(Sarn::String& out, T v) {
   if (std::isnan(v)) {
      out += "nan";
      return;
   }
   if (std::isinf(v)) {
      out += v < 0 ? "-inf" : "inf";
      return;
   }
   char buffer[64];
   auto const [end, error] = std::to_chars(buffer, buffer + sizeof buffer, v);
   (void)error;
   out.append(buffer, end);
}

template <class T>
T parseFloating(CharRange& text, std::string_view type) {
   text.skipBlanks();
   std::string_view const rest = text.rest();
   T v{};
   // from_chars also accepts "infinity" and "nan(...)"; the text form has only the short words.
   auto const [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), v);
   auto const size = static_cast<std::size_t>(end - rest.data());
   std::string_view const taken = rest.substr(0, size);
   if (error == std::errc::result_out_of_range) {
      Sarn::String least;
      Sarn::String greatest;
      printFloating(least, std::numeric_limits<T>::lowest());
      printFloating(greatest, std::numeric_limits<T>::max());
      outOfRange(Sarn::String(taken), type, least, greatest);
   }
   if (error == std::errc()) {
      refuseLeadingZero(text, taken.substr(taken.starts_with('-') ? 1 : 0));
   }
   bool const wordy = error == std::errc() && !std::isfinite(v);
   if (error != std::errc() ||
       (wordy && taken != "inf" && taken != "-inf" && taken != "nan" && taken != "-nan") ||
       (size < rest.size() && (isWordChar(rest[size]) || rest[size] == '('))) {
      text.fail("expected a number of type " + Sarn::String(type));
   }
   text.advance(size);
   return v;
}

}  // namespace

bool isSameIgnoringCase(std::string_view a, std::string_view b) noexcept {
   auto const lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
   return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                     [&](char x, char y) { return lower(x) == lower(y); });
}

void CharRange::skipBlanks() noexcept {
   while (!atEnd() && isBlank(text_[at_])) {
      ++at_;
   }
}

bool CharRange::accept(std::string_view token) noexcept {
   skipBlanks();
   if (!rest().starts_with(token)) {
      return false;
   }
   at_ += token.size();
   return true;
}

void CharRange::expect(std::string_view token) {
   if (!accept(token)) {
      fail("expected \"" + Sarn::String(token) + "\"");
   }
}

std::string_view CharRange::word(std::string_view extra) noexcept {
   skipBlanks();
   std::size_t n = 0;
   while (at_ + n < text_.size() &&
          (isWordChar(text_[at_ + n]) || extra.find(text_[at_ + n]) != std::string_view::npos)) {
      ++n;
   }
   std::string_view const taken = text_.substr(at_, n);
   at_ += n;
   return taken;
}

void CharRange::expectEnd() {
   skipBlanks();
   if (!atEnd()) {
      fail("text follows the value");
   }
}

S64 parseSigned(CharRange& text, S64 min, S64 max, std::string_view type) {
   text.skipBlanks();
   bool const negative = text.peek() == '-';
   if (negative) {
      text.advance(1);
   }
   Digits const run = digits(text, type);
   U64 const limit = negative ? U64(0) - static_cast<U64>(min) : static_cast<U64>(max);
   if (!run.value || *run.value > limit) {
      outOfRange((negative ? "-" : "") + Sarn::String(run.text), type, std::to_string(min),
                 std::to_string(max));
   }
   return static_cast<S64>(negative ? U64(0) - *run.value : *run.value);
}

U64 parseUnsigned(CharRange& text, U64 max, std::string_view type) {
   text.skipBlanks();
   bool const negative = text.peek() == '-';
   if (negative) {
      text.advance(1);
   }
   Digits const run = digits(text, type);
   if (!run.value || *run.value > max || (negative && *run.value != 0)) {
      outOfRange((negative ? "-" : "") + Sarn::String(run.text), type, "0", std::to_string(max));
   }
   return *run.value;
}

bool parseBool(CharRange& text) {
   text.skipBlanks();
   CharRange const before = text;
   std::string_view const word = text.word();
   if (isSameIgnoringCase(word, "true")) {
      return true;
   }
   if (!isSameIgnoringCase(word, "false")) {
      before.fail("expected true or false");
   }
   return false;
}

double parseDouble(CharRange& text) {
   return parseFloating<double>(text, "double");
}

float parseFloat(CharRange& text) {
   return parseFloating<float>(text, "float");
}

Sarn::String parseString(CharRange& text) {
   text.expect("\"");
   Sarn::String v;
   for (;;) {
      if (text.atEnd()) {
         text.fail("expected the closing \" of a string");
      }
      char const c = text.peek();
      if (c == '"') {
         text.advance(1);
         return v;
      }
      if (c != '\\') {
         v += c;
         text.advance(1);
         continue;
      }
      std::string_view const rest = text.rest();
      char const kind = rest.size() > 1 ? rest[1] : '\0';
      if (kind == 'x' && rest.size() >= 4 && hexValue(rest[2]) >= 0 && hexValue(rest[3]) >= 0) {
         v += static_cast<char>(hexValue(rest[2]) * 16 + hexValue(rest[3]));
         text.advance(4);
         continue;
      }
      static constexpr std::string_view letters = "\"\\nrt";
      std::size_t const which = letters.find(kind);
      if (kind == '\0' || which == std::string_view::npos) {
         text.fail("unknown escape in a string; there are \\\" \\\\ \\n \\r \\t and \\xHH");
      }
      v += "\"\\\n\r\t"[which];
      text.advance(2);
   }
}

void printSigned(Sarn::String& out, S64 v) {
   char buffer[24];
   out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, v).ptr);
}

void printUnsigned(Sarn::String& out, U64 v) {
   char buffer[24];
   out.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, v).ptr);
}

void printBool(Sarn::String& out, bool v) {
   out += v ? "true" : "false";
}

void printDouble(Sarn::String& out, double v) {
   printFloating(out, v);
}

void printFloat(Sarn::String& out, float v) {
   printFloating(out, v);
}

void printString(Sarn::String& out, std::string_view v) {
   out += '"';
   for (std::size_t at = 0; at != v.size();) {
      std::size_t const shown = printableCharacter(v.substr(at));
      if (shown == 0 || v[at] == '"' || v[at] == '\\') {
         appendEscape(out, v[at++]);
      } else {
         out += v.substr(at, shown);
         at += shown;
      }
   }
   out += '"';
}

}  // namespace Kiv

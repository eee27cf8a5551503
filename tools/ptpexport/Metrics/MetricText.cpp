#include "tools/ptpexport/Metrics/MetricText.h"

#include <charconv>
#include <cmath>

#include "Kiv/Printable.h"

namespace Ptpexport {

namespace {

/// Long enough for any number.
constexpr std::size_t longest = 40;
constexpr int nanosecondDigits = 9;

template <class Number>
void append(std::string& out, Number number) {
   char text[longest];
   out.append(text, std::to_chars(text, text + longest, number).ptr);
}

bool appendNotFinite(std::string& out, double number) {
   if (std::isfinite(number)) {
      return false;
   }
   out += std::isnan(number) ? "NaN" : number > 0 ? "+Inf" : "-Inf";
   return true;
}

}  // namespace

void appendNumber(std::string& out, U64 number) {
   append(out, number);
}

void appendNumber(std::string& out, S64 number) {
   append(out, number);
}

void appendNumber(std::string& out, double number) {
   // Beyond that, a whole number has digits that say nothing.
   constexpr double exact = 9007199254740992.0;
   if (appendNotFinite(out, number)) {
      return;
   }
   if (std::abs(number) <= exact && number == std::trunc(number)) {
      append(out, static_cast<S64>(number));
   } else {
      append(out, number);
   }
}

void appendSeconds(std::string& out, U64 nanoseconds) {
   constexpr U64 second = 1'000'000'000;
   append(out, nanoseconds / second);
   U64 rest = nanoseconds % second;
   if (rest == 0) {
      return;
   }
   char digits[nanosecondDigits];
   int used = 0;
   for (int i = nanosecondDigits; i-- != 0; rest /= 10) {
      digits[i] = static_cast<char>('0' + rest % 10);
      if (used == 0 && digits[i] != '0') {
         used = i + 1;
      }
   }
   out += '.';
   out.append(digits, static_cast<std::size_t>(used));
}

void appendSeconds(std::string& out, S64 nanoseconds) {
   if (nanoseconds < 0) {
      out += '-';
   }
   U64 const bits = static_cast<U64>(nanoseconds);
   appendSeconds(out, nanoseconds < 0 ? U64{0} - bits : bits);
}

void appendSeconds(std::string& out, double nanoseconds) {
   if (appendNotFinite(out, nanoseconds)) {
      return;
   }
   char text[longest];
   char const* const end =
         std::to_chars(text, text + longest, nanoseconds, std::chars_format::scientific).ptr;
   std::string_view const number(text, static_cast<std::size_t>(end - text));
   std::size_t const at = number.find('e');
   int exponent = 0;
   std::size_t const sign = number[at + 1] == '+' ? 1 : 0;  // from_chars reads no plus
   std::from_chars(text + at + 1 + sign, end, exponent);
   out += number.substr(0, at);
   if (nanoseconds != 0) {
      out += 'e';
      append(out, exponent - nanosecondDigits);
   }
}

void appendLabel(std::string& out, std::string_view name, std::string_view text) {
   if (!out.empty()) {
      out += ',';
   }
   out += name;
   out += "=\"";
   // Printable text has no line feed, which would be the third character to escape.
   for (char const c : Kiv::printable(Sarn::String(text))) {
      if (c == '"' || c == '\\') {
         out += '\\';
      }
      out += c;
   }
   out += '"';
}

}  // namespace Ptpexport

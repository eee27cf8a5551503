#include "Dorn/IntfIdCode.h"

#include <algorithm>
#include <bit>
#include <charconv>

#include "Dorn/IntfIdTables.h"

namespace Dorn::IntfIdImpl {
namespace {

constexpr bool isDigit(char c) {
   return c >= '0' && c <= '9';
}
constexpr bool isLower(char c) {
   return c >= 'a' && c <= 'z';
}

/// Codes where a number may follow, by the first six bits.
constexpr unsigned leadingZero = 0b000100;
constexpr bool isNumberCode(unsigned bits) {
   return bits >= 0b000110 && bits < 0b100000;
}
constexpr unsigned letterCode(char c) {
   return 0b100100 + static_cast<unsigned>(c - 'a');
}

constexpr int hexValue(char c) {
   return isDigit(c) ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

class BitWriter {
public:
   void put(U64 code, unsigned size) noexcept {
      if (code != 0) {
         // The end of a code may be cut off if it is all zeros.
         unsigned const trailing = static_cast<unsigned>(std::countr_zero(code));
         needed_ = used_ + size - trailing;
         if (needed_ <= idBits) {
            unsigned const end = used_ + size;
            bits_ |= end <= idBits ? code << (idBits - end) : code >> (end - idBits);
         }
      }
      used_ += size;
   }
   bool fits() const noexcept { return needed_ <= idBits; }
   unsigned needed() const noexcept { return needed_; }
   U64 bits() const noexcept { return bits_; }

private:
   U64 bits_ = 0;
   unsigned used_ = 0;
   unsigned needed_ = 0;
};

/// Reads the bits, then an infinite number of zeros.
class BitReader {
public:
   explicit BitReader(U64 bits) noexcept : bits_(bits) {}
   unsigned peek(unsigned size) const noexcept {
      return static_cast<unsigned>(bits_ >> (idBits - size));
   }
   U64 take(unsigned size) noexcept {
      if (size == 0) {
         return 0;
      }
      U64 const v = bits_ >> (idBits - size);
      bits_ <<= size;
      return v;
   }
   U64 left() const noexcept { return bits_; }

private:
   U64 bits_;
};

/// How many words sort before `name` or are a prefix of it. REQUIRES: ASCII.
std::size_t wordsUpTo(std::string_view name) noexcept {
   if (name.empty()) {
      return 0;
   }
   // Words with another first character need no comparison.
   auto const first = static_cast<U8>(name.front());
   auto const above = std::upper_bound(words.begin() + wordTable.firstOf[first],
                                       words.begin() + wordTable.firstOf[first + 1u], name);
   return static_cast<std::size_t>(above - words.begin());
}

/// The longest word that is a prefix of `name`; `upTo`: the result of `wordsUpTo`.
U8 wordOf(std::string_view name, std::size_t upTo) noexcept {
   // A word that is a prefix of `name` is one of all words between itself and `name`.
   U8 word = upTo == 0 ? noWord : static_cast<U8>(upTo - 1);
   while (word != noWord && !name.starts_with(words[word])) {
      word = wordTable.parent[word];
   }
   return word;
}

/// The number of the `word` field, and how much of the name it covers.
struct Place {
   std::size_t number;
   std::size_t covered;
};

Place placeOf(std::string_view name) noexcept {
   std::size_t const upTo = wordsUpTo(name);
   U8 const word = wordOf(name, upTo);
   if (word == noWord) {
      return {2 * upTo, 0};
   }
   return {2 * upTo - wordTable.depth[word], words[word].size()};
}

/// Whether `number`, for which the table has `word`, is the number for `name`.
bool isPlaceOf(std::size_t number, U8 word, std::string_view name) noexcept {
   std::size_t const depth = word == noWord ? 0 : wordTable.depth[word];
   std::size_t const upTo = (number + depth) / 2;
   return (upTo == 0 || words[upTo - 1] <= name) && (upTo == words.size() || name < words[upTo]) &&
          wordOf(name, upTo) == word;
}

constexpr bool isNameChar(char c) {
   return isDigit(c) || isLower(c) || c == '-' || c == '.' || c == '/' ||
          blockChars.find(c) != std::string_view::npos;
}

/// Writes the digits from `at` on and moves past them. False if the number is too large.
bool putNumber(BitWriter& out, std::string_view name, std::size_t& at) noexcept {
   while (name[at] == '0' && at + 1 < name.size() && isDigit(name[at + 1])) {
      out.put(leadingZero, 6);
      ++at;
   }
   U64 number = 0;
   auto const [end, error] = std::from_chars(name.data() + at, name.data() + name.size(), number);
   if (error != std::errc() || number > maxNumber) {
      return false;
   }
   at = static_cast<std::size_t>(end - name.data());
   auto code = numberCodes.end();
   do {
      --code;
   } while (code->first > number);
   out.put(code->code, code->codeBits);
   out.put(number - code->first, code->extraBits);
   return true;
}

/// Writes the character at `at`, which is not a digit, and moves past it.
void putCharacter(BitWriter& out, std::string_view name, std::size_t& at,
                  bool afterNumber) noexcept {
   char const c = name[at++];
   if (c == '-' || c == '.' || c == '/') {
      if (!afterNumber) {
         out.put(c == '-' ? 1 : c == '.' ? 2 : 3, 6);
      } else {
         out.put(1, c == '-' ? 4 : c == '.' ? 3 : 2);
      }
      return;
   }
   if (!isLower(c)) {
      out.put(afterNumber ? 0b10000 : 0b1000, afterNumber ? 5 : 4);
      out.put(blockChars.find(c), 5);
      return;
   }
   auto letter = static_cast<unsigned>(c - 'a');
   if (!afterNumber) {
      out.put(letterCode(c), 6);
      return;
   }
   if (c == 'n' && at < name.size() && name[at] >= 'p') {
      letter = name[at] == 'p' ? np : nAfter;
      at += letter == np ? 1 : 0;
   }
   U64 const shift = 7u - letterTable.bits[letter];
   out.put(U64{letterTable.slot[letter]} >> shift, letterTable.bits[letter]);
}

/// Writes `rest` in the prefix code. Returns npos, or the position in `rest` of the number that is
/// too large.
std::size_t putRest(BitWriter& out, std::string_view rest) noexcept {
   bool afterNumber = false;
   for (std::size_t at = 0; at < rest.size();) {
      if (isDigit(rest[at])) {
         std::size_t const begin = at;
         if (!putNumber(out, rest, at)) {
            return begin;
         }
         afterNumber = true;
      } else {
         putCharacter(out, rest, at, afterNumber);
         afterNumber = false;
      }
   }
   return std::string_view::npos;
}

bool isHex(std::string_view text) noexcept {
   return std::all_of(text.begin(), text.end(), [](char c) { return hexValue(c) >= 0; });
}

/// Writes `rest` as a tail; false if it is not a tail or too long.
bool putTail(BitWriter& out, std::string_view rest) noexcept {
   bool const dashed = rest.size() == dashedTailSize && rest[dashPlace] == '-' &&
                       isHex(rest.substr(0, dashPlace)) && isHex(rest.substr(dashPlace + 1));
   if (dashed || (isHex(rest) && rest.size() <= 12)) {
      out.put(dashed ? dashedTail : hexTail, dashed ? 7 : 6);
      for (char const c : rest) {
         if (c != '-') {
            out.put(static_cast<U64>(hexValue(c)), 4);
         }
      }
      if (!dashed) {
         out.put(1, 1);
      }
      return true;
   }
   if (rest.size() > 8 || rest.find_first_not_of(plainTailChars) != std::string_view::npos) {
      return false;
   }
   out.put(plainTail, 7);
   for (char const c : rest) {
      out.put(plainTailChars.find(c) + 1, 6);
   }
   return true;
}

/// A name under construction. Bits whose name does not fit the buffer do not encode a name.
class NameWriter {
public:
   explicit NameWriter(NameBuffer& buffer) noexcept : buffer_(buffer) {}
   void put(std::string_view text) noexcept {
      if (text.size() > buffer_.size() - size_) {
         bad_ = true;
         return;
      }
      std::copy(text.begin(), text.end(), buffer_.begin() + static_cast<std::ptrdiff_t>(size_));
      size_ += text.size();
   }
   void put(char c) noexcept { put(std::string_view(&c, 1)); }
   void putNumber(U64 number) noexcept {
      char digits[20];
      auto const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
      put(std::string_view(digits, static_cast<std::size_t>(end - digits)));
   }
   void putHex(U64 digit) noexcept { put("0123456789abcdef"[digit]); }
   void fail() noexcept { bad_ = true; }
   bool bad() const noexcept { return bad_; }
   std::string_view name() const noexcept {
      return bad_ ? std::string_view() : std::string_view(buffer_.data(), size_);
   }

private:
   NameBuffer& buffer_;
   std::size_t size_ = 0;
   bool bad_ = false;
};

/// Reads a block character whose code's first bits have been read.
void readBlock(BitReader& in, NameWriter& out) noexcept {
   U64 const index = in.take(5);
   if (index < blockChars.size()) {
      out.put(blockChars[index]);
   } else {
      out.fail();
   }
}

void readNumber(BitReader& in, NameWriter& out) noexcept {
   for (NumberCode const& code : numberCodes) {
      if (in.peek(code.codeBits) == code.code) {
         in.take(code.codeBits);
         out.putNumber(code.first + in.take(code.extraBits));
         return;
      }
   }
   out.fail();
}

/// Reads what comes after a number.
void readAfterNumber(BitReader& in, NameWriter& out) noexcept {
   if (in.peek(1) == 0) {
      char const c = in.peek(2) == 1 ? '/' : in.peek(3) == 1 ? '.' : '-';
      unsigned const size = c == '/' ? 2 : c == '.' ? 3 : 4;
      if (in.take(size) == 0) {
         out.fail();
      }
      out.put(c);
      return;
   }
   if (in.peek(5) == 0b10000) {
      in.take(5);
      readBlock(in, out);
      return;
   }
   U8 const letter = letterTable.letterOf[in.peek(7)];
   if (letter == none) {
      out.fail();
      return;
   }
   in.take(letterTable.bits[letter]);
   if (letter == np) {
      out.put("np");
      return;
   }
   char const c = letter == nAfter ? 'n' : static_cast<char>('a' + letter);
   out.put(c);
   if (c == 'n') {
      // The next letter decides which of the codes of "n", or the code of "np", is correct.
      unsigned const next = in.peek(6);
      bool const isAfter = next > letterCode('p') && next <= letterCode('z');
      if (next == letterCode('p') || isAfter != (letter == nAfter)) {
         out.fail();
      }
   }
}

/// Reads the rest of a name as a tail; false if it is not a tail.
bool readTail(BitReader& in, NameWriter& out) noexcept {
   if (in.peek(6) == hexTail) {
      in.take(6);
      int const digits = (static_cast<int>(idBits) - std::countr_zero(in.left()) - 1) / 4;
      for (int i = 0; i < digits; ++i) {
         out.putHex(in.take(4));
      }
      return true;
   }
   if (in.peek(7) == dashedTail) {
      in.take(7);
      for (std::size_t i = 0; i < dashedTailSize; ++i) {
         if (i == dashPlace) {
            out.put('-');
         } else {
            out.putHex(in.take(4));
         }
      }
      return true;
   }
   if (in.peek(7) == plainTail) {
      in.take(7);
      while (U64 const index = in.take(6)) {
         out.put(plainTailChars[index - 1]);
      }
      return true;
   }
   return false;
}

/// Reads one item where a number may follow. True if it was a number.
bool readElsewhere(BitReader& in, NameWriter& out) noexcept {
   unsigned const next = in.peek(6);
   if (isNumberCode(next)) {
      readNumber(in, out);
      return true;
   }
   if (next >= 32 && next < 36) {
      in.take(4);
      readBlock(in, out);
      return false;
   }
   in.take(6);
   if (next >= 1 && next <= 3) {
      out.put("-./"[next - 1]);
   } else if (next == leadingZero) {
      out.put('0');
      unsigned const digit = in.peek(6);
      if (digit != leadingZero && !isNumberCode(digit)) {
         out.fail();
      }
   } else if (next >= letterCode('a') && next <= letterCode('z')) {
      out.put(static_cast<char>('a' + (next - letterCode('a'))));
   } else {
      out.fail();
   }
   return false;
}

}  // namespace

U64 const maxNumber = numberCodes.back().first + 0xffffffff;

Encoded encode(std::string_view name) noexcept {
   auto const strange = std::find_if_not(name.begin(), name.end(), isNameChar);
   if (strange != name.end()) {
      return {Encoded::Result::character, static_cast<std::size_t>(strange - name.begin()), 0};
   }
   auto const [number, covered] = placeOf(name);
   std::string_view const rest = name.substr(covered);
   BitWriter out;
   out.put(number, wordBits);
   BitWriter tail = out;
   std::size_t const tooLarge = putRest(out, rest);
   if (tooLarge == std::string_view::npos && out.fits()) {
      return {Encoded::Result::ok, 0, out.bits()};
   }
   if (putTail(tail, rest)) {
      return {Encoded::Result::ok, 0, tail.bits()};
   }
   if (tooLarge != std::string_view::npos) {
      return {Encoded::Result::number, covered + tooLarge, 0};
   }
   return {Encoded::Result::size, out.needed(), 0};
}

std::string_view decode(U64 bits, NameBuffer& buffer) noexcept {
   BitReader in(bits);
   NameWriter out(buffer);
   U64 const number = in.take(wordBits);
   if (number >= wordTable.wordOf.size()) {
      return {};
   }
   U8 const word = wordTable.wordOf[number];
   if (word != noWord) {
      out.put(words[word]);
   }
   if (readTail(in, out)) {
      // A tail is only correct for a name that does not fit otherwise. Encoding the name shows
      // that.
      Encoded const encoded = encode(out.name());
      bool const right = encoded.result == Encoded::Result::ok && encoded.bits == bits;
      return right ? out.name() : std::string_view();
   }
   bool afterNumber = false;
   while (in.left() != 0 && !out.bad()) {
      if (afterNumber) {
         readAfterNumber(in, out);
         afterNumber = false;
      } else {
         afterNumber = readElsewhere(in, out);
      }
   }
   std::string_view const name = out.name();
   return isPlaceOf(number, word, name) ? name : std::string_view();
}

}  // namespace Dorn::IntfIdImpl

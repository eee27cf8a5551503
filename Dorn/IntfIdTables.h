#pragma once

#include <array>
#include <string_view>

#include "Dorn/IntfIdWords.h"
#include "Sarn/Types.h"

// The code of a name's rest. What may come next depends on whether a number precedes it; codes
// increase from top to bottom, in the order of what they encode.
//
//    elsewhere (a number may follow)          after a number (none can follow)
//    000000       end                         0000         end
//    000001       -                           0001         -
//    000010       .                           001          .
//    000011       /                           01           /
//    000100       0, with more digits after it
//    00011        the number 0
//    001 + 3      numbers from 1
//    010 + 5      from 9
//    0110 + 6     from 41
//    01110 + 8    from 105
//    011110 + 12  from 361
//    0111110 + 20 from 4457
//    01111110 + 24
//    01111111 + 32
//    1000 + 5     : A-Z _                     10000 + 5    : A-Z _
//    100100...    a-z, six bits each          10001...     a-z, five bits for d f n p s u v and
//    111110       hexadecimal tail                         for "np", else seven
//    1111110      tail of the form 8-2
//    1111111      tail of letters and digits
//
// The end of a name needs no room, since the 64 bits are taken to be followed by zeros.
//
// A tail follows the word directly and is the whole rest of a name that would not fit otherwise:
//  - at most 12 lower-case hexadecimal digits of four bits each, and a 1 that marks the end;
//  - eight such digits, a dash and two digits, for virtual ports that are named after their UUIDs;
//  - at most eight of - 0-9 A-Z a-z, of six bits each, from 1.
// The first of these that holds a rest is its code.
namespace Dorn::IntfIdImpl {

inline constexpr unsigned idBits = 64;
inline constexpr unsigned wordBits = 9;
inline constexpr U8 noWord = 255;

static_assert(words.size() < noWord && 2 * words.size() < 1u << wordBits);

/// The forest of words, in which a word's parent is the longest other word that it begins with; and
/// the word that each number of the `word` field implies.
struct WordTable {
   std::array<U8, words.size()> parent{};
   /// How many words each word begins with, including itself.
   std::array<U8, words.size()> depth{};
   std::array<U8, 2 * words.size() + 1> wordOf{};
   /// The first word that begins with this character or a later one.
   std::array<U8, 129> firstOf{};

   constexpr WordTable() {
      for (std::size_t c = 0; c < firstOf.size(); ++c) {
         while (firstOf[c] < words.size() && static_cast<U8>(words[firstOf[c]].front()) < c) {
            ++firstOf[c];
         }
      }
      std::size_t number = 0;
      U8 top = noWord;
      wordOf[0] = noWord;
      for (std::size_t i = 0; i < words.size(); ++i) {
         while (top != noWord && !words[i].starts_with(words[top])) {
            top = parent[top];
            wordOf[++number] = top;
         }
         parent[i] = top;
         depth[i] = static_cast<U8>(top == noWord ? 1 : depth[top] + 1);
         top = static_cast<U8>(i);
         wordOf[++number] = top;
      }
      while (top != noWord) {
         top = parent[top];
         wordOf[++number] = top;
      }
   }
};

constexpr bool wordsAreSorted() {
   for (std::size_t i = 1; i < words.size(); ++i) {
      if (!(words[i - 1] < words[i])) {
         return false;
      }
   }
   return true;
}

static_assert(wordsAreSorted());
inline constexpr WordTable wordTable;

struct NumberCode {
   U8 code;
   U8 codeBits;
   U8 extraBits;
   U64 first;
};

inline constexpr std::array<NumberCode, 9> numberCodes = {{
      {0b00011, 5, 0, 0},
      {0b001, 3, 3, 1},
      {0b010, 3, 5, 9},
      {0b0110, 4, 6, 41},
      {0b01110, 5, 8, 105},
      {0b011110, 6, 12, 361},
      {0b0111110, 7, 20, 4457},
      {0b01111110, 8, 24, 4457 + (1u << 20)},
      {0b01111111, 8, 32, 4457 + (1u << 20) + (1u << 24)},
}};

inline constexpr unsigned hexTail = 0b111110;
inline constexpr unsigned dashedTail = 0b1111110;
inline constexpr unsigned plainTail = 0b1111111;
inline constexpr std::string_view plainTailChars =
      "-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

inline constexpr std::size_t dashedTailSize = 11;
inline constexpr std::size_t dashPlace = 8;

// Characters of the block that is ":", "A" to "Z", "_" in both halves of the table.
inline constexpr std::string_view blockChars = ":ABCDEFGHIJKLMNOPQRSTUVWXYZ_";

/// After a number, a letter is identified by its first seven bits: "np" has its own code, and "n"
/// has two, so that "n" sorts before "np" if a lower letter follows and after it if a higher one
/// does.
enum LetterAfterNumber : U8 { np = 26, nAfter = 27, none = 28 };

struct LetterTable {
   std::array<U8, 28> slot{};
   std::array<U8, 28> bits{};
   std::array<U8, 128> letterOf{};

   constexpr LetterTable() {
      letterOf.fill(none);
      unsigned at = 68;
      auto const place = [&](unsigned letter, bool isShort) {
         at = isShort ? (at + 3) / 4 * 4 : at;
         slot[letter] = static_cast<U8>(at);
         bits[letter] = isShort ? 5 : 7;
         for (unsigned n = isShort ? 4 : 1; n > 0; --n) {
            letterOf[at++] = static_cast<U8>(letter);
         }
      };
      for (unsigned letter = 0; letter < 26; ++letter) {
         char const c = static_cast<char>('a' + letter);
         place(letter, c == 'd' || c == 'f' || c == 'p' || c == 's' || c == 'u' || c == 'v');
         if (c == 'n') {
            place(np, true);
            place(nAfter, false);
         }
      }
   }
};

inline constexpr LetterTable letterTable;

}  // namespace Dorn::IntfIdImpl

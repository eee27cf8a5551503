#include "Kiv/Printable.h"

#include <gtest/gtest.h>

namespace {

using Kiv::printable;

TEST(Printable, LeavesTextAsItIs) {
   for (char const* const text :
        {"", "a b", "back\\slash \"quoted\"", "\xc3\xa9", "\xe2\x96\x81", "\xf0\x9f\x95\x91"}) {
      EXPECT_EQ(printable(text), text);
   }
}

TEST(Printable, EscapesWhatEndsALineOrSpeaksToATerminal) {
   EXPECT_EQ(printable("a\nb\rc\td"), "a\\nb\\rc\\td");
   EXPECT_EQ(printable("\x1b[2J\x07\x7f"), "\\x1b[2J\\x07\\x7f");
   EXPECT_EQ(printable(std::string("\0", 1)), "\\x00");
   EXPECT_EQ(printable("\xc2\x9b"
                       "2J"),
             "\\xc2\\x9b2J")
         << "a control sequence in two bytes";
   EXPECT_EQ(printable("\xe2\x80\xa8"), "\\xe2\\x80\\xa8") << "a separator of lines";
   EXPECT_EQ(printable("\xe2\x80\xae"
                       "txt"),
             "\\xe2\\x80\\xaetxt")
         << "text from right to left";
   EXPECT_EQ(printable("\xe2\x81\xa6"), "\\xe2\\x81\\xa6");
}

TEST(Printable, EscapesBytesThatAreNoUtf8) {
   EXPECT_EQ(printable("\x9b"
                       "2J"),
             "\\x9b2J")
         << "a control sequence in one byte";
   EXPECT_EQ(printable("\xc3"), "\\xc3");
   EXPECT_EQ(printable("\xc3(\xc3\xa9"), "\\xc3(\xc3\xa9");
   EXPECT_EQ(printable("\xc0\x8a"), "\\xc0\\x8a") << "a newline in more bytes than it needs";
   EXPECT_EQ(printable("\xe0\x82\x9b"), "\\xe0\\x82\\x9b");
   EXPECT_EQ(printable("\xed\xa0\x80"), "\\xed\\xa0\\x80");
   EXPECT_EQ(printable("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
   EXPECT_EQ(printable("\xff\xfe"), "\\xff\\xfe");
}

TEST(Printable, OfAnyBytesIsPrintableAndStaysSo) {
   for (int first = 0; first != 256; ++first) {
      for (int second = 0; second != 256; ++second) {
         std::string const text{static_cast<char>(first), static_cast<char>(second), 'x'};
         std::string const shown = printable(text);
         ASSERT_EQ(shown.find_first_of("\n\r\t\x1b\x7f"), std::string::npos)
               << first << ' ' << second;
         ASSERT_EQ(printable(shown), shown);
      }
   }
}

}  // namespace

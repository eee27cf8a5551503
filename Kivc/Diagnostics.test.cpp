#include "Kivc/Diagnostics.h"

#include <gtest/gtest.h>

namespace Kivc {
namespace {

TEST(Diagnostics, SortsByFileAndPosition) {
   Source const main("main.kiv", "a b\n", 0);
   Source const import("import.kiv", "c\n", 1);
   Diagnostics diagnostics;
   diagnostics.error({&import, 0, 1}, "third");
   diagnostics.error({&main, 2, 3}, "second");
   diagnostics.error({&main, 0, 1}, "first");
   EXPECT_EQ(diagnostics.render(),
             "main.kiv:1:1: error: first\na b\n^\n"
             "main.kiv:1:3: error: second\na b\n  ^\n"
             "import.kiv:1:1: error: third\nc\n^\n");
}

TEST(Diagnostics, CaretRunCoversTheSpanWithinItsLine) {
   Source const source("a.kiv", "\tname over\nlines\n");
   Diagnostics diagnostics;
   diagnostics.error({&source, 1, 5}, "one");
   diagnostics.error({&source, 6, 15}, "two");
   EXPECT_EQ(diagnostics.render(),
             "a.kiv:1:2: error: one\n\tname over\n\t^~~~\n"
             "a.kiv:1:7: error: two\n\tname over\n\t     ^~~~\n");
}

TEST(Diagnostics, NotesFollowTheirError) {
   Source const source("a.kiv", "x x\n");
   Diagnostics diagnostics;
   diagnostics.error({&source, 2, 3}, "again").note({&source, 0, 1}, "first here");
   EXPECT_EQ(diagnostics.render(),
             "a.kiv:1:3: error: again\nx x\n  ^\n"
             "a.kiv:1:1: note: first here\nx x\n^\n");
}

TEST(Diagnostics, OnePlaceGivesOneError) {
   Source const source("a.kiv", "x\n");
   Diagnostics diagnostics;
   diagnostics.error({&source, 0, 1}, "cause");
   diagnostics.error({&source, 0, 1}, "consequence");
   EXPECT_EQ(diagnostics.render(), "a.kiv:1:1: error: cause\nx\n^\n");
}

TEST(Diagnostics, CapCountsWhatItHides) {
   Source const source("a.kiv", "abc\n");
   Diagnostics diagnostics;
   for (std::size_t at = 0; at < 3; ++at) {
      diagnostics.error({&source, at, at + 1}, "wrong");
   }
   EXPECT_EQ(diagnostics.render(1),
             "a.kiv:1:1: error: wrong\nabc\n^\nkivc: 2 more errors not shown\n");
}

TEST(Diagnostics, ErrorWithoutPlaceIsPrintedAlone) {
   Diagnostics diagnostics;
   diagnostics.error({}, "cannot read 'x'");
   EXPECT_EQ(diagnostics.render(), "error: cannot read 'x'\n");
}

TEST(Diagnostics, ShowsWhatATerminalWouldObeyAsEscapes) {
   Source const source("\x1b[2J.kiv", "\ta\x1b[2J \xc2\x9b \xe2\x80\xae \xff \xc3\xa9 bad\r\n");
   Diagnostics diagnostics;
   auto const bad = source.text().find("bad");
   diagnostics.error({&source, bad, bad + 3}, "no \x7f, and no\nline");
   EXPECT_EQ(diagnostics.render(),
             "\\x1b[2J.kiv:1:16: error: no \\x7f, and no\\nline\n"
             "\ta\\x1b[2J \\xc2\\x9b \\xe2\\x80\\xae \\xff \xc3\xa9 bad\n\t" +
                   std::string(38, ' ') + "^~~\n");
}

TEST(Diagnostics, ACaretRunIsAsLongAsWhatIsShown) {
   Source const source("a.kiv", "x \x1b y\n");
   Diagnostics diagnostics;
   diagnostics.error({&source, 2, 3}, "unexpected character");
   EXPECT_EQ(diagnostics.render(), "a.kiv:1:3: error: unexpected character\nx \\x1b y\n  ^~~~\n");
}

TEST(NearestName, FindsWhatIsCloseAndNothingElse) {
   std::vector<std::string> const names{"attr", "child", "children", "U8"};
   EXPECT_EQ(nearestName("atr", names), "attr");
   EXPECT_EQ(nearestName("childs", names), "child");
   EXPECT_EQ(nearestName("u8", names), "U8");
   EXPECT_EQ(nearestName("wavelength", names), "");
   EXPECT_EQ(nearestName("x", {"a"}), "");
}

}  // namespace
}  // namespace Kivc

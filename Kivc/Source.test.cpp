#include "Kivc/Source.h"

#include <gtest/gtest.h>

namespace Kivc {
namespace {

TEST(Source, PositionCountsLinesAndColumnsFromOne) {
   Source const source("a.kiv", "one\ntwo\n");
   EXPECT_EQ(source.position(0).line, 1U);
   EXPECT_EQ(source.position(0).column, 1U);
   EXPECT_EQ(source.position(6).line, 2U);
   EXPECT_EQ(source.position(6).column, 3U);
}

TEST(Source, PositionBehindTheEndIsTheEnd) {
   Source const source("a.kiv", "one\nto");
   EXPECT_EQ(source.position(100).line, 2U);
   EXPECT_EQ(source.position(100).column, 3U);
}

TEST(Source, ColumnsCountCharactersNotBytes) {
   Source const source("a.kiv", "\xc3\xa4\xe2\x82\xacx");
   EXPECT_EQ(source.position(5).column, 3U);
}

TEST(Source, LineLeavesOutLineEnds) {
   Source const source("a.kiv", "one\r\ntwo");
   EXPECT_EQ(source.line(1), "one");
   EXPECT_EQ(source.line(2), "two");
   EXPECT_EQ(source.line(3), "");
   EXPECT_EQ(source.line(0), "");
}

TEST(Source, EmptyTextHasOneEmptyLine) {
   Source const source("a.kiv", "");
   EXPECT_EQ(source.position(0).line, 1U);
   EXPECT_EQ(source.line(1), "");
}

}  // namespace
}  // namespace Kivc

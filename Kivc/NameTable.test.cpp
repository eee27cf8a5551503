#include "Kivc/NameTable.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace Kivc {
namespace {

TEST(NameTable, OffsetsCountTheClosingNuls) {
   NameTable table;
   EXPECT_EQ(table.add(""), 0U);
   EXPECT_EQ(table.add("ab"), 1U);
   EXPECT_EQ(table.add("c"), 4U);
   EXPECT_EQ(table.size(), 6U);
   EXPECT_EQ(table.offset("c"), 4U);
}

TEST(NameTable, HoldsEachNameOnce) {
   NameTable table;
   table.add("ab");
   table.add("c");
   EXPECT_EQ(table.add("ab"), 0U);
   EXPECT_EQ(table.size(), 5U);
}

TEST(NameTable, MissingNameIsAnErrorOfTheEmitter) {
   NameTable const table;
   EXPECT_THROW(table.offset("x"), std::logic_error);
}

TEST(NameTable, LiteralsNameTheirOffsets) {
   NameTable table;
   table.add("ab");
   table.add("c");
   EXPECT_EQ(table.literals(), "\"ab\\0\"  // 0\n\"c\\0\";  // 3\n");
}

}  // namespace
}  // namespace Kivc

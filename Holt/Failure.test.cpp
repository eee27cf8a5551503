#include "Holt/Failure.h"

#include <gtest/gtest.h>

namespace Holt {
namespace {

TEST(Failure, IsOneLineThatNoTerminalObeys) {
   Failure const failure("a\x1b[2J\nb\xc2\x9b\xff: no such root", Exit::connection);
   EXPECT_STREQ(failure.what(), "a\\x1b[2J\\nb\\xc2\\x9b\\xff: no such root");
   EXPECT_EQ(failure.status(), Exit::connection);
}

}  // namespace
}  // namespace Holt
